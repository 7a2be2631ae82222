#ifndef QTLOG_LEVEL_CEILING_P_H
#define QTLOG_LEVEL_CEILING_P_H

#include <atomic>

namespace logging {

// The most verbose level that any active destination may take; toLog() and
// the macros drop records above it before anything is made of them. A change
// that may let more through calls raiseLevelCeiling() before it takes
// effect. The registry sets the exact figure when it applies the settings:
// it reads levelCeilingRaises() first, then the destinations' levels, and
// passes both to setLevelCeiling(), which keeps any raise in between.
void raiseLevelCeiling(int level);
unsigned levelCeilingRaises();
void setLevelCeiling(int level, unsigned raisesBefore);

// The ceiling itself, read by toLog() and the macros without a lock.
extern std::atomic<int> s_levelCeiling;

} // namespace logging

#endif // QTLOG_LEVEL_CEILING_P_H
