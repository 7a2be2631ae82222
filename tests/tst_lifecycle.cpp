// An application's life, from start-up to its end, in a child process: run
// with "-child SCENARIO DIR" the program logs and ends the way the scenario
// says (exit(), a return from main, qFatal after shutdown); run with "-check
// SCENARIO DIR RESULT" it checks the log file and the child's standard error
// that child_check.cmake kept, and how the child ended (RESULT).
#include "testsupport.h"

#include <logging/dp_buffer.h>
#include <logging/logging.h>

#include <atomic>

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace logging;

namespace {

enum Scenario {
    ExitOwnerMain,      // exit(1) from main, which owns the destinations
    ExitOwnerThread,    // exit(0) while the owning thread is busy
    DeleteOwnerThread,  // ~Initializer on main, the owning thread busy
    ReturnLeaked,       // return from main without ~Initializer
    BusyBuffer,         // a DPBuffer whose thread is busy at the end
    FatalAfterShutdown, // Critical records and qFatal after ~Initializer
    NestedInitializer,  // a second Initializer while the first lives
    LateDirectory,      // the log directory appears 1.5 s after start-up
    DirectoryBack       // the log directory goes away and comes back
};

const int s_records = 100;
const int s_bufferRecords = 2000;
Scenario s_scenario;
QString s_dir;
// Left alive by exit() and by a return from main; a leak checker sees it.
Initializer *init = nullptr;

// Logs "w writer 0" .. "w writer count-1" as Warnings, pausing between them.
void logRecords(int writer, int from, int count, int pauseUs = 0)
{
    for (int i = from; i < from + count; ++i) {
        QTLOG_WARNING("life") << "w" << writer << i;
        if (pauseUs)
            usleep(pauseUs);
    }
}

// Two workers log s_records each and end.
void runWorkers()
{
    WorkThread first([] { logRecords(0, 0, s_records); });
    WorkThread second([] { logRecords(1, 0, s_records); });
    first.start();
    second.start();
    first.wait();
    second.wait();
}

// A thread that runs ready() and then stays busy until the process ends:
// what is queued for its event loop is never delivered.
class BusyThread : public QThread
{
public:
    explicit BusyThread(const std::function<void()> &ready) : ready(ready) {}
    void run() override
    {
        ready();
        done = true;
        for (;;)
            usleep(100 * 1000);
    }
    void startAndWait()
    {
        start();
        while (!done)
            usleep(1000);
    }

private:
    std::function<void()> ready;
    std::atomic<bool> done{false};
};

void writeSettings(const QString &logFile)
{
    writeFile(s_dir + "/log.conf", "active = file\n[file]\nformat = #mf\nfilename = "
                                       + QFile::encodeName(logFile) + "\n");
}

// A worker logs one record every 5 ms for 3 s while main runs its event loop
// and, at 0.3 s and 1.5 s, does what the scenario asks with the log directory.
// Returns the first record logged after the directory was back.
int logWhileDiskChanges(const QString &logDir)
{
    std::atomic<int> logged(0);
    WorkThread worker([&logged] {
        for (int i = 0; i < 600; ++i) {
            logRecords(0, i, 1);
            logged = i + 1;
            usleep(5000);
        }
    });
    QElapsedTimer timer;
    timer.start();
    worker.start();
    bool removed = false;
    int back = -1;
    while (!worker.isFinished()) {
        QCoreApplication::processEvents();
        usleep(2000);
        if (s_scenario == DirectoryBack && !removed && timer.elapsed() > 300) {
            removed = true;
            QFile::remove(logDir + "/app.log");
            QDir().rmdir(logDir);
        }
        if (back < 0 && timer.elapsed() > 1500) {
            back = logged;
            QDir().mkdir(logDir);
        }
    }
    worker.wait();
    QCoreApplication::processEvents();
    return back;
}

int child()
{
    struct rlimit noCore = { 0, 0 };
    setrlimit(RLIMIT_CORE, &noCore);
    ::signal(SIGABRT, SIG_DFL);
    const QString logDir = s_dir + (s_scenario >= LateDirectory ? "/late" : "");
    writeSettings(logDir + "/app.log");
    if (s_scenario == DirectoryBack)
        QDir().mkdir(logDir);
    const QStringList dirs = QStringList() << s_dir + "/";

    switch (s_scenario) {
    case ExitOwnerMain:
        init = new Initializer(dirs);
        runWorkers();
        exit(1);
    case ExitOwnerThread:
    case DeleteOwnerThread: {
        BusyThread *owner = new BusyThread([dirs] { init = new Initializer(dirs); });
        owner->startAndWait();
        runWorkers();
        if (s_scenario == ExitOwnerThread)
            exit(0);
        delete init;
        return 0;
    }
    case ReturnLeaked:
        init = new Initializer(dirs);
        runWorkers();
        return 0;
    case BusyBuffer: {
        Initializer logging(dirs);
        BusyThread *viewer = new BusyThread([] { new DPBuffer; });
        viewer->startAndWait();
        logRecords(0, 0, s_bufferRecords);
        return 0;
    }
    case FatalAfterShutdown:
        delete new Initializer(dirs);
        QTLOG_WARNING("app") << "warning after";
        QTLOG_CRITICAL("app") << "critical after";
        qFatal("fatal message %d", 42);
        return 0;
    case NestedInitializer: {
        Initializer outer(dirs);
        logRecords(0, 0, 10);
        {
            Initializer inner(dirs);
            logRecords(0, 10, 10);
        }
        logRecords(0, 20, 10);
        return 0;
    }
    case LateDirectory:
    case DirectoryBack: {
        Initializer logging(dirs);
        const int back = logWhileDiskChanges(logDir);
        writeFile(s_dir + "/back", QByteArray::number(back));
        return 0;
    }
    }
    return 2;
}

// What the check is given on its command line.
QByteArray s_result;

// The file's lines, with the line end after the last one checked.
QList<QByteArray> linesOf(const QString &name)
{
    QList<QByteArray> lines = readFile(name).split('\n');
    if (lines.takeLast() != QByteArray())
        lines.append("(no line end)");
    return lines;
}

int countContaining(const QList<QByteArray> &lines, const QByteArray &text)
{
    int n = 0;
    for (const QByteArray &line : lines)
        n += line.contains(text) ? 1 : 0;
    return n;
}

} // namespace

class CheckLife : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingLost()
    {
        const QByteArray results[] = { "1", "0", "0", "0", "0", "Subprocess aborted", "0", "0", "0" };
        QCOMPARE(s_result, results[s_scenario]);
        const QList<QByteArray> log = linesOf(s_dir + (s_scenario >= LateDirectory ? "/late" : "") + "/app.log");
        QList<QByteArray> errors;
        for (const QByteArray &line : linesOf(s_dir + "/stderr")) {
            if (!line.startsWith("qemu: "))     // an emulator's note on the abort
                errors.append(line);
        }
        if (s_scenario != DirectoryBack) {     // a new file after the banner
            QVERIFY2(log.value(0).startsWith("===== Start application ===="), log.value(0).constData());
            QCOMPARE(countContaining(log, "===== Start application ===="), 1);
        }
        // A file that cannot be opened at start-up is reported before the
        // library's handler is in place: on standard error.
        if (s_scenario == LateDirectory)
            QVERIFY(errors.size() == 1 && errors.value(0).startsWith("Error open log-file: "));
        else if (s_scenario != FatalAfterShutdown)
            QVERIFY2(errors.isEmpty(), errors.value(0).constData());
        const bool stopped = s_scenario == DeleteOwnerThread || s_scenario >= BusyBuffer;
        QCOMPARE(countContaining(log, "==== log stoped ===="), stopped ? 1 : 0);

        // Every record once, in order.
        QString error;
        const int writers = s_scenario <= ReturnLeaked ? 2 : 1;
        const QVector<int> written = writtenInOrder(log, writers, &error);
        switch (s_scenario) {
        case BusyBuffer:
            QVERIFY2(error.isEmpty(), qPrintable(error));
            QCOMPARE(written.first(), s_bufferRecords);
            // The buffer's records (and the stop banner) did not vanish
            // without a word.
            QCOMPARE(countContaining(log, " records for \"gui_buffer\""), 1);
            QVERIFY2(log.value(log.size() - 1).contains(" records for \"gui_buffer\"")
                         && log.value(log.size() - 1).left(log.value(log.size() - 1).indexOf(" records")).split(' ').last().toInt() >= s_bufferRecords,
                     log.value(log.size() - 1).constData());
            break;
        case FatalAfterShutdown:
            // After shutdown only what ends the process reaches standard error.
            QCOMPARE(errors.size(), 2);
            for (const QByteArray &line : errors)
                QVERIFY2(line.indexOf(':') == 2 && line.indexOf('.') == 8 && line.at(12) == ' ', line.constData());
            QCOMPARE(errors.at(0).mid(13), streamed(QByteArray("c [app] critical after")));
            QCOMPARE(errors.at(1).mid(13), QByteArray("c [qt] fatal message 42"));
            break;
        case NestedInitializer:
            QVERIFY2(error.isEmpty(), qPrintable(error));
            QCOMPARE(written.first(), 30);
            QCOMPARE(countContaining(log, "Initializer ignored"), 1);
            break;
        case LateDirectory:
        case DirectoryBack: {
            // Every record from the one logged when the directory was back
            // (with a late directory, from the first) to the last, in order,
            // without a touch of log.conf.
            QList<int> numbers;
            for (const QByteArray &line : log) {
                if (line.startsWith("w 0 "))
                    numbers.append(line.simplified().split(' ').at(2).toInt());
            }
            QVERIFY(!numbers.isEmpty());
            for (int i = 1; i < numbers.size(); ++i)
                QCOMPARE(numbers.at(i), numbers.at(i - 1) + 1);
            QCOMPARE(numbers.last(), 599);
            const int back = readFile(s_dir + "/back").toInt();
            QVERIFY2(numbers.first() <= (s_scenario == LateDirectory ? 0 : back),
                     qPrintable(QString("from %1, back at %2").arg(numbers.first()).arg(back)));
            break;
        }
        default:
            QVERIFY2(error.isEmpty(), qPrintable(error));
            QCOMPARE(written, QVector<int>(2, s_records));
        }
    }
};

int main(int argc, char **argv)
{
    // The child's standard error is checked: no codec warnings there, not
    // even from the application object's own conversions.
    useUtf8Locale();
    QCoreApplication app(argc, argv);
    if (argc >= 4) {
        s_scenario = Scenario(atoi(argv[2]));
        s_dir = QString::fromLocal8Bit(argv[3]);
    }
    if (argc == 4 && qstrcmp(argv[1], "-child") == 0)
        return child();
    if (argc == 5 && qstrcmp(argv[1], "-check") == 0) {
        s_result = argv[4];
        CheckLife check;
        return QTest::qExec(&check, 1, argv);
    }
    return 2;   // run by child_check.cmake only
}

#include "tst_lifecycle.moc"
