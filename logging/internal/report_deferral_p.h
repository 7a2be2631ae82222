#ifndef QTLOG_REPORT_DEFERRAL_P_H
#define QTLOG_REPORT_DEFERRAL_P_H

#include <logging/qtlog_global.h>

#include "thread_state_p.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace logging {

// Holds back the reports (and other messages) that this thread logs while the
// object lives, and emits them through Qt's channel when the outermost one on
// the thread is destroyed.
//
// A report's road runs back into the registry, the destinations and their
// locks. Code that holds such a lock, or runs inside the message handler,
// puts a ReportDeferral in front of its lockers: the reports it causes are
// then delivered after the locks are released, never into them. Inside the
// handler they are delivered by the handler itself once the record at hand is
// out, since Qt 5/6 would print a message emitted there raw to standard
// error, and Qt 4 would re-enter the handler.
class ReportDeferral
{
public:
    ReportDeferral();
    ~ReportDeferral();

    // True while a ReportDeferral lives on this thread.
    static bool active();

    // A string for toLog() to stream into instead of Qt's channel. The stream
    // that writes into it must be finished before the deferral ends.
    static QString *deferStream();

    // Keeps a message that reached the handler while deferring.
    static void deferMessage(QtMsgType type, const char *text);

private:
    Q_DISABLE_COPY(ReportDeferral)
};

// A message held back by ReportDeferral: either raw text that reached the
// handler, or the string a toLog() stream writes into.
struct PendingMessage
{
    QtMsgType type;
    bool streamed;
    QByteArray text;
    QString streamText;

    // The bytes that Qt's channel would have carried.
    QByteArray bytes();
};

// Takes what this thread's deferrals hold back; null when nothing.
inline PendingList *takePending()
{
    ThreadState &state = threadState();
    PendingList *list = state.pending;
    state.pending = nullptr;
    return list;
}

} // namespace logging

#endif // QTLOG_REPORT_DEFERRAL_P_H
