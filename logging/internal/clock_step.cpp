#include "clock_step_p.h"

#include "local_time_p.h"

#include "qt_compat_p.h"

#include <atomic>
#include <climits>
#include <ctime>

namespace logging {

namespace {

// Wall clock minus time since boot, in microseconds, as the process saw it
// last. Changed under s_driftMutex, which is rare (a step, or drift of a
// tenth of a second); read without a lock, as a sequence lock over two
// halves: 32-bit atomics are what every target has. An even sequence number
// means no write under way, 0 that there is no value yet.
compat::Mutex s_driftMutex;
std::atomic<unsigned> s_driftSequence(0);
std::atomic<quint32> s_driftHigh(0);
std::atomic<quint32> s_driftLow(0);

// False when there is no value yet.
bool seenDrift(qint64 *micros)
{
    for (;;) {
        // Acquire loads: the second look at the sequence comes after them.
        const unsigned before = s_driftSequence.load(std::memory_order_acquire);
        const quint32 high = s_driftHigh.load(std::memory_order_acquire);
        const quint32 low = s_driftLow.load(std::memory_order_acquire);
        if (!(before & 1) && s_driftSequence.load(std::memory_order_relaxed) == before) {
            *micros = qint64((quint64(high) << 32) | low);
            return before != 0;
        }
    }
}

// Call with s_driftMutex held.
void storeDrift(qint64 micros)
{
    // Released halves: a reader that sees one of them sees the odd number
    // that came before it when it looks at the sequence again.
    s_driftSequence.fetch_add(1, std::memory_order_relaxed);
    s_driftHigh.store(quint32(quint64(micros) >> 32), std::memory_order_release);
    s_driftLow.store(quint32(quint64(micros)), std::memory_order_release);
    s_driftSequence.fetch_add(1, std::memory_order_release);
}

// A step: more than a second. Below it, a change of at least this much is
// taken over quietly, so that slewing never adds up to a step.
const qint64 s_stepMicros = 1000000;
const qint64 s_followMicros = 100000;

// Per thread: the wall clock's millisecond and second of the last call, the
// drift and the local offset seen then. Plain data: no guard on access.
struct ThreadClock
{
    qint64 msecs;
    qint64 second;
    qint64 driftMicros;
    int offset;
};
thread_local ThreadClock t_clock = { LLONG_MIN, LLONG_MIN, 0, 0 };

qint64 bootMicros()
{
    struct timespec now;
#ifdef CLOCK_BOOTTIME
    if (clock_gettime(CLOCK_BOOTTIME, &now) != 0)
#endif
        clock_gettime(CLOCK_MONOTONIC, &now);
    return qint64(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

qint64 magnitude(qint64 value)
{
    return value < 0 ? -value : value;
}

// Writes value at out, at least digits wide with leading zeros; returns the end.
char *putDigits(char *out, qint64 value, int digits)
{
    char text[24];
    int n = 0;
    do {
        text[n++] = char('0' + value % 10);
        value /= 10;
    } while (value && n < int(sizeof text));
    while (n < digits)
        text[n++] = '0';
    while (n > 0)
        *out++ = text[--n];
    return out;
}

} // namespace

qint64 bootTimeNow()
{
    return bootMicros() / 1000;
}

void readRecordTime(RecordTime *time)
{
    qint64 wall = wallClockMicros();
    time->msecs = wall / 1000;
    time->stepMsecs = 0;
    ThreadClock &clock = t_clock;
    time->newSecond = false;
    if (time->msecs == clock.msecs) {
        time->offset = clock.offset;
        time->bootMsecs = (wall - clock.driftMicros) / 1000;
        return;
    }
    qint64 boot = bootMicros();
    qint64 drift = wall - boot;
    qint64 seen = 0;
    if (!seenDrift(&seen) || magnitude(drift - seen) >= s_followMicros) {
        if (magnitude(drift - seen) > s_stepMicros) {
            // This reading may predate a step that another thread has
            // already taken over: read again before calling it a step.
            wall = wallClockMicros();
            boot = bootMicros();
            drift = wall - boot;
            time->msecs = wall / 1000;
        }
        // Under the lock, so that one thread alone reports a step.
        compat::MutexLocker locker(&s_driftMutex);
        if (!seenDrift(&seen)) {
            storeDrift(drift);
        } else {
            const qint64 change = drift - seen;
            if (magnitude(change) >= s_followMicros) {
                storeDrift(drift);
                if (magnitude(change) > s_stepMicros)
                    time->stepMsecs = (change + (change < 0 ? -500 : 500)) / 1000;
            }
        }
    }
    clock.msecs = time->msecs;
    clock.driftMicros = drift;
    const qint64 second = wall / 1000000;
    time->newSecond = second != clock.second;
    if (time->newSecond) {
        clock.second = second;
        clock.offset = currentOffset(second);
    }
    time->offset = clock.offset;
    time->bootMsecs = boot / 1000;
}

QByteArray clockStepAmount(qint64 stepMsecs)
{
    char text[32];
    char *out = text;
    *out++ = stepMsecs < 0 ? '-' : '+';
    const qint64 size = magnitude(stepMsecs);
    out = putDigits(out, size / 1000, 1);
    *out++ = '.';
    out = putDigits(out, size % 1000, 3);
    return QByteArray(text, int(out - text));
}

QByteArray clockStepNow(qint64 msecs, int offset)
{
    const qint64 dayMsecs = 86400000;
    const qint64 local = msecs + qint64(offset) * 1000;
    const qint64 days = local >= 0 ? local / dayMsecs : -((-local + dayMsecs - 1) / dayMsecs);
    const int msecOfDay = int(local - days * dayMsecs);
    int year, month, day;
    civilDate(days, &year, &month, &day);
    year = qMax(year, 0);
    char text[40];
    char *out = putDigits(text, year, 4);
    *out++ = '-';
    out = putDigits(out, month, 2);
    *out++ = '-';
    out = putDigits(out, day, 2);
    *out++ = ' ';
    out = putDigits(out, msecOfDay / 3600000, 2);
    *out++ = ':';
    out = putDigits(out, msecOfDay / 60000 % 60, 2);
    *out++ = ':';
    out = putDigits(out, msecOfDay / 1000 % 60, 2);
    *out++ = '.';
    out = putDigits(out, msecOfDay % 1000, 3);
    return QByteArray(text, int(out - text));
}

} // namespace logging
