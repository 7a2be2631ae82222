#include <logging/logging.h>

#include <logging/config.h>
#include <logging/destpoint.h>
#include <logging/dp_console.h>
#include <logging/dp_file.h>
#include <logging/dp_syslog.h>
#include <logging/version_info.h>

#include "log_record_p.h"
#include "logging_p.h"
#include "qt_compat_p.h"

#include <QtCore/QFile>
#include <QtCore/QList>

#include <atomic>
#include <cstdio>

namespace logging {

namespace {

// The settings file's name, searched for in the Initializer's directories.
const char gLogFileName[] = "log.conf";

std::atomic<bool> s_initialized(false);

// A message held back by ReportDeferral: either raw text that reached the
// handler, or the string a toLog() stream writes into.
struct PendingMessage
{
    QtMsgType type;
    bool streamed;
    QByteArray text;
    QString streamText;

    QByteArray bytes()
    {
        if (!streamed)
            return text;
        compat::finishStreamedText(streamText);
        return streamText.toLocal8Bit();
    }
};

typedef QList<PendingMessage *> PendingList;

// Rounds of held-back messages that one call of the handler delivers. The
// library's own chains are short: a record, a report of its drain, and that
// report's record.
const int s_maxRounds = 8;

thread_local int t_deferDepth = 0;
thread_local PendingList *t_pending = nullptr;

PendingList *takePending()
{
    PendingList *list = t_pending;
    t_pending = nullptr;
    return list;
}

PendingMessage *addPending(QtMsgType type, bool streamed)
{
    if (!t_pending)
        t_pending = new PendingList;
    PendingMessage *message = new PendingMessage;
    message->type = type;
    message->streamed = streamed;
    t_pending->append(message);
    return message;
}

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

// Turns one message into a record and offers it to the destinations.
void deliver(QtMsgType type, const QByteArray &text)
{
    QSharedPointer<LogRecord> record = LogRecord::fromByteArray(text);
    if (!record) {
        static const QString qtModule = QString::fromLatin1("qt");
        record = compat::makeShared<LogRecord>(levelOfMessageType(type),
                                               QDateTime::currentDateTime(), qtModule,
                                               QByteArray(text.constData(), text.size()),
                                               QByteArray(), QByteArray(), 0);
    }
    DestPoint::allDestPointManager()->sendLogRecord(record);
}

// The last resort for a message that cannot be delivered: standard error,
// readable, without the transport header.
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

QString versionText()
{
    const QString tag = QString::fromLocal8Bit(zelvath::GitTag());
    if (!tag.isEmpty())
        return tag;
    return QString::fromLocal8Bit(zelvath::GitBranch()) + QLatin1Char('/')
        + QString::fromLocal8Bit(zelvath::GitHash());
}

} // namespace

// ---------------------------------------------------------------------------
// ReportDeferral

ReportDeferral::ReportDeferral()
{
    ++t_deferDepth;
}

ReportDeferral::~ReportDeferral()
{
    if (--t_deferDepth > 0)
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
    return t_deferDepth > 0;
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

// ---------------------------------------------------------------------------
// toLog

QDebug toLog(Level level, const QByteArray &module, const QByteArray &file, int line,
             const QByteArray &function, const QByteArray &subModule)
{
    if (!InitializerPrivate::checkAndSetInitialized(false)) {
        QDebug plain(QtDebugMsg);
        if (level >= Trace)
            plain << "***" << line << ":" << file << function;
        return plain;
    }

    const QDateTime now = QDateTime::currentDateTime();

    QByteArray moduleBytes = module;
    if (!module.isEmpty() && !subModule.isEmpty()) {
        moduleBytes.reserve(module.size() + 1 + subModule.size());
        moduleBytes += '.';
        moduleBytes += subModule;
    }
    const int zero = moduleBytes.indexOf('\0');
    if (zero >= 0)
        moduleBytes.truncate(zero);

    // The module is read as ASCII text and travels as UTF-8: the bytes can
    // be used as they are unless one of them is beyond ASCII.
    bool ascii = true;
    const char *c = moduleBytes.constData();
    for (const char *end = c + moduleBytes.size(); c != end; ++c) {
        if (static_cast<unsigned char>(*c) >= 0x80) {
            ascii = false;
            break;
        }
    }
    const QByteArray moduleUtf8 = ascii
        ? moduleBytes
        : compat::fromAscii(moduleBytes.constData(), moduleBytes.size()).toUtf8();

    const QByteArray header = encodeRecordHeader(level, now.toMSecsSinceEpoch(), moduleUtf8,
                                                 function, file, line);

    // Streamed as a C string: a QString or QByteArray would be quoted and no
    // longer start with the marker.
    QDebug stream = ReportDeferral::active() ? QDebug(ReportDeferral::deferStream())
                                             : compat::recordStream();
    stream << header.constData();
    return stream;
}

// ---------------------------------------------------------------------------
// Initializer

Initializer::Initializer(const QStringList &configDirs)
    : d(nullptr)
{
    d = new InitializerPrivate(configDirs);
}

Initializer::~Initializer()
{
    toLog(Info, detail::bytes("logging"), detail::bytes(__FILE__), __LINE__,
          detail::bytes("logging::Initializer::~Initializer()"))
        << "==== log stoped ====";
    delete d;
}

InitializerPrivate::InitializerPrivate(const QStringList &configDirs)
{
    config.reset(new Config(findConfigFile(configDirs), true));
    console.reset(new DPConsole);
    file.reset(new DPFile);
    sysLog.reset(new DPSysLog);
    config->refresh();

    compat::installMessageHandler(&InitializerPrivate::messageFinished);
    checkAndSetInitialized(true);

    static bool firstMessage = true;
    if (firstMessage) {
        firstMessage = false;
        toLog(Info, detail::bytes("logging"), detail::bytes(__FILE__), __LINE__,
              detail::bytes("logging::InitializerPrivate::InitializerPrivate(const QStringList&)"))
            << "===== Start application ====" << versionText();
    }
}

InitializerPrivate::~InitializerPrivate()
{
    // The reload thread goes first: it must not reconfigure destinations
    // that are being destroyed.
    config.reset();
    delete DestPoint::allDestPointManager();
    sysLog.reset();
    file.reset();
    console.reset();
}

QString InitializerPrivate::findConfigFile(const QStringList &configDirs)
{
    const QString name = QString::fromLatin1(gLogFileName);
    for (const QString &dir : configDirs) {
        const QString candidate = dir + name;
        if (QFile::exists(candidate))
            return candidate;
    }
    return name;
}

bool InitializerPrivate::checkAndSetInitialized(bool set)
{
    if (set && !s_initialized.load(std::memory_order_relaxed))
        s_initialized.store(true);
    return s_initialized.load(std::memory_order_relaxed);
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
    // is held back and delivered here, after the registry is released. What
    // those cause comes next, and so on; the number of rounds is capped, so
    // that output which keeps causing messages (Qt warning about a device at
    // every write, say) cannot keep this thread here for good.
    ++t_deferDepth;
    deliver(type, QByteArray::fromRawData(text, int(qstrlen(text))));
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
    --t_deferDepth;
}

} // namespace logging
