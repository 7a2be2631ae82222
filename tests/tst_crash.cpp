// Crashes for real: run with "-child SCENARIO DIR", the program logs from
// several threads and dies by a signal or by qFatal; run with "-check SCENARIO
// DIR RESULT" it checks that the file holds every record logged before, the
// flight recorder's records and the crash record, and that the child died as
// it should (RESULT: how CMake saw it end). child_check.cmake runs the two,
// through the emulator when there is one: under qemu-user a program can
// neither start another nor create threads in a forked child.
#include "testsupport.h"

#include <logging/config.h>
#include <logging/dp_file.h>
#include <logging/logging.h>

#include <atomic>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace logging;

namespace {

enum Scenario { OwnerFaults, WorkerAborts, WorkerFaults, KilledWhileLogging, RecorderOnCrash, OwnerFatal };

const int s_records = 100;
Scenario s_scenario;
std::atomic<int> s_logging(0);   // workers past their first record
std::atomic<int> s_finished(0);
int s_markerFd = -1;
pthread_t s_ids[2];

// A real fault: a write to a page that may not be written. (A null pointer
// would be caught by the undefined-behaviour sanitizer first.)
void fault()
{
    void *page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    *static_cast<volatile int *>(page) = 1;
}

// An application's own handler, there before the library's: it must still run.
void applicationHandler(int signal)
{
    static const char text[] = "application handler\n";
    if (::write(s_markerFd, text, sizeof text - 1) < 0) {
    }
    ::signal(signal, SIG_DFL);
}

// Logs its records; worker 1 then crashes once both are done, if it is its turn.
void work(int number)
{
    s_ids[number] = pthread_self();
    for (int i = 0; i < s_records || s_scenario == KilledWhileLogging; ++i) {
        QTLOG_WARNING("crash") << "w" << number << i;
        if (i == 0)
            ++s_logging;
    }
    ++s_finished;
    if (number != 1 || (s_scenario != WorkerAborts && s_scenario != WorkerFaults))
        return;
    while (s_finished < 2)
        usleep(1000);
    if (s_scenario == WorkerAborts)
        abort();
    fault();
}

// The child: never returns.
void child(const QString &dir)
{
    struct rlimit noCore = { 0, 0 };
    setrlimit(RLIMIT_CORE, &noCore);
    // Qt Test's own handlers stand aside; an application's takes their place.
    const int fatal[] = { SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT };
    for (int i = 0; i < 5; ++i)
        ::signal(fatal[i], SIG_DFL);
    if (s_scenario == OwnerFaults || s_scenario == WorkerFaults) {
        s_markerFd = ::open(QFile::encodeName(dir + "/marker").constData(), O_WRONLY | O_CREAT, 0644);
        ::signal(SIGSEGV, applicationHandler);
    }
    writeFile(dir + "/log.conf", "active = file\n[file]\nformat = #mf\nfilename = " + QFile::encodeName(dir)
              + "/crash.log\n" + (s_scenario == RecorderOnCrash ? "level = 2\nrecorder = 50\n" : ""));
    Initializer init(QStringList() << dir + "/");
    for (int i = 0; i < 80 && s_scenario == RecorderOnCrash; ++i)
        QTLOG_DEBUG("crash") << "d" << i;

    WorkThread first([] { work(0); }), second([] { work(1); });
    first.start();
    second.start();
    if (s_scenario == KilledWhileLogging) {
        // Mostly inside the record's road, often under the queue lock. Both
        // have logged already, however slowly their threads got going.
        while (s_logging < 2)
            usleep(1000);
        usleep(50 * 1000);
        pthread_kill(s_ids[0], SIGSEGV);
    } else if (s_scenario == WorkerAborts || s_scenario == WorkerFaults) {
        QMutex blocked;     // the owning thread waits for good
        blocked.lock();
        blocked.lock();
    }
    first.wait();
    second.wait();
    usleep(50 * 1000);
    if (s_scenario == OwnerFatal)
        qFatal("fatal message %d", 42);
    fault();
    _exit(0);
}

} // namespace

// What the check is given on its command line.
QString s_dir;
QByteArray s_result;

class CheckCrash : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyRecordWritten()
    {
        const bool owner = s_scenario == OwnerFaults || s_scenario == RecorderOnCrash || s_scenario == OwnerFatal;
        const int signal = s_scenario == WorkerAborts || s_scenario == OwnerFatal ? SIGABRT : SIGSEGV;
        QCOMPARE(s_result, QByteArray(signal == SIGABRT ? "Subprocess aborted" : "Segmentation fault"));
        if (s_scenario == OwnerFaults || s_scenario == WorkerFaults)
            QCOMPARE(readFile(s_dir + "/marker"), QByteArray("application handler\n"));
        QList<QByteArray> lines = readFile(s_dir + "/crash.log").split('\n');
        QCOMPARE(lines.takeLast(), QByteArray());
        // Last the crash record ("hh:mm:ss.zzz c [logging] ..."), naming the
        // signal and the thread.
        const QByteArray crash = lines.takeLast();
        const QByteArray name = signal == SIGSEGV ? "SIGSEGV (11)" : "SIGABRT (6)";
        QVERIFY2(crash.indexOf(':') == 2 && crash.indexOf('.') == 8, crash.constData());
        const QByteArray text = " c [logging] Crash: signal " + name + " in thread ";
        QCOMPARE(crash.mid(12, text.size()), text);
        QCOMPARE(crash.endsWith("(main)"), owner);
        if (s_scenario == OwnerFatal)   // qFatal's message, then the abort it ends in
            QCOMPARE(lines.takeLast(), QByteArray("fatal message 42"));
        if (s_scenario == RecorderOnCrash) {
            // The Debug records the file does not take, last 50, between markers.
            QCOMPARE(lines.takeLast(), QByteArray("---- flight recorder: end of 50 records ----"));
            for (int i = 79; i >= 30; --i)
                QCOMPARE(lines.takeLast().trimmed(), "d " + QByteArray::number(i));
            QCOMPARE(lines.takeLast(), QByteArray("---- flight recorder: 50 records follow ----"));
        }
        // Every worker's records, in order; a thread stopped while logging
        // has every record up to the one it was in.
        QString error;
        const QVector<int> written = writtenInOrder(lines, 2, &error);
        QVERIFY2(error.isEmpty(), qPrintable(error));
        if (s_scenario == KilledWhileLogging)
            QVERIFY(written.at(0) > 0 && written.at(1) > 0);
        else
            QCOMPARE(written, QVector<int>(2, s_records));
    }
};

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc >= 4)
        s_scenario = Scenario(atoi(argv[2]));
    if (argc == 4 && qstrcmp(argv[1], "-child") == 0)
        child(QString::fromLocal8Bit(argv[3]));
    if (argc == 5 && qstrcmp(argv[1], "-check") == 0) {
        s_dir = QString::fromLocal8Bit(argv[3]);
        s_result = argv[4];
        CheckCrash check;
        return QTest::qExec(&check, 1, argv);
    }
    return 2;   // run by child_check.cmake only
}

#include "tst_crash.moc"
