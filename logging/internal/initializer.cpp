// The Initializer: start-up and shutdown of the whole library, from the
// settings file's search to the start and stop banners.

#include <logging/logging.h>

#include <logging/config.h>
#include <logging/destpoint.h>
#include <logging/dp_console.h>
#include <logging/dp_file.h>
#include <logging/dp_syslog.h>
#include <logging/version_info.h>

#include "crash_p.h"
#include "level_ceiling_p.h"
#include "logging_p.h"
#include "message_handler_p.h"

#include <QtCore/QFile>
#include <QtCore/QMutex>

#include <atomic>

#include <stdlib.h>

namespace logging {

namespace {

// The settings file's name, searched for in the Initializer's directories.
const char gLogFileName[] = "log.conf";

// One Initializer at a time is in charge: its constructor claims the place,
// its destructor gives it back.
std::atomic<bool> s_claimed(false);

// The private part of the Initializer in charge, for the exit hook; set,
// cleared, and used at exit under the mutex.
InitializerPrivate *s_live = nullptr;
QMutex s_liveMutex;

// How long the end of the process or of the Initializer waits, at most, for
// other threads' drains.
const int s_endWaitMs = 500;

QString versionText()
{
    const QString tag = QString::fromLocal8Bit(zelvath::GitTag());
    if (!tag.isEmpty())
        return tag;
    return QString::fromLocal8Bit(zelvath::GitBranch()) + QLatin1Char('/')
        + QString::fromLocal8Bit(zelvath::GitHash());
}

} // namespace

Initializer::Initializer(const QStringList &configDirs)
    : d(nullptr)
{
    bool claimed = false;
    if (!s_claimed.compare_exchange_strong(claimed, true)) {
        // A plugin, a library or a test fixture may bring its own: the one
        // in charge stays so, and this one does nothing at all.
        toLog(Warning, detail::bytes("logging"), detail::bytes(__FILE__), __LINE__,
              detail::bytes("logging::Initializer::Initializer(const QStringList&)"))
            << "Initializer ignored: another one is alive";
        return;
    }
    d = new InitializerPrivate(configDirs);
}

Initializer::~Initializer()
{
    if (!d)
        return;
    toLog(Info, detail::bytes("logging"), detail::bytes(__FILE__), __LINE__,
          detail::bytes("logging::Initializer::~Initializer()"))
        << "==== log stoped ====";
    delete d;
    s_claimed.store(false);
}

InitializerPrivate::InitializerPrivate(const QStringList &configDirs)
{
    // After a shutdown, the start-up's own reports take the road again.
    if (checkAndSetInitialized(false))
        compat::installMessageHandler(&InitializerPrivate::messageFinished,
                                      &InitializerPrivate::messageText);
    config.reset(new Config(findConfigFile(configDirs), true));
    console.reset(new DPConsole);
    file.reset(new DPFile);
    sysLog.reset(new DPSysLog);
    config->refresh();
    // Unless the settings say "crash_handler = 0", a crash still writes
    // every accepted record.
    if (crash::wanted())
        crash::install();

    compat::installMessageHandler(&InitializerPrivate::messageFinished,
                                  &InitializerPrivate::messageText);
    checkAndSetInitialized(true);

    static bool firstMessage = true;
    if (firstMessage) {
        firstMessage = false;
        toLog(Info, detail::bytes("logging"), detail::bytes(__FILE__), __LINE__,
              detail::bytes("logging::InitializerPrivate::InitializerPrivate(const QStringList&)"))
            << "===== Start application ====" << versionText();
    }

    // exit() and a return from main leave the destinations in place, with
    // lines that other threads queued for a drain that will not come.
    QMutexLocker locker(&s_liveMutex);
    s_live = this;
    static bool exitHook = false;
    if (!exitHook) {
        exitHook = true;
        atexit(&InitializerPrivate::atExit);
    }
}

InitializerPrivate::~InitializerPrivate()
{
    QMutexLocker locker(&s_liveMutex);
    s_live = nullptr;
    // The reload thread goes first: it must not reconfigure destinations
    // that are being destroyed.
    config.reset();
    // What other threads queued reaches the outputs before they go.
    writeBeforeEnd();
    crash::uninstall();
    delete DestPoint::allDestPointManager();
    sysLog.reset();
    file.reset();
    console.reset();
    // From now on only what ends the process is written.
    setLevelCeiling(Critical, levelCeilingRaises());
    compat::installMessageHandler(&InitializerPrivate::messageAfterShutdown);
}

void InitializerPrivate::writeBeforeEnd()
{
    DestPoint::allDestPointManager()->writeBeforeEnd(QList<DestPoint *>() << console.data()
                                                                          << file.data(),
                                                     s_endWaitMs);
}

void InitializerPrivate::atExit()
{
    // Not for longer than the wait itself: a thread may be shutting down.
    if (!s_liveMutex.tryLock(s_endWaitMs))
        return;
    if (s_live)
        s_live->writeBeforeEnd();
    s_liveMutex.unlock();
}

QString InitializerPrivate::findConfigFile(const QStringList &configDirs)
{
    const QString name = QString::fromLatin1(gLogFileName);
    for (const QString &dir : configDirs) {
        const QString candidate = dir + name;
        if (QFile::exists(candidate))
            return candidate;
    }
    return name;
}

} // namespace logging
