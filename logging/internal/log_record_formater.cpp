#include <logging/log_record_formater.h>

#include <logging/config.h>

#include "log_record_formater_p.h"

namespace logging {

namespace {

const char defaultFormat[] = "#tTf'hh:mm:ss.zzz' #lc [#cm] #ms11";
const char defaultTraceFormat[] = "#tTf'hh:mm:ss.zzz' #cF:#cl [#cm]";

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

// The format text of a configured string: the built-in one when it is blank.
QByteArray formatText(const QString &configured, const char *builtin)
{
    const QString trimmed = configured.trimmed();
    return trimmed.isEmpty() ? QByteArray(builtin) : trimmed.toLocal8Bit();
}

} // namespace

// ---------------------------------------------------------------------------
// ByteArray2CharStream

QByteArray ByteArray2CharStream::before(char c)
{
    const int found = data.indexOf(c, pos);
    const int end = found < 0 ? size : found;
    const QByteArray text = data.mid(pos, end - pos);
    pos = end;
    return text;
}

bool ByteArray2CharStream::stepBack(int n)
{
    if (pos < n) {
        pos = 0;
        return false;
    }
    pos -= n;
    return true;
}

// ---------------------------------------------------------------------------
// OutFItemStream

OutFItemStream::OutFItemStream(QDateTime *lastTime, const LogRecord *record)
    : lastTime(lastTime)
    , record(record)
    , dateChanged(!lastTime->isValid() || record->dateTime.date() != lastTime->date())
    , secondChanged(!lastTime->isValid() || lastTime->msecsTo(record->dateTime) > 1000)
    , timeWritten(false)
    , cut(false)
{
}

void OutFItemStream::append(const char *data, int size)
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

// ---------------------------------------------------------------------------
// Items

FormatItem::~FormatItem()
{
}

void FItemStaticText::read(ByteArray2CharStream &in)
{
    text = in.before('#');
}

void FItemStaticText::out(OutFItemStream &out) const
{
    out.append(text);
}

void FItemLevel::read(ByteArray2CharStream &in)
{
    const int found = in.lookUp("cnt");
    mode = found < 0 ? Char : found;
}

void FItemLevel::out(OutFItemStream &out) const
{
    static const char *const forText[] = { "Critical", "Error", "Warning", "Info", "Debug", "Trace" };
    static const char *const forDigital[] = { "0", "1", "2", "3", "4", "5" };
    static const char *const forChar[] = { "c", "e", "w", "i", "d", "t" };

    const int level = out.record->level;
    if (level < Critical || level > Trace) {
        out.append(QByteArray::number(level));
        return;
    }
    const char *const *table = mode == Number ? forDigital : mode == Text ? forText : forChar;
    out.append(table[level], int(std::strlen(table[level])));
}

void FItemTime::read(ByteArray2CharStream &in)
{
    if (in.atEnd()) {
        mode = AbbreviatedTime;
        return;
    }
    const int found = in.lookUp("dDtT");
    mode = found < 0 ? AbbreviatedTime : found;

    if (in.peek() != 'f')
        return;
    in.next();
    if (in.peek() != '\'') {
        in.stepBack(1);     // a lone 'f' is literal text
        return;
    }
    in.next();
    const QByteArray pattern = in.before('\'');
    format = QString::fromUtf8(pattern.constData(), pattern.size());
    if (!in.atEnd())
        in.next();          // the closing quote
}

void FItemTime::append2Stream(OutFItemStream &out, const char *builtinPattern) const
{
    const QString pattern = format.isEmpty() ? QString::fromUtf8(builtinPattern) : format;
    out.append(out.record->dateTime.toString(pattern).toLocal8Bit());
}

void FItemTime::out(OutFItemStream &out) const
{
    switch (mode) {
    case DayHeader:
        if (out.dateChanged)
            append2Stream(out, "--- yyyy-MM-dd\n");
        break;
    case Date:
        append2Stream(out, "yyyy-MM-dd");
        break;
    case AbbreviatedTime:
        if (out.secondChanged && !out.timeWritten) {
            append2Stream(out, "hh:mm:ss");
            out.timeWritten = true;
        } else {
            // Eight characters, like the full time: the milliseconds line up
            // under the seconds.
            append2Stream(out, "     zzz");
        }
        break;
    case FullTime:
        append2Stream(out, "hh:mm:ss");
        out.timeWritten = true;
        break;
    default:
        break;
    }
}

void FItemMessText::read(ByteArray2CharStream &in)
{
    mode = Indented;
    indent = 11;
    if (!in.atEnd()) {
        const int found = in.lookUp("sdf");
        if (found == Joined || found == Full) {
            mode = found;
            return;
        }
    }
    const int start = in.pos;
    while (isDigit(in.peek()))
        in.next();
    if (in.pos > start) {
        bool ok = false;
        const int value = in.data.mid(start, in.pos - start).toInt(&ok);
        indent = !ok || value > maxIndent ? maxIndent : value;
    }
}

void FItemMessText::out(OutFItemStream &out) const
{
    const QByteArray &message = out.record->message;
    if (mode == Full || (mode == Indented && indent <= 0)) {
        out.append(message);
        return;
    }
    // Each line feed becomes a line feed and the indent, or one blank. Built
    // piece by piece, so that a message of many lines costs no more than
    // what fits into the record.
    QByteArray lineBreak;
    if (mode == Indented) {
        lineBreak = QByteArray(indent + 1, ' ');
        lineBreak[0] = '\n';
    } else if (mode == Joined) {
        lineBreak = QByteArray(1, ' ');
    } else {
        return;
    }
    const char *data = message.constData();
    const char *end = data + message.size();
    while (!out.cut) {
        const char *feed = static_cast<const char *>(std::memchr(data, '\n', size_t(end - data)));
        if (!feed) {
            out.append(data, int(end - data));
            break;
        }
        out.append(data, int(feed - data));
        out.append(lineBreak);
        data = feed + 1;
    }
}

void FItemCallPos::read(ByteArray2CharStream &in)
{
    linePrefix = 0;
    if (in.atEnd()) {
        mode = Module;
        return;
    }
    const int found = in.lookUp("mfFlu");
    mode = found < 0 ? Module : found;
    if (mode != Line || in.peek() != 'p')
        return;
    in.next();
    if (in.atEnd()) {
        in.stepBack(1);     // a 'p' at the end is literal text
        return;
    }
    linePrefix = in.peek();
    in.next();
}

void FItemCallPos::out(OutFItemStream &out) const
{
    const LogRecord &record = *out.record;
    switch (mode) {
    case Module:
        out.append(record.module.toLocal8Bit());
        break;
    case File:
        out.append(record.file);
        break;
    case FileName: {
        const int slash = record.file.lastIndexOf('/');
        out.append(record.file.constData() + slash + 1, record.file.size() - slash - 1);
        break;
    }
    case Line:
        if (record.line >= 1) {
            if (linePrefix)
                out.append(&linePrefix, 1);
            out.append(QByteArray::number(record.line, 10));
        }
        break;
    case Function:
        out.append(record.function);
        break;
    default:
        break;
    }
}

LogRecordFormater::Items::~Items()
{
    clear();
}

void LogRecordFormater::Items::clear()
{
    for (int i = items.size() - 1; i >= 0; --i)
        delete items.at(i);
    items.clear();
}

void LogRecordFormater::Items::reset(const QList<FormatItem *> &list)
{
    clear();
    items.reserve(list.size());
    for (FormatItem *item : list)
        items.append(item);
}

// ---------------------------------------------------------------------------
// LogRecordFormater

LogRecordFormater::LogRecordFormater()
    : items(new Items)
    , traceItems(new Items)
{
    // A configuration without a file yields the built-in formats.
    Config defaults(QString(), false);
    reloadConfig(defaults, nullptr);
}

LogRecordFormater::~LogRecordFormater()
{
    QWriteLocker locker(&lock);
    items->clear();
    traceItems->clear();
}

void LogRecordFormater::reloadConfig(Config &config, const char *section)
{
    QWriteLocker locker(&lock);
    configStringToItems(*items, formatText(config.outFormat(section), defaultFormat));
    configStringToItems(*traceItems, formatText(config.outTraceFormat(section), defaultTraceFormat));
}

QByteArray LogRecordFormater::builtinFormat(bool trace)
{
    return QByteArray(trace ? defaultTraceFormat : defaultFormat);
}

void LogRecordFormater::configStringToItems(Items &items, const QByteArray &config,
                                            QList<int> *unknown)
{
    ByteArray2CharStream in(config);
    QList<FormatItem *> list;
    while (!in.atEnd()) {
        if (in.peek() != '#') {
            FormatItem *text = new FItemStaticText;
            text->read(in);
            list.append(text);
            continue;
        }
        const int hash = in.pos;
        in.next();
        FormatItem *item = nullptr;
        switch (in.peek()) {
        case 'l': item = new FItemLevel; break;
        case 't': item = new FItemTime; break;
        case 'm': item = new FItemMessText; break;
        case 'c': item = new FItemCallPos; break;
        default: break;     // '#' at the end, or before a non-item letter: dropped
        }
        if (!item) {
            if (unknown)
                unknown->append(hash);
            continue;
        }
        in.next();
        item->read(in);
        list.append(item);
    }
    items.reset(list);
}

QByteArray LogRecordFormater::format(const LogRecord &record)
{
    QReadLocker locker(&lock);
    OutFItemStream out(&lastTime, &record);
    const Items &list = record.level == Trace ? *traceItems : *items;
    for (const FormatItem *item : list.items)
        item->out(out);
    if (out.timeWritten) {
        const QTime time = record.dateTime.time();
        lastTime = QDateTime(record.dateTime.date(),
                             QTime(time.hour(), time.minute(), time.second(), 0));
    }
    if (out.cut) {
        static const char marker[] = " [cut: record longer than 1 MiB]";
        out.buffer.truncate(OutFItemStream::maxText - int(sizeof marker - 1));
        out.buffer.append(marker, int(sizeof marker - 1));
    }
    return out.buffer;
}

} // namespace logging
