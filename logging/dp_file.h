#ifndef QTLOG_DP_FILE_H
#define QTLOG_DP_FILE_H

#include <logging/destpoint.h>

#include <QtCore/QMutex>
#include <QtCore/QString>

namespace logging {

class DPFilePrivate;

// Appends each record as one line to a file. Keys of section "file":
//
// - "filename": the log file; empty or absent: no file.
// - "max_size": the largest size of the file in bytes, a decimal number
//   optionally followed by K (1024) or M (1048576), as in "512K". Absent,
//   empty, 0 or anything else: no limit.
// - "max_files": how many rotated files are kept besides the current one,
//   1 to 99; default 1, anything else gives 1.
// - "recorder": the flight recorder, how many recent records the file keeps
//   in memory besides those it writes, whatever its level and module filter
//   say; 0, absent or anything else: none; at most 100000. It takes about 200
//   bytes a record, allocated when it is configured.
// - "recorder_level": the most verbose level the recorder keeps, 0 to 5;
//   default 5.
// - "recorder_dump": a record of this level or more severe (0 to 5, default
//   1, Error) that the file writes is preceded by the kept records that the
//   file has not written, oldest first, between two marker lines; the
//   recorder is then empty. A crash writes them too.
//
// Before a record whose line (text and "\n") would make a non-empty file
// larger than "max_size", the file is rotated: NAME.<max_files> is removed,
// NAME.<k> becomes NAME.<k+1>, NAME becomes NAME.1, and a new NAME is opened.
// A record longer than "max_size" gets a file of its own. A rename that fails
// is reported once and writing goes on in the current file.
//
// The file is reopened at every refresh, and when, checked at most about once
// a second, its name no longer refers to the open file (renamed or deleted by
// another program, logrotate say). An open never waits: a file that cannot be
// opened at once (a FIFO without a reader) counts as one that cannot be
// opened. Such a file is reported once and tried again at most about once a
// second while records come, and at every refresh: its disk may be mounted
// later, or a card put back. Meanwhile the lines wait, up to 1 MiB; beyond
// that the oldest are dropped, and a record saying how many comes before the
// others once the file opens.
//
// A write error is reported and answered by reopening the file, at most about
// once a second. A lasting problem is reported once, not at every drain: the
// next report comes after records have reached the file again, or after a
// refresh of the settings. Each report is a record that causes a drain of its
// own, so reporting at every drain would never end.
class QTLOG_EXPORT DPFile : public DestPoint
{
    Q_OBJECT

public:
    explicit DPFile(QObject *parent = 0);
    ~DPFile() QTLOG_OVERRIDE;

    const char *confName() const QTLOG_OVERRIDE;
    void outItems() QTLOG_OVERRIDE;
    void reloadConfig(Config &config) QTLOG_OVERRIDE;

    // Closes the current file and opens name for appending, when the
    // destination is active and name is not empty.
    void setFilename(const QString &name);

    // The values of "max_size" (0: no limit) and "max_files" for a setting's
    // text.
    static qint64 parseMaxSize(const QString &text);
    static int parseMaxFiles(const QString &text);
    // The value of "recorder" for a setting's text: 0 (none) to 100000.
    static int parseRecorder(const QString &text);

private:
    Q_DISABLE_COPY(DPFile)
    friend class DPFilePrivate;

    QMutex fileLock;
    DPFilePrivate *d;   // guarded by fileLock
};

} // namespace logging

#endif // QTLOG_DP_FILE_H
