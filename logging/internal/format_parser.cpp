// The format string parser: turns one format string into its items, each
// item reading its own modifiers.

#include <logging/log_record_formater.h>

#include "format_items_p.h"
#include "format_parser_p.h"
#include "log_record_formater_p.h"

namespace logging {

namespace {

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
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
// The items' modifiers

void FItemStaticText::read(ByteArray2CharStream &in)
{
    text = in.before('#');
}

void FItemLevel::read(ByteArray2CharStream &in)
{
    const int found = in.lookUp("cnt");
    mode = found < 0 ? Char : found;
}

void FItemTime::read(ByteArray2CharStream &in)
{
    if (in.atEnd()) {
        mode = AbbreviatedTime;
        return;
    }
    const int found = in.lookUp("dDtTu");
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

void FItemThread::read(ByteArray2CharStream &in)
{
    const int found = in.lookUp("ptn");
    mode = found < 0 ? ProcessId : found;
}

void FItemSequence::read(ByteArray2CharStream &)
{
}

// ---------------------------------------------------------------------------
// The parser

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
        case 'p': item = new FItemThread; break;
        case 'n': item = new FItemSequence; break;
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

} // namespace logging
