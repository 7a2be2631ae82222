#ifndef QTLOG_LOG_RECORD_H
#define QTLOG_LOG_RECORD_H

#include <logging/qtlog_global.h>

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QSharedPointer>
#include <QtCore/QString>

namespace logging {

// Severity of a record. Lower is more severe; filters compare the numbers.
// Any int is a valid value: a decoded record keeps whatever number it carried.
// (C++98, which Qt 4 applications use, cannot name the type; it is int-sized
// there too.)
enum Level
#if __cplusplus >= 201103L
    : int
#endif
{
    Critical = 0,
    Error = 1,
    Warning = 2,
    Info = 3,
    Debug = 4,
    Trace = 5
};

// One log event. Never changed after creation; shared between the queues of
// all destinations as QSharedPointer<LogRecord> and read without a lock.
//
// Every constructor takes the process, the calling thread and, unless it is
// given, the time since boot as they are when the record is made.
class QTLOG_EXPORT LogRecord
{
public:
    // Debug level, the current local time, everything else empty.
    LogRecord();
    LogRecord(Level level, const QDateTime &dateTime, const QString &module,
              const QByteArray &message, const QByteArray &function,
              const QByteArray &file, int line);
    // Every field as given.
    LogRecord(Level level, const QDateTime &dateTime, const QString &module,
              const QByteArray &message, const QByteArray &function,
              const QByteArray &file, int line, qint64 bootTime, int processId,
              int threadId, const QString &threadName);

    // Transport header of this record for Qt's message channel: the marker
    // "DStLg", the base64 field block and "!". The message is not part of it.
    QByteArray sourcePositionToByteArray() const;

    // Decodes a whole transported text (header, one separator byte, message).
    // Returns a null pointer when the text does not start with a valid header.
    static QSharedPointer<LogRecord> fromByteArray(const QByteArray &data);

    // One-line form of a byte string: "\" becomes "\\", a newline "\n".
    static QByteArray escape(const QByteArray &data);
    // Reverses escape(), except that an original "\" followed by "n" comes
    // back as "\" and a newline: "\n" is resolved before "\\".
    static QByteArray unescape(const QByteArray &data);

    Level level;
    QDateTime dateTime;     // local time, kept to the millisecond in transport
    QString module;         // "qt" for plain Qt messages
    QByteArray message;     // local 8-bit text, may span lines
    QByteArray function;    // the caller's pretty function name
    QByteArray file;        // the caller's source path
    int line;               // 0 when unknown
    qint64 bootTime;        // milliseconds since boot, counted through suspend
    int processId;
    int threadId;           // the kernel's id of the thread that made it
    QString threadName;     // its QThread's object name, else the system's name
};

} // namespace logging

#endif // QTLOG_LOG_RECORD_H
