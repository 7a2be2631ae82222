// The destination base: activity, the filter at insertion, the time-ordered
// record queue, and the formatted lines of a destination that keeps them.

#include <logging/destpoint.h>

#include "cold_p.h"
#include "crash_p.h"
#include "drain_relay_p.h"
#include "flight_recorder_p.h"
#include "line_journal_p.h"
#include "level_ceiling_p.h"
#include "qt_compat_p.h"

#include <climits>

namespace logging {

QTLOG_COLD DestPoint::DestPoint(QObject *parent)
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

QTLOG_COLD DestPoint::~DestPoint()
{
    allDestPointManager()->removeDestPoint(this);
    if (journal) {
        crash::unregisterJournal(journal);
        delete journal;
    }
}

QTLOG_COLD void DestPoint::keepLinesForCrash()
{
    if (journal)
        return;
    journal = new LineJournal;
    crash::registerJournal(journal);
}

QTLOG_COLD void DestPoint::setRecorder(int records, int level, int dumpLevel)
{
    if (!journal)
        return;
    FlightRecorder *old;
    {
        compat::MutexLocker locker(&queueLock);
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

bool DestPoint::isActive() const
{
    return compat::loadRelaxed(active) != 0;
}

QTLOG_COLD void DestPoint::setActive(bool on)
{
    // A refresh (reload thread) and a failing file (its drain) may switch
    // the same destination at once; the flag and the level ceiling must agree.
    compat::MutexLocker locker(&activeMutex);
    if (on == isActive() || alwaysActive)
        return;
    if (on)
        raiseLevelCeiling(maxLevel());
    compat::storeRelaxed(active, on ? 1 : 0);
}

QTLOG_COLD void DestPoint::setAlwaysActive()
{
    setActive(true);
    compat::MutexLocker locker(&activeMutex);
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
    compat::MutexLocker locker(&queueLock);
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
    compat::MutexLocker locker(&queueLock);
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
    int dayHeader;
    const char *text = formater.formatLine(record, &size, &dayHeader);
    journal->append(text, size, dayHeader);
}

QByteArray DestPoint::formatAlone(const LogRecord &record)
{
    compat::MutexLocker locker(&queueLock);
    int size;
    const char *text = formater.formatAlone(record, &size);
    return QByteArray(text, size);
}

int DestPoint::queuedRecords()
{
    QMutexLocker locker(&queueLock);
    return queue.size() - queueHead;
}

QSharedPointer<LogRecord> DestPoint::takeFirstLogRecord()
{
    compat::MutexLocker locker(&queueLock);
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

} // namespace logging
