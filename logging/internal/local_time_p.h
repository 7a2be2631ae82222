#ifndef QTLOG_LOCAL_TIME_P_H
#define QTLOG_LOCAL_TIME_P_H

#include <logging/qtlog_global.h>

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>

namespace logging {

// Local time without the C library's time-zone work per record. Converting
// to local time makes glibc check the time zone, which with TZ unset means a
// stat() of /etc/localtime every time; here that happens at most once per
// second and thread, and every record's QDateTime carries the local offset
// as a fixed offset from UTC: date(), time() and toString() give local time
// at no further cost.

// The current time: milliseconds since the epoch (UTC) and the local offset
// from UTC in seconds.
void currentTime(qint64 *msecs, int *offsetSeconds);

// The wall clock in microseconds since the epoch (UTC), and the local offset
// of a second of it, looked up at most once per second and thread.
qint64 wallClockMicros();
int currentOffset(qint64 second);

// Moves the wall clock that records are stamped with by msecs (up to about
// 24 days either way) against the system's, as setting the system's clock
// would. For tests: 0 undoes it.
QTLOG_EXPORT void setWallClockShift(int msecs);

// The local offset from UTC at msecs, in seconds.
int localOffsetAt(qint64 msecs);

// The QDateTime of the current local time.
QDateTime currentDateTime();

// The QDateTime of msecs since the epoch, in local time.
QDateTime localDateTime(qint64 msecs);

// A point in time split for output: milliseconds since the epoch, and the
// local day (days since 1970-01-01) and millisecond of that day.
struct TimeParts
{
    qint64 msecs;
    qint64 day;
    int msecOfDay;
};

// Works for a QDateTime of any kind; it costs no time-zone work for those of
// the functions above and for UTC.
TimeParts timeParts(const QDateTime &dateTime);

// The civil date of a day since 1970-01-01.
void civilDate(qint64 day, int *year, int *month, int *dayOfMonth);

} // namespace logging

#endif // QTLOG_LOCAL_TIME_P_H
