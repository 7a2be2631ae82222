#include "testsupport.h"

#include <logging/config.h>
#include <logging/logging.h>

using namespace logging;

namespace {

const int s_threads = 8;

// Records per thread: 50,000, or QTLOG_STRESS_RECORDS where a leg is slow
// (an emulator, a sanitizer).
int recordsPerThread()
{
    const int n = qgetenv("QTLOG_STRESS_RECORDS").toInt();
    return n > 0 ? n : 50000;
}

} // namespace

class TestStress : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // 8 threads log into the file destination while the settings are applied
    // again and again: every record arrives exactly once, and each thread's
    // records keep their order.
    void everyRecordOnceAndInOrder()
    {
        TempDir dir;
        const QString logFile = dir.file("stress.log");
        writeFile(dir.file("log.conf"), "active = file\nlevel = 5\n[file]\nformat = #mf\nfilename = "
                                            + QFile::encodeName(logFile) + "\n");
        Initializer init(QStringList() << dir.path() + "/");

        const int count = recordsPerThread();
        QList<QThread *> threads;
        for (int t = 0; t < s_threads; ++t) {
            threads.append(new WorkThread([t, count]() {
                for (int i = 0; i < count; ++i)
                    QTLOG_INFO("stress") << "w" << t << i;
            }));
        }
        const QString confFile = dir.file("log.conf");
        threads.append(new WorkThread([confFile]() {
            Config config(confFile, false);
            for (int i = 0; i < 6; ++i) {
                QTest::qSleep(100);
                config.refresh();
            }
        }));
        for (QThread *thread : threads)
            thread->start();

        // The destinations live on this thread: its event loop writes.
        for (QThread *thread : threads)
            QVERIFY(waitUntil([thread]() { return thread->isFinished(); }, 300000));
        qDeleteAll(threads);

        // Records still queued are written by the next drains.
        QString error;
        QVector<int> written;
        waitUntil([&]() {
            written = writtenInOrder(readFile(logFile).split('\n'), s_threads, &error);
            return !error.isEmpty() || written == QVector<int>(s_threads, count);
        }, 60000);
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QCOMPARE(written, QVector<int>(s_threads, count));
    }
};

QTEST_GUILESS_MAIN(TestStress)
#include "tst_stress.moc"
