#include "testsupport.h"
#include "probe.h"

using namespace logging;

class TestDestPoint : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void queueKeepsTimeOrder()
    {
        Probe p;
        QVERIFY(!p.takeFirstLogRecord());
        const QSharedPointer<LogRecord> late = shared(Info, at(10, 0, 2, 0));
        const QSharedPointer<LogRecord> first = shared(Info, at(10, 0, 1, 0));
        const QSharedPointer<LogRecord> second = shared(Info, at(10, 0, 1, 0));
        p.insertLogRecord(late);
        p.insertLogRecord(first);
        p.insertLogRecord(second);
        p.insertLogRecord(shared(Trace, at(10, 0, 0, 0)));    // rejected by the default filter
        QCOMPARE(p.takeFirstLogRecord(), first);
        QCOMPARE(p.takeFirstLogRecord(), second);
        QCOMPARE(p.takeFirstLogRecord(), late);
        QVERIFY(!p.takeFirstLogRecord());
    }

    // A destination of another thread has one drain waiting at a time: 100
    // records from a worker post one request, and that drain takes them all.
    void oneDrainRequestAtATime()
    {
        Probe p;
        p.setActive(true);
        runOnThread([] {
            for (int i = 0; i < 100; ++i)
                registry()->sendLogRecord(shared(Info, at(10, 0, 0, i)));
        });
        QCOMPARE(p.drains, 0);
        QCoreApplication::processEvents();
        QCOMPARE(p.drains, 1);
        QCOMPARE(p.taken.size(), 100);
    }
};

QTEST_GUILESS_MAIN(TestDestPoint)
#include "tst_destpoint.moc"
