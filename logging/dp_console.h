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
    explicit DPConsole(QObject *parent = nullptr);
    ~DPConsole() override;

    const char *confName() const override;
    void outItems() override;
};

} // namespace logging

#endif // QTLOG_DP_CONSOLE_H
