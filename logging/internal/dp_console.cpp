#include <logging/dp_console.h>

#include <cstdio>

namespace logging {

DPConsole::DPConsole(QObject *parent)
    : DestPoint(parent)
{
    // The console writes from the start, before any settings are read.
    setActive(true);
}

DPConsole::~DPConsole()
{
}

const char *DPConsole::confName() const
{
    return "console";
}

void DPConsole::outItems()
{
    while (const QSharedPointer<LogRecord> record = takeFirstLogRecord()) {
        const QByteArray text = formatter().format(*record);
        fprintf(stderr, "%s\n", text.constData());
    }
}

} // namespace logging
