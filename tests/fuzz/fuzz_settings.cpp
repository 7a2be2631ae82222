// libFuzzer harness: the settings file parser and every look-up on its
// result. The input is written to a settings file and read as one.

#include <logging/config.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>

#include <cstdint>
#include <cstdlib>

using namespace logging;

namespace {

// Made once and never freed: the exit handler still needs it.
const QString *s_settingsFile = nullptr;

QString settingsFile()
{
    return *s_settingsFile;
}

void removeSettingsFile()
{
    QFile::remove(settingsFile());
}

// Parse reports are plain Qt messages here (no Initializer): keep them off
// the fuzzer's output.
void quiet(QtMsgType, const QMessageLogContext &, const QString &)
{
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    qInstallMessageHandler(quiet);
    s_settingsFile = new QString(QDir::tempPath() + QString::fromLatin1("/qtlog-fuzz-settings-%1.conf")
                                                        .arg(QCoreApplication::applicationPid()));
    atexit(removeSettingsFile);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    {
        QFile file(settingsFile());
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)
            || file.write(reinterpret_cast<const char *>(data), qint64(size)) != qint64(size))
            abort();
    }

    QList<Config::Settings::Line> lines;
    Config::Settings classified(settingsFile(), &lines);
    for (const Config::Settings::Line &line : lines) {
        if (line.number < 1 || line.number > int(size) + 1)
            abort();
    }

    Config config(settingsFile(), false);
    static const char *const sections[] = { nullptr, "console", "file", "syslog", "gui_buffer", "" };
    for (const char *section : sections) {
        const int level = config.maxLevel(section);
        if (level < 0 || level > 5)
            abort();
        config.allowMod(section);
        config.denyMod(section);
        config.outFormat(section);
        config.outTraceFormat(section);
        for (const QString &key : config.keys(section))
            config.value(section, key, QString());
    }
    config.active();
    QScopedPointer<Config> copy(config.snapshot());
    if (copy->active() != config.active() || copy->maxLevel("file") != config.maxLevel("file")
        || copy->outFormat("console") != config.outFormat("console"))
        abort();
    return 0;
}
