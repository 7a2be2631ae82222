// Rotating the log file once it would grow beyond "max_size", and the
// rotation's settings.

#include "dp_file_p.h"

#include <logging/logging.h>


#include <errno.h>
#include <stdio.h>
#include <unistd.h>

namespace logging {

namespace {

const int s_maxFilesLimit = 99;

} // namespace

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

int DPFile::parseMaxFiles(const QString &text)
{
    bool ok = false;
    const int n = text.toInt(&ok, 10);
    return ok && n >= 1 && n <= s_maxFilesLimit ? n : 1;
}

} // namespace logging
