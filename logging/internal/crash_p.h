#ifndef QTLOG_CRASH_P_H
#define QTLOG_CRASH_P_H

#include <logging/qtlog_global.h>

#include <QtCore/QByteArray>
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
class QTLOG_EXPORT LineJournal
{
public:
    struct Chunk;

    LineJournal();
    ~LineJournal();

    // Where a crash writes this journal; -1: nowhere.
    void setCrashFd(int fd) { crashFd.store(fd, std::memory_order_release); }

    // Appends text and a line end. The caller holds the queue lock.
    void append(const char *text, int size);

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
        ~Reader();
        // The next committed line with its line end; false when there is none.
        bool peek(const char **text, int *size);
        void next();
        void markWritten();

    private:
        Q_DISABLE_COPY(Reader)
        LineJournal &journal;
    };

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
    QMutex readMutex;
    Chunk *readChunk;
    int readOffset;
    quint32 readSeq;

    // Spare chunks of the usual size.
    QMutex spareMutex;
    Chunk *spare;
    int spareCount;
};

// The most recent records that the file did not take, formatted, in a ring of
// bytes allocated when it is configured. Used under the queue lock; the crash
// handler reads it without one.
class QTLOG_EXPORT FlightRecorder
{
public:
    FlightRecorder(int records, int level, int dumpLevel);
    ~FlightRecorder();

    int capacity() const { return slotCount; }
    int level() const { return keepLevel; }
    int dumpLevel() const { return dumpAt; }
    int count() const { return used.load(std::memory_order_relaxed); }

    void keep(const char *text, int size);
    void clear();

    // Calls out(text, size) for each kept line, oldest first.
    template <typename Out>
    void forEach(Out &out) const;

    // The marker lines around the recorder's lines in the file.
    static int beginMarker(char *buffer, int count);
    static int endMarker(char *buffer, int count);

private:
    Q_DISABLE_COPY(FlightRecorder)

    struct Slot
    {
        int offset;
        int size;
    };

    void dropOldest();

    const int slotCount;
    const int keepLevel;
    const int dumpAt;
    const int byteCapacity;
    char *bytes;
    Slot *ring;
    std::atomic<int> first;     // the oldest slot
    std::atomic<int> used;      // slots in use
    int writeAt;                // where the next line's bytes go
};

template <typename Out>
void FlightRecorder::forEach(Out &out) const
{
    const int n = used.load(std::memory_order_acquire);
    const int start = first.load(std::memory_order_acquire);
    for (int i = 0; i < n && i < slotCount; ++i) {
        const Slot &slot = ring[(start + i) % slotCount];
        // Read without a lock by the crash handler: check before use.
        if (slot.offset >= 0 && slot.size > 0 && slot.size <= byteCapacity - slot.offset)
            out(bytes + slot.offset, slot.size);
    }
}

// The process's crash handler for SIGSEGV, SIGBUS, SIGILL, SIGFPE and SIGABRT:
// writes every journal, then one record naming the signal and the thread,
// then lets the signal take its course with the handlers that were there
// before. Installed by the Initializer unless "crash_handler = 0".
namespace crash {

QTLOG_EXPORT void install();
QTLOG_EXPORT void uninstall();

// A journal that the handler writes; a fixed number of places.
QTLOG_EXPORT bool registerJournal(LineJournal *journal);
QTLOG_EXPORT void unregisterJournal(LineJournal *journal);

// Whether the settings last applied want the handler: all but
// "crash_handler = 0".
QTLOG_EXPORT void setWanted(bool wanted);
QTLOG_EXPORT bool wanted();

// True once a crash is being handled.
QTLOG_EXPORT bool crashing();

// Called when the local offset is found again, so that the crash record's
// time needs no time-zone work.
QTLOG_EXPORT void noteLocalOffset(int offsetSeconds);

} // namespace crash

} // namespace logging

#endif // QTLOG_CRASH_P_H
