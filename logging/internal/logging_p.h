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

    // The process-wide initialised flag. Once true it stays true; while it is
    // false it takes the value of set. Returns the flag's value after that.
    static bool checkAndSetInitialized(bool set);

    // The settings file for a list of directory prefixes: the first prefix
    // + "log.conf" that exists, else "log.conf" in the working directory.
    static QString findConfigFile(const QStringList &configDirs);

private:
    Q_DISABLE_COPY(InitializerPrivate)

    QScopedPointer<Config> config;
    QScopedPointer<DPConsole> console;
    QScopedPointer<DPFile> file;
    QScopedPointer<DPSysLog> sysLog;
};

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
// The most verbose level that any active destination may take; toLog() and
// the macros drop records above it before anything is made of them. A change
// that may let more through calls raiseLevelCeiling() before it takes
// effect. The registry sets the exact figure when it applies the settings:
// it reads levelCeilingRaises() first, then the destinations' levels, and
// passes both to setLevelCeiling(), which keeps any raise in between.
void raiseLevelCeiling(int level);
unsigned levelCeilingRaises();
void setLevelCeiling(int level, unsigned raisesBefore);

class QTLOG_EXPORT ReportDeferral
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

} // namespace logging

#endif // QTLOG_LOGGING_P_H
