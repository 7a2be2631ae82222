#include <logging/destpoint.h>

#include <logging/config.h>

#include "crash_p.h"
#include "flight_recorder_p.h"
#include "line_journal_p.h"
#include "logging_p.h"
#include "qt_compat_p.h"

#include <atomic>

#include <QtCore/QAtomicInt>
#include <QtCore/QThread>

#include <climits>

namespace logging {

// Runs a destination's drains for the registry, on the logging thread. A
// destination of that same thread drains at once; one of another thread gets
// a queued drain unless one is waiting already. The flag is cleared before the drain takes
// the first record, so a record queued after that clearing finds it clear
// and asks again, and one queued before is taken by the drain.
class DrainRelay : public QObject
{
    Q_OBJECT

public:
    explicit DrainRelay(DestPoint *destination)
        : QObject(destination), destination(destination)
    {
    }

    void request()
    {
        if (QThread::currentThread() == thread()) {
            destination->outItems();
            return;
        }
        if (pending.testAndSetOrdered(0, 1))
            QMetaObject::invokeMethod(this, "drain", Qt::QueuedConnection);
    }

public Q_SLOTS:
    void drain()
    {
        pending.fetchAndStoreOrdered(0);
        destination->outItems();
    }

private:
    DestPoint *destination;
    QAtomicInt pending;
};

namespace {

std::atomic<DestPoint::AllDestPointsManager *> s_allDestpointManager(nullptr);

} // namespace

// ---------------------------------------------------------------------------
// DestPoint

DestPoint::DestPoint(QObject *parent)
    : QObject(parent)
    , active(false)
    , alwaysActive(false)
    , queueHead(0)
    , relay(new DrainRelay(this))
    , journal(nullptr)
    , settled(0)
{
    queue.reserve(16);
    allDestPointManager()->addDestPoint(this);
}

DestPoint::~DestPoint()
{
    allDestPointManager()->removeDestPoint(this);
    if (journal) {
        crash::unregisterJournal(journal);
        delete journal;
    }
}

void DestPoint::keepLinesForCrash()
{
    if (journal)
        return;
    journal = new LineJournal;
    crash::registerJournal(journal);
}

void DestPoint::setRecorder(int records, int level, int dumpLevel)
{
    if (!journal)
        return;
    FlightRecorder *old;
    {
        QMutexLocker locker(&queueLock);
        old = journal->recorder();
        if (old ? (old->capacity() == records && old->level() == level
                   && old->dumpLevel() == dumpLevel)
                : records <= 0)
            return;
        if (records > 0)
            raiseLevelCeiling(level);
        old = journal->swapRecorder(records > 0 ? new FlightRecorder(records, level, dumpLevel)
                                                : nullptr);
    }
    if (!crash::crashing())
        delete old;
}

int DestPoint::maxLevel() const
{
    const int level = filterRecords.maxLevel();
    const int kept = journal ? journal->recorderLevel() : INT_MIN;
    return qMax(level, kept);
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
    // the same destination at once; the flag and the level ceiling must agree.
    QMutexLocker locker(&activeMutex);
    if (on == isActive() || alwaysActive)
        return;
    if (on)
        raiseLevelCeiling(maxLevel());
    compat::storeRelaxed(active, on ? 1 : 0);
}

void DestPoint::setAlwaysActive()
{
    setActive(true);
    QMutexLocker locker(&activeMutex);
    alwaysActive = true;
}

void DestPoint::insertLogRecord(const QSharedPointer<LogRecord> &record)
{
    if (journal) {
        insertLine(*record);
        return;
    }
    if (!filterRecords.check(*record))
        return;
    QMutexLocker locker(&queueLock);
    int i = queue.size() - 1;
    while (i >= queueHead && record->dateTime < queue.at(i)->dateTime)
        --i;
    if (i == queue.size() - 1)
        queue.append(record);
    else
        queue.insert(i + 1, record);
}

void DestPoint::insertLine(const LogRecord &record)
{
    const bool taken = filterRecords.check(record);
    if (!taken && record.level > journal->recorderLevel())
        return;
    // Formatted here, in the order of acceptance: the formatter's abbreviated
    // times refer to the line before in the same order.
    QMutexLocker locker(&queueLock);
    FlightRecorder *kept = journal->recorder();
    if (!taken) {
        if (kept && record.level <= kept->level()) {
            int size;
            const char *text = formater.formatAlone(record, &size);
            kept->keep(text, size);
        }
        return;
    }
    if (kept && record.level <= kept->dumpLevel() && kept->count() > 0) {
        journal->appendRecorder();
        // The recorder's lines carry full times; so does the record after them.
        formater.restart();
    }
    int size;
    const char *text = formater.formatLine(record, &size);
    journal->append(text, size);
}

QSharedPointer<LogRecord> DestPoint::takeFirstLogRecord()
{
    QMutexLocker locker(&queueLock);
    QSharedPointer<LogRecord> record;
    while (queueHead < queue.size() && !record) {
        record.swap(queue[queueHead]);
        ++queueHead;
    }
    if (queueHead == queue.size()) {
        // Empty: start again at the front, keeping the allocation.
        queue.resize(0);
        queueHead = 0;
    } else if (queueHead > 64 && queueHead > queue.size() / 2) {
        // A queue that never runs empty: drop the taken slots now and then.
        queue.remove(0, queueHead);
        queueHead = 0;
    }
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
    QReadLocker locker(&lock);
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

void DestPoint::AllDestPointsManager::setActiveDestPoints(const QStringList &names)
{
    QReadLocker locker(&lock);
    const QList<DestPoint *> list = destinations;
    for (DestPoint *destination : list) {
        if (reachable(destination))
            destination->setActive(names.contains(QString::fromLatin1(destination->confName()),
                                                  Qt::CaseSensitive));
    }
}

void DestPoint::AllDestPointsManager::refreshConfig(Config &config)
{
    // Reports (a file that cannot be opened, say) are delivered after the
    // write lock is released.
    ReportDeferral deferral;
    setActiveDestPoints(config.active());

    QWriteLocker locker(&lock);
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

void DestPoint::AllDestPointsManager::applyCurrentConfig(DestPoint *destination)
{
    ReportDeferral deferral;
    // Several destinations may join at once; a refresh waits for them.
    QReadLocker locker(&lock);
    if (!destinations.contains(destination))
        return;
    destination->settled.fetchAndStoreOrdered(1);
    if (!applied)
        return;
    destination->setActive(applied->active().contains(
        QString::fromLatin1(destination->confName()), Qt::CaseSensitive));
    configure(destination, *applied);
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

void DestPoint::AllDestPointsManager::configure(DestPoint *destination, Config &config)
{
    const char *name = destination->confName();
    destination->formatter().reloadConfig(config, name);
    destination->filter().reloadConfig(config, name);
    destination->reloadConfig(config);
}

} // namespace logging

#include "destpoint.moc"
