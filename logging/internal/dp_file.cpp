#include <logging/dp_file.h>

#include <logging/config.h>
#include <logging/logging.h>

#include "logging_p.h"

#include <QtCore/QFile>

namespace logging {

namespace {

const char s_fileNameKey[] = "filename";

// Reported when an active destination has no file at all (an empty name).
const char s_noFileText[] = "no log-file open";

} // namespace

DPFile::DPFile(QObject *parent)
    : DestPoint(parent)
    , file(nullptr)
    , problemReported(false)
{
}

DPFile::~DPFile()
{
    delete file;
}

const char *DPFile::confName() const
{
    return "file";
}

void DPFile::reloadConfig(Config &config)
{
    const QString name = config.value(confName(), QLatin1String(s_fileNameKey), QString());
    {
        // A refresh may report each problem once more.
        QWriteLocker locker(&fileLock);
        problemReported = false;
    }
    setFilename(name);
}

bool DPFile::firstReport()
{
    if (problemReported)
        return false;
    problemReported = true;
    return true;
}

void DPFile::setFilename(const QString &name)
{
    // The open failure is reported with the file lock held (and, during a
    // refresh, the registry's write lock): deliver it after they are released.
    ReportDeferral deferral;
    QWriteLocker locker(&fileLock);

    delete file;
    file = nullptr;
    fileName = name;
    if (name.isEmpty() || !isActive())
        return;

    file = new QFile(name);
    if (file->open(QIODevice::Append))
        return;

    toLog(Info, detail::bytes("logging"), detail::bytes(__FILE__), __LINE__,
          detail::bytes("void logging::DPFile::setFilename(const QString&)"), detail::bytes("file"))
        << "Error open log-file:" << name << "reason:" << file->errorString();
    delete file;
    file = nullptr;
    setActive(false);
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

    bool problem = false;
    bool report = false;
    QString problemText;
    QString name;
    {
        QWriteLocker locker(&fileLock);
        if (!file) {
            problem = true;
            problemText = QLatin1String(s_noFileText);
        } else if (file->error() != QFile::NoError) {
            problem = true;
            problemText = file->errorString();
        }
        if (problem) {
            report = firstReport();
            name = fileName;
        }
    }
    if (problem) {
        if (report) {
            toLog(Info, detail::bytes("logging"), detail::bytes(__FILE__), __LINE__,
                  detail::bytes("virtual void logging::DPFile::outItems()"), detail::bytes("file"))
                << problemText;
        }
        setFilename(name);
    }

    QWriteLocker locker(&fileLock);
    if (!file) {
        // Nowhere to write: drop the records so the queue cannot grow without bound.
        while (takeFirstLogRecord()) {
        }
        return;
    }
    bool wrote = false;
    while (const QSharedPointer<LogRecord> record = takeFirstLogRecord()) {
        wrote = true;
        if (file->error() != QFile::NoError && firstReport()) {
            toLog(Info, detail::bytes("logging"), detail::bytes(__FILE__), __LINE__,
                  detail::bytes("virtual void logging::DPFile::outItems()"), detail::bytes("file"))
                << file->errorString();
        }
        file->write(formatter().format(*record));
        file->write("\n", 1);
    }
    file->flush();
    // Only records that reached the file show that it works again.
    if (wrote && file->error() == QFile::NoError)
        problemReported = false;
}

} // namespace logging
