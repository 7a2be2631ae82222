#ifndef QTLOG_LOGGING_H
#define QTLOG_LOGGING_H

#include <logging/log_record.h>

#include <QtCore/QByteArray>
#include <QtCore/QDebug>
#include <QtCore/QStringList>

namespace logging {

class InitializerPrivate;

// The entry point for log records. Returns a debug stream of type QtDebugMsg
// into which the caller streams the message, as with qDebug(). When its last
// copy is destroyed the text goes through Qt's message channel to the
// library's handler, which turns it back into a record.
//
// Once an Initializer has been constructed, the stream starts with the
// record's encoded header (level, the current time, module, position).
// Before that, it is a plain debug message; at Trace level and above it is
// preceded by "***", the line, ":", the file and the function.
//
// module and subModule are joined with "." when both are non-empty; a
// sub-module without a module is dropped.
QTLOG_EXPORT QDebug toLog(Level level, const QByteArray &module, const QByteArray &file,
                          int line, const QByteArray &function,
                          const QByteArray &subModule = QByteArray());

// Starts logging for the whole process: finds the settings file, creates the
// console, file and syslog destinations, applies the settings, captures all
// of Qt's messages and logs the start banner. Create one near the start of
// main(), on the main thread, before other threads log; destroying it logs
// the stop banner, writes what other threads queued, and takes the
// destinations down. exit() or a return from main writes what waits too.
// Afterwards only a qFatal or a Critical record is written: to standard
// error. One Initializer at a time: another one made while this one lives
// logs a Warning and does nothing, neither when made nor when destroyed.
class QTLOG_EXPORT Initializer
{
public:
    // configDirs are prefixes, tried in order, to which "log.conf" is
    // appended as it stands: a directory must end with "/". Without a match
    // the settings are read from "log.conf" in the working directory.
    explicit Initializer(const QStringList &configDirs = QStringList());
    ~Initializer();

private:
    Q_DISABLE_COPY(Initializer)
    InitializerPrivate *d;
};

namespace detail {

// False when no active destination takes records of this level (once an
// Initializer has started): the macros then skip the whole statement.
QTLOG_EXPORT bool levelEnabled(int level);

// A macro statement's beginning and end on this thread: a record it streams
// may be held and emitted at its end. statementBegin() returns a mark for
// statementEnd(), which returns -1.
QTLOG_EXPORT int statementBegin();
QTLOG_EXPORT int statementEnd(int mark);

// Literal texts (file names, function names, modules) are handed to toLog()
// without copying them; toLog() has used them up before it returns.
template <int N>
inline QByteArray bytes(const char (&text)[N])
{
    return QByteArray::fromRawData(text, int(qstrnlen(text, N)));
}

inline QByteArray bytes(const QByteArray &text)
{
    return text;
}

// toLog() for zero-terminated texts, as the macros have them: nothing is
// copied unless the record is taken. A null pointer counts as empty.
QTLOG_EXPORT QDebug toLogLiteral(Level level, const char *module, const char *file, int line,
                                 const char *function, const char *subModule);

inline QByteArray text(const char *zeroTerminated)
{
    return QByteArray::fromRawData(zeroTerminated, int(qstrlen(zeroTerminated)));
}

template <int N>
inline QDebug logAt(Level level, const char *file, int line, const char *function,
                    const char (&module)[N])
{
    return toLogLiteral(level, module, file, line, function, 0);
}

template <int N, int M>
inline QDebug logAt(Level level, const char *file, int line, const char *function,
                    const char (&module)[N], const char (&subModule)[M])
{
    return toLogLiteral(level, module, file, line, function, subModule);
}

template <typename Module>
inline QDebug logAt(Level level, const char *file, int line, const char *function,
                    const Module &module)
{
    return toLog(level, bytes(module), text(file), line, text(function));
}

template <typename Module, typename SubModule>
inline QDebug logAt(Level level, const char *file, int line, const char *function,
                    const Module &module, const SubModule &subModule)
{
    return toLog(level, bytes(module), text(file), line, text(function), bytes(subModule));
}

} // namespace detail
} // namespace logging

// The application's logging macros: a module, an optional sub-module, and the
// caller's file, line and pretty function name filled in. When no active
// destination takes the level, nothing of the statement is evaluated: neither
// the arguments nor what is streamed.
//
//     QTLOG_INFO("media") << "volume" << 5;
//     QTLOG_DEBUG("media", "audio") << "buffer underrun";
#define QTLOG_AT(level, ...)                                                   \
    for (int qtlog_mark = ::logging::detail::levelEnabled(level)              \
                              ? ::logging::detail::statementBegin() : -1;      \
         qtlog_mark >= 0; qtlog_mark = ::logging::detail::statementEnd(qtlog_mark)) \
        ::logging::detail::logAt(level, __FILE__, __LINE__, Q_FUNC_INFO, __VA_ARGS__)

#define QTLOG_CRITICAL(...) QTLOG_AT(::logging::Critical, __VA_ARGS__)
#define QTLOG_ERROR(...) QTLOG_AT(::logging::Error, __VA_ARGS__)
#define QTLOG_WARNING(...) QTLOG_AT(::logging::Warning, __VA_ARGS__)
#define QTLOG_INFO(...) QTLOG_AT(::logging::Info, __VA_ARGS__)
#define QTLOG_DEBUG(...) QTLOG_AT(::logging::Debug, __VA_ARGS__)
#define QTLOG_TRACE(...) QTLOG_AT(::logging::Trace, __VA_ARGS__)

#endif // QTLOG_LOGGING_H
