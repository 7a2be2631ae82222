#include <logging/dp_file.h>

#include <logging/config.h>
#include <logging/logging.h>

#include "crash_p.h"
#include "line_journal_p.h"
#include "logging_p.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

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

// How often, at most, a drain checks the file's name, retries an open after a
// write error, or retries a rotation that failed.
const qint64 s_retryMs = 1000;

const int s_maxFilesLimit = 99;
const int s_maxRecorder = 100000;

// A level 0 to 5 from text; fallback for anything else.
int parseLevel(const QString &text, int fallback)
{
    bool ok = false;
    const int n = text.toInt(&ok, 10);
    return ok && n >= Critical && n <= Trace ? n : fallback;
}

// Opens path for appending without waiting: an open that would block (a FIFO
// without a reader) fails at once. Writes then block as usual. Returns the
// descriptor, or -1 with errno set.
int openForAppend(const QByteArray &path)
{
    int flags = O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK;
#ifdef O_CLOEXEC
    flags |= O_CLOEXEC;
#endif
    int fd;
    do {
        fd = ::open(path.constData(), flags, 0666);
    } while (fd < 0 && errno == EINTR);
    if (fd >= 0) {
        const int status = ::fcntl(fd, F_GETFL);
        if (status != -1)
            ::fcntl(fd, F_SETFL, status & ~O_NONBLOCK);
    }
    return fd;
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

// True when the timer has not run yet or ran for at least s_retryMs.
bool due(const QElapsedTimer &timer)
{
    return !timer.isValid() || timer.elapsed() >= s_retryMs;
}

} // namespace

class DPFilePrivate
{
public:
    explicit DPFilePrivate(DPFile *q)
        : q(q), file(nullptr), problemReported(false), renameReported(false),
          maxSize(0), maxFiles(1), size(0), regular(false), device(0), inode(0), writeErrno(0)
    {
    }
    ~DPFilePrivate() { close(); }

    // True for the first problem since the file last worked or the settings
    // were refreshed.
    bool firstReport()
    {
        if (problemReported)
            return false;
        problemReported = true;
        return true;
    }

    void close()
    {
        q->lineJournal()->setCrashFd(-1);
        delete file;
        file = nullptr;
    }

    // Closes the file and opens fileName when the destination is active; a
    // failed open is reported and switches the destination off. Call with
    // the file lock held for writing and a ReportDeferral alive.
    void reopen();
    // False when the file no longer has its name (renamed or deleted).
    bool hasName();
    // True when a line of length bytes calls for a rotation first.
    bool needsRotation(qint64 length) const;
    // Shifts the old files by one and opens a new, empty file by the name.
    void rotate();
    // The text of the report about a write error: the name and the reason.
    QString writeErrorText() const;

    DPFile *const q;
    QString fileName;
    QFile *file;
    bool problemReported;
    bool renameReported;
    qint64 maxSize;
    int maxFiles;
    qint64 size;            // bytes in the file, as far as known here
    bool regular;           // a regular file, which can be rotated
    dev_t device;           // the open file's identity
    ino_t inode;
    int writeErrno;         // errno of the last failed write; 0: none since the open
    QElapsedTimer sinceOpen;
    QElapsedTimer sinceCheck;
    QElapsedTimer sinceRotateFailure;
};

void DPFilePrivate::reopen()
{
    close();
    if (fileName.isEmpty() || !q->isActive())
        return;

    sinceOpen.start();
    sinceCheck.start();
    writeErrno = 0;
    regular = false;
    size = 0;
    QString reason;
    const int fd = openForAppend(QFile::encodeName(fileName));
    if (fd < 0) {
        reason = qt_error_string(errno);
    } else {
        struct stat st;
        if (::fstat(fd, &st) == 0) {
            regular = S_ISREG(st.st_mode);
            size = regular ? qint64(st.st_size) : 0;
            device = st.st_dev;
            inode = st.st_ino;
        }
        file = new QFile;
        // Write-only, not Append: the descriptor appends by itself, while
        // QFile would seek to the end, which a device or a FIFO refuses with
        // a warning at every open.
        if (file->open(fd, QIODevice::WriteOnly, QFile::AutoCloseHandle)) {
            q->lineJournal()->setCrashFd(fd);
            return;
        }
        reason = file->errorString();
        close();
        ::close(fd);
    }
    toLog(Info, detail::bytes("logging"), detail::bytes(__FILE__), __LINE__,
          detail::bytes("void logging::DPFile::setFilename(const QString&)"), detail::bytes("file"))
        << "Error open log-file:" << fileName << "reason:" << reason;
    q->setActive(false);
}

bool DPFilePrivate::hasName()
{
    struct stat st;
    if (::stat(QFile::encodeName(fileName).constData(), &st) != 0)
        return errno != ENOENT && errno != ENOTDIR;
    if (st.st_dev != device || st.st_ino != inode)
        return false;
    // Another program may have truncated it (logrotate's copytruncate).
    if (regular)
        size = st.st_size;
    return true;
}

bool DPFilePrivate::needsRotation(qint64 length) const
{
    return maxSize > 0 && regular && size > 0 && size + length > maxSize
        && due(sinceRotateFailure);
}

void DPFilePrivate::rotate()
{
    close();
    const QByteArray name = QFile::encodeName(fileName);
    QByteArray failedName;
    int failedErrno = 0;

    const QByteArray last = name + '.' + QByteArray::number(maxFiles);
    if (::unlink(last.constData()) != 0 && errno != ENOENT) {
        failedErrno = errno;
        failedName = last;
    }
    for (int k = maxFiles; k >= 1; --k) {
        const QByteArray from = k > 1 ? name + '.' + QByteArray::number(k - 1) : name;
        const QByteArray to = name + '.' + QByteArray::number(k);
        if (::rename(from.constData(), to.constData()) != 0 && errno != ENOENT && !failedErrno) {
            failedErrno = errno;
            failedName = from;
        }
    }

    if (failedErrno) {
        // Writing goes on in the file as it is; the next try comes later.
        sinceRotateFailure.start();
        if (!renameReported) {
            renameReported = true;
            toLog(Info, detail::bytes("logging"), detail::bytes(__FILE__), __LINE__,
                  detail::bytes("virtual void logging::DPFile::outItems()"), detail::bytes("file"))
                << "Error rotate log-file:" << QFile::decodeName(failedName)
                << "reason:" << qt_error_string(failedErrno);
        }
    } else {
        renameReported = false;
        sinceRotateFailure.invalidate();
    }
    reopen();
}

QString DPFilePrivate::writeErrorText() const
{
    return fileName + QLatin1String(": ") + qt_error_string(writeErrno);
}

DPFile::DPFile(QObject *parent)
    : DestPoint(parent)
    , d(new DPFilePrivate(this))
{
    keepLinesForCrash();
}

DPFile::~DPFile()
{
    delete d;
}

const char *DPFile::confName() const
{
    return "file";
}

qint64 DPFile::parseMaxSize(const QString &text)
{
    QString digits = text;
    qint64 unit = 1;
    if (digits.endsWith(QLatin1Char('K'))) {
        unit = 1024;
        digits.chop(1);
    } else if (digits.endsWith(QLatin1Char('M'))) {
        unit = 1024 * 1024;
        digits.chop(1);
    }
    if (digits.isEmpty())
        return 0;
    for (int i = 0; i < digits.size(); ++i) {
        if (digits.at(i) < QLatin1Char('0') || digits.at(i) > QLatin1Char('9'))
            return 0;
    }
    bool ok = false;
    const qint64 n = digits.toLongLong(&ok, 10);
    // A size beyond any file is no limit either.
    if (!ok || n > (Q_INT64_C(1) << 50) / unit)
        return 0;
    return n * unit;
}

int DPFile::parseRecorder(const QString &text)
{
    bool ok = false;
    const int n = text.toInt(&ok, 10);
    return ok && n > 0 ? qMin(n, s_maxRecorder) : 0;
}

int DPFile::parseMaxFiles(const QString &text)
{
    bool ok = false;
    const int n = text.toInt(&ok, 10);
    return ok && n >= 1 && n <= s_maxFilesLimit ? n : 1;
}

void DPFile::reloadConfig(Config &config)
{
    const QString name = config.value(confName(), QLatin1String(s_fileNameKey), QString());
    const qint64 maxSize = parseMaxSize(config.value(confName(), QLatin1String(s_maxSizeKey), QString()));
    const int maxFiles = parseMaxFiles(config.value(confName(), QLatin1String(s_maxFilesKey), QString()));
    setRecorder(parseRecorder(config.value(confName(), QLatin1String(s_recorderKey), QString())),
                parseLevel(config.value(confName(), QLatin1String(s_recorderLevelKey), QString()), Trace),
                parseLevel(config.value(confName(), QLatin1String(s_recorderDumpKey), QString()), Error));
    {
        // A refresh may report each problem once more.
        QMutexLocker locker(&fileLock);
        d->problemReported = false;
        d->renameReported = false;
        d->sinceRotateFailure.invalidate();
        d->maxSize = maxSize;
        d->maxFiles = maxFiles;
    }
    setFilename(name);
}

void DPFile::setFilename(const QString &name)
{
    // The open failure is reported with the file lock held (and, during a
    // refresh, the registry's write lock): deliver it after they are released.
    ReportDeferral deferral;
    QMutexLocker locker(&fileLock);
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

    QMutexLocker locker(&fileLock);
    if (!d->file || d->writeErrno) {
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
    if (!d->file) {
        // Nowhere to write: drop the lines so the journal cannot grow without bound.
        while (reader.peek(&text, &size))
            reader.next();
        return;
    }
    bool wrote = false;
    LineWriter out(d->file->handle());
    // Once a crash is being handled, its handler writes what is left.
    while (reader.peek(&text, &size) && !crash::crashing()) {
        wrote = true;
        if (d->needsRotation(size)) {
            // What has been written stays in the old file.
            d->writeErrno = out.flush();
            reader.markWritten();
            d->rotate();
            if (!d->file) {
                while (reader.peek(&text, &size))
                    reader.next();
                return;
            }
            out = LineWriter(d->file->handle());
        }
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
