#ifndef QTLOG_TESTSUPPORT_H
#define QTLOG_TESTSUPPORT_H

// Helpers shared by the tests. The tests use only the QtTest API that Qt 4.8
// has; every difference between Qt 4.8, 5 and 6 that they meet is handled
// here, and only here.

#include <logging/log_record.h>
#include <logging/internal/qt_compat_p.h>

// QtTest brings the whole of QtCore.
#include <QtTest/QtTest>

#include <functional>
#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>

#if QT_VERSION < 0x050000
// Qt 4's QTEST_MAIN would need QtGui in a GUI-enabled Qt.
#  define QTEST_GUILESS_MAIN(TestObject) \
    int main(int argc, char **argv) \
    { \
        QCoreApplication app(argc, argv); \
        TestObject tc; \
        return QTest::qExec(&tc, argc, argv); \
    }
#endif

// Runs the event loop until done() returns true or timeoutMs have passed;
// returns done()'s last answer.
template <typename Condition>
bool waitUntil(Condition done, int timeoutMs = 5000)
{
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > timeoutMs)
            return done();
        QTest::qWait(10);
    }
    return true;
}

// A directory of its own under the system's temporary directory, removed
// with everything in it on destruction.
class TempDir
{
public:
    TempDir() : name(QFile::encodeName(QDir::tempPath() + QLatin1String("/qtlog-test-XXXXXX")))
    {
        if (!mkdtemp(name.data()))
            name.clear();
    }
    ~TempDir()
    {
        if (!name.isEmpty())
            nftw(name.constData(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
    }

    QString path() const { return QFile::decodeName(name); }
    // The path of entry inside the directory.
    QString file(const QString &entry) const { return path() + QLatin1Char('/') + entry; }

private:
    Q_DISABLE_COPY(TempDir)

    static int removeEntry(const char *entry, const struct stat *, int, struct FTW *)
    {
        return ::remove(entry);
    }

    QByteArray name;
};

// Collects every message of the process, as the library's handler would see
// it: the text in local 8-bit. install() replaces whatever handler is set.
class MessageCapture
{
public:
#if QT_VERSION < 0x050000
    static void install() { qInstallMsgHandler(handler); }
    static void handler(QtMsgType, const char *text) { append(text); }
#else
    static void install() { qInstallMessageHandler(handler); }
    static void handler(QtMsgType, const QMessageLogContext &, const QString &text) { append(text.toLocal8Bit()); }
#endif

    static QList<QByteArray> take()
    {
        QMutexLocker locker(&mutex());
        QList<QByteArray> taken;
        taken.swap(texts());
        return taken;
    }

private:
    static void append(const QByteArray &text)
    {
        QMutexLocker locker(&mutex());
        texts().append(text);
    }
    static QMutex &mutex() { static QMutex m; return m; }
    static QList<QByteArray> &texts() { static QList<QByteArray> t; return t; }
};

// text as a Qt debug stream delivers it when text is its last item: Qt 4
// keeps the space that follows every item, Qt 5 and 6 drop the last one.
inline QByteArray streamed(const QByteArray &text)
{
#if QT_VERSION < 0x050000
    return text + ' ';
#else
    return text;
#endif
}

inline QString streamed(const QString &text)
{
    return QString::fromUtf8(streamed(text.toUtf8()));
}

// Switches Qt's own filtering of debug messages ("*.debug=false") on or off
// where Qt has it (Qt 5 and 6); Qt 4 never filters.
inline void setQtDebugOutputFiltered(bool filtered)
{
#if QT_VERSION >= 0x050000
    QLoggingCategory::setFilterRules(filtered ? QStringLiteral("*.debug=false") : QString());
#else
    Q_UNUSED(filtered);
#endif
}

// Makes the local 8-bit encoding UTF-8 where Qt asks the C library for it
// (Qt 4: through iconv, which a bare emulator root lacks, with a warning on
// standard error at the first conversion); Qt 5 and 6 use UTF-8 already.
inline void useUtf8Locale()
{
#if QT_VERSION < 0x050000
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
#endif
}

// A thread that runs work. Its end is told to ThreadSanitizer (see
// compat::Thread), also when it is deleted through a QThread pointer.
class WorkThread : public logging::compat::Thread
{
public:
    explicit WorkThread(const std::function<void()> &work) : work(work) {}
#ifdef QTLOG_TSAN
    ~WorkThread() { wait(); }
#endif
    void run() override { work(); }

private:
    std::function<void()> work;
};

// Runs work on a thread of its own and waits until it is done.
inline void runOnThread(const std::function<void()> &work)
{
    WorkThread thread(work);
    thread.start();
    thread.wait();
}

inline void writeFile(const QString &name, const QByteArray &content)
{
    QFile file(name);
    QVERIFY2(file.open(QIODevice::WriteOnly | QIODevice::Truncate), qPrintable(name));
    file.write(content);
}

inline QByteArray readFile(const QString &name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// A local time on a fixed day, so that tests do not depend on the clock.
inline QDateTime at(int h, int m, int s, int ms, int day = 22)
{
    return QDateTime(QDate(2026, 11, day), QTime(h, m, s, ms));
}

inline logging::LogRecord record(logging::Level level, const QDateTime &time,
                                 const QString &module = QString(),
                                 const QByteArray &message = QByteArray(),
                                 const QByteArray &file = QByteArray(), int line = 0)
{
    return logging::LogRecord(level, time, module, message, "void f()", file, line);
}

inline QSharedPointer<logging::LogRecord> shared(logging::Level level, const QDateTime &time,
                                                 const QByteArray &message = "m")
{
    return QSharedPointer<logging::LogRecord>(
        new logging::LogRecord(record(level, time, QLatin1String("mod"), message)));
}

// Reads the records "w WRITER N" of lines (other lines are skipped) and
// returns how many each of writers wrote; error names the first record that
// came out of order.
inline QVector<int> writtenInOrder(const QList<QByteArray> &lines, int writers, QString *error)
{
    QVector<int> next(writers, 0);
    for (int i = 0; i < lines.size(); ++i) {
        const QList<QByteArray> words = lines.at(i).simplified().split(' ');
        const int k = words.value(1).toInt();
        if (words.size() != 3 || words.first() != "w" || k < 0 || k >= writers)
            continue;
        if (words.at(2).toInt() != next[k] && error->isEmpty())
            *error = QString::fromLatin1("writer %1: record %2 where %3 was due")
                         .arg(k).arg(QString::fromLatin1(words.at(2))).arg(next[k]);
        ++next[k];
    }
    return next;
}

#endif // QTLOG_TESTSUPPORT_H
