#include <logging/log_record.h>

#include "clock_step_p.h"
#include "cold_p.h"
#include "local_time_p.h"
#include "log_record_p.h"
#include "qt_compat_p.h"
#include "thread_identity_p.h"


#include <cstring>

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
    , dateTime(currentDateTime())
    , line(0)
    , bootTime(bootTimeNow())
{
    const ThreadIdentity &identity = threadIdentity(true);
    processId = identity.processId;
    threadId = identity.threadId;
    threadName = identity.name;
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
    , bootTime(bootTimeNow())
{
    const ThreadIdentity &identity = threadIdentity(true);
    processId = identity.processId;
    threadId = identity.threadId;
    threadName = identity.name;
}

LogRecord::LogRecord(Level level, const QDateTime &dateTime, const QString &module,
                     const QByteArray &message, const QByteArray &function,
                     const QByteArray &file, int line, qint64 bootTime, int processId,
                     int threadId, const QString &threadName)
    : level(level)
    , dateTime(dateTime)
    , module(module)
    , message(message)
    , function(function)
    , file(file)
    , line(line)
    , bootTime(bootTime)
    , processId(processId)
    , threadId(threadId)
    , threadName(threadName)
{
}

namespace {

const char s_base64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

const char s_digitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Writes value in decimal at out; returns the end.
char *writeNumber(char *out, qint64 value)
{
    char digits[24];
    char *end = digits + sizeof digits;
    char *p = end;
    // Negated in unsigned arithmetic: the most negative number has no positive twin.
    quint64 magnitude = value < 0 ? 0 - quint64(value) : quint64(value);
    // Two digits at a time, in 32-bit arithmetic where the number allows:
    // cheaper, above all on 32-bit processors.
    while (magnitude >= 100000000u) {
        quint32 low = quint32(magnitude % 100000000u);
        magnitude /= 100000000u;
        for (int i = 0; i < 4; ++i) {
            p -= 2;
            memcpy(p, s_digitPairs + 2 * (low % 100), 2);
            low /= 100;
        }
    }
    quint32 rest = quint32(magnitude);
    while (rest >= 100) {
        p -= 2;
        memcpy(p, s_digitPairs + 2 * (rest % 100), 2);
        rest /= 100;
    }
    if (rest >= 10) {
        p -= 2;
        memcpy(p, s_digitPairs + 2 * rest, 2);
    } else {
        *--p = char('0' + rest);
    }
    if (value < 0)
        *out++ = '-';
    memcpy(out, p, size_t(end - p));
    return out + (end - p);
}

char *writeBytes(char *out, const char *bytes, int size)
{
    memcpy(out, bytes, size_t(size));
    return out + size;
}

// Standard base64 of size bytes at in, with padding, written at out.
void toBase64(const unsigned char *in, int size, char *out)
{
    int i = 0;
    for (; i + 3 <= size; i += 3) {
        const unsigned int v = (unsigned(in[i]) << 16) | (unsigned(in[i + 1]) << 8) | in[i + 2];
        *out++ = s_base64[v >> 18];
        *out++ = s_base64[(v >> 12) & 63];
        *out++ = s_base64[(v >> 6) & 63];
        *out++ = s_base64[v & 63];
    }
    if (i < size) {
        const unsigned int v = (unsigned(in[i]) << 16) | (i + 1 < size ? unsigned(in[i + 1]) << 8 : 0);
        *out++ = s_base64[v >> 18];
        *out++ = s_base64[(v >> 12) & 63];
        *out++ = i + 1 < size ? s_base64[(v >> 6) & 63] : '=';
        *out++ = '=';
    }
}

} // namespace

void RecordHeaderEncoder::encode(int level, qint64 msecsSinceEpoch, const char *moduleUtf8,
                                 int moduleSize, const char *function, int functionSize,
                                 const char *file, int fileSize, int line, bool sameTail)
{
    if (sameTail && level == lastLevel && msecsSinceEpoch == lastMsecs && !header.isEmpty()) {
        // A burst within one millisecond: the header is the same.
        changedStart = changed = 0;
        return;
    }
    lastLevel = level;
    lastMsecs = msecsSinceEpoch;
    // The level and the time, each with its separator: at most 2 * 21 bytes.
    char prefix[48];
    char *p = writeNumber(prefix, level);
    *p++ = s_lineEnd;
    p = writeNumber(p, msecsSinceEpoch);
    *p++ = s_lineEnd;
    const int newPrefixSize = int(p - prefix);

    if (sameTail && newPrefixSize == prefixSize && !header.isEmpty()) {
        // Only the base64 groups that hold prefix bytes change.
        // Only the base64 groups from the first changed byte on, in fact:
        // usually the time's last digits.
        const int groupBytes = (prefixSize + 2) / 3 * 3;
        if (groupBytes <= block.size()) {
            char *old = block.data();
            int first = 0;
            while (first < prefixSize && old[first] == prefix[first])
                ++first;
            const int from = first / 3 * 3;
            memcpy(old + from, prefix + from, size_t(prefixSize - from));
            toBase64(reinterpret_cast<const unsigned char *>(old + from), groupBytes - from,
                     header.data() + s_markerSize + from / 3 * 4);
            changedStart = s_markerSize + from / 3 * 4;
            changed = s_markerSize + groupBytes / 3 * 4;
            return;
        }
    }

    prefixSize = newPrefixSize;
    block.resize(prefixSize + moduleSize + functionSize + fileSize + 3 + 20);
    char *b = block.data();
    b = writeBytes(b, prefix, prefixSize);
    b = writeBytes(b, moduleUtf8, moduleSize);
    *b++ = s_lineEnd;
    b = writeBytes(b, function, functionSize);
    *b++ = s_lineEnd;
    b = writeBytes(b, file, fileSize);
    *b++ = s_lineEnd;
    b = writeNumber(b, line);
    const int blockSize = int(b - block.constData());
    block.resize(blockSize);

    header.resize(s_markerSize + (blockSize + 2) / 3 * 4 + 1);
    char *h = header.data();
    memcpy(h, s_marker, s_markerSize);
    toBase64(reinterpret_cast<const unsigned char *>(block.constData()), blockSize,
             h + s_markerSize);
    h[header.size() - 1] = s_terminator;
    changedStart = 0;
    changed = header.size();
}

QByteArray LogRecord::sourcePositionToByteArray() const
{
    const QByteArray moduleUtf8 = module.toUtf8();
    RecordHeaderEncoder encoder;
    encoder.encode(level, dateTime.toMSecsSinceEpoch(), moduleUtf8.constData(), moduleUtf8.size(),
                   function.constData(), function.size(), file.constData(), file.size(), line,
                   false);
    return encoder.header;
}

QTLOG_COLD QSharedPointer<LogRecord> LogRecord::fromByteArray(const QByteArray &data)
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
        Level(level), localDateTime(msecs),
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
