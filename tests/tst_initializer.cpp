#include "testsupport.h"

#include <logging/config.h>
#include <logging/dp_buffer.h>
#include <logging/logging.h>

#include "logging/internal/local_time_p.h"
#include "logging/internal/logging_p.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <thread>
#include <time.h>
#include <unistd.h>

using namespace logging;

namespace {

// The buffer's lines: level|module|function|message.
const char s_sinkSettings[] = "[gui_buffer]\nlevel = 5\nformat = #ln|#cm|#cu|#mf\n";
const QString s_openReport = "3|logging.file|void logging::DPFile::setFilename(const QString&)|Error open log-file: ";
const QString s_writeReport = "3|logging.file|virtual void logging::DPFile::outItems()|";
const char s_modified[] = "3|logging.conf.reloader|virtual void logging::Config::ReloadThread::run()|Config file has modify:";

} // namespace

// A value that logs a record of its own while it is streamed into another.
struct Nested
{
};

QDebug operator<<(QDebug stream, const Nested &)
{
    QTLOG_WARNING("inner") << "in";
    return stream << "value";
}

// Logs from inside the buffer's signal, connected directly.
class Echo : public QObject
{
    Q_OBJECT
public:
    bool everyChange = false;   // else: answers the first "ping" only
    bool echoed = false;
public Q_SLOTS:
    void changed(const QStringList &lines)
    {
        if (everyChange) {
            QTLOG_INFO("loop") << "again";
        } else if (!echoed && lines.last().contains("|ping")) {
            echoed = true;
            QTLOG_INFO("echo") << "pong";
        }
    }
};

class TestInitializer : public QObject
{
    Q_OBJECT

    TempDir dir;
    QString stderrFile;
    int savedStderr = -1;
    DPBuffer *sink = nullptr;
    Initializer *init = nullptr;
    QString watched;    // the settings file of the Initializer
    QDateTime base;     // a whole second before the tests

    // Applies settings to every destination, the way a reload does.
    void refreshWith(const QByteArray &settings)
    {
        writeFile(dir.file("other.conf"), settings + s_sinkSettings);
        Config(dir.file("other.conf"), false).refresh();
    }

    // How many of the sink's lines, from line `from` on, contain fragment.
    int count(const QString &fragment, int from = 0) const
    {
        const QStringList lines = sink->getLines();
        int n = 0;
        for (int i = from; i < lines.size(); ++i)
            n += lines.at(i).contains(fragment) ? 1 : 0;
        return n;
    }

    // Writes the watched settings file, dated base + seconds + ms.
    void writeWatched(const QByteArray &content, int seconds, int ms = 0)
    {
        writeFile(watched, content);
        const time_t s = time_t(base.toMSecsSinceEpoch() / 1000 + seconds);
        const timeval times[2] = { { s, ms * 1000 }, { s, ms * 1000 } };
        QCOMPARE(utimes(QFile::encodeName(watched).constData(), times), 0);
    }

private Q_SLOTS:
    void initTestCase()
    {
        // Keep what the library prints to standard error, to check it later.
        stderrFile = dir.file("stderr.txt");
        fflush(stderr);
        savedStderr = dup(2);
        const int fd = open(QFile::encodeName(stderrFile).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(fd, 2);
        ::close(fd);

        QCOMPARE(mkfifo(QFile::encodeName(dir.file("fifo")).constData(), 0600), 0);
        QDir().mkpath(dir.file("etc/app"));
        watched = dir.file("etc/app/log.conf");
        base = QDateTime::currentDateTime().addSecs(-100);
        writeWatched("active = console file\nbad line\n[file]\nfilename = "
                     + QFile::encodeName(dir.file("app.log")) + "\n" + s_sinkSettings, 0);
    }

    void cleanupTestCase()
    {
        delete init;
        delete sink;
        fflush(stderr);
        dup2(savedStderr, 2);
    }

    void startBanner()
    {
        // The settings file is the first DIR + "log.conf" that exists (no
        // separator is added), else "log.conf": here the second entry's.
        QCOMPARE(InitializerPrivate::findConfigFile(QStringList() << dir.path() + "/etc/app"), QString("log.conf"));
        QCOMPARE(InitializerPrivate::findConfigFile(QStringList()), QString("log.conf"));
        sink = new DPBuffer;
        sink->setRotateLineCount(100000);
        // The settings' bad line is reported before the library's handler is
        // installed: to the handler there before.
        MessageCapture::install();
        init = new Initializer(QStringList() << "/nonexistent/" << dir.path() + "/etc/app/");
        QCOMPARE(MessageCapture::take(), QList<QByteArray>() << streamed(QByteArray("Error in line: 2")));
        const QStringList lines = sink->getLines();
        QCOMPARE(lines.size(), 1);
        QVERIFY2(lines.first().startsWith("3|logging|logging::InitializerPrivate::InitializerPrivate(const QStringList&)"
                                          "|===== Start application ==== \""), qPrintable(lines.first()));
        QVERIFY(readFile(dir.file("app.log")).contains("] ===== Start application ==== \""));
    }

    void messagesBecomeRecords_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("line");
        QTest::newRow("qWarning") << 0 << "2|qt||disk full";
        QTest::newRow("qDebug stream") << 1 << streamed(QString("4|qt||x"));
        QTest::newRow("qCritical") << 2 << "0|qt||bad";
        QTest::newRow("message type 7") << 3 << "4|qt||odd";
        QTest::newRow("toLog") << 4 << streamed(QString("3|media.audio|g()|up"));
        QTest::newRow("toLog with Qt's debug output off") << 5 << streamed(QString("3|media.audio|g()|down"));
    }

    void messagesBecomeRecords()
    {
        QFETCH(int, kind);
        QFETCH(QString, line);
        switch (kind) {
        case 0: qWarning("disk full"); break;
        case 1: qDebug() << "x"; break;
        case 2: qCritical("bad"); break;
        case 3: InitializerPrivate::messageFinished(QtMsgType(7), "odd"); break;
        default:
            setQtDebugOutputFiltered(kind == 5);
            toLog(Info, "media", "f.cpp", 7, "g()", "audio") << (kind == 5 ? "down" : "up");
            setQtDebugOutputFiltered(false);
        }
        QCOMPARE(sink->getLines().last(), line);
    }

    void nestedStatements()
    {
        QTLOG_INFO("outer") << Nested();
        const QStringList lines = sink->getLines();
        QVERIFY(lines.at(lines.size() - 2).startsWith("2|inner|") && lines.at(lines.size() - 2).endsWith("|" + streamed(QString("in"))));
        QVERIFY(lines.last().startsWith("3|outer|") && lines.last().endsWith("|" + streamed(QString("value"))));
    }

    // Process, thread and time since boot are those of the logging thread
    // when the record was made, whichever thread writes it.
    void threadsAndProcess()
    {
        writeFile(dir.file("ids.conf"), "[gui_buffer]\nlevel = 5\nformat = #pp|#pt|#pn|#tu|#mf\n");
        Config(dir.file("ids.conf"), false).refresh();
        const int from = sink->getLines().size();
        QStringList expected;   // "pid|tid|name|", one per record
        QMutex mutex;
        const auto logHere = [&](const char *systemName) {
            if (systemName)
                pthread_setname_np(pthread_self(), systemName);
            char name[17] = { 0 };
            prctl(PR_GET_NAME, name, 0, 0, 0);
            const QString objectName = QThread::currentThread()->objectName();
            QMutexLocker locker(&mutex);
            expected << QString::fromLatin1("%1|%2|%3|").arg(getpid()).arg(long(syscall(SYS_gettid)))
                            .arg(objectName.isEmpty() ? QString::fromLocal8Bit(name) : objectName);
            QTLOG_INFO("ids") << expected.size();
        };
        logHere(nullptr);                               // the main thread: the executable's name
        WorkThread named([&] { logHere(nullptr); });
        named.setObjectName("a QThread with a long name");
        WorkThread unnamed([&] { logHere(nullptr); }); // the name Qt gave the system thread
        named.start();
        QVERIFY(named.wait(10000));
        unnamed.start();
        QVERIFY(unnamed.wait(10000));
        std::thread([&] { logHere("plain thread"); }).join();
        QVERIFY(waitUntil([&]() { return sink->getLines().size() >= from + 4; }));
        timespec now;
        clock_gettime(CLOCK_BOOTTIME, &now);
        const QStringList lines = sink->getLines().mid(from);
        QCOMPARE(lines.size(), 4);
        for (int i = 0; i < 4; ++i) {
            QVERIFY2(lines.at(i).startsWith(expected.at(i)), qPrintable(lines.at(i) + " / " + expected.at(i)));
            const QString boot = lines.at(i).split(QLatin1Char('|')).at(3);   // seconds, three decimals
            QVERIFY2(boot.indexOf(QLatin1Char('.')) == boot.size() - 4
                         && qAbs(boot.toDouble() - double(now.tv_sec)) < 10, qPrintable(boot));
        }
        refreshWith("active = console file\n[file]\nfilename = " + QFile::encodeName(dir.file("app.log")) + "\n");
    }

    // The library's clock is moved through its hook for tests, as NTP or
    // "date -s" would move the system's: one record tells of each step of
    // more than a second, before the first record made after it.
    void clockSteps()
    {
        writeFile(dir.file("clock.conf"), "[gui_buffer]\nlevel = 5\nformat = #td#tT|#ln|#cm|#mf\n");
        Config(dir.file("clock.conf"), false).refresh();
        const int from = sink->getLines().size();
        const int shifts[] = { 500, 0, 86400000, 0 };
        for (int i = 0; i < 4; ++i) {
            setWallClockShift(shifts[i]);
            QTLOG_INFO("app") << "record" << i;
        }
        const QStringList lines = sink->getLines().mid(from);
        QCOMPARE(lines.size(), 6);
        const QString today = QDate::currentDate().toString("yyyy-MM-dd");
        const QString tomorrow = QDate::currentDate().addDays(1).toString("yyyy-MM-dd");
        const QString step = "|2|logging.clock|Clock stepped by ";
        QVERIFY2(lines.at(2).startsWith("--- " + tomorrow + "\n")
                     && lines.at(2).contains(step + "+86400.000 s, the time is now " + tomorrow + " "),
                 qPrintable(lines.at(2)));
        QVERIFY(lines.at(3).endsWith("|3|app|" + streamed(QString("record 2"))));
        QVERIFY2(lines.at(4).startsWith("--- " + today + "\n")
                     && lines.at(4).contains(step + "-86400.000 s, the time is now " + today + " "),
                 qPrintable(lines.at(4)));
        QCOMPARE(count("logging.clock", from), 2);
        refreshWith("active = console file\n[file]\nfilename = " + QFile::encodeName(dir.file("app.log")) + "\n");
    }

    void unwritableFiles_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QString>("report");
        // A FIFO that nobody reads must not block the open.
        QTest::newRow("FIFO") << QFile::encodeName(dir.file("fifo"))
                              << s_openReport + "\"" + dir.file("fifo") + "\" reason: \"No such device or address\"";
        QTest::newRow("no name") << QByteArray() << s_writeReport + "\"no log-file open\"";
        QTest::newRow("full device") << QByteArray("/dev/full")
                                     << s_writeReport + "\"/dev/full: No space left on device\"";
    }

    void unwritableFiles()
    {
        // Reported once, after the registry's write lock, with the file's
        // name and the system's reason; every record still reaches the other
        // destinations, and Qt has nothing to warn about (it did at every
        // reopen: a seek).
        QFETCH(QByteArray, name);
        QFETCH(QString, report);
        const int from = sink->getLines().size();
        refreshWith("active = console file\n[file]\nfilename = " + name + "\n");
        // Queued from another thread, drained at once: a write fails in the
        // middle of the drain, with the file lock held.
        runOnThread([] {
            const QByteArray text(200, 'x');
            for (int i = 0; i < 300; ++i)
                QTLOG_INFO("flood") << text.constData();
        });
        // Then for longer than the file's retry period, from this thread.
        QElapsedTimer timer;
        timer.start();
        int n = 0;
        while (timer.elapsed() < 1500) {
            QTLOG_INFO("app") << "more" << ++n;
            QTest::qWait(1);
        }
        QCOMPARE(count("|flood|", from), 300);
        QCOMPARE(count("|app|", from), n);
        QCOMPARE(count("3|logging.file|", from), 1);
        QCOMPARE(count(report, from), 1);
        QCOMPARE(count("|qt|", from), 0);
    }

    void bufferReceiverMayLog()
    {
        // A receiver connected directly runs with the buffer locked; what it
        // logs waits until the lock is released. The record comes from
        // another thread, so the drain runs from the event loop.
        Echo echo;
        connect(sink, SIGNAL(logContentChanged(QStringList)), &echo, SLOT(changed(QStringList)), Qt::DirectConnection);
        runOnThread([] { QTLOG_INFO("echo") << "ping"; });
        QVERIFY(waitUntil([&]() { return count("|pong") == 1; }));

        // A receiver that logs at every change feeds itself: the handler
        // delivers a bounded number of rounds and then lets go.
        echo.everyChange = true;
        QTLOG_INFO("loop") << "start";
        disconnect(sink, 0, &echo, 0);
        QCOMPARE(count("|again"), 8);
    }

    void nothingRawOnStandardError()
    {
        // Reports made inside the handler were delivered as records, not
        // printed by Qt as raw encoded text.
        QTLOG_WARNING("console") << "100% %s done";
        fflush(stderr);
        const QByteArray printed = readFile(stderrFile);
        QVERIFY(printed.contains("] ===== Start application ===="));
        QVERIFY(printed.contains(" w [console] " + streamed(QByteArray("100% %s done")) + "\n"));
        QVERIFY2(!printed.contains("DStLg"), printed.constData());
        QVERIFY(printed.contains("[loop] " + streamed(QByteArray("again")) + "\n"));   // what the self-feeding receiver let go
    }

    // Edits of the settings file, seen by the reload thread's 5-second poll.
    void reload()
    {
        // Three writes within one period, the last with a bad line and a log
        // file that cannot be opened: one reload, its reports in the new
        // format, then the notice.
        writeWatched("level = 2\n", 1);
        writeWatched("level = 3\n", 2);
        writeWatched("active = console file\nbad line\n[file]\nfilename = /nonexistent/z.log\n"
                     "[gui_buffer]\nlevel = 5\nformat = new #ln|#cm|#cu|#mf\n", 3);
        QVERIFY(waitUntil([&]() { return count(s_modified) == 1; }, 12000));
        QTest::qWait(500);
        QCOMPARE(count(s_modified), 1);
        QVERIFY(sink->getLines().last().endsWith(streamed("Config file has modify: \"" + watched + "\"")));
        QCOMPARE(count("new 4|logging.conf|logging::Config::Settings::Settings(const QString&)|Error in line: 2"), 1);
        QCOMPARE(count("new " + s_openReport + "\"/nonexistent/z.log\""), 1);

        // A deleted or an older file is not reloaded; one newer within the
        // same second is.
        QFile::remove(watched);
        QTest::qWait(6000);
        QCOMPARE(count(s_modified), 1);
        writeWatched(s_sinkSettings, 10);
        QVERIFY(waitUntil([&]() { return count(s_modified) == 2; }, 12000));
        writeWatched(s_sinkSettings, 5);
        QTest::qWait(6000);
        QCOMPARE(count(s_modified), 2);
        writeWatched(s_sinkSettings, 10, 400);
        QVERIFY(waitUntil([&]() { return count(s_modified) == 3; }, 12000));
    }

    void reloadThreadStopsAtOnce()
    {
        QElapsedTimer timer;
        timer.start();
        {
            Config config(watched, true);
            QTest::qWait(100);      // the thread is asleep now
        }
        QVERIFY2(timer.elapsed() < 700, qPrintable(QString::number(timer.elapsed())));
    }

    void shutdownAndSecondInitializer()
    {
        refreshWith("active = console file\n[file]\nfilename = " + QFile::encodeName(dir.file("app.log")) + "\n");
        delete init;
        init = nullptr;
        const QByteArray stop = streamed(QByteArray("==== log stoped ===="));
        QCOMPARE(sink->getLines().last(), "3|logging|logging::Initializer::~Initializer()|" + QString::fromLatin1(stop));
        QVERIFY(readFile(dir.file("app.log")).endsWith("] " + stop + "\n"));

        // Still handled, written nowhere.
        const int before = sink->getLines().size();
        qWarning("after shutdown");
        QTLOG_INFO("late") << "dropped";
        QCOMPARE(sink->getLines().size(), before);

        // A second start-up: silent, with its reports (a bad line, a FIFO
        // that cannot be opened) delivered once the refresh is done.
        delete sink;
        sink = new DPBuffer;
        writeFile(dir.file("log.conf"), "active = console file\nbad line\n[file]\nfilename = "
                  + QFile::encodeName(dir.file("fifo")) + "\n" + s_sinkSettings);
        init = new Initializer(QStringList() << dir.path() + "/");
        QCOMPARE(count("Start application"), 0);
        QCOMPARE(count("4|logging.conf|logging::Config::Settings::Settings(const QString&)|Error in line: 2"), 1);
        QCOMPARE(count(s_openReport + ("\"" + dir.file("fifo") + "\"")), 1);
    }
};

QTEST_GUILESS_MAIN(TestInitializer)

#include "tst_initializer.moc"
