#include "crash_p.h"

#include <QtCore/QMutexLocker>

#include <new>

#include <climits>

#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace logging {

namespace {

// A line in a chunk: this header, the text with its line end, padding to 4.
struct LineHeader
{
    quint32 seq;
    qint32 size;
};

const int s_chunkBytes = 64 * 1024;
const int s_maxSpares = 4;

int paddedSize(int size)
{
    return int(sizeof(LineHeader)) + ((size + 3) & ~3);
}

// write(2) until everything is out or it fails for good.
void writeAll(int fd, const char *data, int size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size_t(size));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        data += n;
        size -= int(n);
    }
}

// Decimal digits of value at out, zero-padded to width; returns the end.
char *putNumber(char *out, unsigned long value, int width)
{
    char digits[24];
    int n = 0;
    do {
        digits[n++] = char('0' + value % 10);
        value /= 10;
    } while (value && n < int(sizeof digits));
    while (n < width && n < int(sizeof digits))
        digits[n++] = '0';
    while (n > 0)
        *out++ = digits[--n];
    return out;
}

char *putText(char *out, const char *text)
{
    while (*text)
        *out++ = *text++;
    return out;
}

} // namespace

// ---------------------------------------------------------------------------
// LineJournal

struct LineJournal::Chunk
{
    std::atomic<Chunk *> next;
    std::atomic<int> used;
    int capacity;

    char *data() { return reinterpret_cast<char *>(this + 1); }
    const char *data() const { return reinterpret_cast<const char *>(this + 1); }
};

LineJournal::LineJournal()
    : head(nullptr), tail(nullptr), nextSeq(0), writtenSeq(0), crashFd(-1),
      recorderPtr(nullptr), keepLevel(INT_MIN), readChunk(nullptr), readOffset(0), readSeq(0), spare(nullptr),
      spareCount(0)
{
}

LineJournal::~LineJournal()
{
    // The crash handler may still be reading: leave the memory to the end.
    if (crash::crashing())
        return;
    delete recorderPtr.load();
    Chunk *chunk = head.load();
    while (chunk) {
        Chunk *next = chunk->next.load();
        free(chunk);
        chunk = next;
    }
    while (spare) {
        Chunk *next = spare->next.load();
        free(spare);
        spare = next;
    }
}

LineJournal::Chunk *LineJournal::newChunk(int size)
{
    Chunk *chunk = nullptr;
    if (size <= s_chunkBytes) {
        QMutexLocker locker(&spareMutex);
        if (spare) {
            chunk = spare;
            spare = chunk->next.load(std::memory_order_relaxed);
            --spareCount;
        }
    }
    if (!chunk) {
        const int capacity = size > s_chunkBytes ? size : s_chunkBytes;
        void *memory = malloc(sizeof(Chunk) + size_t(capacity));
        if (!memory)
            return nullptr;
        chunk = new (memory) Chunk;
        chunk->capacity = capacity;
    }
    chunk->next.store(nullptr, std::memory_order_relaxed);
    chunk->used.store(0, std::memory_order_relaxed);
    return chunk;
}

void LineJournal::recycle(Chunk *chunk)
{
    if (chunk->capacity == s_chunkBytes) {
        QMutexLocker locker(&spareMutex);
        if (spareCount < s_maxSpares) {
            chunk->next.store(spare, std::memory_order_relaxed);
            spare = chunk;
            ++spareCount;
            return;
        }
    }
    free(chunk);
}

void LineJournal::append(const char *text, int size)
{
    const int need = paddedSize(size + 1);
    if (!tail || tail->capacity - tail->used.load(std::memory_order_relaxed) < need) {
        Chunk *chunk = newChunk(need);
        if (!chunk)
            return;     // no memory: the line cannot be kept
        if (tail)
            tail->next.store(chunk, std::memory_order_release);
        else
            head.store(chunk, std::memory_order_release);
        tail = chunk;
    }
    const int at = tail->used.load(std::memory_order_relaxed);
    char *out = tail->data() + at;
    const LineHeader header = { nextSeq++, size + 1 };
    memcpy(out, &header, sizeof header);
    memcpy(out + sizeof header, text, size_t(size));
    out[sizeof header + size_t(size)] = '\n';
    // Published only now: a crash before this line sees none of it.
    tail->used.store(at + need, std::memory_order_release);
}

FlightRecorder *LineJournal::swapRecorder(FlightRecorder *recorder)
{
    keepLevel.store(recorder ? recorder->level() : INT_MIN, std::memory_order_relaxed);
    return recorderPtr.exchange(recorder);
}

void LineJournal::appendRecorder()
{
    FlightRecorder *kept = recorder();
    const int count = kept ? kept->count() : 0;
    if (count == 0)
        return;
    char marker[96];
    append(marker, FlightRecorder::beginMarker(marker, count) - 1);
    struct Appender
    {
        LineJournal *journal;
        void operator()(const char *text, int size) { journal->append(text, size - 1); }
    } appender = { this };
    kept->forEach(appender);
    append(marker, FlightRecorder::endMarker(marker, count) - 1);
    kept->clear();
}

LineJournal::Reader::Reader(LineJournal &journal)
    : journal(journal)
{
    journal.readMutex.lock();
}

LineJournal::Reader::~Reader()
{
    markWritten();
    journal.readMutex.unlock();
}

bool LineJournal::Reader::peek(const char **text, int *size)
{
    for (;;) {
        Chunk *chunk = journal.readChunk;
        if (!chunk) {
            chunk = journal.head.load(std::memory_order_acquire);
            if (!chunk)
                return false;
            journal.readChunk = chunk;
            journal.readOffset = 0;
        }
        if (journal.readOffset < chunk->used.load(std::memory_order_acquire)) {
            LineHeader header;
            const char *at = chunk->data() + journal.readOffset;
            memcpy(&header, at, sizeof header);
            *text = at + sizeof header;
            *size = header.size;
            return true;
        }
        Chunk *next = chunk->next.load(std::memory_order_acquire);
        if (!next)
            return false;
        // A chunk is left for the next one only once it is full; its last
        // line may have come in just before the link.
        if (journal.readOffset < chunk->used.load(std::memory_order_acquire))
            continue;
        journal.readChunk = next;
        journal.readOffset = 0;
    }
}

void LineJournal::Reader::next()
{
    LineHeader header;
    memcpy(&header, journal.readChunk->data() + journal.readOffset, sizeof header);
    journal.readOffset += paddedSize(header.size);
    journal.readSeq = header.seq + 1;
}

void LineJournal::Reader::markWritten()
{
    journal.writtenSeq.store(journal.readSeq, std::memory_order_release);
    // Chunks before the one being read hold only written lines.
    Chunk *chunk = journal.head.load(std::memory_order_relaxed);
    while (chunk && chunk != journal.readChunk) {
        Chunk *next = chunk->next.load(std::memory_order_acquire);
        journal.head.store(next, std::memory_order_seq_cst);
        // A crash handler that began before the head moved may be reading it.
        if (crash::crashing())
            return;
        journal.recycle(chunk);
        chunk = next;
    }
}

void LineJournal::dumpForCrash(int fd) const
{
    const quint32 written = writtenSeq.load(std::memory_order_acquire);
    // The lines committed by now, and no later ones: threads that go on
    // logging meanwhile must not leave gaps in what is written.
    const Chunk *last = head.load(std::memory_order_acquire);
    int chunks = 0;
    while (last && chunks++ < (1 << 20)) {
        const Chunk *next = last->next.load(std::memory_order_acquire);
        if (!next)
            break;
        last = next;
    }
    const int lastUsed = last ? last->used.load(std::memory_order_acquire) : 0;

    for (const Chunk *chunk = head.load(std::memory_order_acquire); chunk;
         chunk = chunk->next.load(std::memory_order_acquire)) {
        int used = chunk == last ? lastUsed : chunk->used.load(std::memory_order_acquire);
        if (used > chunk->capacity)
            used = chunk->capacity;
        int offset = 0;
        while (offset + int(sizeof(LineHeader)) <= used) {
            LineHeader header;
            memcpy(&header, chunk->data() + offset, sizeof header);
            if (header.size <= 0 || header.size > used - offset - int(sizeof header))
                break;
            if (qint32(header.seq - written) >= 0)
                writeAll(fd, chunk->data() + offset + sizeof header, header.size);
            offset += paddedSize(header.size);
        }
        if (chunk == last)
            break;
    }

    const FlightRecorder *kept = recorderPtr.load(std::memory_order_acquire);
    const int count = kept ? kept->count() : 0;
    if (count > 0) {
        char marker[96];
        writeAll(fd, marker, FlightRecorder::beginMarker(marker, count));
        struct Writer
        {
            int fd;
            void operator()(const char *text, int size) { writeAll(fd, text, size); }
        } writer = { fd };
        kept->forEach(writer);
        writeAll(fd, marker, FlightRecorder::endMarker(marker, count));
    }
}

// ---------------------------------------------------------------------------
// FlightRecorder

FlightRecorder::FlightRecorder(int records, int level, int dumpLevel)
    : slotCount(records), keepLevel(level), dumpAt(dumpLevel),
      // About 200 bytes a line; a short ring would keep too few long lines.
      byteCapacity(qBound(16 * 1024, records * 200, 32 * 1024 * 1024)),
      bytes(new char[byteCapacity]), ring(new Slot[records]), first(0), used(0), writeAt(0)
{
}

FlightRecorder::~FlightRecorder()
{
    delete[] bytes;
    delete[] ring;
}

void FlightRecorder::dropOldest()
{
    first.store((first.load(std::memory_order_relaxed) + 1) % slotCount, std::memory_order_release);
    used.store(used.load(std::memory_order_relaxed) - 1, std::memory_order_release);
}

void FlightRecorder::keep(const char *text, int size)
{
    // A line is at most a quarter of the ring, so that one line cannot
    // push out all the others.
    int length = size + 1;
    if (length > byteCapacity / 4)
        length = byteCapacity / 4;
    if (count() == slotCount)
        dropOldest();
    int start = writeAt;
    if (start + length > byteCapacity) {
        // Wrap: what lies beyond is the oldest, and goes first.
        while (count() > 0 && ring[first.load(std::memory_order_relaxed)].offset >= start)
            dropOldest();
        start = 0;
    }
    while (count() > 0) {
        const int offset = ring[first.load(std::memory_order_relaxed)].offset;
        if (offset < start || offset >= start + length)
            break;
        dropOldest();
    }
    memcpy(bytes + start, text, size_t(length - 1));
    bytes[start + length - 1] = '\n';
    Slot &slot = ring[(first.load(std::memory_order_relaxed) + count()) % slotCount];
    slot.offset = start;
    slot.size = length;
    used.store(count() + 1, std::memory_order_release);
    writeAt = start + length;
}

void FlightRecorder::clear()
{
    used.store(0, std::memory_order_release);
    first.store(0, std::memory_order_release);
    writeAt = 0;
}

int FlightRecorder::beginMarker(char *buffer, int count)
{
    char *out = putText(buffer, "---- flight recorder: ");
    out = putNumber(out, unsigned(count), 1);
    out = putText(out, count == 1 ? " record follows ----\n" : " records follow ----\n");
    return int(out - buffer);
}

int FlightRecorder::endMarker(char *buffer, int count)
{
    char *out = putText(buffer, "---- flight recorder: end of ");
    out = putNumber(out, unsigned(count), 1);
    out = putText(out, count == 1 ? " record ----\n" : " records ----\n");
    return int(out - buffer);
}

// ---------------------------------------------------------------------------
// The crash handler

namespace crash {

namespace {

const int s_signals[] = { SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT };
const int s_signalCount = int(sizeof s_signals / sizeof s_signals[0]);
const char *const s_signalNames[] = { "SIGSEGV", "SIGBUS", "SIGILL", "SIGFPE", "SIGABRT" };

const int s_maxJournals = 8;
std::atomic<LineJournal *> s_journals[s_maxJournals];

struct sigaction s_previous[s_signalCount];
QMutex s_installMutex;
bool s_installed = false;

// 0: no crash; 1: a thread is writing the journals; 2: done.
std::atomic<int> s_state(0);
std::atomic<int> s_localOffset(0);
std::atomic<bool> s_wanted(true);

// An alternate stack for the installing thread, so that a stack overflow
// there can still be handled.
char s_altStack[64 * 1024];

int signalIndex(int signal)
{
    for (int i = 0; i < s_signalCount; ++i) {
        if (s_signals[i] == signal)
            return i;
    }
    return -1;
}

// "hh:mm:ss.zzz c [logging] Crash: signal SIGSEGV (11) in thread 4242 "name"".
void writeCrashRecord(int fd, int signal)
{
    char line[256];
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const long long local = (long long)now.tv_sec + s_localOffset.load(std::memory_order_relaxed);
    const long secondOfDay = long(((local % 86400) + 86400) % 86400);
    char *out = line;
    out = putNumber(out, unsigned(secondOfDay / 3600), 2);
    *out++ = ':';
    out = putNumber(out, unsigned(secondOfDay / 60 % 60), 2);
    *out++ = ':';
    out = putNumber(out, unsigned(secondOfDay % 60), 2);
    *out++ = '.';
    out = putNumber(out, unsigned(now.tv_nsec / 1000000), 3);
    out = putText(out, " c [logging] Crash: signal ");
    const int index = signalIndex(signal);
    out = putText(out, index >= 0 ? s_signalNames[index] : "");
    out = putText(out, " (");
    out = putNumber(out, unsigned(signal), 1);
    out = putText(out, ") in thread ");
    const long tid = long(syscall(SYS_gettid));
    out = putNumber(out, unsigned(tid), 1);
    char name[17] = { 0 };
    if (tid == long(getpid())) {
        out = putText(out, " (main)");
    } else if (prctl(PR_GET_NAME, name, 0, 0, 0) == 0 && name[0]) {
        out = putText(out, " \"");
        name[16] = 0;
        out = putText(out, name);
        *out++ = '"';
    }
    *out++ = '\n';
    writeAll(fd, line, int(out - line));
}

void onCrash(int signal, siginfo_t *info, void *)
{
    const int savedErrno = errno;
    int expected = 0;
    if (s_state.compare_exchange_strong(expected, 1)) {
        for (int i = 0; i < s_maxJournals; ++i) {
            const LineJournal *journal = s_journals[i].load();
            const int fd = journal ? journal->fdForCrash() : -1;
            if (fd < 0)
                continue;
            journal->dumpForCrash(fd);
            writeCrashRecord(fd, signal);
        }
        s_state.store(2);
    } else {
        // Another thread crashed first: let it finish writing (a few seconds
        // at most) before this signal ends the process.
        for (int i = 0; i < 500 && s_state.load() == 1; ++i) {
            struct timespec pause = { 0, 10 * 1000 * 1000 };
            nanosleep(&pause, nullptr);
        }
    }

    // Back to what was there before, which then handles the signal: a fault
    // comes again when the instruction is retried; a sent signal (abort(),
    // raise, kill) is sent again and arrives when this handler returns.
    const int index = signalIndex(signal);
    if (index >= 0)
        sigaction(signal, &s_previous[index], nullptr);
    else
        ::signal(signal, SIG_DFL);
    if (!info || info->si_code <= 0 || signal == SIGABRT)
        raise(signal);
    errno = savedErrno;
}

} // namespace

void install()
{
    QMutexLocker locker(&s_installMutex);
    if (s_installed)
        return;
    stack_t current;
    if (sigaltstack(nullptr, &current) == 0 && (current.ss_flags & SS_DISABLE)) {
        stack_t stack;
        stack.ss_sp = s_altStack;
        stack.ss_size = sizeof s_altStack;
        stack.ss_flags = 0;
        sigaltstack(&stack, nullptr);
    }
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_sigaction = &onCrash;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (int i = 0; i < s_signalCount; ++i)
        sigaction(s_signals[i], &action, &s_previous[i]);
    s_installed = true;
}

void uninstall()
{
    QMutexLocker locker(&s_installMutex);
    if (!s_installed)
        return;
    for (int i = 0; i < s_signalCount; ++i) {
        struct sigaction current;
        // Only where ours is still in place: a later handler keeps its own.
        if (sigaction(s_signals[i], nullptr, &current) == 0
            && (current.sa_flags & SA_SIGINFO) && current.sa_sigaction == &onCrash)
            sigaction(s_signals[i], &s_previous[i], nullptr);
    }
    s_installed = false;
}

bool registerJournal(LineJournal *journal)
{
    for (int i = 0; i < s_maxJournals; ++i) {
        LineJournal *empty = nullptr;
        if (s_journals[i].compare_exchange_strong(empty, journal))
            return true;
    }
    return false;
}

void unregisterJournal(LineJournal *journal)
{
    for (int i = 0; i < s_maxJournals; ++i) {
        LineJournal *expected = journal;
        s_journals[i].compare_exchange_strong(expected, nullptr);
    }
}

void setWanted(bool wanted)
{
    s_wanted.store(wanted);
}

bool wanted()
{
    return s_wanted.load();
}

bool crashing()
{
    return s_state.load(std::memory_order_seq_cst) != 0;
}

void noteLocalOffset(int offsetSeconds)
{
    s_localOffset.store(offsetSeconds, std::memory_order_relaxed);
}

} // namespace crash

} // namespace logging
