#include <logging/logging.h>

#include <logging/config.h>
#include <logging/destpoint.h>
#include <logging/dp_console.h>
#include <logging/dp_file.h>
#include <logging/dp_syslog.h>
#include <logging/version_info.h>

#include "crash_p.h"
#include "local_time_p.h"
#include "log_record_p.h"
#include "logging_p.h"
#include "qt_compat_p.h"

#include <QtCore/QFile>
#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QVarLengthArray>

#include <atomic>
#include <climits>
#include <cstdio>
#include <cstring>

namespace logging {

namespace {

// The settings file's name, searched for in the Initializer's directories.
const char gLogFileName[] = "log.conf";

std::atomic<bool> s_initialized(false);

// The most verbose level that some active destination may take. Raised at
// once whenever a filter or an activation could need it; lowered to the
// exact figure when the registry applies the settings. Counting the raises
// lets a lowering that overlaps one keep the raised figure.
std::atomic<int> s_levelCeiling(INT_MAX);
QMutex s_ceilingMutex;
unsigned s_ceilingRaises = 0;

// The record this thread encoded last, with its fields, so that the handler
// can take them as they are when the text it receives starts with exactly
// this header. The byte arrays are the thread's own copies, kept while
// the next record comes from the same call site: no allocation then.
struct LastEncoded
{
    RecordHeaderEncoder encoder;
    QString headerText;     // the header as text, kept in step with the encoder
    QByteArray moduleKey;   // the module as toLog() was given it, joined
    QString module;
    QByteArray moduleUtf8;
    QByteArray function;
    QByteArray file;
    int level;
    int line;
    qint64 msecs;
    int offset;
};

// Records of macro statements, written into strings that start with the
// header already and emitted when the statement ends: the header is not
// streamed through QDebug. Statements nest when a streamed value logs in turn.
struct HeldStatements
{
    HeldStatements() : depth(0), begun(false), lastEncoded(-1), emitting(nullptr) {}

    static const int maxDepth = 8;
    QString texts[maxDepth];
    QByteArray headers[maxDepth];   // each text's header, shared until it is emitted
    QByteArray bytes;   // where the Qt in use needs the text as bytes
    int depth;
    bool begun;     // a statement has begun and not yet made its stream
    int lastEncoded;            // the slot of the record encoded last, or -1
    const QString *emitting;    // that slot while it is emitted: the handler
                                // knows its header without comparing it
};


// Makes kept a copy of the bytes; false when it was one already.
bool keepCopy(QByteArray &kept, const char *bytes, int size, bool null)
{
    if (kept.size() == size && kept.isNull() == null
        && memcmp(kept.constData(), bytes, size_t(size)) == 0)
        return false;
    kept = null ? QByteArray() : QByteArray(bytes, size);
    return true;
}

QDebug toLogText(Level level, const char *module, int moduleSize, const char *file, int fileSize,
                 bool fileNull, int line, const char *function, int functionSize,
                 bool functionNull, const char *subModule, int subModuleSize,
                 bool statement = false);

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

// What a thread keeps from record to record. Made at the thread's first use
// and reached through one plain pointer: a thread_local object with a
// constructor would cost a guard check at every access.
struct ThreadState
{
    ThreadState() : deferDepth(0), pending(nullptr) {}

    LastEncoded last;
    // The stream of a record that no destination takes writes here; it is
    // never emitted.
    QString discarded;
    HeldStatements held;
    int deferDepth;         // ReportDeferral objects alive
    PendingList *pending;   // what they hold back
};

thread_local ThreadState *t_state = nullptr;

// Deletes the thread's state when the thread ends.
struct ThreadStateOwner
{
    ~ThreadStateOwner()
    {
        delete t_state;
        t_state = nullptr;
    }
};

thread_local ThreadStateOwner t_stateOwner;

ThreadState &newThreadState()
{
    ThreadStateOwner &owner = t_stateOwner;     // its destructor now runs at thread end
    Q_UNUSED(owner);
    t_state = new ThreadState;
    return *t_state;
}

inline ThreadState &threadState()
{
    ThreadState *state = t_state;
    return Q_LIKELY(state != nullptr) ? *state : newThreadState();
}

PendingList *takePending()
{
    ThreadState &state = threadState();
    PendingList *list = state.pending;
    state.pending = nullptr;
    return list;
}

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
                           last.module, message, last.function, last.file, last.line);
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
        record = compat::makeShared<LogRecord>(levelOfMessageType(type), currentDateTime(),
                                               qtModule,
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

// ---------------------------------------------------------------------------
// toLog

QDebug toLog(Level level, const QByteArray &module, const QByteArray &file, int line,
             const QByteArray &function, const QByteArray &subModule)
{
    return toLogText(level, module.constData(), module.size(), file.constData(), file.size(),
                     file.isNull(), line, function.constData(), function.size(),
                     function.isNull(), subModule.constData(), subModule.size());
}

namespace {

QDebug toLogText(Level level, const char *module, int moduleSize, const char *file, int fileSize,
                 bool fileNull, int line, const char *function, int functionSize,
                 bool functionNull, const char *subModule, int subModuleSize, bool statement)
{
    if (!InitializerPrivate::checkAndSetInitialized(false)) {
        QDebug plain(QtDebugMsg);
        if (level >= Trace) {
            plain << "***" << line << ":" << QByteArray::fromRawData(file, fileSize)
                  << QByteArray::fromRawData(function, functionSize);
        }
        return plain;
    }

    ThreadState &state = threadState();
    const bool deferring = state.deferDepth > 0;
    if (level > s_levelCeiling.load(std::memory_order_relaxed) && !deferring) {
        // No destination takes it: not even the time is read. A record held
        // back is judged when it is delivered: a refresh under way may be
        // about to let it through.
        state.discarded.resize(0);
        return QDebug(&state.discarded);
    }

    LastEncoded &last = state.last;
    qint64 msecs;
    int offset;
    currentTime(&msecs, &offset);

    // The module as given, joined and cut at a zero byte; when it is the
    // same as last time, so are its text and its UTF-8 form.
    const bool joined = moduleSize > 0 && subModuleSize > 0;
    const int keySize = joined ? moduleSize + 1 + subModuleSize : moduleSize;
    QVarLengthArray<char, 256> key(keySize);
    memcpy(key.data(), module, size_t(moduleSize));
    if (joined) {
        key[moduleSize] = '.';
        memcpy(key.data() + moduleSize + 1, subModule, size_t(subModuleSize));
    }
    const int zero = int(qstrnlen(key.constData(), uint(keySize)));
    bool sameTail = true;
    if (last.module.isNull() || last.moduleKey.size() != zero
        || memcmp(last.moduleKey.constData(), key.constData(), size_t(zero)) != 0) {
        last.moduleKey = QByteArray(key.constData(), zero);
        // Read as ASCII text; it travels as UTF-8.
        last.module = compat::fromAscii(key.constData(), zero);
        last.moduleUtf8 = last.module.toUtf8();
        sameTail = false;
    }
    if (keepCopy(last.function, function, functionSize, functionNull))
        sameTail = false;
    if (keepCopy(last.file, file, fileSize, fileNull))
        sameTail = false;
    if (line != last.line)
        sameTail = false;
    last.level = level;
    last.line = line;
    last.msecs = msecs;
    last.offset = offset;
    last.encoder.encode(level, msecs, last.moduleUtf8.constData(), last.moduleUtf8.size(),
                        last.function.constData(), last.function.size(),
                        last.file.constData(), last.file.size(), line, sameTail);

    // The text follows the bytes; usually only its first characters change.
    const QByteArray &header = last.encoder.header;
    const int changed = qMin(last.encoder.changedSize(), header.size());
    if (last.headerText.size() != header.size() || changed == header.size()) {
        last.headerText = QString::fromLatin1(header.constData(), header.size());
    } else {
        QChar *text = last.headerText.data();
        for (int i = last.encoder.changedFrom(); i < changed; ++i)
            text[i] = QLatin1Char(header.at(i));
    }

    state.held.lastEncoded = -1;
    if (statement && !deferring) {
        HeldStatements &statements = state.held;
        if (statements.begun && statements.depth < HeldStatements::maxDepth) {
            statements.lastEncoded = statements.depth;
            statements.begun = false;
            if (compat::heldHeaderBytes)
                statements.headers[statements.depth] = header;
            QString &held = statements.texts[statements.depth++];
            // Reserved once, so that emptying keeps the memory.
            if (held.capacity() < 256)
                held.reserve(256);
            held.resize(0);
            held.append(last.headerText);
            held.append(QLatin1Char(' '));
            return QDebug(&held);
        }
    }
    // Streamed as plain text: quoted, it would no longer start with the marker.
    QDebug stream = deferring ? QDebug(ReportDeferral::deferStream()) : compat::recordStream();
    compat::streamPlain(stream, last.headerText, header);
    return stream;
}

} // namespace

namespace detail {

bool levelEnabled(int level)
{
    return level <= s_levelCeiling.load(std::memory_order_relaxed)
        || !s_initialized.load(std::memory_order_relaxed);
}

QDebug toLogLiteral(Level level, const char *module, const char *file, int line,
                    const char *function, const char *subModule)
{
    return toLogText(level, module, module ? int(strlen(module)) : 0, file,
                     file ? int(strlen(file)) : 0, !file, line, function,
                     function ? int(strlen(function)) : 0, !function, subModule,
                     subModule ? int(strlen(subModule)) : 0, true);
}

int statementBegin()
{
    HeldStatements &statements = threadState().held;
    statements.begun = true;
    return statements.depth;
}

int statementEnd(int mark)
{
    HeldStatements &statements = threadState().held;
    statements.begun = false;
    while (statements.depth > mark) {
        // The slot stays taken while it is emitted: a statement that the
        // emission runs into takes the next one.
        const int slot = statements.depth - 1;
        statements.emitting = slot == statements.lastEncoded ? &statements.texts[slot] : nullptr;
        compat::emitHeldText(statements.texts[slot], statements.bytes, statements.headers[slot]);
        statements.emitting = nullptr;
        // Shared no more: the next record's header is written in place.
        if (compat::heldHeaderBytes)
            statements.headers[slot] = QByteArray();
        --statements.depth;
    }
    return -1;
}

} // namespace detail

void raiseLevelCeiling(int level)
{
    QMutexLocker locker(&s_ceilingMutex);
    ++s_ceilingRaises;
    if (level > s_levelCeiling.load(std::memory_order_relaxed))
        s_levelCeiling.store(level, std::memory_order_relaxed);
}

unsigned levelCeilingRaises()
{
    QMutexLocker locker(&s_ceilingMutex);
    return s_ceilingRaises;
}

void setLevelCeiling(int level, unsigned raisesBefore)
{
    QMutexLocker locker(&s_ceilingMutex);
    if (s_ceilingRaises != raisesBefore)
        level = qMax(level, s_levelCeiling.load(std::memory_order_relaxed));
    s_levelCeiling.store(level, std::memory_order_relaxed);
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
    // Unless the settings say "crash_handler = 0", a crash still writes
    // every accepted record.
    if (crash::wanted())
        crash::install();

    compat::installMessageHandler(&InitializerPrivate::messageFinished,
                                  &InitializerPrivate::messageText);
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
    crash::uninstall();
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
    // is held back and delivered here, after the registry is released.
    // A record that a statement of this thread emits comes with its size.
    ThreadState &state = threadState();
    const bool held = text == state.held.bytes.constData();
    const int size = held ? state.held.bytes.size() : int(qstrlen(text));
    ++state.deferDepth;
    deliver(type, QByteArray::fromRawData(text, size), held && state.held.emitting);
    deliverPending();
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
