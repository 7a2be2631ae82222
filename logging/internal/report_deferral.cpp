// Report deferral: messages that a thread logs while it holds the registry's
// or a destination's locks are kept and emitted once they are released.

#include "report_deferral_p.h"

#include "message_handler_p.h"
#include "qt_compat_p.h"

#include <cstdio>

namespace logging {

namespace compat {

#if QT_VERSION < 0x050000

// Text that a QDebug wrote into a QString, made equal to what the same
// stream would have emitted: Qt 4 emits the trailing space as it is.
inline void finishStreamedText(QString &)
{
}

#else // Qt 5 and Qt 6

// Qt 5/6 drop the trailing space of a stream in space mode when they emit
// it, but keep it in a stream that writes into a QString.
inline void finishStreamedText(QString &text)
{
    if (text.endsWith(QLatin1Char(' ')))
        text.chop(1);
}

#endif

} // namespace compat

namespace {

PendingMessage *addPending(QtMsgType type, bool streamed)
{
    ThreadState &state = threadState();
    if (!state.pending)
        state.pending = new PendingList;
    PendingMessage *message = new PendingMessage;
    message->type = type;
    message->streamed = streamed;
    state.pending->append(message);
    return message;
}

} // namespace

QByteArray PendingMessage::bytes()
{
    if (!streamed)
        return text;
    compat::finishStreamedText(streamText);
    return streamText.toLocal8Bit();
}

ReportDeferral::ReportDeferral()
{
    ++threadState().deferDepth;
}

ReportDeferral::~ReportDeferral()
{
    if (--threadState().deferDepth > 0)
        return;
    // Through Qt's channel, like any message: the handler then delivers
    // whatever each of them causes in turn.
    while (PendingList *list = takePending()) {
        for (PendingMessage *message : *list) {
            compat::emitMessage(message->type, message->bytes());
            delete message;
        }
        delete list;
    }
}

bool ReportDeferral::active()
{
    return threadState().deferDepth > 0;
}

QString *ReportDeferral::deferStream()
{
    return &addPending(QtDebugMsg, true)->streamText;
}

void ReportDeferral::deferMessage(QtMsgType type, const char *text)
{
    if (type == QtFatalMsg) {
        // Qt ends the process as soon as the handler returns: write the text
        // out now rather than lose it, without touching any lock.
        printUndelivered(QByteArray(text));
        fflush(stderr);
        return;
    }
    addPending(type, false)->text = QByteArray(text);
}

} // namespace logging
