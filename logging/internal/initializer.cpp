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
#include "logging_p.h"
#include "message_handler_p.h"

#include <QtCore/QFile>

namespace logging {

namespace {

// The settings file's name, searched for in the Initializer's directories.
const char gLogFileName[] = "log.conf";

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
    d = new InitializerPrivate(configDirs);
}

Initializer::~Initializer()
{
    toLog(Info, detail::bytes("logging"), detail::bytes(__FILE__), __LINE__,
          detail::bytes("logging::Initializer::~Initializer()"))
        << "==== log stoped ====";
    delete d;
}

InitializerPrivate::InitializerPrivate(const QStringList &configDirs)
{
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
}

InitializerPrivate::~InitializerPrivate()
{
    // The reload thread goes first: it must not reconfigure destinations
    // that are being destroyed.
    config.reset();
    crash::uninstall();
    delete DestPoint::allDestPointManager();
    sysLog.reset();
    file.reset();
    console.reset();
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
