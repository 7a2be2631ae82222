#include "testsupport.h"

#include <logging/config.h>
#include <logging/dp_buffer.h>
#include <logging/logging.h>

#include <sys/stat.h>

using namespace logging;

namespace {

// The buffer's lines: level|module|function|message.
const char s_sinkSettings[] = "[gui_buffer]\nlevel = 5\nformat = #ln|#cm|#cu|#mf\n";

const char s_openReport[] = "3|logging.file|void logging::DPFile::setFilename(const QString&)|Error open log-file: ";
const char s_writeReport[] = "3|logging.file|virtual void logging::DPFile::outItems()|";

} // namespace

// Files that would block, or fail at every write, under the whole library.
class TestFileFaults : public QObject
{
    Q_OBJECT

    TempDir dir;
    DPBuffer *sink;
    Initializer *init;

    // Applies settings to every destination, the way a reload does.
    void refreshWith(const QByteArray &settings)
    {
        writeFile(dir.file("other.conf"), "active = file\n" + settings + s_sinkSettings);
        Config(dir.file("other.conf"), false).refresh();
    }

    int count(const QString &fragment, int from = 0) const { return ::count(sink, fragment, from); }

private Q_SLOTS:
    void initTestCase()
    {
        QCOMPARE(mkfifo(QFile::encodeName(dir.file("fifo")).constData(), 0600), 0);
        sink = new DPBuffer;
        sink->setRotateLineCount(100000);
        // Opening a FIFO that nobody reads must not freeze the start-up.
        writeFile(dir.file("log.conf"), "active = file\n[file]\nfilename = "
                  + QFile::encodeName(dir.file("fifo")) + "\n" + s_sinkSettings);
        // Reports made during the first start-up go to the handler before it.
        MessageCapture::install();
        init = new Initializer(QStringList() << dir.path() + "/");
    }

    void cleanupTestCase()
    {
        delete init;
        delete sink;
    }

    void fifoAtStartUp()
    {
        const QList<QByteArray> texts = MessageCapture::take();
        QCOMPARE(texts.size(), 1);
        QCOMPARE(texts.first(), streamed("Error open log-file: \"" + QFile::encodeName(dir.file("fifo"))
                                         + "\" reason: \"No such device or address\""));
    }

    void fifoViaReload()
    {
        refreshWith("[file]\nfilename = " + QFile::encodeName(dir.file("app.log")) + "\n");
        QTLOG_INFO("app") << "before";
        const int from = sink->getLines().size();
        refreshWith("[file]\nfilename = " + QFile::encodeName(dir.file("fifo")) + "\n");
        QTLOG_INFO("app") << "after";
        QCOMPARE(count(s_openReport, from), 1);
        QCOMPARE(count("No such device or address", from), 1);
        QCOMPARE(count("|app|", from), 1);
        QVERIFY(readFile(dir.file("app.log")).endsWith(streamed(QByteArray("before")) + "\n"));
    }

    void failingDeviceDoesNotFlood()
    {
        const int from = sink->getLines().size();
        refreshWith("[file]\nfilename = /dev/full\n");
        QElapsedTimer timer;
        timer.start();
        int n = 0;
        while (timer.elapsed() < 1500) {
            QTLOG_INFO("app") << "record" << ++n;
            QTest::qWait(1);
        }
        // Once, with the file's name and the system's reason.
        QCOMPARE(count(s_writeReport, from), 1);
        QCOMPARE(count(QString(s_writeReport) + "\"/dev/full: No space left on device\"", from), 1);
        // Qt had nothing to warn about (it did at every reopen: a seek).
        QCOMPARE(count("|qt|", from), 0);
        QCOMPARE(count(s_openReport, from), 0);
        QCOMPARE(sink->getLines().size() - from, n + 1);
    }
};

QTEST_GUILESS_MAIN(TestFileFaults)

#include "tst_file_faults.moc"
