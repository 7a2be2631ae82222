#ifndef QTLOG_QT_COMPAT_P_H
#define QTLOG_QT_COMPAT_P_H

//
// The differences between Qt 4.8, Qt 5 and Qt 6 that more than one unit of
// the library meets. A difference that only one unit meets sits in that
// unit, behind the same version checks, in the namespace compat as well.
//

#include <QtCore/QAtomicInt>
#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QDebug>
#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtCore/qglobal.h>

#include <utility>

namespace logging {
namespace compat {

// QDate's Julian day of 1970-01-01.
const qint64 julianDayOfEpoch = 2440588;

#if QT_VERSION < 0x050000

inline void emitMessage(QtMsgType type, const QByteArray &text)
{
    qt_message_output(type, text.constData());
}

inline void emitMessage(QtMsgType type, const QString &text)
{
    qt_message_output(type, text.toLocal8Bit().constData());
}

template <typename T, typename... Args>
inline QSharedPointer<T> makeShared(Args &&...args)
{
    return QSharedPointer<T>(new T(std::forward<Args>(args)...));
}

inline int loadRelaxed(const QAtomicInt &value)
{
    return value;
}

inline void storeRelaxed(QAtomicInt &value, int newValue)
{
    value.fetchAndStoreRelaxed(newValue);
}

// The local time msecs (since the epoch, UTC) with a fixed offset from UTC.
// Qt 4 keeps date and time as given and takes the offset as their zone: no
// conversion through the C library.
inline QDateTime offsetDateTime(qint64 msecs, int offsetSeconds)
{
    const qint64 local = msecs + qint64(offsetSeconds) * 1000;
    qint64 day = local / 86400000;
    qint64 msecOfDay = local % 86400000;
    if (msecOfDay < 0) {
        msecOfDay += 86400000;
        --day;
    }
    const int ms = int(msecOfDay);
    QDateTime result(QDate::fromJulianDay(int(day + julianDayOfEpoch)),
                     QTime(ms / 3600000, ms / 60000 % 60, ms / 1000 % 60, ms % 1000), Qt::UTC);
    result.setUtcOffset(offsetSeconds);
    return result;
}

#else // Qt 5 and Qt 6

// Records name their own category as a plain string. Qt applies its logging
// rules ("*.debug=false", say) to the default category and to registered
// QLoggingCategory objects only, so the rules never drop a record on its way
// to the handler; the library filters records itself.
const char s_category[] = "qtlog";

inline void emitMessage(QtMsgType type, const QString &text)
{
    qt_message_output(type, QMessageLogContext(nullptr, 0, nullptr, s_category), text);
}

inline void emitMessage(QtMsgType type, const QByteArray &text)
{
    emitMessage(type, QString::fromLocal8Bit(text.constData(), text.size()));
}

template <typename T, typename... Args>
inline QSharedPointer<T> makeShared(Args &&...args)
{
    return QSharedPointer<T>::create(std::forward<Args>(args)...);
}

inline int loadRelaxed(const QAtomicInt &value)
{
    return value.loadRelaxed();
}

inline void storeRelaxed(QAtomicInt &value, int newValue)
{
    value.storeRelaxed(newValue);
}

// The local time msecs (since the epoch, UTC) with a fixed offset from UTC:
// date(), time() and the conversions back are plain arithmetic.
inline QDateTime offsetDateTime(qint64 msecs, int offsetSeconds)
{
    return QDateTime::fromMSecsSinceEpoch(msecs, Qt::OffsetFromUTC, offsetSeconds);
}

#endif

} // namespace compat
} // namespace logging

#endif // QTLOG_QT_COMPAT_P_H
