// The level ceiling: the most verbose level that some active destination may
// take, which toLog() and the macros test before they make anything.

#include "level_ceiling_p.h"
#include "qt_compat_p.h"

#include <QtCore/QMutex>

#include <climits>

namespace logging {

// The most verbose level that some active destination may take. Raised at
// once whenever a filter or an activation could need it; lowered to the
// exact figure when the registry applies the settings. Counting the raises
// lets a lowering that overlaps one keep the raised figure.
std::atomic<int> s_levelCeiling(INT_MAX);

namespace {

compat::Mutex s_ceilingMutex;
unsigned s_ceilingRaises = 0;

} // namespace

void raiseLevelCeiling(int level)
{
    compat::MutexLocker locker(&s_ceilingMutex);
    ++s_ceilingRaises;
    if (level > s_levelCeiling.load(std::memory_order_relaxed))
        s_levelCeiling.store(level, std::memory_order_relaxed);
}

unsigned levelCeilingRaises()
{
    compat::MutexLocker locker(&s_ceilingMutex);
    return s_ceilingRaises;
}

void setLevelCeiling(int level, unsigned raisesBefore)
{
    compat::MutexLocker locker(&s_ceilingMutex);
    if (s_ceilingRaises != raisesBefore)
        level = qMax(level, s_levelCeiling.load(std::memory_order_relaxed));
    s_levelCeiling.store(level, std::memory_order_relaxed);
}

} // namespace logging
