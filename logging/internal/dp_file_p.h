#ifndef QTLOG_DP_FILE_P_H
#define QTLOG_DP_FILE_P_H

#include <logging/dp_file.h>

#include "line_journal_p.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>

#include <sys/types.h>

namespace logging {

// How often, at most, a drain checks the file's name, retries an open after a
// write error, or retries a rotation that failed.
const qint64 s_retryMs = 1000;

// True when the timer has not run yet or ran for at least s_retryMs.
inline bool due(const QElapsedTimer &timer)
{
    return !timer.isValid() || timer.elapsed() >= s_retryMs;
}

// The file destination's state; the destination's file lock guards it.
class DPFilePrivate
{
public:
    explicit DPFilePrivate(DPFile *q)
        : q(q), file(nullptr), problemReported(false), renameReported(false), openFailing(false),
          dropped(0), maxSize(0), maxFiles(1), size(0), regular(false), begun(false), device(0), inode(0),
          writeErrno(0)
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

    // Closes the file and opens fileName when the destination is active. A
    // failed open is reported, unless the open before failed too; the
    // destination stays active and its lines wait for the next try. Call
    // with the file lock held and a ReportDeferral alive.
    void reopen();
    // While opens fail: lets the lines wait, dropping the oldest beyond a
    // limit.
    void keepWaiting(LineJournal::Reader &reader);
    // Writes the record about the lines dropped while the file could not be
    // opened, before those that waited.
    void writeDropped();
    // False when the file no longer has its name (renamed or deleted).
    bool hasName();
    // Takes the file's size anew; a file that has shrunk (truncated by
    // another program) begins again.
    void takeSize(qint64 now);
    // Takes the size of the open file anew.
    void checkTruncated();
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
    bool openFailing;       // the last open of fileName failed
    int dropped;            // lines dropped while waiting for the file
    qint64 maxSize;
    int maxFiles;
    qint64 size;            // bytes in the file, as far as known here
    bool regular;           // a regular file, which can be rotated
    bool begun;             // a regular file that no line has gone into yet: its
                            // first line needs the day header of its date
    dev_t device;           // the open file's identity
    ino_t inode;
    int writeErrno;         // errno of the last failed write; 0: none since the open
    QElapsedTimer sinceOpen;
    QElapsedTimer sinceCheck;
    QElapsedTimer sinceRotateFailure;
};

inline bool DPFilePrivate::needsRotation(qint64 length) const
{
    return maxSize > 0 && regular && size > 0 && size + length > maxSize
        && due(sinceRotateFailure);
}

} // namespace logging

#endif // QTLOG_DP_FILE_P_H
