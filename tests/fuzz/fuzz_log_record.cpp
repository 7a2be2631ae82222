// libFuzzer harness: the transport header decoder. Any bytes may arrive on
// Qt's message channel; a decoded record must survive encoding and decoding
// again with the same fields.

#include <logging/log_record.h>

#include <cstdint>
#include <cstdlib>

using namespace logging;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input(reinterpret_cast<const char *>(data), int(size));
    LogRecord::unescape(LogRecord::escape(input));

    const QSharedPointer<LogRecord> record = LogRecord::fromByteArray(input);
    if (!record)
        return 0;
    const QByteArray again = record->sourcePositionToByteArray() + ' ' + record->message;
    const QSharedPointer<LogRecord> copy = LogRecord::fromByteArray(again);
    if (!copy || copy->level != record->level || copy->module != record->module
        || copy->function != record->function || copy->file != record->file
        || copy->line != record->line || copy->message != record->message)
        abort();
    return 0;
}
