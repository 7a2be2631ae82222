#ifndef QTLOG_DRAIN_RELAY_P_H
#define QTLOG_DRAIN_RELAY_P_H

#include <logging/destpoint.h>
#include "qt_compat_p.h"

#include <QtCore/QAtomicInt>
#include <QtCore/QThread>

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
            compat::invokeMethod(this, "drain", Qt::QueuedConnection);
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

} // namespace logging

#endif // QTLOG_DRAIN_RELAY_P_H
