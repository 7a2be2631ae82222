#include "thread_identity_p.h"

#include <QtCore/QThread>

#include <atomic>
#include <mutex>

#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace logging {

namespace {

// Counts the forks that this process is the child of: a thread's identity
// from before a fork is not the child's.
std::atomic<unsigned> s_forks(0);
std::once_flag s_forkWatch;

void onForkChild()
{
    s_forks.fetch_add(1, std::memory_order_relaxed);
}

struct CachedIdentity : ThreadIdentity
{
    unsigned forks;
};

// Reached through a plain pointer: a thread_local object with a constructor
// would cost a guard check at every access.
thread_local CachedIdentity *t_identity = nullptr;

struct IdentityOwner
{
    ~IdentityOwner()
    {
        delete t_identity;
        t_identity = nullptr;
    }
};

thread_local IdentityOwner t_identityOwner;

void takeName(ThreadIdentity &identity)
{
    const QThread *thread = QThread::currentThread();
    const QString name = thread ? thread->objectName() : QString();
    const QString &chosen = name.isEmpty() ? identity.systemName : name;
    if (chosen.constData() != identity.name.constData())
        identity.name = chosen;
}

const ThreadIdentity &lookUp()
{
    std::call_once(s_forkWatch, [] { pthread_atfork(nullptr, nullptr, onForkChild); });
    CachedIdentity *identity = t_identity;
    if (!identity) {
        IdentityOwner &owner = t_identityOwner;     // its destructor now runs at thread end
        Q_UNUSED(owner);
        identity = new CachedIdentity;
        t_identity = identity;
    }
    identity->forks = s_forks.load(std::memory_order_relaxed);
    identity->processId = int(getpid());
    identity->threadId = int(syscall(SYS_gettid));
    char name[17] = { 0 };
    if (prctl(PR_GET_NAME, name, 0, 0, 0) != 0)
        name[0] = 0;
    identity->systemName = QString::fromLocal8Bit(name);
    takeName(*identity);
    return *identity;
}

} // namespace

unsigned forkCount()
{
    return s_forks.load(std::memory_order_relaxed);
}

const ThreadIdentity &threadIdentity(bool refreshName)
{
    CachedIdentity *identity = t_identity;
    if (Q_UNLIKELY(!identity || identity->forks != s_forks.load(std::memory_order_relaxed)))
        return lookUp();
    if (refreshName)
        takeName(*identity);
    return *identity;
}

} // namespace logging
