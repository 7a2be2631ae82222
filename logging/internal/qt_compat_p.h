#ifndef QTLOG_QT_COMPAT_P_H
#define QTLOG_QT_COMPAT_P_H

//
// Every difference between Qt 4.8, Qt 5 and Qt 6 that the library meets is
// handled here, and only here.
//

#include <QtCore/QAtomicInt>
#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QDebug>
#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtCore/qglobal.h>

#if QT_VERSION >= 0x060000
#  include <QtCore/QRegularExpression>
#else
#  include <QtCore/QRegExp>
#endif

#include <cstring>
#include <utility>

#include <sys/stat.h>

namespace logging {
namespace compat {

// QDate's Julian day of 1970-01-01.
const qint64 julianDayOfEpoch = 2440588;

// The library's message handler has Qt 4's signature.
typedef void (*MessageHandler)(QtMsgType type, const char *text);

// Where Qt hands over text as a QString, this is offered it first; true when
// it has dealt with the message.
typedef bool (*TextHandler)(QtMsgType type, const QString &text);

#if QT_VERSION < 0x050000

inline void installMessageHandler(MessageHandler handler, TextHandler = 0)
{
    qInstallMsgHandler(handler);
}

inline QString fromAscii(const char *data, int size)
{
    return QString::fromAscii(data, size);
}

inline void emitMessage(QtMsgType type, const QByteArray &text)
{
    qt_message_output(type, text.constData());
}

// The stream that carries an encoded record to the message handler.
inline QDebug recordStream()
{
    return QDebug(QtDebugMsg);
}

// Whether emitHeldText() needs the text's header as bytes.
const bool heldHeaderBytes = true;

// Emits a record that a macro statement wrote into a string, as the QDebug
// of recordStream() would have. Qt 4's QDebug converts with the locale's
// codec, which on Linux is iconv (thousands of instructions for a line):
// here the same bytes come by hand when the text is ASCII, as it nearly
// always is. Qt 4 keeps the trailing space.
inline void emitHeldText(QString &text, QByteArray &bytes, const QByteArray &header)
{
    // The text starts with the header and a blank: those bytes are at hand.
    // The rest is copied and checked four characters a step, into a buffer
    // kept from record to record.
    const int size = text.size();
    const ushort *chars = text.utf16();
    bytes.resize(size);
    char *out = bytes.data();
    int i = 0;
    if (header.size() < size) {
        memcpy(out, header.constData(), size_t(header.size()));
        out[header.size()] = ' ';
        i = header.size() + 1;
    }
    quint64 any = 0;
    for (; i + 4 <= size; i += 4) {
        quint64 four;
        memcpy(&four, chars + i, sizeof four);
        any |= four;
        out[i] = char(chars[i]);
        out[i + 1] = char(chars[i + 1]);
        out[i + 2] = char(chars[i + 2]);
        out[i + 3] = char(chars[i + 3]);
    }
    for (; i < size; ++i) {
        any |= chars[i];
        out[i] = char(chars[i]);
    }
    if (any & Q_UINT64_C(0xff80ff80ff80ff80))
        bytes = text.toLocal8Bit();
    qt_message_output(QtDebugMsg, bytes.constData());
}

inline void emitMessage(QtMsgType type, const QString &text)
{
    qt_message_output(type, text.toLocal8Bit().constData());
}

// Text that a QDebug wrote into a QString, made equal to what the same
// stream would have emitted: Qt 4 emits the trailing space as it is.
inline void finishStreamedText(QString &)
{
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

// A file's modification time to the millisecond; invalid when the file is
// missing. Qt 4's QFileInfo knows whole seconds only, which would hide a
// change made within the second of the last one.
inline QDateTime fileModified(const QString &fileName)
{
    struct stat info;
    if (fileName.isEmpty() || ::stat(QFile::encodeName(fileName).constData(), &info) != 0)
        return QDateTime();
    return QDateTime::fromMSecsSinceEpoch(qint64(info.st_mtim.tv_sec) * 1000 + info.st_mtim.tv_nsec / 1000000);
}

// The text from position from on, in the local 8-bit encoding.
inline QByteArray toLocal8Bit(const QString &text, int from)
{
    return text.mid(from).toLocal8Bit();
}

// The text from position from on, as Latin-1.
inline QByteArray toLatin1(const QString &text, int from)
{
    return text.mid(from).toLatin1();
}


// True when text starts with the Latin-1 bytes of prefix.
inline bool startsWithLatin1(const QString &text, const QByteArray &prefix)
{
    return text.startsWith(QLatin1String(prefix.constData()));
}

// Writes ASCII text into stream as it is, without quotes, and the space.
// Qt 4 quotes every QString: the bytes go in as a C string.
inline void streamPlain(QDebug &stream, const QString &, const QByteArray &bytes)
{
    stream << bytes.constData();
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

namespace detail {
inline MessageHandler &installedHandler()
{
    static MessageHandler handler = nullptr;
    return handler;
}

inline TextHandler &installedTextHandler()
{
    static TextHandler handler = nullptr;
    return handler;
}

// Hands Qt 5/6 messages to the Qt 4 style handler as local 8-bit text,
// unless the text handler takes them as they are.
inline void messageAdapter(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    const TextHandler textHandler = installedTextHandler();
    if (textHandler && textHandler(type, text))
        return;
    const QByteArray local = text.toLocal8Bit();
    installedHandler()(type, local.constData());
}
} // namespace detail

inline void installMessageHandler(MessageHandler handler, TextHandler textHandler = nullptr)
{
    detail::installedHandler() = handler;
    detail::installedTextHandler() = textHandler;
    qInstallMessageHandler(handler ? detail::messageAdapter : nullptr);
}

inline QString fromAscii(const char *data, int size)
{
    return QString::fromLatin1(data, size);
}

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

inline QDebug recordStream()
{
    return QMessageLogger(nullptr, 0, nullptr, s_category).debug();
}

const bool heldHeaderBytes = false;

// Emits a record that a macro statement wrote into a string, as the QDebug
// of recordStream() would have: Qt 5 and 6 drop the trailing space.
inline void emitHeldText(QString &text, QByteArray &, const QByteArray &)
{
    if (text.endsWith(QLatin1Char(' ')))
        text.chop(1);
    emitMessage(QtDebugMsg, text);
}

// Qt 5/6 drop the trailing space of a stream in space mode when they emit
// it, but keep it in a stream that writes into a QString.
inline void finishStreamedText(QString &text)
{
    if (text.endsWith(QLatin1Char(' ')))
        text.chop(1);
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

// A file's modification time to the millisecond; invalid when the file is
// missing.
inline QDateTime fileModified(const QString &fileName)
{
    return QFileInfo(fileName).lastModified();
}

// The text from position from on, in the local 8-bit encoding.
inline QByteArray toLocal8Bit(const QString &text, int from)
{
    return QStringView(text).mid(from).toLocal8Bit();
}

// The text from position from on, as Latin-1.
inline QByteArray toLatin1(const QString &text, int from)
{
    return QStringView(text).mid(from).toLatin1();
}


// True when text starts with the Latin-1 bytes of prefix.
inline bool startsWithLatin1(const QString &text, const QByteArray &prefix)
{
    return text.startsWith(QLatin1String(prefix.constData(), prefix.size()));
}

// Writes text (ASCII; bytes holds the same) into stream as it is, without
// quotes, and the space.
inline void streamPlain(QDebug &stream, const QString &text, const QByteArray &)
{
    stream.noquote() << text;
    stream.quote();
}

// The local time msecs (since the epoch, UTC) with a fixed offset from UTC:
// date(), time() and the conversions back are plain arithmetic.
inline QDateTime offsetDateTime(qint64 msecs, int offsetSeconds)
{
    return QDateTime::fromMSecsSinceEpoch(msecs, Qt::OffsetFromUTC, offsetSeconds);
}

#endif

// The text from position from on, in the local 8-bit encoding. ASCII, the
// usual case, is the same in every local encoding and needs no codec.
inline QByteArray localText(const QString &text, int from)
{
    // Four characters a step: any bit above 0x7f in a lane means non-ASCII.
    const int size = text.size() - from;
    const ushort *chars = text.utf16() + from;
    quint64 any = 0;
    int i = 0;
    for (; i + 4 <= size; i += 4) {
        quint64 four;
        memcpy(&four, chars + i, sizeof four);
        any |= four;
    }
    for (; i < size; ++i)
        any |= chars[i];
    if (any & Q_UINT64_C(0xff80ff80ff80ff80))
        return toLocal8Bit(text, from);
    return toLatin1(text, from);
}

// Milliseconds since the epoch and the offset from UTC in seconds of a
// QDateTime with a fixed offset (or UTC); false for any other kind.
inline bool fixedOffset(const QDateTime &dateTime, qint64 *msecs, int *offsetSeconds)
{
    const Qt::TimeSpec timeSpec = dateTime.timeSpec();
    if (timeSpec != Qt::OffsetFromUTC && timeSpec != Qt::UTC)
        return false;
    *msecs = dateTime.toMSecsSinceEpoch();
#if QT_VERSION < 0x050000
    *offsetSeconds = timeSpec == Qt::UTC ? 0 : dateTime.utcOffset();
#else
    *offsetSeconds = dateTime.offsetFromUtc();
#endif
    return true;
}

// A case-sensitive regular expression whose classes "\w" (letter, digit,
// combining mark or '_') and "\s" (white space as QChar::isSpace() sees it)
// mean the same on every Qt version. They may appear inside brackets only.
class RegExp
{
public:
    explicit RegExp(const char *pattern)
#if QT_VERSION >= 0x060000
        : rx(translate(pattern))
#else
        : rx(QString::fromLatin1(pattern), Qt::CaseSensitive, QRegExp::RegExp)
#endif
    {
    }

    // True when the expression matches somewhere in text.
    bool matches(const QString &text) const
    {
#if QT_VERSION >= 0x060000
        return rx.match(text).hasMatch();
#else
        return rx.indexIn(text) != -1;
#endif
    }

private:
#if QT_VERSION >= 0x060000
    // PCRE's own \w and \s are ASCII-only; spell out QRegExp's meaning.
    static QString translate(const char *pattern)
    {
        QString p = QString::fromLatin1(pattern);
        p.replace(QLatin1String("\\w"), QLatin1String("\\p{L}\\p{N}\\p{M}_"));
        p.replace(QLatin1String("\\s"), QLatin1String("\\p{Z}\\x{09}-\\x{0D}\\x{85}"));
        return p;
    }
    QRegularExpression rx;
#else
    QRegExp rx;
#endif
};

} // namespace compat
} // namespace logging

#endif // QTLOG_QT_COMPAT_P_H
