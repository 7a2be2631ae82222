// The crash handler: on a fatal signal, writes every registered journal and
// a record naming the signal, then hands the signal back to the handlers
// that were there before.

#include "crash_p.h"

#include "line_journal_p.h"
#include "signal_safe_p.h"
#include "qt_compat_p.h"

#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>

#include <atomic>

#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace logging {

namespace crash {

namespace {

const int s_signals[] = { SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT };
const int s_signalCount = int(sizeof s_signals / sizeof s_signals[0]);
const char *const s_signalNames[] = { "SIGSEGV", "SIGBUS", "SIGILL", "SIGFPE", "SIGABRT" };

const int s_maxJournals = 8;
std::atomic<LineJournal *> s_journals[s_maxJournals];

struct sigaction s_previous[s_signalCount];
compat::Mutex s_installMutex;
bool s_installed = false;

// 0: no crash; 1: a thread is writing the journals; 2: done.
std::atomic<int> s_state(0);
std::atomic<int> s_localOffset(0);
std::atomic<bool> s_wanted(true);

// An alternate stack for the installing thread, so that a stack overflow
// there can still be handled.
char s_altStack[64 * 1024];

int signalIndex(int signal)
{
    for (int i = 0; i < s_signalCount; ++i) {
        if (s_signals[i] == signal)
            return i;
    }
    return -1;
}

// "hh:mm:ss.zzz c [logging] Crash: signal SIGSEGV (11) in thread 4242 "name"".
void writeCrashRecord(int fd, int signal)
{
    char line[256];
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const long long local = (long long)now.tv_sec + s_localOffset.load(std::memory_order_relaxed);
    const long secondOfDay = long(((local % 86400) + 86400) % 86400);
    char *out = line;
    out = putNumber(out, unsigned(secondOfDay / 3600), 2);
    *out++ = ':';
    out = putNumber(out, unsigned(secondOfDay / 60 % 60), 2);
    *out++ = ':';
    out = putNumber(out, unsigned(secondOfDay % 60), 2);
    *out++ = '.';
    out = putNumber(out, unsigned(now.tv_nsec / 1000000), 3);
    out = putText(out, " c [logging] Crash: signal ");
    const int index = signalIndex(signal);
    out = putText(out, index >= 0 ? s_signalNames[index] : "");
    out = putText(out, " (");
    out = putNumber(out, unsigned(signal), 1);
    out = putText(out, ") in thread ");
    const long tid = long(syscall(SYS_gettid));
    out = putNumber(out, unsigned(tid), 1);
    char name[17] = { 0 };
    if (tid == long(getpid())) {
        out = putText(out, " (main)");
    } else if (prctl(PR_GET_NAME, name, 0, 0, 0) == 0 && name[0]) {
        out = putText(out, " \"");
        name[16] = 0;
        // Control characters escaped, as in every other line.
        static const char hex[] = "0123456789abcdef";
        for (const char *p = name; *p; ++p) {
            const unsigned char c = static_cast<unsigned char>(*p);
            if (c < 0x20 || c == 0x7f) {
                *out++ = '\\';
                *out++ = 'x';
                *out++ = hex[c >> 4];
                *out++ = hex[c & 0xf];
            } else {
                *out++ = char(c);
            }
        }
        *out++ = '"';
    }
    *out++ = '\n';
    writeAll(fd, line, int(out - line));
}

void onCrash(int signal, siginfo_t *info, void *)
{
    const int savedErrno = errno;
    int expected = 0;
    if (s_state.compare_exchange_strong(expected, 1)) {
        for (int i = 0; i < s_maxJournals; ++i) {
            const LineJournal *journal = s_journals[i].load();
            const int fd = journal ? journal->fdForCrash() : -1;
            if (fd < 0)
                continue;
            journal->dumpForCrash(fd);
            writeCrashRecord(fd, signal);
        }
        s_state.store(2);
    } else {
        // Another thread crashed first: let it finish writing (a few seconds
        // at most) before this signal ends the process.
        for (int i = 0; i < 500 && s_state.load() == 1; ++i) {
            struct timespec pause = { 0, 10 * 1000 * 1000 };
            nanosleep(&pause, nullptr);
        }
    }

    // Back to what was there before, which then handles the signal: a fault
    // comes again when the instruction is retried; a sent signal (abort(),
    // raise, kill) is sent again and arrives when this handler returns.
    const int index = signalIndex(signal);
    if (index >= 0)
        sigaction(signal, &s_previous[index], nullptr);
    else
        ::signal(signal, SIG_DFL);
    if (!info || info->si_code <= 0 || signal == SIGABRT)
        raise(signal);
    errno = savedErrno;
}

} // namespace

void install()
{
    compat::MutexLocker locker(&s_installMutex);
    if (s_installed)
        return;
    stack_t current;
    if (sigaltstack(nullptr, &current) == 0 && (current.ss_flags & SS_DISABLE)) {
        stack_t stack;
        stack.ss_sp = s_altStack;
        stack.ss_size = sizeof s_altStack;
        stack.ss_flags = 0;
        sigaltstack(&stack, nullptr);
    }
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_sigaction = &onCrash;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (int i = 0; i < s_signalCount; ++i)
        sigaction(s_signals[i], &action, &s_previous[i]);
    s_installed = true;
}

void uninstall()
{
    compat::MutexLocker locker(&s_installMutex);
    if (!s_installed)
        return;
    for (int i = 0; i < s_signalCount; ++i) {
        struct sigaction current;
        // Only where ours is still in place: a later handler keeps its own.
        if (sigaction(s_signals[i], nullptr, &current) == 0
            && (current.sa_flags & SA_SIGINFO) && current.sa_sigaction == &onCrash)
            sigaction(s_signals[i], &s_previous[i], nullptr);
    }
    s_installed = false;
}

bool registerJournal(LineJournal *journal)
{
    for (int i = 0; i < s_maxJournals; ++i) {
        LineJournal *empty = nullptr;
        if (s_journals[i].compare_exchange_strong(empty, journal))
            return true;
    }
    return false;
}

void unregisterJournal(LineJournal *journal)
{
    for (int i = 0; i < s_maxJournals; ++i) {
        LineJournal *expected = journal;
        s_journals[i].compare_exchange_strong(expected, nullptr);
    }
}

void setWanted(bool wanted)
{
    s_wanted.store(wanted);
}

bool wanted()
{
    return s_wanted.load();
}

bool crashing()
{
    return s_state.load(std::memory_order_seq_cst) != 0;
}

void noteLocalOffset(int offsetSeconds)
{
    s_localOffset.store(offsetSeconds, std::memory_order_relaxed);
}

} // namespace crash

} // namespace logging
