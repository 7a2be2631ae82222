#ifndef QTLOG_FORMAT_ITEMS_P_H
#define QTLOG_FORMAT_ITEMS_P_H

#include <logging/log_record.h>
#include <logging/log_record_formater.h>

#include "local_time_p.h"
#include "log_record_formater_p.h"
#include "text_escape_p.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace logging {

class ByteArray2CharStream;

// The state of formatting one record, shared by the items.
//
// One record's text is at most maxText bytes, whatever the message and the
// format: items append through append(), which keeps what fits and marks the
// record as cut; format() then ends it with cutMarker.
struct OutFItemStream
{
    static const int maxText = 1024 * 1024;

    OutFItemStream(LogRecordFormater::State *state, const LogRecord *record,
                   LogRecordFormater::Line &buffer, bool escape);

    void append(const char *data, int size);
    void append(const QByteArray &text) { append(text.constData(), text.size()); }
    bool full() const { return cut; }
    // Appends text that comes from the record: escaped unless escaping is
    // off (text_escape_p.h). lineFeeds: line feeds are kept as they are.
    void appendText(const char *data, int size, bool lineFeeds);
    void appendText(const QByteArray &text) { appendText(text.constData(), text.size(), false); }

    // The record's module and thread name as local 8-bit text, escaped as
    // appendText() would.
    const QByteArray &moduleText();
    const QByteArray &threadNameText();

    LogRecordFormater::State *state;
    const LogRecord *record;
    bool escape;
    bool timeValid;         // the record's time is valid; then time holds its parts
    TimeParts time;
    bool dateChanged;       // the date differs from the last full time's
    bool secondChanged;     // more than 1000 ms past the last full time, or before it (or none yet)
    bool timeWritten;       // a full time has been written for this record
    bool cut;               // something did not fit
    LogRecordFormater::Line &buffer;
};

// Both run for every record, in the formatter and in the items: inline, so
// that neither costs a call.
inline OutFItemStream::OutFItemStream(LogRecordFormater::State *state, const LogRecord *record,
                                      LogRecordFormater::Line &buffer, bool escape)
    : state(state)
    , record(record)
    , escape(escape)
    , timeValid(record->dateTime.isValid())
    , dateChanged(true)
    , secondChanged(!state->haveLast)
    , timeWritten(false)
    , cut(false)
    , buffer(buffer)
{
    if (timeValid) {
        time = timeParts(record->dateTime);
        if (state->alone) {
            dateChanged = false;
            secondChanged = true;
        } else if (state->haveLast) {
            dateChanged = time.day != state->lastDay;
            // Milliseconds alone would place a record from before the last
            // full time (the clock set back) after it.
            const qint64 since = time.msecs - state->lastSecond;
            secondChanged = since > 1000 || since < 0;
        }
    }
}

inline void OutFItemStream::append(const char *data, int size)
{
    if (size <= 0 || cut)
        return;
    const int room = maxText - buffer.size();
    if (size > room) {
        size = room;
        cut = true;
    }
    buffer.append(data, size);
}

inline void OutFItemStream::appendText(const char *data, int size, bool lineFeeds)
{
    if (!escape || plainText(data, size))
        append(data, size);
    else
        writeEscaped(*this, data, size, lineFeeds);
}

class FormatItem
{
public:
    virtual void read(ByteArray2CharStream &in) = 0;
    virtual void out(OutFItemStream &out) const = 0;
    virtual ~FormatItem();
};

class FItemStaticText : public FormatItem
{
public:
    void read(ByteArray2CharStream &in) override;
    void out(OutFItemStream &out) const override;

    QByteArray text;
};

// A level outside 0..5 is written as its decimal number in every mode.
class FItemLevel : public FormatItem
{
public:
    enum Mode { Char = 0, Number = 1, Text = 2 };
    void read(ByteArray2CharStream &in) override;
    void out(OutFItemStream &out) const override;

    int mode = Char;
};

// BootTime: the time since boot in seconds with three decimals; it takes no
// pattern.
class FItemTime : public FormatItem
{
public:
    enum Mode { DayHeader = 0, Date = 1, AbbreviatedTime = 2, FullTime = 3, BootTime = 4 };
    void read(ByteArray2CharStream &in) override;
    void out(OutFItemStream &out) const override;
    void append2Stream(OutFItemStream &out, const char *builtinPattern) const;

    // The pattern as a short program for appendTime(), or an empty array when
    // it needs QDateTime::toString(): digits of hh, mm, ss, zzz, yyyy, MM and
    // dd, and text without letters or quotes are done by hand.
    static QByteArray compilePattern(const QString &pattern);
    // Appends the time by plan; false (and nothing appended) when it cannot.
    static bool appendTime(OutFItemStream &out, const QByteArray &plan);

    int mode = AbbreviatedTime;
    QString format;     // custom QDateTime pattern; empty means built-in

private:
    QByteArray plan;        // format compiled, kept while format is unchanged
    QString planFormat;
};

// The indent is capped at maxIndent spaces, so that no format string can make
// a record allocate without bound.
class FItemMessText : public FormatItem
{
public:
    enum Mode { Indented = 0, Joined = 1, Full = 2 };
    static const int maxIndent = 1024;
    void read(ByteArray2CharStream &in) override;
    void out(OutFItemStream &out) const override;

    int mode = Indented;
    int indent = 11;
};

class FItemCallPos : public FormatItem
{
public:
    enum Mode { Module = 0, File = 1, FileName = 2, Line = 3, Function = 4 };
    void read(ByteArray2CharStream &in) override;
    void out(OutFItemStream &out) const override;

    int mode = Module;
    char linePrefix = 0;    // 0: none
};

// The process id, the id of the thread that made the record, its name.
class FItemThread : public FormatItem
{
public:
    enum Mode { ProcessId = 0, ThreadId = 1, ThreadName = 2 };
    void read(ByteArray2CharStream &in) override;
    void out(OutFItemStream &out) const override;

    int mode = ProcessId;
};

// The record's number among those that the formatter has formatted, from 1;
// "-" for a record formatted alone (the flight recorder's).
class FItemSequence : public FormatItem
{
public:
    void read(ByteArray2CharStream &in) override;
    void out(OutFItemStream &out) const override;
};

} // namespace logging

#endif // QTLOG_FORMAT_ITEMS_P_H
