#ifndef QTLOG_DP_BUFFER_H
#define QTLOG_DP_BUFFER_H

#include <logging/destpoint.h>

#include <QtCore/QReadWriteLock>
#include <QtCore/QStringList>

namespace logging {

// Keeps the most recent formatted lines in memory for a user interface.
// Created by the application (on the thread that should receive the signal),
// always active; its filter and formats come from section "gui_buffer".
class QTLOG_EXPORT DPBuffer : public DestPoint
{
    Q_OBJECT

public:
    // 200 lines. Takes the settings in force (section "gui_buffer") at once;
    // made before the first refresh, Debug level and below until then.
    explicit DPBuffer(QObject *parent = 0);
    ~DPBuffer() QTLOG_OVERRIDE;

    const char *confName() const QTLOG_OVERRIDE;
    void outItems() QTLOG_OVERRIDE;
    void reloadConfig(Config &config) QTLOG_OVERRIDE;

    // The most lines kept, from the next record on; 0 or less keeps none.
    void setRotateLineCount(int count);
    QStringList getLines() const;

Q_SIGNALS:
    // Emitted after every drain, also when nothing changed, with the whole
    // list. A receiver connected directly must not call getLines() or
    // setRotateLineCount(): the buffer is locked while it runs.
    void logContentChanged(const QStringList &lines);

private:
    mutable QReadWriteLock bufferLock;
    int rotateLineCount;
    QStringList lines;
};

} // namespace logging

#endif // QTLOG_DP_BUFFER_H
