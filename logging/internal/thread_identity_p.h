#ifndef QTLOG_THREAD_IDENTITY_P_H
#define QTLOG_THREAD_IDENTITY_P_H

#include <logging/qtlog_global.h>

#include <QtCore/QString>

namespace logging {

// The process and the calling thread as the system knows them. Looked up
// once per thread, and again in the child of a fork().
struct ThreadIdentity
{
    int processId;
    int threadId;       // the kernel's id, as "ps -L" shows it
    QString systemName; // the system's name for the thread (at most 15 bytes)
    QString name;       // the object name of its QThread, else systemName
};

// The calling thread's identity. With refreshName, its name is looked up
// again: a QThread's object name may change at any time.
const ThreadIdentity &threadIdentity(bool refreshName = false);

// How many fork()s this process is the child of: an identity kept from
// before a fork is not this process's.
unsigned forkCount();

} // namespace logging

#endif // QTLOG_THREAD_IDENTITY_P_H
