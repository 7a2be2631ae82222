#ifndef QTLOG_LOG_RECORD_FORMATER_P_H
#define QTLOG_LOG_RECORD_FORMATER_P_H

#include <logging/log_record.h>
#include <logging/log_record_formater.h>

#include "local_time_p.h"

#include <QtCore/QList>
#include <QtCore/QVarLengthArray>
#include <QtCore/QVector>

#include <cstring>

namespace logging {

// A line's bytes while it is made: a usual line needs no heap.
struct LogRecordFormater::Line : QVarLengthArray<char, 512>
{
};

// A forward reader over one format string.
class ByteArray2CharStream
{
public:
    explicit ByteArray2CharStream(const QByteArray &data)
        : data(data), pos(0), size(data.size())
    {
    }

    bool atEnd() const { return pos >= size; }
    // The next character, or 0 at the end.
    char peek() const { return pos < size ? data.at(pos) : '\0'; }
    void next() { ++pos; }

    // Consumes the next character if it is one of letters and returns its
    // index there; returns -1 and consumes nothing otherwise.
    int lookUp(const char *letters)
    {
        const char c = peek();
        const char *hit = c ? std::strchr(letters, c) : nullptr;
        if (!hit)
            return -1;
        ++pos;
        return int(hit - letters);
    }

    // The text up to the next c (or the end); the reader stops on that c.
    QByteArray before(char c);
    // Moves back n characters; false (and back to the start) if there are fewer.
    bool stepBack(int n);

    QByteArray data;
    int pos;
    int size;
};

// What a formatter keeps from record to record.
struct LogRecordFormater::State
{
    State() : alone(false), haveLast(false), lastSecond(0), lastDay(0) {}

    // Every record stands alone: full time, no day header.
    bool alone;

    // The last record whose full time was written: the time cut to its whole
    // second (milliseconds since the epoch) and its local day.
    bool haveLast;
    qint64 lastSecond;
    qint64 lastDay;

    // The module written last and its local 8-bit text.
    QString module;
    QByteArray moduleText;

    // The line formatLine() made last.
    LogRecordFormater::Line line;
};

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

class QTLOG_EXPORT FormatItem
{
public:
    virtual void read(ByteArray2CharStream &in) = 0;
    virtual void out(OutFItemStream &out) const = 0;
    virtual ~FormatItem();
};

class QTLOG_EXPORT FItemStaticText : public FormatItem
{
public:
    void read(ByteArray2CharStream &in) override;
    void out(OutFItemStream &out) const override;

    QByteArray text;
};

// A level outside 0..5 is written as its decimal number in every mode.
class QTLOG_EXPORT FItemLevel : public FormatItem
{
public:
    enum Mode { Char = 0, Number = 1, Text = 2 };
    void read(ByteArray2CharStream &in) override;
    void out(OutFItemStream &out) const override;

    int mode = Char;
};

class QTLOG_EXPORT FItemTime : public FormatItem
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
class QTLOG_EXPORT FItemMessText : public FormatItem
{
public:
    enum Mode { Indented = 0, Joined = 1, Full = 2 };
    static const int maxIndent = 1024;
    void read(ByteArray2CharStream &in) override;
    void out(OutFItemStream &out) const override;

    int mode = Indented;
    int indent = 11;
};

class QTLOG_EXPORT FItemCallPos : public FormatItem
{
public:
    enum Mode { Module = 0, File = 1, FileName = 2, Line = 3, Function = 4 };
    void read(ByteArray2CharStream &in) override;
    void out(OutFItemStream &out) const override;

    int mode = Module;
    char linePrefix = 0;    // 0: none
};

// An owning list of parsed items, in format order.
class QTLOG_EXPORT LogRecordFormater::Items
{
public:
    Items() {}
    ~Items();

    void clear();
    // Takes ownership of list's items after deleting the current ones.
    void reset(const QList<FormatItem *> &list);

    QVector<FormatItem *> items;

private:
    Q_DISABLE_COPY(Items)
};

} // namespace logging

#endif // QTLOG_LOG_RECORD_FORMATER_P_H
