#ifndef QTLOG_FUZZ_SUPPORT_H
#define QTLOG_FUZZ_SUPPORT_H

// What the settings harnesses share: a settings file of the process's own,
// removed at exit, and Qt's messages (parse reports) kept off the output.

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>

#include <cstdlib>

namespace fuzz {

// The harness's settings file, named after the harness and the process.
inline QString &settingsName()
{
    static QString name;
    return name;
}

inline void removeSettingsFile()
{
    QFile::remove(settingsName());
}

inline void quiet(QtMsgType, const QMessageLogContext &, const QString &)
{
}

// For LLVMFuzzerInitialize.
inline void setUp(const char *harness)
{
    qInstallMessageHandler(quiet);
    settingsName() = QDir::tempPath() + QString::fromLatin1("/qtlog-%1-%2.conf")
                                            .arg(QLatin1String(harness)).arg(QCoreApplication::applicationPid());
    // Registered after the name was made: runs before the name is destroyed.
    atexit(removeSettingsFile);
}

// Replaces the settings file's content; aborts when it cannot.
inline QString writeSettings(const QByteArray &content)
{
    QFile file(settingsName());
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) != content.size())
        abort();
    return file.fileName();
}

} // namespace fuzz

#endif // QTLOG_FUZZ_SUPPORT_H
