#include <logging/log_record_formater.h>

#include <logging/config.h>

#include "log_record_formater_p.h"

#include <QtCore/QVarLengthArray>

#include <cstring>
#include <limits>

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

// Writes value, at least digits wide with leading zeros, at out.
char *writeDigits(char *out, int value, int digits)
{
    char *end = out + digits;
    for (char *p = end; p != out;) {
        *--p = char('0' + value % 10);
        value /= 10;
    }
    return end;
}

void appendNumber(OutFItemStream &out, int value)
{
    char digits[16];
    char *end = digits + sizeof digits;
    char *p = end;
    unsigned magnitude = value < 0 ? 0u - unsigned(value) : unsigned(value);
    do {
        *--p = char('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude);
    if (value < 0)
        *--p = '-';
    out.append(p, int(end - p));
}

// Codes of the time pattern programs; text is kept as it is (below 0x80).
enum PatternCode : unsigned char {
    Hour = 0x80, Minute, Second, Millisecond, Year, Month, Day
};

const QByteArray &builtinPlan(const char *pattern)
{
    static const QByteArray dayHeader = FItemTime::compilePattern(QLatin1String("--- yyyy-MM-dd\n"));
    static const QByteArray date = FItemTime::compilePattern(QLatin1String("yyyy-MM-dd"));
    static const QByteArray time = FItemTime::compilePattern(QLatin1String("hh:mm:ss"));
    static const QByteArray msecs = FItemTime::compilePattern(QLatin1String("     zzz"));
    static const QByteArray none;
    switch (pattern[0]) {
    case '-': return dayHeader;
    case 'y': return date;
    case 'h': return time;
    case ' ': return msecs;
    default: return none;
    }
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

OutFItemStream::OutFItemStream(LogRecordFormater::State *state, const LogRecord *record,
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

const QByteArray &OutFItemStream::moduleText()
{
    const QString &module = record->module;
    if (module.isNull() != state->module.isNull() || module != state->module) {
        state->module = module;
        state->moduleText = module.toLocal8Bit();
    }
    return state->moduleText;
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
        appendNumber(out, level);
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
    plan = compilePattern(format);
    planFormat = format;
    if (!in.atEnd())
        in.next();          // the closing quote
}

QByteArray FItemTime::compilePattern(const QString &pattern)
{
    // The first byte says whether the date is needed.
    QByteArray plan(1, '\0');
    const int size = pattern.size();
    for (int i = 0; i < size;) {
        const ushort c = pattern.at(i).unicode();
        int run = 1;
        while (i + run < size && pattern.at(i + run).unicode() == c)
            ++run;
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        if (!letter) {
            if (c >= 0x80 || c == '\'' || c == 0)
                return QByteArray();
            plan.append(QByteArray(run, char(c)));
        } else if (c == 'h' && run == 2) {
            plan += char(Hour);
        } else if (c == 'm' && run == 2) {
            plan += char(Minute);
        } else if (c == 's' && run == 2) {
            plan += char(Second);
        } else if (c == 'z' && run == 3) {
            plan += char(Millisecond);
        } else if (c == 'y' && run == 4) {
            plan += char(Year);
            plan[0] = 1;
        } else if (c == 'M' && run == 2) {
            plan += char(Month);
            plan[0] = 1;
        } else if (c == 'd' && run == 2) {
            plan += char(Day);
            plan[0] = 1;
        } else {
            // Anything else (12-hour clock, names, single digits, zones)
            // is left to QDateTime.
            return QByteArray();
        }
        i += run;
    }
    return plan;
}

bool FItemTime::appendTime(OutFItemStream &out, const QByteArray &plan)
{
    if (plan.isEmpty() || !out.timeValid)
        return false;
    const int ms = out.time.msecOfDay;
    const char *p = plan.constData();
    const char *end = p + plan.size();
    int year = 0, month = 0, day = 0;
    if (*p++) {
        civilDate(out.time.day, &year, &month, &day);
        if (year < 1000 || year > 9999)
            return false;
    }
    // Each code writes at most four characters.
    QVarLengthArray<char, 64> text(plan.size() * 4);
    char *const start = text.data();
    char *o = start;
    for (; p != end; ++p) {
        switch (static_cast<unsigned char>(*p)) {
        case Hour: o = writeDigits(o, ms / 3600000, 2); break;
        case Minute: o = writeDigits(o, ms / 60000 % 60, 2); break;
        case Second: o = writeDigits(o, ms / 1000 % 60, 2); break;
        case Millisecond: o = writeDigits(o, ms % 1000, 3); break;
        case Year: o = writeDigits(o, year, 4); break;
        case Month: o = writeDigits(o, month, 2); break;
        case Day: o = writeDigits(o, day, 2); break;
        default: *o++ = *p; break;
        }
    }
    out.append(start, int(o - start));
    return true;
}

void FItemTime::append2Stream(OutFItemStream &out, const char *builtinPattern) const
{
    if (format.isEmpty()) {
        if (appendTime(out, builtinPlan(builtinPattern)))
            return;
    } else if (format.constData() == planFormat.constData() && appendTime(out, plan)) {
        // format is the string that plan was made from: shared, not copied.
        return;
    }
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
    const char *data = message.constData();
    const char *end = data + message.size();
    if (!std::memchr(data, '\n', size_t(end - data))) {
        out.append(message);
        return;
    }
    QByteArray lineBreak;
    if (mode == Indented) {
        lineBreak = QByteArray(indent + 1, ' ');
        lineBreak[0] = '\n';
    } else if (mode == Joined) {
        lineBreak = QByteArray(1, ' ');
    } else {
        return;
    }
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
        out.append(out.moduleText());
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
            appendNumber(out, record.line);
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
    : state(new State)
    , aloneState(new State)
    , items(new Items)
    , traceItems(new Items)
{
    aloneState->alone = true;
    // A configuration without a file yields the built-in formats.
    Config defaults(QString(), false);
    reloadConfig(defaults, nullptr);
}

LogRecordFormater::~LogRecordFormater()
{
    QMutexLocker locker(&lock);
    items->clear();
    traceItems->clear();
}

void LogRecordFormater::reloadConfig(Config &config, const char *section)
{
    QMutexLocker locker(&lock);
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
    QMutexLocker locker(&lock);
    return formatWith(*state, record);
}

const char *LogRecordFormater::formatAlone(const LogRecord &record, int *size)
{
    QMutexLocker locker(&lock);
    formatInto(*aloneState, record, aloneState->line);
    *size = aloneState->line.size();
    return aloneState->line.constData();
}

void LogRecordFormater::restart()
{
    QMutexLocker locker(&lock);
    state->lastSecond = std::numeric_limits<qint64>::min() / 2;
}

QByteArray LogRecordFormater::formatWith(State &last, const LogRecord &record)
{
    Line line;
    formatInto(last, record, line);
    return QByteArray(line.constData(), line.size());
}

const char *LogRecordFormater::formatLine(const LogRecord &record, int *size)
{
    QMutexLocker locker(&lock);
    formatInto(*state, record, state->line);
    *size = state->line.size();
    return state->line.constData();
}

void LogRecordFormater::formatInto(State &last, const LogRecord &record, Line &line)
{
    line.resize(0);
    OutFItemStream out(&last, &record, line);
    const Items &list = record.level == Trace ? *traceItems : *items;
    for (const FormatItem *item : list.items)
        item->out(out);
    if (out.timeWritten) {
        // Keep the time cut to its whole second. An invalid time leaves none.
        last.haveLast = out.timeValid;
        if (out.timeValid) {
            last.lastSecond = out.time.msecs - out.time.msecOfDay % 1000;
            last.lastDay = out.time.day;
        }
    }
    if (out.cut) {
        static const char marker[] = " [cut: record longer than 1 MiB]";
        line.resize(OutFItemStream::maxText - int(sizeof marker - 1));
        line.append(marker, int(sizeof marker - 1));
    }
}

} // namespace logging
