// Writes the same record, about 60 characters of message with a module, the
// level and the time, to a file through qtlog and through other loggers, and
// prints the cost per record. Each contender runs in turn, the rounds are
// interleaved, and the minimum and the median of the rounds are reported.
//
//     qtlog_bench [--records N] [--rounds R] [--only NAME]
//
// --only runs one contender once (for callgrind). Every contender writes one
// line to the OS per record.

#include <logging/config.h>
#include <logging/logging.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QStringList>
#include <QtCore/QThread>
#include <QtCore/QTextStream>

#if QT_VERSION >= 0x050000
#  include <QtCore/QLoggingCategory>
#endif

#ifdef QTLOG_BENCH_SPDLOG
#  include <spdlog/sinks/basic_file_sink.h>
#  include <spdlog/spdlog.h>
#endif

#ifdef QTLOG_BENCH_LOG4CXX
#  include <log4cxx/fileappender.h>
#  include <log4cxx/logger.h>
#  include <log4cxx/patternlayout.h>
#endif

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

const char s_text[] = "request served from the cache for client 192.168.1.77, n =";

QString s_dir;
int s_records = 200000;

double nowMicros()
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec * 1e6 + ts.tv_nsec / 1e3;
}

QByteArray path(const char *name)
{
    return QFile::encodeName(s_dir + QLatin1Char('/') + QLatin1String(name));
}

void truncateFile(const char *name)
{
    if (truncate(path(name).constData(), 0) != 0) {
        // Not there yet: nothing to truncate.
    }
}

// ---------------------------------------------------------------------------
// qtlog

void qtlogRoad()
{
    for (int i = 0; i < s_records; ++i)
        QTLOG_INFO("media", "player") << s_text << i;
}

// Trace: no destination takes it (the file's level is Debug).
void qtlogOff()
{
    for (int i = 0; i < s_records; ++i)
        QTLOG_TRACE("media", "player") << s_text << i;
}

// The call alone: what the caller streams costs the same as for any QDebug.
void qtlogToLogOff()
{
    static const QByteArray module("media");
    static const QByteArray file(__FILE__);
    static const QByteArray function(Q_FUNC_INFO);
    for (int i = 0; i < s_records; ++i)
        logging::toLog(logging::Trace, module, file, __LINE__, function);
}

// Four threads log; the file destination drains on this (its owning) thread.
void qtlogThreads()
{
    const int threads = 4;
    std::vector<std::thread> workers;
    volatile int done = 0;
    QAtomicInt finished(0);
    for (int t = 0; t < threads; ++t) {
        workers.push_back(std::thread([&finished]() {
            for (int i = 0; i < s_records / 4; ++i)
                QTLOG_INFO("media", "player") << s_text << i;
            finished.fetchAndAddOrdered(1);
        }));
    }
    while (finished.fetchAndAddOrdered(0) < threads)
        QCoreApplication::processEvents(QEventLoop::AllEvents);
    for (size_t t = 0; t < workers.size(); ++t)
        workers[t].join();
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
    (void)done;
}

// ---------------------------------------------------------------------------
// Qt's own handler, writing to standard error, which is the file here.

int s_stderrCopy = -1;

#if QT_VERSION >= 0x050000
Q_LOGGING_CATEGORY(benchCategory, "media.player")
#endif

void qtHandler()
{
    const int fd = open(path("qt.log").constData(), O_WRONLY | O_APPEND | O_CREAT, 0644);
    fflush(stderr);
    s_stderrCopy = dup(2);
    dup2(fd, 2);
    close(fd);
#if QT_VERSION >= 0x050000
    QtMessageHandler qtlogHandler = qInstallMessageHandler(nullptr);
    qSetMessagePattern(QLatin1String("%{time hh:mm:ss.zzz} %{type} [%{category}] %{message}"));
    for (int i = 0; i < s_records; ++i)
        qCInfo(benchCategory) << s_text << i;
    qInstallMessageHandler(qtlogHandler);
#else
    // Qt 4's handler has no pattern: it prints the message alone.
    QtMsgHandler qtlogHandler = qInstallMsgHandler(0);
    for (int i = 0; i < s_records; ++i)
        qDebug() << s_text << i;
    qInstallMsgHandler(qtlogHandler);
#endif
    fflush(stderr);
    dup2(s_stderrCopy, 2);
    close(s_stderrCopy);
}

// ---------------------------------------------------------------------------
// The floor: the line made with snprintf, written with one write(2).

void floorRoad()
{
    const int fd = open(path("floor.log").constData(), O_WRONLY | O_APPEND | O_CREAT, 0644);
    time_t lastSecond = -1;
    struct tm local;
    for (int i = 0; i < s_records; ++i) {
        timeval tv;
        gettimeofday(&tv, nullptr);
        if (tv.tv_sec != lastSecond) {
            localtime_r(&tv.tv_sec, &local);
            lastSecond = tv.tv_sec;
        }
        char line[256];
        const int n = snprintf(line, sizeof line, "%02d:%02d:%02d.%03d i [media.player] %s %d\n",
                               local.tm_hour, local.tm_min, local.tm_sec,
                               int(tv.tv_usec / 1000), s_text, i);
        if (write(fd, line, size_t(n)) != n)
            break;
    }
    close(fd);
}

// ---------------------------------------------------------------------------
// spdlog and log4cxx, flushing every record

#ifdef QTLOG_BENCH_SPDLOG
std::shared_ptr<spdlog::logger> s_spdlog;

void spdlogRoad()
{
    for (int i = 0; i < s_records; ++i)
        s_spdlog->info("{} {}", s_text, i);
}
#endif

#ifdef QTLOG_BENCH_LOG4CXX
log4cxx::LoggerPtr s_log4cxx;

void log4cxxRoad()
{
    for (int i = 0; i < s_records; ++i)
        LOG4CXX_INFO(s_log4cxx, s_text << " " << i);
}
#endif

struct Contender
{
    const char *name;
    const char *label;
    void (*run)();
    const char *file;       // truncated before each round
    std::vector<double> micros;
};

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// The settings: the file takes Debug and more severe records; with recorder,
// it writes only Warnings and keeps the last 1000 records of any level.
void writeConfig(bool recorder = false)
{
    QFile conf(s_dir + QLatin1String("/log.conf"));
    if (!conf.open(QIODevice::WriteOnly))
        return;
    QTextStream out(&conf);
    out << "active = file\n"
        << "level = " << (recorder ? 2 : 4) << "\n"
        << "[file]\n"
        << "filename = " << s_dir << "/qtlog.log\n";
    if (recorder)
        out << "recorder = 1000\nrecorder_level = 5\n";
}

// The same records kept by a flight recorder of 1000 records, which the file,
// writing only Warnings, does not take.
void qtlogRecorder()
{
    writeConfig(true);
    logging::Config(s_dir + QLatin1String("/log.conf"), false).refresh();
    qtlogRoad();
    writeConfig();
    logging::Config(s_dir + QLatin1String("/log.conf"), false).refresh();
}

long maxRssKb()
{
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

} // namespace

namespace {

// Removes the contenders' files, the settings and the directory.
void removeFiles(const std::vector<Contender> &all)
{
    for (const Contender &c : all) {
        if (c.file)
            QFile::remove(QString::fromLocal8Bit(path(c.file)));
    }
    QFile::remove(s_dir + QLatin1String("/log.conf"));
    QDir().rmdir(s_dir);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    int rounds = 7;
    QByteArray only;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!strcmp(argv[i], "--records"))
            s_records = atoi(argv[i + 1]);
        else if (!strcmp(argv[i], "--rounds"))
            rounds = atoi(argv[i + 1]);
        else if (!strcmp(argv[i], "--only"))
            only = argv[i + 1];
    }
    if (s_records < 4 || rounds < 1) {
        fprintf(stderr, "usage: qtlog_bench [--records N] [--rounds R] [--only NAME]\n");
        return 2;
    }

    char dirTemplate[] = "/tmp/qtlog-bench-XXXXXX";
    if (!mkdtemp(dirTemplate))
        return 1;
    s_dir = QString::fromLocal8Bit(dirTemplate);
    writeConfig();
    logging::Initializer logging(QStringList() << s_dir + QLatin1Char('/'));

#ifdef QTLOG_BENCH_SPDLOG
    s_spdlog = spdlog::basic_logger_mt("media.player", std::string(path("spdlog.log").constData()));
    s_spdlog->set_pattern("%H:%M:%S.%e %L [%n] %v");
    s_spdlog->flush_on(spdlog::level::trace);
#endif
#ifdef QTLOG_BENCH_LOG4CXX
    {
        using namespace log4cxx;
        LayoutPtr layout(new PatternLayout(LOG4CXX_STR("%d{HH:mm:ss.SSS} %p [%c] %m%n")));
        FileAppenderPtr appender(new FileAppender(layout, std::string(path("log4cxx.log").constData()), true));
        appender->setImmediateFlush(true);
        s_log4cxx = Logger::getLogger("media.player");
        s_log4cxx->addAppender(appender);
        s_log4cxx->setAdditivity(false);
    }
#endif

    std::vector<Contender> all = {
        { "qtlog", "qtlog, file, crash handler on", qtlogRoad, "qtlog.log", {} },
        { "qtlog-recorder", "qtlog, recorder of 1000, file Warnings", qtlogRecorder, "qtlog.log", {} },
        { "qtlog-threads", "qtlog, 4 threads", qtlogThreads, "qtlog.log", {} },
        { "qtlog-off", "qtlog, level taken by no destination", qtlogOff, nullptr, {} },
        { "toLog-off", "toLog(), level taken by no destination", qtlogToLogOff, nullptr, {} },
        { "qt", "Qt's handler with a message pattern", qtHandler, "qt.log", {} },
#ifdef QTLOG_BENCH_SPDLOG
        { "spdlog", "spdlog, flush per record", spdlogRoad, "spdlog.log", {} },
#endif
#ifdef QTLOG_BENCH_LOG4CXX
        { "log4cxx", "log4cxx, immediate flush", log4cxxRoad, "log4cxx.log", {} },
#endif
        { "floor", "snprintf + write(2)", floorRoad, "floor.log", {} },
    };

    int status = 0;
    if (!only.isEmpty()) {
        status = 2;
        for (Contender &c : all) {
            if (only == c.name) {
                c.run();
                status = 0;
            }
        }
        if (status)
            fprintf(stderr, "unknown contender %s\n", only.constData());
        rounds = 0;
    }

    // Memory after the first round and after the last: a road that keeps up
    // (the 4 threads' above all) stays flat.
    long firstRoundKb = 0;
    for (int round = 0; round < rounds; ++round) {
        for (Contender &c : all) {
            if (c.file)
                truncateFile(c.file);
            const double start = nowMicros();
            c.run();
            c.micros.push_back((nowMicros() - start) / s_records);
        }
        if (round == 0)
            firstRoundKb = maxRssKb();
    }

    if (rounds == 0) {
        removeFiles(all);
        return status;
    }

    const char *tz = getenv("TZ");
    printf("%d records, %d rounds, TZ %s%s, Qt %s\n", s_records, rounds, tz ? "=" : "unset",
           tz ? tz : "", qVersion());
    printf("%-40s %10s %10s %12s\n", "contender", "min us", "median us", "qtlog/this");
    const double qtlog = *std::min_element(all[0].micros.begin(), all[0].micros.end());
    for (const Contender &c : all) {
        const double best = *std::min_element(c.micros.begin(), c.micros.end());
        printf("%-40s %10.3f %10.3f %12.2f\n", c.label, best, median(c.micros), qtlog / best);
    }
    printf("peak resident memory: %ld kB after the first round, %ld kB after the last\n",
           firstRoundKb, maxRssKb());
    removeFiles(all);
    return 0;
}
