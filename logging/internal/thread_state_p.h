#ifndef QTLOG_THREAD_STATE_P_H
#define QTLOG_THREAD_STATE_P_H

// What each logging thread keeps from record to record: the record it
// encoded last, its macro statements' texts, and the messages its report
// deferrals hold back. Shared by the entry function, the message handler and
// the report deferral, all of which run on the logging thread itself.

#include "log_record_p.h"
#include "thread_identity_p.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>

namespace logging {

struct PendingMessage;
typedef QList<PendingMessage *> PendingList;

// The record this thread encoded last, with its fields, so that the handler
// can take them as they are when the text it receives starts with exactly
// this header. The byte arrays are the thread's own copies, kept while
// the next record comes from the same call site: no allocation then.
struct LastEncoded
{
    RecordHeaderEncoder encoder;
    QString headerText;     // the header as text, kept in step with the encoder
    QByteArray moduleKey;   // the module as toLog() was given it, joined
    QString module;
    QByteArray moduleUtf8;
    QByteArray function;
    QByteArray file;
    int level;
    int line;
    qint64 msecs;
    int offset;
    qint64 bootMsecs;
    const ThreadIdentity *thread = nullptr;
    unsigned forks = 0;     // forkCount() when thread was taken
};

// Records of macro statements, written into strings that start with the
// header already and emitted when the statement ends: the header is not
// streamed through QDebug. Statements nest when a streamed value logs in turn.
struct HeldStatements
{
    HeldStatements() : depth(0), begun(false), lastEncoded(-1), emitting(nullptr) {}

    static const int maxDepth = 8;
    QString texts[maxDepth];
    QByteArray headers[maxDepth];   // each text's header, shared until it is emitted
    QByteArray bytes;   // where the Qt in use needs the text as bytes
    int depth;
    bool begun;     // a statement has begun and not yet made its stream
    int lastEncoded;            // the slot of the record encoded last, or -1
    const QString *emitting;    // that slot while it is emitted: the handler
                                // knows its header without comparing it
};

// What a thread keeps from record to record. Made at the thread's first use
// and reached through one plain pointer: a thread_local object with a
// constructor would cost a guard check at every access.
struct ThreadState
{
    ThreadState() : deferDepth(0), pending(nullptr) {}

    LastEncoded last;
    // The stream of a record that no destination takes writes here; it is
    // never emitted.
    QString discarded;
    HeldStatements held;
    int deferDepth;         // ReportDeferral objects alive
    PendingList *pending;   // what they hold back
};

extern thread_local ThreadState *t_state;

// Makes this thread's state, deleted when the thread ends.
ThreadState &newThreadState();

inline ThreadState &threadState()
{
    ThreadState *state = t_state;
    return Q_LIKELY(state != nullptr) ? *state : newThreadState();
}

} // namespace logging

#endif // QTLOG_THREAD_STATE_P_H
