#ifndef QTLOG_COLD_P_H
#define QTLOG_COLD_P_H

// Marks a function that no record's road runs through (construction, the
// settings, a crash) in a unit that the road does run through: the compiler
// optimises it for size, as the units without the road are, and places it
// away from the road's code. Put it in front of the definition.
#if defined(__GNUC__)
#  define QTLOG_COLD __attribute__((cold))
#else
#  define QTLOG_COLD
#endif

#endif // QTLOG_COLD_P_H
