#ifndef QTLOG_FUZZ_SUPPORT_H
#define QTLOG_FUZZ_SUPPORT_H

// What the settings harnesses share: a settings file of the process's own,
// removed at exit, and Qt's messages (parse reports) kept off the output.

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>

#include <cstdlib>

namespace fuzz {

// Made once and never freed: the exit handler still needs it.
inline const QString *&settingsName()
{
    static const QString *name = nullptr;
    return name;
}

inline void removeSettingsFile()
{
    QFile::remove(*settingsName());
}

inline void quiet(QtMsgType, const QMessageLogContext &, const QString &)
{
}

// For LLVMFuzzerInitialize: names the file after the harness and the process.
inline void setUp(const char *harness)
{
    qInstallMessageHandler(quiet);
    settingsName() = new QString(QDir::tempPath() + QString::fromLatin1("/qtlog-%1-%2.conf")
                                     .arg(QLatin1String(harness)).arg(QCoreApplication::applicationPid()));
    atexit(removeSettingsFile);
}

// Replaces the settings file's content; aborts when it cannot.
inline QString writeSettings(const QByteArray &content)
{
    QFile file(*settingsName());
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) != content.size())
        abort();
    return file.fileName();
}

} // namespace fuzz

#endif // QTLOG_FUZZ_SUPPORT_H
