#ifndef QTLOG_LOGGING_P_H
#define QTLOG_LOGGING_P_H

#include <logging/logging.h>

#include <QtCore/QScopedPointer>

namespace logging {

class Config;
class DPConsole;
class DPFile;
class DPSysLog;

class QTLOG_EXPORT InitializerPrivate
{
public:
    explicit InitializerPrivate(const QStringList &configDirs);
    ~InitializerPrivate();

    // The library's Qt message handler: turns every message of the process
    // into a record and hands it to the destination registry.
    static void messageFinished(QtMsgType type, const char *text);
    // Where Qt hands over a QString: takes a record that this thread has just
    // encoded without converting its header. False for any other text.
    static bool messageText(QtMsgType type, const QString &text);
    // The handler after shutdown: a qFatal or a Critical record goes to
    // standard error as one line in the built-in format, nothing else
    // anywhere.
    static void messageAfterShutdown(QtMsgType type, const char *text);

    // The process-wide initialised flag. Once true it stays true; while it is
    // false it takes the value of set. Returns the flag's value after that.
    static bool checkAndSetInitialized(bool set);

    // The settings file for a list of directory prefixes: the first prefix
    // + "log.conf" that exists, else "log.conf" in the working directory.
    static QString findConfigFile(const QStringList &configDirs);

private:
    Q_DISABLE_COPY(InitializerPrivate)

    // Writes what waits for the destinations, from any thread; waits for
    // other threads' drains for half a second at most.
    void writeBeforeEnd();
    // At exit(), or a return from main, while an Initializer is in charge.
    static void atExit();

    QScopedPointer<Config> config;
    QScopedPointer<DPConsole> console;
    QScopedPointer<DPFile> file;
    QScopedPointer<DPSysLog> sysLog;
};

} // namespace logging

#endif // QTLOG_LOGGING_P_H
