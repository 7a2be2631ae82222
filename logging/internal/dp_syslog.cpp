#include <logging/dp_syslog.h>

#include <syslog.h>

namespace logging {

namespace {

// The identity under which the records appear in the system log.
const char s_ident[] = "quimbo";

} // namespace

DPSysLog::DPSysLog(QObject *parent)
    : DestPoint(parent)
{
    openlog(s_ident, 0, LOG_USER);
}

DPSysLog::~DPSysLog()
{
    closelog();
}

const char *DPSysLog::confName() const
{
    return "syslog";
}

void DPSysLog::outItems()
{
    while (const QSharedPointer<LogRecord> record = takeFirstLogRecord()) {
        int priority;
        switch (record->level) {
        case Critical: priority = LOG_CRIT; break;
        case Error: priority = LOG_ERR; break;
        case Warning: priority = LOG_WARNING; break;
        case Info: priority = LOG_INFO; break;
        case Trace: continue;   // trace output would swamp the system log
        default: priority = LOG_DEBUG; break;
        }
        const QByteArray text = formatter().format(*record);
        syslog(priority, "%s", text.constData());
    }
}

} // namespace logging
