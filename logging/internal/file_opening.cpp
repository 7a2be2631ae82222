// Opening the log file without waiting, and noticing when its name no longer
// refers to the open file.

#include "dp_file_p.h"

#include <logging/logging.h>


#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace logging {

namespace {

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

} // namespace

void DPFilePrivate::reopen()
{
    close();
    if (fileName.isEmpty() || !q->isActive()) {
        openFailing = false;
        return;
    }

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
            begun = regular && size == 0;
            device = st.st_dev;
            inode = st.st_ino;
        }
        file = new QFile;
        // Write-only, not Append: the descriptor appends by itself, while
        // QFile would seek to the end, which a device or a FIFO refuses with
        // a warning at every open.
        if (file->open(fd, QIODevice::WriteOnly, QFile::AutoCloseHandle)) {
            q->lineJournal()->setCrashFd(fd);
            openFailing = false;
            return;
        }
        reason = file->errorString();
        close();
        ::close(fd);
    }
    // Its disk may come later (mounted after start-up, a card put back):
    // the destination stays active, and the same failure is told once.
    if (openFailing)
        return;
    openFailing = true;
    toLog(Info, detail::bytes("logging"), detail::bytes(__FILE__), __LINE__,
          detail::bytes("void logging::DPFile::setFilename(const QString&)"), detail::bytes("file"))
        << "Error open log-file:" << fileName << "reason:" << reason;
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
        takeSize(st.st_size);
    return true;
}

void DPFilePrivate::takeSize(qint64 now)
{
    if (now < size || now == 0)
        begun = true;
    size = now;
}

void DPFilePrivate::checkTruncated()
{
    struct stat st;
    if (regular && !begun && file && ::fstat(file->handle(), &st) == 0)
        takeSize(st.st_size);
}

} // namespace logging
