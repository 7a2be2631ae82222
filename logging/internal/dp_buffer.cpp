#include <logging/dp_buffer.h>

#include "cold_p.h"
#include "report_deferral_p.h"
#include "qt_compat_p.h"

namespace logging {

QTLOG_COLD DPBuffer::DPBuffer(QObject *parent)
    : DestPoint(parent)
    , rotateLineCount(200)
{
    setAlwaysActive();
    filter().setLevel(Debug);
    filter().setDeny(QVector<QString>());
    // Made after start-up, as a window usually is: take the settings in
    // force now rather than wait for the next change of the file.
    allDestPointManager()->applyCurrentConfig(this);
}

QTLOG_COLD DPBuffer::~DPBuffer()
{
    // The application may destroy its buffer at any time: leave the registry
    // before the members go, so that a refresh on the reload thread never
    // reaches a half-destroyed buffer.
    allDestPointManager()->removeDestPoint(this);
}

const char *DPBuffer::confName() const
{
    return "gui_buffer";
}

void DPBuffer::reloadConfig(Config &)
{
}

QTLOG_COLD void DPBuffer::setRotateLineCount(int count)
{
    compat::WriteLocker locker(&bufferLock);
    rotateLineCount = count;
}

QStringList DPBuffer::getLines() const
{
    compat::ReadLocker locker(&bufferLock);
    return lines;
}

void DPBuffer::outItems()
{
    // A receiver of the signal may log: that waits until the lock is released.
    ReportDeferral deferral;
    compat::WriteLocker locker(&bufferLock);
    while (const QSharedPointer<LogRecord> record = takeFirstLogRecord()) {
        const QByteArray text = formatter().format(*record);
        lines.append(QString::fromLocal8Bit(text.constData(), text.size()));
        while (rotateLineCount < lines.size() && !lines.isEmpty())
            lines.removeFirst();
    }
    Q_EMIT logContentChanged(lines);
}

} // namespace logging
