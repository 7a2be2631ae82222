#include <logging/dp_console.h>

#include "crash_p.h"
#include "line_journal_p.h"

#include <cstdio>
#include <cstring>

#include <unistd.h>

namespace logging {

DPConsole::DPConsole(QObject *parent)
    : DestPoint(parent)
{
    keepLinesForCrash();
    lineJournal()->setCrashFd(STDERR_FILENO);
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
    LineJournal::Reader reader(*lineJournal());
    const char *text;
    int size;
    while (reader.peek(&text, &size) && !crash::crashing()) {
        // A line ends at a zero byte; standard error is unbuffered, so this
        // is one write per line.
        const char *zero = static_cast<const char *>(memchr(text, 0, size_t(size)));
        if (zero) {
            fwrite(text, 1, size_t(zero - text), stderr);
            fputc('\n', stderr);
        } else {
            fwrite(text, 1, size_t(size), stderr);
        }
        reader.next();
    }
}

} // namespace logging
