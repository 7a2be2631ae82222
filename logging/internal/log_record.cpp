#include <logging/log_record.h>

#include "log_record_p.h"
#include "qt_compat_p.h"

namespace logging {

namespace {

// Separates the header's fields; also the line end that escape() rewrites.
const char s_lineEnd = '\n';

const char s_marker[] = "DStLg";
const int s_markerSize = sizeof(s_marker) - 1;
const char s_terminator = '!';
const int s_fieldCount = 6;

} // namespace

LogRecord::LogRecord()
    : level(Debug)
    , dateTime(QDateTime::currentDateTime())
    , line(0)
{
}

LogRecord::LogRecord(Level level, const QDateTime &dateTime, const QString &module,
                     const QByteArray &message, const QByteArray &function,
                     const QByteArray &file, int line)
    : level(level)
    , dateTime(dateTime)
    , module(module)
    , message(message)
    , function(function)
    , file(file)
    , line(line)
{
}

QByteArray encodeRecordHeader(int level, qint64 msecsSinceEpoch, const QByteArray &moduleUtf8,
                              const QByteArray &function, const QByteArray &file, int line)
{
    const QByteArray levelText = QByteArray::number(level, 10);
    const QByteArray timeText = QByteArray::number(msecsSinceEpoch, 10);
    const QByteArray lineText = QByteArray::number(line, 10);

    QByteArray block;
    block.reserve(levelText.size() + timeText.size() + moduleUtf8.size() + function.size()
                  + file.size() + lineText.size() + s_fieldCount - 1);
    block += levelText;
    block += s_lineEnd;
    block += timeText;
    block += s_lineEnd;
    block += moduleUtf8;
    block += s_lineEnd;
    block += function;
    block += s_lineEnd;
    block += file;
    block += s_lineEnd;
    block += lineText;

    const QByteArray payload = block.toBase64();
    QByteArray header;
    header.reserve(s_markerSize + payload.size() + 1);
    header.append(s_marker, s_markerSize);
    header += payload;
    header += s_terminator;
    return header;
}

QByteArray LogRecord::sourcePositionToByteArray() const
{
    return encodeRecordHeader(level, dateTime.toMSecsSinceEpoch(), module.toUtf8(),
                              function, file, line);
}

QSharedPointer<LogRecord> LogRecord::fromByteArray(const QByteArray &data)
{
    if (data.size() < s_markerSize || !data.startsWith(s_marker))
        return QSharedPointer<LogRecord>();
    const int end = data.indexOf(s_terminator);
    if (end < s_markerSize)
        return QSharedPointer<LogRecord>();

    const QByteArray block = QByteArray::fromBase64(
        QByteArray::fromRawData(data.constData() + s_markerSize, end - s_markerSize));

    // Exactly six fields: find the five separators and make sure there is no sixth.
    int sep[s_fieldCount - 1];
    int from = 0;
    for (int i = 0; i < s_fieldCount - 1; ++i) {
        sep[i] = block.indexOf(s_lineEnd, from);
        if (sep[i] < 0)
            return QSharedPointer<LogRecord>();
        from = sep[i] + 1;
    }
    if (block.indexOf(s_lineEnd, from) >= 0)
        return QSharedPointer<LogRecord>();

    const char *b = block.constData();
    // Numbers that do not parse read as 0, on purpose.
    const int level = QByteArray::fromRawData(b, sep[0]).toInt();
    const qint64 msecs = QByteArray::fromRawData(b + sep[0] + 1, sep[1] - sep[0] - 1).toLongLong();
    const char *module = b + sep[1] + 1;
    const int moduleSize = int(qstrnlen(module, uint(sep[2] - sep[1] - 1)));
    const int line = QByteArray::fromRawData(b + sep[4] + 1, block.size() - sep[4] - 1).toInt();

    // The message follows the terminator and one separator byte.
    const int messageStart = end + 2;
    const QByteArray message = messageStart < data.size()
        ? QByteArray(data.constData() + messageStart, data.size() - messageStart)
        : QByteArray();

    return compat::makeShared<LogRecord>(
        Level(level), QDateTime::fromMSecsSinceEpoch(msecs),
        QString::fromUtf8(module, moduleSize), message,
        block.mid(sep[2] + 1, sep[3] - sep[2] - 1),
        block.mid(sep[3] + 1, sep[4] - sep[3] - 1),
        line);
}

QByteArray LogRecord::escape(const QByteArray &data)
{
    QByteArray result = data;
    result.replace('\\', "\\\\");
    result.replace(s_lineEnd, "\\n");
    return result;
}

QByteArray LogRecord::unescape(const QByteArray &data)
{
    QByteArray result = data;
    result.replace("\\n", QByteArray(1, s_lineEnd));
    result.replace("\\\\", "\\");
    return result;
}

} // namespace logging
