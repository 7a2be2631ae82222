// A DPBuffer takes the settings in force when it is made, whenever that is.
// Its own executable: the registry remembers the settings it last applied.

#include "testsupport.h"

#include <logging/config.h>

using namespace logging;

namespace {

DestPoint::AllDestPointsManager *registry()
{
    return DestPoint::allDestPointManager();
}

QString firstLine(DPBuffer &buffer, Level level)
{
    registry()->sendLogRecord(shared(level, at(10, 0, 0, 0), "first"));
    const QStringList lines = buffer.getLines();
    return lines.isEmpty() ? QString() : lines.first();
}

} // namespace

class TestLateBuffer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void madeBeforeAndAfterRefresh()
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
        QCOMPARE(firstLine(after, Info), QString::fromLatin1("A 3 mod first"));
        QCOMPARE(before.getLines(), after.getLines());
        QVERIFY(firstLine(after, Debug) == QLatin1String("A 3 mod first")
                && after.getLines().size() == 1);   // level 3 holds back Debug

        // A later change of the file reaches new buffers once it is applied.
        writeFile(name, "[gui_buffer]\nformat = B #mf\n");
        DPBuffer stillOld;
        QCOMPARE(firstLine(stillOld, Info), QString::fromLatin1("A 3 mod first"));
        config.refresh();
        DPBuffer renewed;
        QCOMPARE(firstLine(renewed, Debug), QString::fromLatin1("B first"));
    }

    void madeWhileRefreshing()
    {
        // Buffers made on this thread while another refreshes, alternating
        // two files: each one takes one of them whole, never a mix.
        TempDir dir;
        const QString a = dir.file("a.conf"), b = dir.file("b.conf");
        writeFile(a, "[gui_buffer]\nlevel = 5\ntrace_format = A #mf\n");
        writeFile(b, "[gui_buffer]\nlevel = 0\nformat = B #mf\n");
        Config configA(a, false), configB(b, false);
        configA.refresh();

        WorkThread refresher([&configA, &configB]() {
            for (int i = 0; i < 200; ++i)
                (i % 2 ? configA : configB).refresh();
        });
        refresher.start();
        int made = 0;
        QString wrong;
        while (!refresher.isFinished() || made < 20) {
            DPBuffer buffer;
            const QString line = firstLine(buffer, Trace);
            if (line != QLatin1String("A first") && !line.isEmpty())
                wrong = line;
            ++made;
        }
        QVERIFY(refresher.wait(60000));
        QVERIFY2(wrong.isEmpty(), qPrintable(wrong));
    }
};

QTEST_GUILESS_MAIN(TestLateBuffer)
#include "tst_late_buffer.moc"
