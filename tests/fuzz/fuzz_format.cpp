// libFuzzer harness: the format language. The input's first line is the
// format, its second the trace format, the rest the message; records of
// several levels and times are formatted with them, the last two within the
// same second (the abbreviated time) and after a change of date.

#include <logging/config.h>
#include <logging/log_record.h>
#include <logging/log_record_formater.h>
#include "logging/internal/log_record_formater_p.h"

#include "fuzz_support.h"

#include <cstdint>

using namespace logging;

namespace {

// Aborts unless text is valid UTF-8 without control characters other than
// tab and line feed, C1 controls, U+2028 or U+2029: what escaping leaves.
void checkEscaped(const QByteArray &text)
{
    const unsigned char *p = reinterpret_cast<const unsigned char *>(text.constData());
    const unsigned char *end = p + text.size();
    while (p < end) {
        const unsigned c = *p;
        if (c < 0x80) {
            if ((c < 0x20 && c != '\t' && c != '\n') || c == 0x7f)
                abort();
            ++p;
            continue;
        }
        const int n = c >= 0xf0 ? 4 : c >= 0xe0 ? 3 : 2;
        if (c < 0xc2 || c > 0xf4 || end - p < n)
            abort();
        unsigned code = c & (0x3f >> (n - 1));
        for (int i = 1; i < n; ++i) {
            if ((p[i] & 0xc0) != 0x80)
                abort();
            code = (code << 6) | (p[i] & 0x3f);
        }
        if ((n == 3 && code < 0x800) || (n == 4 && (code < 0x10000 || code > 0x10ffff))
            || (code >= 0xd800 && code <= 0xdfff) || code <= 0x9f || code == 0x2028 || code == 0x2029)
            abort();
        p += n;
    }
}

// The part of rest up to the next line feed; rest keeps what follows it.
QByteArray takeLine(QByteArray &rest)
{
    const int end = rest.indexOf('\n');
    const QByteArray line = end < 0 ? rest : rest.left(end);
    rest = end < 0 ? QByteArray() : rest.mid(end + 1);
    return line;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz::setUp("fuzz-format");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QByteArray rest(reinterpret_cast<const char *>(data), int(size));
    const QByteArray format = takeLine(rest);
    const QByteArray traceFormat = takeLine(rest);
    const QByteArray message = rest;

    // The checker's road: every dropped '#' lies inside the format.
    LogRecordFormater::Items items;
    QList<int> unknown;
    LogRecordFormater::configStringToItems(items, format, &unknown);
    for (int pos : unknown) {
        if (pos < 0 || pos >= format.size() || format.at(pos) != '#')
            abort();
    }

    // The destinations' road: the formats come from a settings file.
    Config config(fuzz::writeSettings("[console]\nformat = " + format + "\ntrace_format = " + traceFormat + "\n"),
                  false);
    LogRecordFormater formatter;
    formatter.reloadConfig(config, "console");

    const QDate day(2026, 11, 22);
    const int level = message.isEmpty() ? 3 : int(static_cast<signed char>(message.at(0)));
    const LogRecord records[] = {
        LogRecord(Info, QDateTime(day, QTime(23, 59, 59, 900)), QString::fromUtf8(message.left(16)),
                  message, "void f()", "/src/a/b.cpp", 42),
        LogRecord(Trace, QDateTime(day, QTime(23, 59, 59, 950)), QString::fromLatin1("net"),
                  message, message, message, -1),
        LogRecord(Level(level), QDateTime(day.addDays(1), QTime(0, 0, 0, 5)), QString(),
                  message, QByteArray(), "dir/", 0),
        LogRecord(Level(level), QDateTime(day.addDays(1), QTime(0, 0, 0, 6)), QString::fromLatin1("a.b"),
                  message, QByteArray(), QByteArray(), 7),
    };
    for (const LogRecord &record : records)
        formatter.format(record);

    // Escaping, on by default: whatever a record carries, no control
    // character and no invalid UTF-8 comes out of the fields.
    Config fields(fuzz::writeSettings("[console]\nformat = #cm|#cf|#cF|#cu|#pn|#mf|#md|#ms3|#tu|#n|#pp|#pt\n"), false);
    LogRecordFormater escaping;
    escaping.reloadConfig(fields, "console");
    LogRecord hostile(Info, QDateTime(day, QTime(1, 2, 3, 4)), QString::fromUtf8(message), message, message,
                      message, 1);
    hostile.threadName = QString::fromUtf8(message);
    checkEscaped(escaping.format(hostile));
    return 0;
}
