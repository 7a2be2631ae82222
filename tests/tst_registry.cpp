#include "testsupport.h"
#include "probe.h"

#include <logging/config.h>
#include <logging/dp_buffer.h>
#include <logging/dp_console.h>
#include <logging/dp_file.h>

#include <fcntl.h>
#include <unistd.h>

using namespace logging;

namespace {

// The first line that buffer shows for a record of level, sent now.
QString firstLine(DPBuffer &buffer, Level level)
{
    registry()->sendLogRecord(shared(level, at(10, 0, 0, 0), "first"));
    const QStringList lines = buffer.getLines();
    return lines.isEmpty() ? QString() : lines.first();
}

// A console, a file and a buffer, new, with standard error kept in a file.
struct Outputs
{
    Outputs() : savedStderr(dup(2))
    {
        const int fd = open(QFile::encodeName(dir.file("stderr")).constData(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        dup2(fd, 2);
        ::close(fd);
    }
    ~Outputs() { dup2(savedStderr, 2); ::close(savedStderr); }

    void configure(const QByteArray &settings)
    {
        writeFile(dir.file("log.conf"), "active = console file\n" + settings + "\n[file]\nfilename = "
                  + QFile::encodeName(dir.file("app.log")) + "\n");
        // On the heap, as the destinations are: ThreadSanitizer would take a
        // lock at a reused stack address for an old one.
        QScopedPointer<Config>(new Config(dir.file("log.conf"), false))->refresh();
    }

    QByteArray console() const { return readFile(dir.file("stderr")); }
    QByteArray file() const { return readFile(dir.file("app.log")); }

    TempDir dir;
    int savedStderr;
    DPConsole consoleDest;
    DPFile fileDest;
    DPBuffer buffer;
};

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

    // Text that would forge or hide a line, through the console, the file and
    // the buffer, escaped and (escape = 0) as it is.
    void hostileInput_data()
    {
        QTest::addColumn<QByteArray>("module");
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<QByteArray>("escaped");    // "module|file|function|message"
        const QByteArray m("net"), f("a.cpp"), fffd("\xef\xbf\xbd");
        QTest::newRow("CR") << m << f << QByteArray("ok\rFAKE") << QByteArray("net|a.cpp|g()|ok\\x0dFAKE");
        QTest::newRow("LF in module") << QByteArray("net\nw [x]") << f << QByteArray("m")
                                      << QByteArray("net\\x0aw [x]|a.cpp|g()|m");
        QTest::newRow("ESC sequences") << m << QByteArray("\x1b[8m.cpp") << QByteArray("\x1b[2J\x1b]0;t\x07")
                                       << QByteArray("net|\\x1b[8m.cpp|g()|\\x1b[2J\\x1b]0;t\\x07");
        QTest::newRow("BS") << m << f << QByteArray("pw\b\bok") << QByteArray("net|a.cpp|g()|pw\\x08\\x08ok");
        QTest::newRow("NUL") << m << f << QByteArray("a\0b", 3) << QByteArray("net|a.cpp|g()|a\\x00b");
        QTest::newRow("DEL") << m << f << QByteArray("a\x7f") << QByteArray("net|a.cpp|g()|a\\x7f");
        QTest::newRow("NEL, C1") << m << f << QByteArray("a\xc2\x85" "b\xc2\x9b")
                                 << QByteArray("net|a.cpp|g()|a\\x85" "b\\x9b");
        QTest::newRow("U+2028, U+2029") << m << f << QByteArray("a\xe2\x80\xa8" "b\xe2\x80\xa9")
                                        << QByteArray("net|a.cpp|g()|a\\u2028" "b\\u2029");
        QTest::newRow("invalid UTF-8") << m << f << QByteArray("\xff|\xc0\xaf|\xed\xa0\x80|\xe2\x82")
                                       << "net|a.cpp|g()|" + fffd + "|" + fffd + fffd + "|" + fffd + fffd + fffd
                                              + "|" + fffd;
        const QByteArray text("gr\xc3\xbc\xc3\x9f" "e \xe6\x97\xa5 \xf0\x9f\x98\x80 \xc2\xa0\ta\nb");
        QTest::newRow("valid text, tab, line feed") << m << f << text << "net|a.cpp|g()|" + text;
    }

    void hostileInput()
    {
        QFETCH(QByteArray, module);
        QFETCH(QByteArray, file);
        QFETCH(QByteArray, message);
        QFETCH(QByteArray, escaped);
        const QByteArray raw = module + "|" + file + "|g()|" + message;
        for (int escape = 1; escape >= 0; --escape) {
            QScopedPointer<Outputs> owner(new Outputs);     // see configure()
            Outputs &out = *owner;
            out.configure("format = #cm|#cf|#cu|#mf\nescape = " + QByteArray::number(escape));
            registry()->sendLogRecord(QSharedPointer<LogRecord>(new LogRecord(
                Info, at(10, 0, 0, 0), QString::fromLatin1(module), message, "g()", file, 1)));
            const QByteArray line = escape ? escaped : raw;
            // The console ends a line at a zero byte.
            QCOMPARE(out.console(), (line.contains('\0') ? line.left(line.indexOf('\0')) : line) + "\n");
            QCOMPARE(out.file(), line + "\n");
            QCOMPARE(out.buffer.getLines(), QStringList() << QString::fromLocal8Bit(line.constData(), line.size()));
        }
    }

    // Each destination numbers the records that it writes, whatever the
    // others take.
    void sequencePerDestination()
    {
        QScopedPointer<Outputs> owner(new Outputs);
        Outputs &out = *owner;
        out.configure("format = #n #mf\n[file]\nlevel = 2\n[gui_buffer]\ndeny = noisy");
        const Level levels[] = { Info, Warning, Debug, Error, Trace, Info };
        for (int i = 0; i < 6; ++i) {
            registry()->sendLogRecord(QSharedPointer<LogRecord>(new LogRecord(
                record(levels[i], at(10, 0, 1, i), i % 2 ? "noisy" : "calm", QByteArray::number(i)))));
        }
        QCOMPARE(out.console(), QByteArray("1 0\n2 1\n3 2\n4 3\n5 5\n"));
        QCOMPARE(out.file(), QByteArray("1 1\n2 3\n"));
        QCOMPARE(out.buffer.getLines(), QStringList() << "1 0" << "2 2");
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
