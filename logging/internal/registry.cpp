// The registry of destinations: fans records out to the active ones, has
// them drain, and applies the settings to them.

#include <logging/destpoint.h>

#include <logging/config.h>

#include "cold_p.h"
#include "crash_p.h"
#include "drain_relay_p.h"
#include "level_ceiling_p.h"
#include "line_journal_p.h"
#include "local_time_p.h"
#include "report_deferral_p.h"
#include "qt_compat_p.h"

#include <atomic>

#include <QtCore/QElapsedTimer>
#include <QtCore/QPair>
#include <QtCore/QThread>

#include <climits>

#include <unistd.h>

namespace logging {

namespace {

std::atomic<DestPoint::AllDestPointsManager *> s_allDestpointManager(nullptr);

} // namespace

DestPoint::AllDestPointsManager *DestPoint::allDestPointManager()
{
    AllDestPointsManager *manager = s_allDestpointManager.load(std::memory_order_acquire);
    if (manager)
        return manager;
    // Two threads may get here at once after a shutdown: one registry wins.
    AllDestPointsManager *created = new AllDestPointsManager;
    if (s_allDestpointManager.compare_exchange_strong(manager, created))
        return created;
    delete created;
    return manager;
}

QTLOG_COLD DestPoint::AllDestPointsManager::AllDestPointsManager()
{
}

QTLOG_COLD DestPoint::AllDestPointsManager::~AllDestPointsManager()
{
    AllDestPointsManager *self = this;
    s_allDestpointManager.compare_exchange_strong(self, nullptr);
}

QTLOG_COLD void DestPoint::AllDestPointsManager::addDestPoint(DestPoint *destination)
{
    compat::WriteLocker locker(&lock);
    destinations.append(destination);
}

QTLOG_COLD void DestPoint::AllDestPointsManager::removeDestPoint(DestPoint *destination)
{
    compat::WriteLocker locker(&lock);
    destinations.removeAll(destination);
}

void DestPoint::AllDestPointsManager::sendLogRecord(const QSharedPointer<LogRecord> &record)
{
    QSharedPointer<LogRecord> shared = record;
    offer(*record, shared);
}

void DestPoint::AllDestPointsManager::sendLogRecord(const LogRecord &record)
{
    QSharedPointer<LogRecord> shared;
    offer(record, shared);
}

void DestPoint::AllDestPointsManager::offer(const LogRecord &record,
                                            QSharedPointer<LogRecord> &shared)
{
    // Drains run below, under the read lock: their reports are delivered
    // after it is released.
    ReportDeferral deferral;
    compat::ReadLocker locker(&lock);
    const QList<DestPoint *> list = destinations;
    for (DestPoint *destination : list) {
        if (!destination->isActive())
            continue;
        if (destination->journal) {
            destination->insertLine(record);
            continue;
        }
        if (!shared)
            shared = compat::makeShared<LogRecord>(record);
        destination->insertLogRecord(shared);
    }
    // Every active destination drains, here or on its own thread, whether
    // or not it took the record.
    for (DestPoint *destination : list) {
        if (destination->isActive())
            destination->relay->request();
    }
    Q_EMIT startActive();
}

QTLOG_COLD void DestPoint::AllDestPointsManager::setActiveDestPoints(const QStringList &names)
{
    compat::ReadLocker locker(&lock);
    const QList<DestPoint *> list = destinations;
    for (DestPoint *destination : list) {
        if (reachable(destination))
            destination->setActive(names.contains(QString::fromLatin1(destination->confName()),
                                                  Qt::CaseSensitive));
    }
}

QTLOG_COLD void DestPoint::AllDestPointsManager::refreshConfig(Config &config)
{
    // Reports (a file that cannot be opened, say) are delivered after the
    // write lock is released.
    ReportDeferral deferral;
    setActiveDestPoints(config.active());

    compat::WriteLocker locker(&lock);
    const QList<DestPoint *> list = destinations;
    for (DestPoint *destination : list) {
        if (reachable(destination))
            configure(destination, config);
    }
    // Destinations made later start from these settings too.
    applied.reset(config.snapshot());
    // Read by the Initializer at start-up.
    crash::setWanted(config.value(nullptr, QLatin1String("crash_handler"), QString()).trimmed()
                     != QLatin1String("0"));

    // Now the exact figure: the most verbose level of an active destination.
    // A raise from elsewhere while the levels are read is kept.
    const unsigned raises = levelCeilingRaises();
    int ceiling = INT_MIN;
    for (DestPoint *destination : list) {
        if (destination->isActive())
            ceiling = qMax(ceiling, destination->maxLevel());
    }
    setLevelCeiling(ceiling, raises);
}

QTLOG_COLD void DestPoint::AllDestPointsManager::applyCurrentConfig(DestPoint *destination)
{
    ReportDeferral deferral;
    // Several destinations may join at once; a refresh waits for them.
    compat::ReadLocker locker(&lock);
    if (!destinations.contains(destination))
        return;
    destination->settled.fetchAndStoreOrdered(1);
    if (!applied)
        return;
    destination->setActive(applied->active().contains(
        QString::fromLatin1(destination->confName()), Qt::CaseSensitive));
    configure(destination, *applied);
}

void DestPoint::AllDestPointsManager::writeBeforeEnd(const QList<DestPoint *> &lineKeepers,
                                                     int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    // Records queued for a destination that another thread drains: that
    // thread may still take them. Those of this thread it cannot any more.
    QList<QPair<QByteArray, int> > left;
    for (;;) {
        bool waiting = false;
        left.clear();
        {
            QReadLocker locker(&lock);
            for (DestPoint *destination : destinations) {
                const int queued = destination->journal ? 0 : destination->queuedRecords();
                if (queued == 0)
                    continue;
                left.append(qMakePair(QByteArray(destination->confName()), queued));
                waiting = waiting || destination->thread() != QThread::currentThread();
            }
        }
        if (!waiting || timer.elapsed() >= timeoutMs)
            break;
        usleep(5 * 1000);
    }

    // Said where the lines go, in their own formats.
    for (const QPair<QByteArray, int> &undelivered : left) {
        const LogRecord report(Warning, currentDateTime(), QLatin1String("logging"),
                               QByteArray::number(undelivered.second) + " records for \""
                                   + undelivered.first
                                   + "\" not delivered: its thread did not take them before the end",
                               "void logging::DestPoint::AllDestPointsManager::writeBeforeEnd()",
                               __FILE__, __LINE__);
        for (DestPoint *destination : lineKeepers) {
            if (destination->isActive() && destination->journal)
                destination->insertLine(report);
        }
    }
    for (DestPoint *destination : lineKeepers) {
        if (destination->journal)
            destination->journal->writeUnwritten(int(qMax(qint64(1), timeoutMs - timer.elapsed())));
    }
}

bool DestPoint::AllDestPointsManager::reachable(DestPoint *destination)
{
    // Ordered: what the constructor wrote must be seen by the thread that
    // finds the flag set.
    if (destination->settled.fetchAndAddOrdered(0))
        return true;
    if (destination->thread() != QThread::currentThread())
        return false;
    destination->settled.fetchAndStoreOrdered(1);
    return true;
}

QTLOG_COLD void DestPoint::AllDestPointsManager::configure(DestPoint *destination, Config &config)
{
    const char *name = destination->confName();
    destination->formatter().reloadConfig(config, name);
    destination->filter().reloadConfig(config, name);
    destination->reloadConfig(config);
}

} // namespace logging
