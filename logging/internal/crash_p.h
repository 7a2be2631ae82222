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

void install();
void uninstall();

// A journal that the handler writes; a fixed number of places.
bool registerJournal(LineJournal *journal);
void unregisterJournal(LineJournal *journal);

// Whether the settings last applied want the handler: all but
// "crash_handler = 0".
void setWanted(bool wanted);
bool wanted();

// True once a crash is being handled.
bool crashing();

// Called when the local offset is found again, so that the crash record's
// time needs no time-zone work.
void noteLocalOffset(int offsetSeconds);

} // namespace crash

} // namespace logging

#endif // QTLOG_CRASH_P_H
