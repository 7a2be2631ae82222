#ifndef QTLOG_LOG_RECORD_P_H
#define QTLOG_LOG_RECORD_P_H

#include <logging/log_record.h>

namespace logging {

// Builds transport headers by hand, without temporary containers. It keeps
// the last field block and header: when only the level and the time have
// changed, and their texts have kept their lengths, the rest of the block
// and so of its base64 text is the same, and only the first characters are
// encoded again.
class RecordHeaderEncoder
{
public:
    RecordHeaderEncoder() : prefixSize(0), changedStart(0), changed(0), lastLevel(0), lastMsecs(0) {}

    // moduleUtf8 is the module already encoded as UTF-8. sameTail says that
    // the module, function, file and line are those of the last call.
    void encode(int level, qint64 msecsSinceEpoch, const char *moduleUtf8, int moduleSize,
                const char *function, int functionSize, const char *file, int fileSize,
                int line, bool sameTail);

    // The marker, the base64 field block and the terminator.
    QByteArray header;

    // The bytes of header that the last encode() may have changed, from
    // changedFrom() up to changedSize(); the rest is as it was.
    int changedFrom() const { return changedStart; }
    int changedSize() const { return changed; }

private:
    QByteArray block;
    int prefixSize;     // the level and time texts with their separators
    int changedStart;
    int changed;
    int lastLevel;      // the level and time of the last call
    qint64 lastMsecs;
};

} // namespace logging

#endif // QTLOG_LOG_RECORD_P_H
