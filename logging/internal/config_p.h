#ifndef QTLOG_CONFIG_P_H
#define QTLOG_CONFIG_P_H

#include <logging/config.h>
#include "qt_compat_p.h"

#include <QtCore/QDateTime>
#include <QtCore/QMutex>
#include <QtCore/QThread>
#include <QtCore/QWaitCondition>

namespace logging {

// Polls the settings file's modification time and refreshes the Config when
// the file has become strictly newer. Runs at the lowest priority; created,
// started and stopped by its Config only.
class Config::ReloadThread : public compat::Thread
{
public:
    ReloadThread(Config *config, int period);
    ~ReloadThread();

    // The file's modification time; invalid for a missing file.
    QDateTime currLastModify();

    // Ends the thread at its next look at the flag; wakes it from its sleep.
    void requestStop();

protected:
    void run() override;

private:
    // Sleeps period seconds unless stopped first; true when stopped.
    bool sleepPeriod();

    Config *config;
    int period;
    QDateTime lastModify;
    bool stop;
    compat::Mutex stopMutex;
    compat::WaitCondition stopCondition;
};

} // namespace logging

#endif // QTLOG_CONFIG_P_H
