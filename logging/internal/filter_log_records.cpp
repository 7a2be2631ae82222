#include <logging/filter_log_records.h>

#include <logging/config.h>
#include <logging/log_record.h>

#include "cold_p.h"
#include "level_ceiling_p.h"
#include "qt_compat_p.h"

#include <cstring>

namespace logging {

namespace {

// A plain character prefix test. QString::startsWith() is not used: it
// treats a null module differently from an empty one.
bool matchesAny(const QString &module, const QVector<QString> &prefixes)
{
    const int moduleSize = module.size();
    for (const QString &prefix : prefixes) {
        const int size = prefix.size();
        if (size <= moduleSize
            && memcmp(module.constData(), prefix.constData(), size_t(size) * sizeof(QChar)) == 0)
            return true;
    }
    return false;
}

} // namespace

QTLOG_COLD FilterLogRecords::FilterLogRecords()
    : level(Debug), levelNow(Debug), noPrefixes(1)
{
}

void FilterLogRecords::publish()
{
    compat::storeRelaxed(levelNow, level);
    compat::storeRelaxed(noPrefixes, allow.isEmpty() && deny.isEmpty() ? 1 : 0);
}

QTLOG_COLD FilterLogRecords::~FilterLogRecords()
{
}

QTLOG_COLD void FilterLogRecords::setLevel(int newLevel)
{
    {
        compat::WriteLocker locker(&lock);
        level = newLevel;
        publish();
    }
    raiseLevelCeiling(newLevel);
}

int FilterLogRecords::maxLevel() const
{
    compat::ReadLocker locker(&lock);
    return level;
}

QTLOG_COLD void FilterLogRecords::setAllow(const QVector<QString> &prefixes)
{
    compat::WriteLocker locker(&lock);
    allow = prefixes;
    publish();
}

QTLOG_COLD void FilterLogRecords::setDeny(const QVector<QString> &prefixes)
{
    compat::WriteLocker locker(&lock);
    deny = prefixes;
    publish();
}

QTLOG_COLD void FilterLogRecords::reloadConfig(Config &config, const char *destName)
{
    int newLevel;
    {
        compat::WriteLocker locker(&lock);
        newLevel = level = config.maxLevel(destName);
        allow = config.allowMod(destName).toVector();
        deny = config.denyMod(destName).toVector();
        publish();
    }
    raiseLevelCeiling(newLevel);
}

bool FilterLogRecords::check(const LogRecord &record) const
{
    // A reload under way may leave this record to the old settings or the new.
    if (compat::loadRelaxed(noPrefixes))
        return record.level <= compat::loadRelaxed(levelNow);
    compat::ReadLocker locker(&lock);
    if (record.level > level)
        return false;
    if (matchesAny(record.module, deny))
        return false;
    return allow.isEmpty() || matchesAny(record.module, allow);
}

} // namespace logging
