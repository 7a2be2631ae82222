#ifndef QTLOG_DP_SYSLOG_H
#define QTLOG_DP_SYSLOG_H

#include <logging/destpoint.h>

namespace logging {

// Sends each record to the system log under the identity "quimbo", facility
// LOG_USER. Levels map to LOG_CRIT, LOG_ERR, LOG_WARNING, LOG_INFO and
// LOG_DEBUG; Trace records are never sent. Section "syslog". Only one should
// exist, since openlog() and closelog() act on the whole process.
class QTLOG_EXPORT DPSysLog : public DestPoint
{
    Q_OBJECT

public:
    explicit DPSysLog(QObject *parent = 0);
    ~DPSysLog() QTLOG_OVERRIDE;

    const char *confName() const QTLOG_OVERRIDE;
    void outItems() QTLOG_OVERRIDE;
};

} // namespace logging

#endif // QTLOG_DP_SYSLOG_H
