#ifndef QTLOG_FILTER_LOG_RECORDS_H
#define QTLOG_FILTER_LOG_RECORDS_H

#include <logging/qtlog_global.h>

#include <QtCore/QAtomicInt>
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

    // Copies the level and whether any prefix is set into the atomics;
    // call with the lock held for writing.
    void publish();

    mutable QReadWriteLock lock;
    int level;
    QVector<QString> allow;
    QVector<QString> deny;
    // Read by check() without the lock: the level, and 1 when neither list
    // has a prefix, so that the usual filter needs no lock at all.
    QAtomicInt levelNow;
    QAtomicInt noPrefixes;
};

} // namespace logging

#endif // QTLOG_FILTER_LOG_RECORDS_H
