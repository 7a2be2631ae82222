#ifndef QTLOG_TESTSUPPORT_H
#define QTLOG_TESTSUPPORT_H

// Helpers shared by the tests.

#include <logging/dp_buffer.h>
#include <logging/log_record.h>

#include <QtTest/QtTest>

#include <QtCore/QDateTime>
#include <QtCore/QFile>
#include <QtCore/QMutex>
#include <QtCore/QStringList>

// Collects every message of the process, as the library's handler would see
// it: the text converted to local 8-bit.
class MessageCapture
{
public:
    static void install() { qInstallMessageHandler(handler); }

    static QList<QByteArray> take()
    {
        QMutexLocker locker(&mutex());
        QList<QByteArray> taken = texts();
        texts().clear();
        return taken;
    }

private:
    static void handler(QtMsgType, const QMessageLogContext &, const QString &text)
    {
        QMutexLocker locker(&mutex());
        texts().append(text.toLocal8Bit());
    }
    static QMutex &mutex() { static QMutex m; return m; }
    static QList<QByteArray> &texts() { static QList<QByteArray> t; return t; }
};

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

// How many of buffer's lines, from line `from` on, contain fragment.
inline int count(const logging::DPBuffer *buffer, const QString &fragment, int from = 0)
{
    int n = 0;
    for (const QString &line : buffer->getLines().mid(from))
        n += line.contains(fragment) ? 1 : 0;
    return n;
}

#endif // QTLOG_TESTSUPPORT_H
