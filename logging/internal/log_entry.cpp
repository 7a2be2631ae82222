// The entry function toLog() and the macro statements: each record's header
// is encoded here, on the logging thread, and the text goes through Qt's
// message channel to the handler.

#include <logging/logging.h>

#include "clock_step_p.h"
#include "level_ceiling_p.h"
#include "local_time_p.h"
#include "log_record_p.h"
#include "logging_p.h"
#include "qt_compat_p.h"
#include "report_deferral_p.h"
#include "thread_state_p.h"

#include <QtCore/QVarLengthArray>

#include <atomic>
#include <cstring>

namespace logging {

namespace compat {

#if QT_VERSION < 0x050000

inline QString fromAscii(const char *data, int size)
{
    return QString::fromAscii(data, size);
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

// Writes ASCII text into stream as it is, without quotes, and the space.
// Qt 4 quotes every QString: the bytes go in as a C string.
inline void streamPlain(QDebug &stream, const QString &, const QByteArray &bytes)
{
    stream << bytes.constData();
}

#else // Qt 5 and Qt 6

inline QString fromAscii(const char *data, int size)
{
    return QString::fromLatin1(data, size);
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

// Writes text (ASCII; bytes holds the same) into stream as it is, without
// quotes, and the space.
inline void streamPlain(QDebug &stream, const QString &text, const QByteArray &)
{
    stream.noquote() << text;
    stream.quote();
}

#endif

} // namespace compat

thread_local ThreadState *t_state = nullptr;

namespace {

std::atomic<bool> s_initialized(false);

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

} // namespace

ThreadState &newThreadState()
{
    ThreadStateOwner &owner = t_stateOwner;     // its destructor now runs at thread end
    Q_UNUSED(owner);
    t_state = new ThreadState;
    return *t_state;
}

bool InitializerPrivate::checkAndSetInitialized(bool set)
{
    if (set && !s_initialized.load(std::memory_order_relaxed))
        s_initialized.store(true);
    return s_initialized.load(std::memory_order_relaxed);
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

// The report of a step of the wall clock, made before the record that found
// it, so that it comes first.
void logClockStep(const RecordTime &time)
{
    toLog(Warning, detail::bytes("logging"), detail::bytes(__FILE__), __LINE__,
          detail::bytes(clockStepFunction), detail::bytes("clock"))
        << "Clock stepped by" << clockStepAmount(time.stepMsecs).constData()
        << "s, the time is now" << clockStepNow(time.msecs, time.offset).constData();
}

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

    RecordTime now;
    readRecordTime(&now);
    if (Q_UNLIKELY(now.stepMsecs != 0))
        logClockStep(now);
    LastEncoded &last = state.last;
    const qint64 msecs = now.msecs;

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
    last.offset = now.offset;
    last.bootMsecs = now.bootMsecs;
    // The thread's name is looked up again once a second at most.
    if (Q_UNLIKELY(!last.thread || now.newSecond || last.forks != forkCount())) {
        last.thread = &threadIdentity(true);
        last.forks = forkCount();
    }
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

} // namespace logging
