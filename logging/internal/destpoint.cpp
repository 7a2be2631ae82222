#include <logging/destpoint.h>

#include <logging/config.h>

#include "logging_p.h"
#include "qt_compat_p.h"

#include <atomic>

namespace logging {

namespace {

std::atomic<DestPoint::AllDestPointsManager *> s_allDestpointManager(nullptr);

} // namespace

// ---------------------------------------------------------------------------
// DestPoint

DestPoint::DestPoint(QObject *parent)
    : QObject(parent)
    , active(false)
    , alwaysActive(false)
{
    allDestPointManager()->addDestPoint(this);
}

DestPoint::~DestPoint()
{
    allDestPointManager()->removeDestPoint(this);
}

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

bool DestPoint::isActive() const
{
    return compat::loadRelaxed(active) != 0;
}

void DestPoint::setActive(bool on)
{
    // A refresh (reload thread) and a failing file (its drain) may switch
    // the same destination at once; the flag and the connection must agree.
    QMutexLocker locker(&activeMutex);
    if (on == isActive() || alwaysActive)
        return;
    compat::storeRelaxed(active, on ? 1 : 0);
    AllDestPointsManager *manager = allDestPointManager();
    if (on)
        connect(manager, SIGNAL(startActive()), this, SLOT(outItems()));
    else
        disconnect(manager, nullptr, this, nullptr);
}

void DestPoint::setAlwaysActive()
{
    setActive(true);
    QMutexLocker locker(&activeMutex);
    alwaysActive = true;
}

void DestPoint::insertLogRecord(const QSharedPointer<LogRecord> &record)
{
    if (!filterRecords.check(*record))
        return;
    QWriteLocker locker(&queueLock);
    int i = queue.size() - 1;
    while (i >= 0 && record->dateTime < queue.at(i)->dateTime)
        --i;
    queue.insert(i + 1, record);
}

QSharedPointer<LogRecord> DestPoint::takeFirstLogRecord()
{
    QWriteLocker locker(&queueLock);
    QSharedPointer<LogRecord> record;
    while (!queue.isEmpty() && !record)
        record = queue.takeFirst();
    return record;
}

void DestPoint::outItems()
{
}

void DestPoint::reloadConfig(Config &)
{
}

// ---------------------------------------------------------------------------
// DestPoint::AllDestPointsManager

DestPoint::AllDestPointsManager::AllDestPointsManager()
{
}

DestPoint::AllDestPointsManager::~AllDestPointsManager()
{
    AllDestPointsManager *self = this;
    s_allDestpointManager.compare_exchange_strong(self, nullptr);
}

void DestPoint::AllDestPointsManager::addDestPoint(DestPoint *destination)
{
    QWriteLocker locker(&lock);
    destinations.append(destination);
}

void DestPoint::AllDestPointsManager::removeDestPoint(DestPoint *destination)
{
    QWriteLocker locker(&lock);
    destinations.removeAll(destination);
}

void DestPoint::AllDestPointsManager::sendLogRecord(const QSharedPointer<LogRecord> &record)
{
    // Drains run inside the emission below, under the read lock: their
    // reports are delivered after it is released.
    ReportDeferral deferral;
    QReadLocker locker(&lock);
    const QList<DestPoint *> list = destinations;
    for (DestPoint *destination : list) {
        if (destination->isActive())
            destination->insertLogRecord(record);
    }
    Q_EMIT startActive();
}

void DestPoint::AllDestPointsManager::setActiveDestPoints(const QStringList &names)
{
    QReadLocker locker(&lock);
    const QList<DestPoint *> list = destinations;
    for (DestPoint *destination : list)
        destination->setActive(names.contains(QString::fromLatin1(destination->confName()),
                                              Qt::CaseSensitive));
}

void DestPoint::AllDestPointsManager::refreshConfig(Config &config)
{
    // Reports (a file that cannot be opened, say) are delivered after the
    // write lock is released.
    ReportDeferral deferral;
    setActiveDestPoints(config.active());

    QWriteLocker locker(&lock);
    const QList<DestPoint *> list = destinations;
    for (DestPoint *destination : list)
        configure(destination, config);
    // Destinations made later start from these settings too.
    applied.reset(config.snapshot());
}

void DestPoint::AllDestPointsManager::applyCurrentConfig(DestPoint *destination)
{
    ReportDeferral deferral;
    // Several destinations may join at once; a refresh waits for them.
    QReadLocker locker(&lock);
    if (!applied || !destinations.contains(destination))
        return;
    destination->setActive(applied->active().contains(
        QString::fromLatin1(destination->confName()), Qt::CaseSensitive));
    configure(destination, *applied);
}

void DestPoint::AllDestPointsManager::configure(DestPoint *destination, Config &config)
{
    const char *name = destination->confName();
    destination->formatter().reloadConfig(config, name);
    destination->filter().reloadConfig(config, name);
    destination->reloadConfig(config);
}

} // namespace logging
