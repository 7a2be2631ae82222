// The line journal: the formatted lines a destination has accepted and not
// yet written, kept where a crash handler can still reach them.

#include "line_journal_p.h"

#include "cold_p.h"
#include "crash_p.h"
#include "flight_recorder_p.h"
#include "signal_safe_p.h"
#include "qt_compat_p.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QMutexLocker>

#include <new>

#include <climits>

#include <stdlib.h>
#include <string.h>

namespace logging {

namespace {

// A line in a chunk: this header, the text with its line end, padding to 4.
struct LineHeader
{
    quint32 seq;
    qint32 size;        // the text's, with the optional day header and the line end
    qint32 dayHeader;   // the size of the optional day header at its start
};

const int s_chunkBytes = 64 * 1024;
const int s_maxSpares = 4;
// How long writeUnwritten() goes on while other threads keep adding lines.
const int s_endWritingMs = 500;

int paddedSize(int size)
{
    return int(sizeof(LineHeader)) + ((size + 3) & ~3);
}

} // namespace

struct LineJournal::Chunk
{
    std::atomic<Chunk *> next;
    std::atomic<int> used;
    int capacity;

    char *data() { return reinterpret_cast<char *>(this + 1); }
    const char *data() const { return reinterpret_cast<const char *>(this + 1); }
};

QTLOG_COLD LineJournal::LineJournal()
    : head(nullptr), tail(nullptr), nextSeq(0), writtenSeq(0), crashFd(-1),
      recorderPtr(nullptr), keepLevel(INT_MIN), readChunk(nullptr), readOffset(0), readSeq(0), spare(nullptr),
      spareCount(0)
{
}

QTLOG_COLD LineJournal::~LineJournal()
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
        compat::MutexLocker locker(&spareMutex);
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
        compat::MutexLocker locker(&spareMutex);
        if (spareCount < s_maxSpares) {
            chunk->next.store(spare, std::memory_order_relaxed);
            spare = chunk;
            ++spareCount;
            return;
        }
    }
    free(chunk);
}

void LineJournal::append(const char *text, int size, int dayHeader)
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
    const LineHeader header = { nextSeq++, size + 1, dayHeader };
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
    : journal(journal), reading(true)
{
    journal.readMutex.lock();
}

LineJournal::Reader::Reader(LineJournal &journal, int timeoutMs)
    : journal(journal), reading(journal.readMutex.tryLock(qMax(0, timeoutMs)))
{
}

LineJournal::Reader::~Reader()
{
    if (!reading)
        return;
    markWritten();
    journal.readMutex.unlock();
}

bool LineJournal::Reader::peek(const char **text, int *size, int *dayHeader)
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
            const int skip = dayHeader ? 0 : header.dayHeader;
            *text = at + sizeof header + skip;
            *size = header.size - skip;
            if (dayHeader)
                *dayHeader = header.dayHeader;
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
    // A reader that has read nothing has passed no chunk: the first one may
    // have come in since it looked.
    if (!journal.readChunk)
        return;
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

int LineJournal::Reader::skipBeyond(qint64 bytes)
{
    const char *text;
    int size;
    if (!peek(&text, &size))
        return 0;
    // What waits: the rest of the chunk being read and every chunk after it.
    qint64 waiting = 0;
    int offset = journal.readOffset;
    for (Chunk *chunk = journal.readChunk; chunk; chunk = chunk->next.load(std::memory_order_acquire)) {
        waiting += chunk->used.load(std::memory_order_acquire) - offset;
        offset = 0;
    }
    int skipped = 0;
    while (waiting > bytes && peek(&text, &size)) {
        waiting -= paddedSize(size);
        next();
        ++skipped;
    }
    return skipped;
}

bool LineJournal::writeUnwritten(int timeoutMs)
{
    Reader reader(*this, timeoutMs);
    const int fd = fdForCrash();
    if (!reader.isReading() || fd < 0)
        return false;
    QElapsedTimer timer;
    timer.start();
    const char *text;
    int size;
    // Threads that go on logging must not keep this writing for good.
    for (int n = 1; reader.peek(&text, &size); ++n) {
        writeAll(fd, text, size);
        reader.next();
        if (n % 64 == 0 && timer.elapsed() > s_endWritingMs)
            break;
    }
    return true;
}

QTLOG_COLD void LineJournal::dumpForCrash(int fd) const
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
            const int skip = header.dayHeader > 0 && header.dayHeader < header.size ? header.dayHeader : 0;
            if (qint32(header.seq - written) >= 0)
                writeAll(fd, chunk->data() + offset + sizeof header + skip, header.size - skip);
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

} // namespace logging
