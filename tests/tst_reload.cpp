#include "testsupport.h"

#include <logging/config.h>
#include <logging/dp_buffer.h>
#include <logging/logging.h>

#include <sys/time.h>

using namespace logging;

namespace {

const char s_modified[] = "3|logging.conf.reloader|virtual void logging::Config::ReloadThread::run()|Config file has modify:";

// Sets the file's modification time to base's whole second + seconds + ms.
void setModified(const QString &name, const QDateTime &base, int seconds, int ms = 0)
{
    const time_t s = time_t(base.toMSecsSinceEpoch() / 1000 + seconds);
    const timeval times[2] = { { s, ms * 1000 }, { s, ms * 1000 } };
    QCOMPARE(utimes(QFile::encodeName(name).constData(), times), 0);
}

} // namespace

// Each step waits for the 5-second poll of the reload thread.
class TestReload : public QObject
{
    Q_OBJECT

    TempDir dir;
    QString settings;
    QDateTime base;
    DPBuffer *sink = nullptr;
    Initializer *init = nullptr;

    int count(const QString &fragment, int from = 0) const { return ::count(sink, fragment, from); }

    void write(const QByteArray &content, int seconds, int ms = 0)
    {
        writeFile(settings, content + "[gui_buffer]\nformat = #ln|#cm|#cu|#mf\n");
        setModified(settings, base, seconds, ms);
    }

private Q_SLOTS:
    void initTestCase()
    {
        settings = dir.file("log.conf");
        base = QDateTime::currentDateTime().addSecs(-100);
        // The file cannot be opened at start-up: reported, no hang. Reports
        // made during the first start-up go to the handler there before.
        write("level = 2\nactive = console file\n[file]\nfilename = /nonexistent/start.log\n", 0);
        sink = new DPBuffer;
        MessageCapture::install();
        init = new Initializer(QStringList() << dir.path() + "/");
        const QList<QByteArray> texts = MessageCapture::take();
        QCOMPARE(texts.size(), 1);
        QVERIFY2(texts.first().startsWith("Error open log-file: \"/nonexistent/start.log\" reason: \"No such file"),
                 texts.first().constData());
    }

    void cleanupTestCase()
    {
        delete init;
        delete sink;
    }

    void changeIsAppliedOnce()
    {
        QTLOG_INFO("app") << "before";
        QCOMPARE(count("|app|"), 0);

        // Three writes within one period, the last with a bad line and a log
        // file that cannot be opened: one reload, its reports, then the notice.
        write("level = 2\n", 1);
        write("level = 3\n", 2);
        write("level = 5\nactive = console file\nbad line\n[file]\nfilename = /nonexistent/z.log\n", 3);
        QTLOG_WAIT_VERIFY(count(s_modified) == 1, 12000);
        QTest::qWait(500);
        const QStringList lines = sink->getLines();
        QCOMPARE(count(s_modified), 1);
        QVERIFY(lines.last().endsWith(streamed("Config file has modify: \"" + settings + "\"")));
        QCOMPARE(count("|logging.conf|logging::Config::Settings::Settings(const QString&)|Error in line: 3"), 1);
        QCOMPARE(count("|logging.file|void logging::DPFile::setFilename(const QString&)|Error open log-file: \"/nonexistent/z.log\""), 1);

        QTLOG_INFO("app") << "after";
        QCOMPARE(count("|app|"), 1);
    }

    void deletedOrOlderFileIsNotReloaded()
    {
        QFile::remove(settings);
        QTest::qWait(6000);
        QCOMPARE(count(s_modified), 1);

        write("level = 5\n", 10);
        QTLOG_WAIT_VERIFY(count(s_modified) == 2, 12000);

        setModified(settings, base, 5);
        QTest::qWait(6000);
        QCOMPARE(count(s_modified), 2);

        // Newer within the same second: seen all the same.
        write("level = 4\n", 10, 400);
        QTLOG_WAIT_VERIFY(count(s_modified) == 3, 12000);
    }

    void destructionIsBounded()
    {
        QElapsedTimer timer;
        timer.start();
        {
            Config config(settings, true);
            QTest::qWait(100);      // the thread is asleep now
        }
        QVERIFY2(timer.elapsed() < 700, qPrintable(QString::number(timer.elapsed())));
    }
};

QTEST_GUILESS_MAIN(TestReload)
#include "tst_reload.moc"
