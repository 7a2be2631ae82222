// The library's Qt message handler: every message of the process becomes a
// record for the destination registry, and what delivering it causes on the
// same thread is delivered after it.

#include <logging/destpoint.h>
#include <logging/log_record_formater.h>

#include "clock_step_p.h"
#include "local_time_p.h"
#include "log_record_p.h"
#include "logging_p.h"
#include "message_handler_p.h"
#include "qt_compat_p.h"
#include "report_deferral_p.h"
#include "thread_state_p.h"

#include <QtCore/QMutex>

#include <cstdio>
#include <cstring>

namespace logging {

namespace compat {

#if QT_VERSION < 0x050000

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

#else // Qt 5 and Qt 6

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

} // namespace compat

namespace {

// The built-in format, for the lines written after shutdown.
struct PlainLines
{
    QMutex mutex;
    LogRecordFormater formater;
};

// Rounds of held-back messages that one call of the handler delivers. The
// library's own chains are short: a record, a report of its drain, and that
// report's record.
const int s_maxRounds = 8;

Level levelOfMessageType(QtMsgType type)
{
    switch (type) {
    case QtWarningMsg:
        return Warning;
    case QtCriticalMsg:
    case QtFatalMsg:
        return Critical;
    default:
        return Debug;
    }
}

// Offers the record made of the fields that this thread encoded last and
// message. It is shared (copied to the heap) only if a destination keeps it.
void sendLastEncoded(const QByteArray &message)
{
    const LastEncoded &last = threadState().last;
    const LogRecord record(Level(last.level), compat::offsetDateTime(last.msecs, last.offset),
                           last.module, message, last.function, last.file, last.line,
                           last.bootMsecs, last.thread->processId, last.thread->threadId,
                           last.thread->name);
    DestPoint::allDestPointManager()->sendLogRecord(record);
}

// The report of a step of the wall clock that a plain Qt message found: it
// goes to the destinations before that message, made as toLog() makes it.
void deliverClockStep(const RecordTime &time)
{
    static const QString clockModule = QString::fromLatin1("logging.clock");
    const QByteArray text = "Clock stepped by " + clockStepAmount(time.stepMsecs)
        + " s, the time is now " + clockStepNow(time.msecs, time.offset);
    const ThreadIdentity &thread = threadIdentity(true);
    const LogRecord record(Warning, compat::offsetDateTime(time.msecs, time.offset), clockModule,
                           text, QByteArray(clockStepFunction), QByteArray(__FILE__), __LINE__,
                           time.bootMsecs, thread.processId, thread.threadId, thread.name);
    DestPoint::allDestPointManager()->sendLogRecord(record);
}

// Turns one message into a record and offers it to the destinations. A text
// that starts with the header this thread encoded last has its fields at
// hand: there is nothing to decode. lastEncoded: the text is known to.
void deliver(QtMsgType type, const QByteArray &text, bool lastEncoded = false)
{
    const QByteArray &header = threadState().last.encoder.header;
    const int headerSize = header.size();
    if (headerSize > 0 && text.size() >= headerSize
        && (lastEncoded || memcmp(text.constData(), header.constData(), size_t(headerSize)) == 0)) {
        // The terminator, then one separator byte, then the message.
        const int messageStart = headerSize + 1;
        sendLastEncoded(messageStart < text.size()
                            ? QByteArray(text.constData() + messageStart, text.size() - messageStart)
                            : QByteArray());
        return;
    }
    QSharedPointer<LogRecord> record = LogRecord::fromByteArray(text);
    if (!record) {
        static const QString qtModule = QString::fromLatin1("qt");
        RecordTime now;
        readRecordTime(&now);
        if (Q_UNLIKELY(now.stepMsecs != 0))
            deliverClockStep(now);
        const ThreadIdentity &thread = threadIdentity(true);
        record = compat::makeShared<LogRecord>(levelOfMessageType(type),
                                               compat::offsetDateTime(now.msecs, now.offset),
                                               qtModule, QByteArray(text.constData(), text.size()),
                                               QByteArray(), QByteArray(), 0, now.bootMsecs,
                                               thread.processId, thread.threadId, thread.name);
    }
    DestPoint::allDestPointManager()->sendLogRecord(record);
}

// Delivers what the record just delivered caused, then what that caused,
// and so on, and ends the deferral that the delivery began. The number of
// rounds is capped, so that output which keeps causing messages (Qt warning
// about a device at every write, say) cannot keep this thread here for good.
void deliverPending()
{
    for (int round = 1; PendingList *list = takePending(); ++round) {
        for (PendingMessage *message : *list) {
            const QByteArray bytes = message->bytes();
            if (round <= s_maxRounds)
                deliver(message->type, bytes);
            else
                printUndelivered(bytes);
            delete message;
        }
        delete list;
    }
    --threadState().deferDepth;
}

} // namespace

void printUndelivered(const QByteArray &text)
{
    const QSharedPointer<LogRecord> record = LogRecord::fromByteArray(text);
    if (record) {
        fprintf(stderr, "[%s] %s\n", record->module.toLocal8Bit().constData(),
                record->message.constData());
    } else {
        fprintf(stderr, "%s\n", text.constData());
    }
}

void InitializerPrivate::messageFinished(QtMsgType type, const char *text)
{
    if (ReportDeferral::active()) {
        // Re-entered from a drain or a reconfiguration on this thread: the
        // registry or a destination may be locked here. Deliver it later.
        ReportDeferral::deferMessage(type, text);
        return;
    }

    // Everything this record causes on this thread (reports of a drain, say)
    // is held back and delivered here, after the registry is released.
    // A record that a statement of this thread emits comes with its size.
    ThreadState &state = threadState();
    const bool held = text == state.held.bytes.constData();
    const int size = held ? state.held.bytes.size() : int(qstrlen(text));
    ++state.deferDepth;
    deliver(type, QByteArray::fromRawData(text, size), held && state.held.emitting);
    deliverPending();
}

void InitializerPrivate::messageAfterShutdown(QtMsgType type, const char *text)
{
    // The destinations are gone, but a qFatal (Qt's "QThread: Destroyed
    // while thread is still running", say) or a Critical record still tells
    // why the process ends.
    const QByteArray bytes(text);
    QSharedPointer<LogRecord> record = LogRecord::fromByteArray(bytes);
    if (record ? record->level != Critical : levelOfMessageType(type) != Critical)
        return;
    if (!record) {
        record = compat::makeShared<LogRecord>(Critical, currentDateTime(), QString::fromLatin1("qt"),
                                               bytes, QByteArray(), QByteArray(), 0);
    }
    // Never destroyed: the process may be ending.
    static PlainLines *const plain = new PlainLines;
    QMutexLocker locker(&plain->mutex);
    const QByteArray line = plain->formater.format(*record);
    fprintf(stderr, "%s\n", line.constData());
    fflush(stderr);
}

bool InitializerPrivate::messageText(QtMsgType, const QString &text)
{
    // Only a record that this thread has just encoded, outside any deferral.
    ThreadState &state = threadState();
    const QByteArray &header = state.last.encoder.header;
    const int headerSize = header.size();
    if (headerSize == 0 || text.size() < headerSize || state.deferDepth > 0)
        return false;
    if (&text != state.held.emitting
        && ((text.size() > headerSize && text.at(headerSize).unicode() >= 0x80)
            || !compat::startsWithLatin1(text, header)))
        return false;
    // Only the message needs converting.
    const int messageStart = headerSize + 1;
    ++state.deferDepth;
    sendLastEncoded(messageStart < text.size() ? compat::localText(text, messageStart)
                                               : QByteArray());
    deliverPending();
    return true;
}

} // namespace logging
