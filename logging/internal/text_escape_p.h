#ifndef QTLOG_TEXT_ESCAPE_P_H
#define QTLOG_TEXT_ESCAPE_P_H

// Escaping of the text that a record brings (message, module, file,
// function, thread name), so that it can neither forge nor hide a line: a
// control character but tab (and line feed where the caller keeps it) is
// written as "\xHH", a C1 control (U+0080 to U+009F) as "\x80" to "\x9f",
// U+2028 and U+2029 as "\u2028" and "\u2029", and bytes that are not valid
// UTF-8 as U+FFFD, one for each longest start of a sequence.

#include <logging/qtlog_global.h>

namespace logging {

// True when escaping would change nothing in size bytes at data: no control
// character and no byte above 0x7e. Costs no allocation.
bool plainText(const char *data, int size);

// The length of the UTF-8 sequence at p (before end) and its code point in
// *code; for bytes that are not valid UTF-8, minus the number of bytes that
// one U+FFFD replaces.
int decodeUtf8(const unsigned char *p, const unsigned char *end, unsigned *code);

// Writes size bytes at data escaped to out, which has append(const char *,
// int) and full(); stops early once out is full. lineFeeds: keep line feeds.
template <typename Out>
void writeEscaped(Out &out, const char *data, int size, bool lineFeeds)
{
    static const char hex[] = "0123456789abcdef";
    const unsigned char *p = reinterpret_cast<const unsigned char *>(data);
    const unsigned char *const end = p + size;
    const unsigned char *run = p;   // the bytes since the last escape, kept as they are
    while (p != end && !out.full()) {
        const unsigned c = *p;
        if ((c >= 0x20 && c < 0x7f) || c == '\t' || (c == '\n' && lineFeeds)) {
            ++p;
            continue;
        }
        unsigned code = c;
        int length = 1;
        if (c >= 0x80) {
            length = decodeUtf8(p, end, &code);
            if (length > 1 && code > 0x9f && code != 0x2028 && code != 0x2029) {
                p += length;    // valid text
                continue;
            }
        }
        out.append(reinterpret_cast<const char *>(run), int(p - run));
        if (length < 0) {
            out.append("\xef\xbf\xbd", 3);
            length = -length;
        } else if (code == 0x2028 || code == 0x2029) {
            out.append(code == 0x2028 ? "\\u2028" : "\\u2029", 6);
        } else {
            const char escaped[4] = { '\\', 'x', hex[code >> 4], hex[code & 0xf] };
            out.append(escaped, 4);
        }
        p += length;
        run = p;
    }
    out.append(reinterpret_cast<const char *>(run), int(p - run));
}

} // namespace logging

#endif // QTLOG_TEXT_ESCAPE_P_H
