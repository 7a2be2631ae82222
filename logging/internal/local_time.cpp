#include "local_time_p.h"

#include "crash_p.h"

#include "qt_compat_p.h"

#include <atomic>
#include <ctime>
#include <sys/time.h>

namespace logging {

namespace compat {

// Milliseconds since the epoch and the offset from UTC in seconds of a
// QDateTime with a fixed offset (or UTC); false for any other kind.
inline bool fixedOffset(const QDateTime &dateTime, qint64 *msecs, int *offsetSeconds)
{
    const Qt::TimeSpec timeSpec = dateTime.timeSpec();
    if (timeSpec != Qt::OffsetFromUTC && timeSpec != Qt::UTC)
        return false;
    *msecs = dateTime.toMSecsSinceEpoch();
#if QT_VERSION < 0x050000
    *offsetSeconds = timeSpec == Qt::UTC ? 0 : dateTime.utcOffset();
#else
    *offsetSeconds = dateTime.offsetFromUtc();
#endif
    return true;
}

} // namespace compat

namespace {

const qint64 s_msecsPerDay = 86400000;

qint64 floorDiv(qint64 a, qint64 b)
{
    return a >= 0 ? a / b : -((-a + b - 1) / b);
}

// The offset of one second, read from the C library. tzset() makes it look
// at TZ and the zone file again; localtime_r() alone does not.
int offsetOf(time_t second, bool recheckZone)
{
    if (recheckZone)
        tzset();
    struct tm local;
    if (!localtime_r(&second, &local))
        return 0;
    return int(local.tm_gmtoff);
}

// Per thread: the second last looked at and its offset. One object: one
// look-up of the thread's storage.
struct ThreadZone
{
    qint64 second;
    bool haveSecond;
    int offset;
};
thread_local ThreadZone t_zone = { -1, false, 0 };

// Milliseconds: 32-bit atomics are what every target has.
std::atomic<int> s_shiftMsecs(0);

} // namespace

qint64 wallClockMicros()
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return qint64(now.tv_sec) * 1000000 + now.tv_nsec / 1000
        + qint64(s_shiftMsecs.load(std::memory_order_relaxed)) * 1000;
}

int currentOffset(qint64 second)
{
    ThreadZone &zone = t_zone;
    if (!zone.haveSecond || second != zone.second) {
        // A new second: the zone may have changed (DST, a new TZ).
        zone.offset = offsetOf(time_t(second), true);
        crash::noteLocalOffset(zone.offset);
        zone.second = second;
        zone.haveSecond = true;
    }
    return zone.offset;
}

void currentTime(qint64 *msecs, int *offsetSeconds)
{
    const qint64 micros = wallClockMicros();
    *msecs = floorDiv(micros, 1000);
    *offsetSeconds = currentOffset(floorDiv(micros, 1000000));
}

void setWallClockShift(int msecs)
{
    s_shiftMsecs.store(msecs, std::memory_order_relaxed);
}

int localOffsetAt(qint64 msecs)
{
    const qint64 second = floorDiv(msecs, 1000);
    const ThreadZone &zone = t_zone;
    if (zone.haveSecond && second == zone.second)
        return zone.offset;
    return offsetOf(time_t(second), false);
}

QDateTime currentDateTime()
{
    qint64 msecs;
    int offset;
    currentTime(&msecs, &offset);
    return compat::offsetDateTime(msecs, offset);
}

QDateTime localDateTime(qint64 msecs)
{
    return compat::offsetDateTime(msecs, localOffsetAt(msecs));
}

TimeParts timeParts(const QDateTime &dateTime)
{
    TimeParts parts;
    int offset;
    if (compat::fixedOffset(dateTime, &parts.msecs, &offset)) {
        const qint64 local = parts.msecs + qint64(offset) * 1000;
        parts.day = floorDiv(local, s_msecsPerDay);
        parts.msecOfDay = int(local - parts.day * s_msecsPerDay);
        return parts;
    }
    parts.msecs = dateTime.toMSecsSinceEpoch();
    const QTime time = dateTime.time();
    parts.day = dateTime.date().toJulianDay() - compat::julianDayOfEpoch;
    parts.msecOfDay = ((time.hour() * 60 + time.minute()) * 60 + time.second()) * 1000
        + time.msec();
    return parts;
}

void civilDate(qint64 day, int *year, int *month, int *dayOfMonth)
{
    // Howard Hinnant's days-to-civil conversion, proleptic Gregorian.
    const qint64 z = day + 719468;
    const qint64 era = floorDiv(z, 146097);
    const qint64 doe = z - era * 146097;
    const qint64 yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const qint64 doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const qint64 mp = (5 * doy + 2) / 153;
    const int d = int(doy - (153 * mp + 2) / 5 + 1);
    const int m = int(mp < 10 ? mp + 3 : mp - 9);
    *year = int(yoe + era * 400 + (m <= 2 ? 1 : 0));
    *month = m;
    *dayOfMonth = d;
}

} // namespace logging
