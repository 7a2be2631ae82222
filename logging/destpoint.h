#ifndef QTLOG_DESTPOINT_H
#define QTLOG_DESTPOINT_H

#include <logging/filter_log_records.h>
#include <logging/log_record.h>
#include <logging/log_record_formater.h>

#include <QtCore/QAtomicInt>
#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QVector>
#include <QtCore/QObject>
#include <QtCore/QReadWriteLock>
#include <QtCore/QScopedPointer>
#include <QtCore/QSharedPointer>
#include <QtCore/QStringList>

namespace logging {

class Config;
class DrainRelay;
class LineJournal;

// Base of every output destination. It owns a filter, a formatter and a
// queue of records ordered by time. Records are filtered when the registry
// inserts them, on the logging thread; they are formatted and written when
// the registry signals, by outItems() on the thread that owns the object.
// A destination on another thread than the logging one has at most one
// drain waiting in its event loop: that drain writes everything queued by
// then, so further records need no request of their own.
//
// The console and the file keep lines instead (keepLinesForCrash()): their
// formatter runs when the record is accepted, on the logging thread, and the
// line waits in a journal that a crash handler can still write. Their lines
// are written in the order they were accepted.
//
// A new destination registers itself with the registry and is inactive; the
// registry switches it on when the settings' "active" list names it.
//
// Until its constructor has finished, a destination is not a whole object:
// a refresh running on another thread leaves it alone until it has settled,
// that is until its constructor calls the registry's applyCurrentConfig(this)
// (every destination made after start-up does, as its last step) or a refresh
// runs on the destination's own thread. In the same way, a destination that
// may be destroyed while another thread refreshes calls the registry's
// removeDestPoint(this) first thing in its destructor.
class QTLOG_EXPORT DestPoint : public QObject
{
    Q_OBJECT

public:
    class AllDestPointsManager;

    explicit DestPoint(QObject *parent = 0);
    ~DestPoint() QTLOG_OVERRIDE;

    // The process-wide registry, created on first use. After it has been
    // deleted, the next call creates a fresh, empty one.
    static AllDestPointsManager *allDestPointManager();

    // The destination's section in the settings file and its word in the
    // "active" list.
    virtual const char *confName() const = 0;

    bool isActive() const;
    // Switches the destination on (the registry offers it records and has
    // it drain) or off. Does nothing for an always-active destination.
    void setActive(bool on);
    // Active for good, whatever the settings say.
    void setAlwaysActive();

    // Queues record if the filter takes it. Records with equal times keep
    // their arrival order; a late one is slotted in before later-stamped ones.
    void insertLogRecord(const QSharedPointer<LogRecord> &record);
    // The earliest queued record, or null when the queue is empty.
    QSharedPointer<LogRecord> takeFirstLogRecord();

    FilterLogRecords &filter() { return filterRecords; }
    LogRecordFormater &formatter() { return formater; }

    // The most verbose level that the destination takes: its filter's, or
    // its flight recorder's when that keeps more.
    int maxLevel() const;

    // The lines waiting to be written, for a destination that keeps lines;
    // null for one that keeps records.
    LineJournal *lineJournal() const { return journal; }

public Q_SLOTS:
    // Drains the queue and writes every record. Does nothing here.
    virtual void outItems();

public:
    // The destination's own settings, applied at every refresh after the
    // "active" list, the formats and the filter. Does nothing here.
    virtual void reloadConfig(Config &config);

protected:
    // Switches the destination to keeping formatted lines; call it in the
    // constructor, before the destination is active.
    void keepLinesForCrash();
    // Keeps up to records recent records of level or more severe that the
    // filter does not take, and writes them before the first record of
    // dumpLevel or more severe that it does take. 0 records: none. Records
    // already kept stay when the figures do not change.
    void setRecorder(int records, int level, int dumpLevel);
    // record's line in this destination's format, with its full time; the
    // lines kept in order are not affected.
    QByteArray formatAlone(const LogRecord &record);

private:
    Q_DISABLE_COPY(DestPoint)

    void insertLine(const LogRecord &record);
    // Records queued and not yet taken.
    int queuedRecords();

    QMutex activeMutex;     // serialises setActive()
    QAtomicInt active;      // read without the mutex, from any thread
    bool alwaysActive;
    FilterLogRecords filterRecords;
    LogRecordFormater formater;
    QMutex queueLock;
    // The queue is queue[queueHead] up to the end; the slots before the head
    // are taken, and reused once the queue has run empty.
    QVector<QSharedPointer<LogRecord> > queue;
    int queueHead;
    DrainRelay *relay;      // a child object: runs the drains for the registry
    LineJournal *journal;   // the kept lines, or null; the queue lock guards appending
    QAtomicInt settled;     // constructed whole; set under the registry's lock
};

// The registry of all destinations. Fans each record out to the active ones
// and signals them to write; applies the settings to them.
//
// Lock order: the registry, then a destination's own lock, its queue, its
// formatter or filter, then the parsed settings.
class QTLOG_EXPORT DestPoint::AllDestPointsManager : public QObject
{
    Q_OBJECT

public:
    AllDestPointsManager();
    ~AllDestPointsManager() QTLOG_OVERRIDE;

    void addDestPoint(DestPoint *destination);
    // Removes every entry of destination.
    void removeDestPoint(DestPoint *destination);

    // Offers record to every active destination, has each of them drain,
    // then emits startActive() once, whether or not any took it.
    void sendLogRecord(const QSharedPointer<LogRecord> &record);
    // The same for a record not shared yet: a shared copy is made only if an
    // active destination keeps records rather than lines.
    void sendLogRecord(const LogRecord &record);
    // Activates the destinations whose confName() is in names (case-sensitive)
    // and deactivates the others.
    void setActiveDestPoints(const QStringList &names);
    // Applies config: the "active" list, then each destination's formats,
    // filter and own settings. The registry keeps a copy of what it applied.
    void refreshConfig(Config &config);
    // Applies the settings of the last refreshConfig() to destination alone,
    // if there was one. A destination made after start-up calls it at the
    // end of its constructor, so that it never writes with the defaults.
    void applyCurrentConfig(DestPoint *destination);
    // Before the end of the process or of the destinations: waits, at most
    // timeoutMs in all, for the destinations of other threads that keep
    // records to drain, reports each one that still holds records, then
    // writes the waiting lines of lineKeepers, which the caller keeps alive.
    void writeBeforeEnd(const QList<DestPoint *> &lineKeepers, int timeoutMs);

Q_SIGNALS:
    void startActive();

private:
    Q_DISABLE_COPY(AllDestPointsManager)

    // Applies config's settings to one destination; lock held by the caller.
    static void configure(DestPoint *destination, Config &config);
    // Whether a refresh on this thread may reach destination: it has settled,
    // or it belongs to this thread, where its constructor cannot be running.
    static bool reachable(DestPoint *destination);
    // sendLogRecord(); shared is made from record when needed.
    void offer(const LogRecord &record, QSharedPointer<LogRecord> &shared);

    QReadWriteLock lock;
    QList<DestPoint *> destinations;
    QScopedPointer<Config> applied;     // a copy of the settings last applied
};

} // namespace logging

#endif // QTLOG_DESTPOINT_H
