#ifndef QTLOG_FILTER_LOG_RECORDS_H
#define QTLOG_FILTER_LOG_RECORDS_H

#include <logging/qtlog_global.h>

#include <QtCore/QReadWriteLock>
#include <QtCore/QString>
#include <QtCore/QVector>

namespace logging {

class Config;
class LogRecord;

// Decides whether a destination takes a record: by the most verbose level it
// lets through, then by module-name prefixes. A prefix is compared character
// by character ("net" also matches "network"); deny wins over allow; an
// empty allow list allows every module.
class QTLOG_EXPORT FilterLogRecords
{
public:
    // Level 4 (Debug), no allow or deny prefixes.
    FilterLogRecords();
    ~FilterLogRecords();

    void setLevel(int level);
    // The most verbose level let through.
    int maxLevel() const;
    void setAllow(const QVector<QString> &prefixes);
    void setDeny(const QVector<QString> &prefixes);

    // Takes "level", "allow" and "deny" of destName's section, all three at once.
    void reloadConfig(Config &config, const char *destName);

    // Safe against a concurrent reload; allocates nothing.
    bool check(const LogRecord &record) const;

private:
    Q_DISABLE_COPY(FilterLogRecords)

    mutable QReadWriteLock lock;
    int level;
    QVector<QString> allow;
    QVector<QString> deny;
};

} // namespace logging

#endif // QTLOG_FILTER_LOG_RECORDS_H
