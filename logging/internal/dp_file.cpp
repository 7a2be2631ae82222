// The file destination: its settings, and the drain that writes the journal's
// lines to the file in batches.

#include "dp_file_p.h"

#include <logging/config.h>
#include <logging/logging.h>

#include "cold_p.h"
#include "crash_p.h"
#include "local_time_p.h"
#include "report_deferral_p.h"
#include "qt_compat_p.h"

#include <errno.h>
#include <sys/uio.h>

namespace logging {

namespace {

const char s_fileNameKey[] = "filename";
const char s_maxSizeKey[] = "max_size";
const char s_maxFilesKey[] = "max_files";
const char s_recorderKey[] = "recorder";
const char s_recorderLevelKey[] = "recorder_level";
const char s_recorderDumpKey[] = "recorder_dump";

// Reported when an active destination has no file at all (an empty name).
const char s_noFileText[] = "no log-file open";

const int s_maxRecorder = 100000;

// The most that the lines waiting for a file that cannot be opened yet take.
const qint64 s_maxWaitingBytes = 1024 * 1024;

// A level 0 to 5 from text; fallback for anything else.
int parseLevel(const QString &text, int fallback)
{
    bool ok = false;
    const int n = text.toInt(&ok, 10);
    return ok && n >= Critical && n <= Trace ? n : fallback;
}

// Collects the lines of one drain and writes them with as few writev(2)
// calls as it takes; every line is whole in one call.
class LineWriter
{
public:
    explicit LineWriter(int fd) : fd(fd), count(0), error(0) {}

    void add(const char *text, int size)
    {
        if (count == s_maxLines)
            flush();
        lines[count].iov_base = const_cast<char *>(text);
        lines[count].iov_len = size_t(size);
        ++count;
    }

    // Writes what was added; returns the errno of the first failure since
    // the writer was made, or 0.
    int flush()
    {
        struct iovec *next = lines;
        int left = count;
        count = 0;
        while (left > 0 && !error) {
            const ssize_t n = ::writev(fd, next, left);
            if (n < 0) {
                if (errno != EINTR)
                    error = errno;
                continue;
            }
            // A short write: go on from where it stopped.
            size_t done = size_t(n);
            while (left > 0 && done >= next->iov_len) {
                done -= next->iov_len;
                ++next;
                --left;
            }
            if (left > 0) {
                next->iov_base = static_cast<char *>(next->iov_base) + done;
                next->iov_len -= done;
            }
        }
        return error;
    }

private:
    static const int s_maxLines = 64;
    int fd;
    int count;
    int error;
    struct iovec lines[s_maxLines];
};

} // namespace

QTLOG_COLD QString DPFilePrivate::writeErrorText() const
{
    return fileName + QLatin1String(": ") + qt_error_string(writeErrno);
}

QTLOG_COLD DPFile::DPFile(QObject *parent)
    : DestPoint(parent)
    , d(new DPFilePrivate(this))
{
    keepLinesForCrash();
}

QTLOG_COLD DPFile::~DPFile()
{
    delete d;
}

const char *DPFile::confName() const
{
    return "file";
}

QTLOG_COLD int DPFile::parseRecorder(const QString &text)
{
    bool ok = false;
    const int n = text.toInt(&ok, 10);
    return ok && n > 0 ? qMin(n, s_maxRecorder) : 0;
}

QTLOG_COLD void DPFile::reloadConfig(Config &config)
{
    const QString name = config.value(confName(), QLatin1String(s_fileNameKey), QString());
    const qint64 maxSize = parseMaxSize(config.value(confName(), QLatin1String(s_maxSizeKey), QString()));
    const int maxFiles = parseMaxFiles(config.value(confName(), QLatin1String(s_maxFilesKey), QString()));
    setRecorder(parseRecorder(config.value(confName(), QLatin1String(s_recorderKey), QString())),
                parseLevel(config.value(confName(), QLatin1String(s_recorderLevelKey), QString()), Trace),
                parseLevel(config.value(confName(), QLatin1String(s_recorderDumpKey), QString()), Error));
    {
        // A refresh may report each problem once more.
        compat::MutexLocker locker(&fileLock);
        d->problemReported = false;
        d->renameReported = false;
        d->sinceRotateFailure.invalidate();
        d->maxSize = maxSize;
        d->maxFiles = maxFiles;
    }
    setFilename(name);
}

void DPFilePrivate::keepWaiting(LineJournal::Reader &reader)
{
    dropped += reader.skipBeyond(s_maxWaitingBytes);
}

void DPFilePrivate::writeDropped()
{
    const QByteArray message = QByteArray::number(dropped)
        + " records dropped while the log-file could not be opened";
    const QByteArray line = q->formatAlone(LogRecord(Warning, currentDateTime(),
                                                     QLatin1String("logging.file"), message,
                                                     "virtual void logging::DPFile::outItems()",
                                                     __FILE__, __LINE__))
        + '\n';
    dropped = 0;
    LineWriter out(file->handle());
    out.add(line.constData(), line.size());
    writeErrno = out.flush();
}

QTLOG_COLD void DPFile::setFilename(const QString &name)
{
    // The open failure is reported with the file lock held (and, during a
    // refresh, the registry's write lock): deliver it after they are released.
    ReportDeferral deferral;
    compat::MutexLocker locker(&fileLock);
    if (name != d->fileName)
        d->openFailing = false;
    d->fileName = name;
    d->reopen();
}

void DPFile::outItems()
{
    // Reports issued here reach the registry, and this very destination,
    // only after the file lock is released.
    ReportDeferral deferral;

    // A drain that was queued before the destination switched itself off
    // leaves the queue alone, like any inactive destination.
    if (!isActive())
        return;

    compat::MutexLocker locker(&fileLock);
    if (!d->file && d->openFailing) {
        if (due(d->sinceOpen))
            d->reopen();
    } else if (!d->file || d->writeErrno) {
        if (d->firstReport()) {
            toLog(Info, detail::bytes("logging"), detail::bytes(__FILE__), __LINE__,
                  detail::bytes("virtual void logging::DPFile::outItems()"), detail::bytes("file"))
                << (d->file ? d->writeErrorText() : QString::fromLatin1(s_noFileText));
        }
        // A failing device would otherwise be reopened at every drain.
        if (due(d->sinceOpen))
            d->reopen();
        else
            d->close();
    } else if (due(d->sinceCheck)) {
        d->sinceCheck.start();
        if (!d->hasName())
            d->reopen();
    }

    LineJournal::Reader reader(*lineJournal());
    const char *text;
    int size;
    if (!d->file && d->openFailing) {
        d->keepWaiting(reader);
        return;
    }
    if (!d->file) {
        // Nowhere to write: drop the lines so the journal cannot grow without bound.
        while (reader.peek(&text, &size))
            reader.next();
        return;
    }
    if (d->dropped > 0)
        d->writeDropped();
    bool wrote = false;
    bool checked = false;
    int dayHeader;
    LineWriter out(d->file->handle());
    // Once a crash is being handled, its handler writes what is left.
    while (reader.peek(&text, &size, &dayHeader) && !crash::crashing()) {
        wrote = true;
        if (dayHeader > 0 && !checked) {
            // Lines with a day header: a file that another program has
            // truncated since (copytruncate) is a new file. Once a drain.
            checked = true;
            d->checkTruncated();
        }
        if (d->needsRotation(size - dayHeader)) {
            // What has been written stays in the old file.
            d->writeErrno = out.flush();
            reader.markWritten();
            d->rotate();
            if (!d->file && d->openFailing) {
                d->keepWaiting(reader);
                return;
            }
            if (!d->file) {
                while (reader.peek(&text, &size))
                    reader.next();
                return;
            }
            out = LineWriter(d->file->handle());
        }
        // The day header only where the line begins a file.
        if (!d->begun) {
            text += dayHeader;
            size -= dayHeader;
        }
        d->begun = false;
        out.add(text, size);
        d->size += size;
        reader.next();
    }
    // A crash under way writes these lines itself.
    if (crash::crashing())
        return;
    if (const int error = out.flush()) {
        d->writeErrno = error;
        if (d->firstReport()) {
            toLog(Info, detail::bytes("logging"), detail::bytes(__FILE__), __LINE__,
                  detail::bytes("virtual void logging::DPFile::outItems()"), detail::bytes("file"))
                << d->writeErrorText();
        }
    } else if (wrote) {
        // Only records that reached the file show that it works again.
        d->problemReported = false;
    }
}

} // namespace logging
