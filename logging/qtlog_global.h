#ifndef QTLOG_GLOBAL_H
#define QTLOG_GLOBAL_H

#include <QtCore/qglobal.h>

// Symbols of the shared library. Internal classes that the unit tests reach
// carry the same mark; their headers are not installed.
#if defined(QTLOG_BUILDING_LIBRARY)
#  define QTLOG_EXPORT Q_DECL_EXPORT
#else
#  define QTLOG_EXPORT Q_DECL_IMPORT
#endif

// The public headers also serve applications built as C++98, as Qt 4
// applications are: C++11's override only where the compiler has it.
#if __cplusplus >= 201103L
#  define QTLOG_OVERRIDE override
#else
#  define QTLOG_OVERRIDE
#endif

#endif // QTLOG_GLOBAL_H
