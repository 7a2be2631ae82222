// libFuzzer harness: the settings file parser and every look-up on its
// result. The input is written to a settings file and read as one.

#include <logging/config.h>

#include "fuzz_support.h"

#include <cstdint>

using namespace logging;

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz::setUp("fuzz-settings");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString name = fuzz::writeSettings(QByteArray(reinterpret_cast<const char *>(data), int(size)));
    QList<Config::Settings::Line> lines;
    Config::Settings classified(name, &lines);
    for (const Config::Settings::Line &line : lines) {
        if (line.number < 1 || line.number > int(size) + 1)
            abort();
    }

    Config config(name, false);
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
