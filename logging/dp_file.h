#ifndef QTLOG_DP_FILE_H
#define QTLOG_DP_FILE_H

#include <logging/destpoint.h>

#include <QtCore/QReadWriteLock>
#include <QtCore/QString>

QT_BEGIN_NAMESPACE
class QFile;
QT_END_NAMESPACE

namespace logging {

// Appends each record as one line to the file named by the key "filename" of
// section "file". The file is reopened at every refresh; it is never
// truncated or rotated. A file that cannot be opened is reported and the
// destination switches itself off until a refresh activates it again.
//
// A write error is reported and answered by reopening the file. A lasting
// problem is reported once, not at every drain: the next report comes after
// records have reached the file again, or after a refresh of the settings.
// Each report is a record that causes a drain of its own, so reporting at
// every drain would never end.
class QTLOG_EXPORT DPFile : public DestPoint
{
    Q_OBJECT

public:
    explicit DPFile(QObject *parent = nullptr);
    ~DPFile() override;

    const char *confName() const override;
    void outItems() override;
    void reloadConfig(Config &config) override;

    // Closes the current file and opens name for appending, when the
    // destination is active and name is not empty.
    void setFilename(const QString &name);

private:
    // True for the first problem since the file last worked or the settings
    // were refreshed. Call with the file lock held for writing.
    bool firstReport();

    QReadWriteLock fileLock;
    QString fileName;
    QFile *file;
    bool problemReported;
};

} // namespace logging

#endif // QTLOG_DP_FILE_H
