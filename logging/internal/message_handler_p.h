#ifndef QTLOG_MESSAGE_HANDLER_P_H
#define QTLOG_MESSAGE_HANDLER_P_H

#include <QtCore/QByteArray>
#include <QtCore/QDebug>
#include <QtCore/QString>
#include <QtCore/qglobal.h>

namespace logging {

// The last resort for a message that cannot be delivered: standard error,
// readable, without the transport header.
void printUndelivered(const QByteArray &text);

namespace compat {

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

#endif

} // namespace compat
} // namespace logging

#endif // QTLOG_MESSAGE_HANDLER_P_H
