#ifndef QTLOG_LOG_RECORD_P_H
#define QTLOG_LOG_RECORD_P_H

#include <logging/log_record.h>

namespace logging {

// Builds the transport header from the record's fields; moduleUtf8 is the
// module already encoded as UTF-8. Shared by LogRecord and toLog(), which
// has the module as bytes and need not build a QString to encode it.
QByteArray encodeRecordHeader(int level, qint64 msecsSinceEpoch, const QByteArray &moduleUtf8,
                              const QByteArray &function, const QByteArray &file, int line);

} // namespace logging

#endif // QTLOG_LOG_RECORD_P_H
