#ifndef QTLOG_CLOCK_STEP_P_H
#define QTLOG_CLOCK_STEP_P_H

#include <logging/qtlog_global.h>

#include <QtCore/QByteArray>

namespace logging {

// The time since boot, in milliseconds, on the clock that goes on counting
// through suspend (CLOCK_BOOTTIME; CLOCK_MONOTONIC where there is none).
qint64 bootTimeNow();

// When a new record is made.
struct RecordTime
{
    qint64 msecs;       // wall clock, milliseconds since the epoch (UTC)
    int offset;         // local offset from UTC, seconds
    qint64 bootMsecs;   // time since boot, milliseconds
    // Non-zero once for each step of the wall clock against the time since
    // boot of more than a second (NTP, "date -s", a late RTC): by how much
    // it stepped, in milliseconds. Only one caller in the process sees it.
    qint64 stepMsecs;
    // The wall clock's second differs from this thread's last call.
    bool newSecond;
};

// Reads both clocks and watches the wall clock for steps. The time since
// boot is read only when the wall clock's millisecond has moved on since
// this thread's last call; within one millisecond it follows from the
// difference of the two clocks seen then. Slow drift (NTP slewing) is
// followed without a report.
void readRecordTime(RecordTime *time);

// The function named in the report of a step.
const char clockStepFunction[] = "void logging::readRecordTime(logging::RecordTime*)";

// The message of the report of a step: "Clock stepped by +3600.000 s, the
// time is now 2026-11-25 06:00:00.000" (the local time).
QByteArray clockStepAmount(qint64 stepMsecs);
QByteArray clockStepNow(qint64 msecs, int offset);

} // namespace logging

#endif // QTLOG_CLOCK_STEP_P_H
