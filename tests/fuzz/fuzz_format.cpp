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
    return 0;
}
