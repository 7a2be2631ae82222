#include "testsupport.h"
#include "probe.h"

#include <logging/config.h>
#include <logging/dp_buffer.h>

using namespace logging;

namespace {

// The first line that buffer shows for a record of level, sent now.
QString firstLine(DPBuffer &buffer, Level level)
{
    registry()->sendLogRecord(shared(level, at(10, 0, 0, 0), "first"));
    const QStringList lines = buffer.getLines();
    return lines.isEmpty() ? QString() : lines.first();
}

} // namespace

class TestRegistry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void activationAndFanOut()
    {
        QSignalSpy emitted(registry(), SIGNAL(startActive()));
        registry()->sendLogRecord(shared(Info, at(10, 0, 0, 0)));
        QCOMPARE(emitted.count(), 1);      // also with nobody listening

        Probe a("file"), b("syslog"), c("console");
        a.setActive(true);
        a.setActive(true);
        c.setActive(true);
        registry()->setActiveDestPoints(QStringList() << "file" << "syslog" << "Console");
        QVERIFY(a.isActive() && b.isActive() && !c.isActive());

        registry()->sendLogRecord(shared(Info, at(10, 0, 0, 0)));
        QCOMPARE(a.drains, 1);             // connected once
        QCOMPARE(a.taken.size(), 1);
        QCOMPARE(c.taken.size(), 0);       // inactive: offered nothing

        b.setAlwaysActive();
        registry()->setActiveDestPoints(QStringList());
        QVERIFY(!a.isActive() && b.isActive());
        registry()->sendLogRecord(shared(Info, at(10, 0, 0, 0)));
        QCOMPARE(a.drains, 1);
        QCOMPARE(b.taken.size(), 2);
    }


    // A buffer takes the settings last applied when it is made, whenever
    // that is. First: before any settings were applied in this process.
    void bufferMadeBeforeAndAfterRefresh()
    {
        TempDir dir;
        const QString name = dir.file("log.conf");
        writeFile(name, "level = 1\n[gui_buffer]\nlevel = 3\nformat = A #ln #cm #mf\n");
        Config config(name, false);
        {
            DPBuffer early;     // before any settings: the defaults
            QVERIFY(firstLine(early, Debug).endsWith(QLatin1String(" d [mod] first")));
        }
        DPBuffer before;
        config.refresh();
        DPBuffer after;
        QSignalSpy changed(&after, SIGNAL(logContentChanged(QStringList)));
        QCOMPARE(firstLine(after, Info), QString::fromLatin1("A 3 mod first"));
        QCOMPARE(before.getLines(), after.getLines());
        // Level 3 holds Debug back; the buffer signals all the same.
        QVERIFY(firstLine(after, Debug) == QLatin1String("A 3 mod first") && after.getLines().size() == 1);
        QCOMPARE(changed.count(), 2);

        // A later change of the file reaches new buffers once it is applied.
        writeFile(name, "[gui_buffer]\nformat = B #mf\n");
        DPBuffer stillOld;
        QCOMPARE(firstLine(stillOld, Info), QString::fromLatin1("A 3 mod first"));
        config.refresh();
        DPBuffer renewed;
        QCOMPARE(firstLine(renewed, Debug), QString::fromLatin1("B first"));

        // It keeps its last 200 lines, or as many as set from the next drain on.
        for (int i = 1; i <= 200; ++i)
            registry()->sendLogRecord(shared(Error, at(10, 0, 0, i), QByteArray::number(i)));
        const QStringList lines = renewed.getLines();
        QVERIFY(lines.size() == 200 && lines.first() == "B 1" && lines.last() == "B 200");
        renewed.setRotateLineCount(10);
        QCOMPARE(renewed.getLines().size(), 200);
        registry()->sendLogRecord(shared(Error, at(10, 0, 1, 0)));
        QCOMPARE(renewed.getLines().size(), 10);
        renewed.setRotateLineCount(-1);
        registry()->sendLogRecord(shared(Error, at(10, 0, 2, 0)));
        QVERIFY(renewed.getLines().isEmpty());
    }

    void bufferMadeWhileRefreshing()
    {
        // Buffers made on this thread while two others refresh, alternating
        // two files: each buffer takes one of them whole, never a mix. The
        // two threads refresh the same Configs: their refreshes run one after
        // the other, neither frees the parsed file under the other (the idle
        // buffers make each refresh take a while).
        TempDir dir;
        const QString a = dir.file("a.conf"), b = dir.file("b.conf");
        writeFile(a, "[gui_buffer]\nlevel = 5\ntrace_format = A #mf\n");
        writeFile(b, "[gui_buffer]\nlevel = 0\nformat = B #mf\n");
        Config configA(a, false), configB(b, false);
        configA.refresh();
        QList<QSharedPointer<DPBuffer> > idle;
        for (int i = 0; i < 100; ++i)
            idle.append(QSharedPointer<DPBuffer>(new DPBuffer));

        const auto refreshes = [&configA, &configB]() {
            for (int i = 0; i < 100; ++i)
                (i % 2 ? configA : configB).refresh();
        };
        WorkThread one(refreshes), two(refreshes);
        one.start();
        two.start();
        int made = 0;
        QString wrong;
        while (!one.isFinished() || !two.isFinished() || made < 20) {
            DPBuffer buffer;
            const QString line = firstLine(buffer, Trace);
            if (line != QLatin1String("A first") && !line.isEmpty())
                wrong = line;
            ++made;
        }
        QVERIFY(one.wait(60000) && two.wait(60000));
        QVERIFY2(wrong.isEmpty(), qPrintable(wrong));
    }
};

QTEST_GUILESS_MAIN(TestRegistry)
#include "tst_registry.moc"
