// The flight recorder: a fixed ring of recent formatted lines that the file
// did not take, and the marker lines around them when they are written.

#include "flight_recorder_p.h"

#include "signal_safe_p.h"

#include <QtCore/QtGlobal>

#include <string.h>

namespace logging {

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

} // namespace logging
