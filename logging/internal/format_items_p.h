#ifndef QTLOG_FORMAT_ITEMS_P_H
#define QTLOG_FORMAT_ITEMS_P_H

#include <logging/log_record.h>
#include <logging/log_record_formater.h>

#include "local_time_p.h"
#include "log_record_formater_p.h"

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
                   LogRecordFormater::Line &buffer);

    void append(const char *data, int size);
    void append(const QByteArray &text) { append(text.constData(), text.size()); }

    // The record's module as local 8-bit text.
    const QByteArray &moduleText();

    LogRecordFormater::State *state;
    const LogRecord *record;
    bool timeValid;         // the record's time is valid; then time holds its parts
    TimeParts time;
    bool dateChanged;       // the date differs from the last full time's
    bool secondChanged;     // more than 1000 ms past the last full time (or none yet)
    bool timeWritten;       // a full time has been written for this record
    bool cut;               // something did not fit
    LogRecordFormater::Line &buffer;
};

// Both run for every record, in the formatter and in the items: inline, so
// that neither costs a call.
inline OutFItemStream::OutFItemStream(LogRecordFormater::State *state, const LogRecord *record,
                                      LogRecordFormater::Line &buffer)
    : state(state)
    , record(record)
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
            secondChanged = time.msecs - state->lastSecond > 1000;
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

class FItemTime : public FormatItem
{
public:
    enum Mode { DayHeader = 0, Date = 1, AbbreviatedTime = 2, FullTime = 3 };
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

} // namespace logging

#endif // QTLOG_FORMAT_ITEMS_P_H
