// The format items' output: what each item appends to a record's text.

#include <logging/log_record.h>

#include "format_items_p.h"

#include <cstring>

namespace logging {

namespace {

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

} // namespace

// ---------------------------------------------------------------------------
// OutFItemStream

const QByteArray &OutFItemStream::moduleText()
{
    const QString &module = record->module;
    if (module.isNull() != state->module.isNull() || module != state->module) {
        state->module = module;
        state->moduleText = module.toLocal8Bit();
    }
    return state->moduleText;
}

// ---------------------------------------------------------------------------
// Items

FormatItem::~FormatItem()
{
}

void FItemStaticText::out(OutFItemStream &out) const
{
    out.append(text);
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

} // namespace logging
