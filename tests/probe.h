#ifndef QTLOG_TESTS_PROBE_H
#define QTLOG_TESTS_PROBE_H

#include <logging/destpoint.h>

// A destination that records what its drains take.
class Probe : public logging::DestPoint
{
    Q_OBJECT
public:
    explicit Probe(const char *name = "probe") : name(name) {}
    const char *confName() const override { return name; }
    void outItems() override
    {
        ++drains;
        while (const QSharedPointer<logging::LogRecord> r = takeFirstLogRecord())
            taken << r;
    }
    const char *name;
    int drains = 0;
    QList<QSharedPointer<logging::LogRecord> > taken;
};

inline logging::DestPoint::AllDestPointsManager *registry()
{
    return logging::DestPoint::allDestPointManager();
}

#endif // QTLOG_TESTS_PROBE_H
