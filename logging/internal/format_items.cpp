// The format items' output: what each item appends to a record's text.

#include <logging/log_record.h>

#include "format_items_p.h"

#include <cstring>

namespace logging {

namespace {

void appendNumber(OutFItemStream &out, qint64 value)
{
    char digits[24];
    char *end = digits + sizeof digits;
    char *p = end;
    quint64 magnitude = value < 0 ? 0 - quint64(value) : quint64(value);
    do {
        *--p = char('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude);
    if (value < 0)
        *--p = '-';
    out.append(p, int(end - p));
}

struct ByteArrayOut
{
    QByteArray &text;
    void append(const char *data, int size) { text.append(data, size); }
    bool full() const { return false; }
};

// The local 8-bit text of text, escaped or not, kept while text and the
// setting stay the same.
const QByteArray &cachedText(const QString &text, LogRecordFormater::State::TextCache &cache,
                             bool escape)
{
    if (text.isNull() != cache.key.isNull() || escape != cache.escaped || text != cache.key) {
        cache.key = text;
        cache.escaped = escape;
        cache.text = text.toLocal8Bit();
        if (escape && !plainText(cache.text.constData(), cache.text.size())) {
            const QByteArray local = cache.text;
            cache.text.clear();
            ByteArrayOut out = { cache.text };
            writeEscaped(out, local.constData(), local.size(), false);
        }
    }
    return cache.text;
}

} // namespace

// ---------------------------------------------------------------------------
// OutFItemStream

const QByteArray &OutFItemStream::moduleText()
{
    return cachedText(record->module, state->module, escape);
}

const QByteArray &OutFItemStream::threadNameText()
{
    return cachedText(record->threadName, state->threadName, escape);
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
    case BootTime: {
        const qint64 boot = out.record->bootTime;
        if (boot < 0)
            break;
        appendNumber(out, boot / 1000);
        const char fraction[4] = { '.', char('0' + boot / 100 % 10), char('0' + boot / 10 % 10),
                                   char('0' + boot % 10) };
        out.append(fraction, 4);
        break;
    }
    default:
        break;
    }
}

void FItemMessText::out(OutFItemStream &out) const
{
    const QByteArray &message = out.record->message;
    const char *data = message.constData();
    const char *end = data + message.size();
    if (out.escape && plainText(data, message.size())) {
        out.append(message);    // nothing to escape, no line feed
        return;
    }
    if (mode == Full || (mode == Indented && indent <= 0)) {
        out.appendText(data, message.size(), true);
        return;
    }
    // Each line feed becomes a line feed and the indent, or one blank. Built
    // piece by piece, so that a message of many lines costs no more than
    // what fits into the record.
    if (!std::memchr(data, '\n', size_t(end - data))) {
        out.appendText(data, message.size(), false);
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
            out.appendText(data, int(end - data), false);
            break;
        }
        out.appendText(data, int(feed - data), false);
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
        out.appendText(record.file);
        break;
    case FileName: {
        const int slash = record.file.lastIndexOf('/');
        out.appendText(record.file.constData() + slash + 1, record.file.size() - slash - 1, false);
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
        out.appendText(record.function);
        break;
    default:
        break;
    }
}

void FItemThread::out(OutFItemStream &out) const
{
    switch (mode) {
    case ProcessId:
        appendNumber(out, out.record->processId);
        break;
    case ThreadId:
        appendNumber(out, out.record->threadId);
        break;
    case ThreadName:
        out.append(out.threadNameText());
        break;
    default:
        break;
    }
}

void FItemSequence::out(OutFItemStream &out) const
{
    if (out.state->alone)
        out.append("-", 1);
    else
        appendNumber(out, qint64(out.state->sequence));
}

} // namespace logging
