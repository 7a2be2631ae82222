#ifndef QTLOG_CRASH_P_H
#define QTLOG_CRASH_P_H

#include <logging/qtlog_global.h>

namespace logging {

class LineJournal;

// The process's crash handler for SIGSEGV, SIGBUS, SIGILL, SIGFPE and SIGABRT:
// writes every journal, then one record naming the signal and the thread,
// then lets the signal take its course with the handlers that were there
// before. Installed by the Initializer unless "crash_handler = 0".
namespace crash {

QTLOG_EXPORT void install();
QTLOG_EXPORT void uninstall();

// A journal that the handler writes; a fixed number of places.
QTLOG_EXPORT bool registerJournal(LineJournal *journal);
QTLOG_EXPORT void unregisterJournal(LineJournal *journal);

// Whether the settings last applied want the handler: all but
// "crash_handler = 0".
QTLOG_EXPORT void setWanted(bool wanted);
QTLOG_EXPORT bool wanted();

// True once a crash is being handled.
QTLOG_EXPORT bool crashing();

// Called when the local offset is found again, so that the crash record's
// time needs no time-zone work.
QTLOG_EXPORT void noteLocalOffset(int offsetSeconds);

} // namespace crash

} // namespace logging

#endif // QTLOG_CRASH_P_H
