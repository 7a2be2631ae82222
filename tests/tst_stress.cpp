#include "testsupport.h"

#include <logging/config.h>
#include <logging/logging.h>

#include <QtCore/QVector>

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

class Producer : public QThread
{
public:
    Producer(int id, int count) : id(id), count(count) {}

    void run() override
    {
        for (int i = 0; i < count; ++i)
            QTLOG_INFO("stress") << id << i;
    }

private:
    int id;
    int count;
};

// Re-applies the settings file to every destination, several times, while
// the producers log.
class Refresher : public QThread
{
public:
    Refresher(const QString &fileName, int rounds) : fileName(fileName), rounds(rounds) {}

    void run() override
    {
        Config config(fileName, false);
        for (int i = 0; i < rounds; ++i) {
            msleep(100);
            config.refresh();
        }
    }

private:
    QString fileName;
    int rounds;
};

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
        for (int t = 0; t < s_threads; ++t)
            threads.append(new Producer(t, count));
        threads.append(new Refresher(dir.file("log.conf"), 6));
        for (QThread *thread : threads)
            thread->start();

        // The destinations live on this thread: its event loop writes.
        const auto finished = [&]() {
            for (QThread *thread : threads) {
                if (!thread->isFinished())
                    return false;
            }
            return true;
        };
        QVERIFY(waitUntil(finished, 300000));
        qDeleteAll(threads);

        QVector<int> next(s_threads, 0);
        const int total = s_threads * count;
        int seen = 0;
        const auto parse = [&]() {
            next.fill(0);
            seen = 0;
            const QList<QByteArray> lines = readFile(logFile).split('\n');
            for (const QByteArray &line : lines) {
                const QList<QByteArray> words = line.simplified().split(' ');
                if (words.size() != 2)
                    continue;   // the banners
                bool idOk = false;
                bool nOk = false;
                const int id = words.at(0).toInt(&idOk);
                const int n = words.at(1).toInt(&nOk);
                if (!idOk || !nOk || id < 0 || id >= s_threads)
                    continue;
                if (n != next[id])
                    return QString("thread %1: record %2 where %3 was due").arg(id).arg(n).arg(next[id]);
                ++next[id];
                ++seen;
            }
            return QString();
        };
        // Records still queued are written by the next drains.
        QString error;
        waitUntil([&]() { error = parse(); return !error.isEmpty() || seen == total; }, 60000);
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QCOMPARE(seen, total);
    }
};

QTEST_GUILESS_MAIN(TestStress)
#include "tst_stress.moc"
