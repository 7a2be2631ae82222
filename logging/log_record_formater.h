#ifndef QTLOG_LOG_RECORD_FORMATER_H
#define QTLOG_LOG_RECORD_FORMATER_H

#include <logging/qtlog_global.h>

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QScopedPointer>

namespace logging {

class Config;
class LogRecord;

// Turns records into text by a format string, one per destination. It holds
// two parsed formats: one for Trace records, one for all others.
//
// The format language: '#' starts an item, everything else is literal text.
//   #l  level: c letter (default), n number, t name
//   #t  time: d day header line when the date changes, D date,
//       t time or, within the same second, only the milliseconds (default),
//       T time always; f'pattern' replaces the built-in QDateTime pattern;
//       u time since boot in seconds with three decimals
//   #m  message: s (default) with continuation lines indented by the
//       following number of spaces (default 11), d lines joined, f as is
//   #c  call position: m module (default), f file, F file name,
//       l line (lp<x>: preceded by x), u function
//   #p  process id (p, default), t thread id, n thread name
//   #n  the record's number among those formatted, from 1
// Malformed formats never fail: unknown letters become literal text.
//
// Text from the record (message, module, file, function, thread name) is
// escaped unless the key "escape" is 0: control characters but tab and
// line feed, C1 controls, U+2028 and U+2029 are written as backslash
// sequences, bytes that are not UTF-8 as U+FFFD. A line feed is written as
// the message items say, and as "\x0a" in the other fields.
class QTLOG_EXPORT LogRecordFormater
{
public:
    class Items;
    struct State;
    struct Line;

    // Starts with the built-in formats
    // "#tTf'hh:mm:ss.zzz' #lc [#cm] #ms11" and, for Trace records,
    // "#tTf'hh:mm:ss.zzz' #cF:#cl [#cm]".
    LogRecordFormater();
    ~LogRecordFormater();

    // Takes "format", "trace_format" and "escape" of section; an empty or
    // blank format falls back to its built-in format.
    void reloadConfig(Config &config, const char *section);

    // The record's text, without a line end. Safe against a concurrent
    // reloadConfig(), but calls for one formatter must not overlap: the
    // abbreviated time depends on the record formatted before.
    QByteArray format(const LogRecord &record);
    // As format(), but the text stays in the formatter, valid until its next
    // call: no copy is made. When dayHeader is not null, a format with a day
    // header puts the header of the record's day in front of every line
    // whose date has not changed, for a file that begins with that line;
    // *dayHeader is its size, 0 when there is none.
    const char *formatLine(const LogRecord &record, int *size, int *dayHeader = 0);
    // As formatLine(), but the record's text has its full time and no day
    // header, neither depending on nor changing what format() and
    // formatLine() keep from record to record.
    const char *formatAlone(const LogRecord &record, int *size);
    // The next record that format() makes gets its full time.
    void restart();

    // Parses config into items, replacing what items held. When unknown is
    // not null, it receives the position of every '#' that starts no item
    // (at the end, or before a letter that is no item) and was dropped.
    static void configStringToItems(Items &items, const QByteArray &config,
                                    QList<int> *unknown = 0);

    // The built-in format, for Trace records or for all others.
    static QByteArray builtinFormat(bool trace);

private:
    Q_DISABLE_COPY(LogRecordFormater)

    QByteArray formatWith(State &state, const LogRecord &record);
    void formatInto(State &state, const LogRecord &record, Line &line, int *dayHeader = 0);

    // Guards the items against a reload; formatting holds it too, since
    // calls for one formatter do not overlap anyway.
    QMutex lock;
    // The time of the last record whose full time was written, and caches.
    QScopedPointer<State> state;
    QScopedPointer<State> aloneState;   // formatAlone()'s own
    QScopedPointer<Items> items;
    QScopedPointer<Items> traceItems;
    bool escape;
};

} // namespace logging

#endif // QTLOG_LOG_RECORD_FORMATER_H
