#ifndef QTLOG_LINE_JOURNAL_P_H
#define QTLOG_LINE_JOURNAL_P_H

#include <logging/qtlog_global.h>
#include "qt_compat_p.h"

#include <QtCore/QMutex>

#include <atomic>

namespace logging {

class FlightRecorder;

// The lines that one destination has accepted and not yet written, kept
// formatted so that a crash can still write them: the signal handler reads
// them with neither a lock nor the heap.
//
// Lines are appended by the logging threads under the destination's queue
// lock and read in the same order by its drain (a Reader), which marks them
// written once they have reached the destination. They live in a chain of
// chunks; a chunk whose lines are all written is recycled, not freed line by
// line. Once a crash has begun, no chunk is recycled or freed any more.
class LineJournal
{
public:
    struct Chunk;

    LineJournal();
    ~LineJournal();

    // Where a crash writes this journal; -1: nowhere.
    void setCrashFd(int fd) { crashFd.store(fd, std::memory_order_release); }

    // Appends text and a line end. The caller holds the queue lock. The first
    // dayHeader bytes of text are a day header that only a file beginning
    // with this line writes (LogRecordFormater::formatLine()).
    void append(const char *text, int size, int dayHeader = 0);

    // The flight recorder, or null. Set and used under the queue lock; the
    // journal owns it.
    FlightRecorder *recorder() const { return recorderPtr.load(std::memory_order_relaxed); }
    // The most verbose level the recorder keeps; INT_MIN without one. Read
    // without a lock.
    int recorderLevel() const { return keepLevel.load(std::memory_order_relaxed); }
    // Replaces the recorder and returns the old one for the caller to delete
    // outside the queue lock.
    FlightRecorder *swapRecorder(FlightRecorder *recorder);
    // Appends the recorder's lines between two marker lines and empties it.
    // The caller holds the queue lock.
    void appendRecorder();

    // The drain's view: one reader at a time (the constructor waits for the
    // previous one to end). Lines it has passed count as written when it
    // calls markWritten() or ends.
    class Reader
    {
    public:
        explicit Reader(LineJournal &journal);
        // Waits at most timeoutMs for the previous reader; see isReading().
        Reader(LineJournal &journal, int timeoutMs);
        ~Reader();
        // False when the reader gave up waiting: it must not be used.
        bool isReading() const { return reading; }
        // The next committed line with its line end; false when there is none.
        // With dayHeader, text and size include the line's optional day
        // header, and *dayHeader is its size; without, they leave it out.
        bool peek(const char **text, int *size, int *dayHeader = 0);
        void next();
        void markWritten();
        // Passes over the oldest lines until those left take no more than
        // bytes; returns how many it passed.
        int skipBeyond(qint64 bytes);

    private:
        Q_DISABLE_COPY(Reader)
        LineJournal &journal;
        bool reading;
    };

    // Writes the unwritten lines where a crash would, as a drain does, once
    // the drain under way (if any) has ended: waits at most timeoutMs for it.
    // Lines that other threads keep adding are written for half a second at
    // most. False when nothing could be written.
    bool writeUnwritten(int timeoutMs);

    // Writes every unwritten line to fd, then the recorder's lines.
    // Async-signal-safe.
    void dumpForCrash(int fd) const;
    int fdForCrash() const { return crashFd.load(std::memory_order_acquire); }

private:
    Q_DISABLE_COPY(LineJournal)

    Chunk *newChunk(int size);
    void recycle(Chunk *chunk);

    std::atomic<Chunk *> head;      // the oldest chunk with lines not written
    Chunk *tail;                    // appended to; queue lock
    quint32 nextSeq;                // the next line's number; queue lock
    std::atomic<quint32> writtenSeq; // lines numbered before it are written
    std::atomic<int> crashFd;
    std::atomic<FlightRecorder *> recorderPtr;
    std::atomic<int> keepLevel;

    // The reader's position; readMutex.
    compat::Mutex readMutex;
    Chunk *readChunk;
    int readOffset;
    quint32 readSeq;

    // Spare chunks of the usual size.
    compat::Mutex spareMutex;
    Chunk *spare;
    int spareCount;
};

} // namespace logging

#endif // QTLOG_LINE_JOURNAL_P_H
