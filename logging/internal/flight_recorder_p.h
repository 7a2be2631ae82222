#ifndef QTLOG_FLIGHT_RECORDER_P_H
#define QTLOG_FLIGHT_RECORDER_P_H

#include <logging/qtlog_global.h>

#include <atomic>

namespace logging {

// The most recent records that the file did not take, formatted, in a ring of
// bytes allocated when it is configured. Used under the queue lock; the crash
// handler reads it without one.
class FlightRecorder
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

} // namespace logging

#endif // QTLOG_FLIGHT_RECORDER_P_H
