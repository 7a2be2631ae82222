#ifndef QTLOG_DP_CONSOLE_H
#define QTLOG_DP_CONSOLE_H

#include <logging/destpoint.h>

namespace logging {

// Writes each record as one line to standard error. Active from its
// construction on, before any settings are read. Section "console".
class QTLOG_EXPORT DPConsole : public DestPoint
{
    Q_OBJECT

public:
    explicit DPConsole(QObject *parent = 0);
    ~DPConsole() QTLOG_OVERRIDE;

    const char *confName() const QTLOG_OVERRIDE;
    void outItems() QTLOG_OVERRIDE;
};

} // namespace logging

#endif // QTLOG_DP_CONSOLE_H
