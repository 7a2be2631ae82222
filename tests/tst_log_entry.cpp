// toLog and the macros: the text they hand to Qt's message channel. The
// process-wide initialised flag can only be set once: the slots run in
// order, the plain path first.
#include "testsupport.h"

#include <logging/log_record.h>
#include <logging/logging.h>

#include "logging/internal/logging_p.h"

using logging::InitializerPrivate;
using logging::LogRecord;

class TestLogEntry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { MessageCapture::install(); }

    void plainBeforeInitialisation_data()
    {
        QTest::addColumn<int>("level");
        QTest::addColumn<QByteArray>("expected");
        const QByteArray trace = "*** 12 : \"a.cpp\" \"void f()\" x";
        QTest::newRow("debug") << int(logging::Debug) << QByteArray("x");
        QTest::newRow("critical") << int(logging::Critical) << QByteArray("x");
        QTest::newRow("trace") << int(logging::Trace) << trace;
        QTest::newRow("above trace") << 9 << trace;
    }

    void plainBeforeInitialisation()
    {
        QFETCH(int, level);
        QFETCH(QByteArray, expected);
        logging::toLog(logging::Level(level), "media", "a.cpp", 12, "void f()", "audio") << "x";
        QCOMPARE(MessageCapture::take(), QList<QByteArray>() << streamed(expected));
    }

    void initialise() { QVERIFY(InitializerPrivate::checkAndSetInitialized(true)); }

    void encoded_data()
    {
        QTest::addColumn<QByteArray>("module");
        QTest::addColumn<QByteArray>("subModule");
        QTest::addColumn<QString>("expected");
        QTest::newRow("module and sub-module") << QByteArray("media") << QByteArray("audio") << "media.audio";
        QTest::newRow("sub-module alone is dropped") << QByteArray() << QByteArray("audio") << QString();
        QTest::newRow("module alone") << QByteArray("media") << QByteArray() << "media";
        QTest::newRow("cut at zero byte") << QByteArray("me\0dia", 6) << QByteArray() << "me";
        QTest::newRow("latin-1 bytes") << QByteArray("m\xe9") << QByteArray() << QString::fromUtf8("m\xc3\xa9");
    }

    void encoded()
    {
        QFETCH(QByteArray, module);
        QFETCH(QByteArray, subModule);
        QFETCH(QString, expected);
        const QDateTime before = QDateTime::currentDateTime();
        logging::toLog(logging::Info, module, "f.cpp", 7, "g()", subModule) << "up";
        const QList<QByteArray> texts = MessageCapture::take();
        QCOMPARE(texts.size(), 1);
        const QSharedPointer<LogRecord> r = LogRecord::fromByteArray(texts.first());
        QVERIFY2(r, texts.first().constData());
        QCOMPARE(int(r->level), 3);
        QCOMPARE(r->module, expected);
        QCOMPARE(r->message, streamed(QByteArray("up")));
        QVERIFY(before.msecsTo(r->dateTime) >= 0 && before.msecsTo(r->dateTime) < 1000);
    }

    void macrosAndSpacing()
    {
        const int line = __LINE__ + 1;
        QTLOG_WARNING("net", "dns") << "a" << 5;
        const QSharedPointer<LogRecord> r = LogRecord::fromByteArray(MessageCapture::take().value(0));
        QVERIFY(r);
        QCOMPARE(int(r->level), 2);
        QCOMPARE(r->module, QString::fromLatin1("net.dns"));
        QCOMPARE(r->file, QByteArray(__FILE__));
        QCOMPARE(r->line, line);
        QCOMPARE(r->function, QByteArray(Q_FUNC_INFO));
        QCOMPARE(r->message, streamed(QByteArray("a 5")));
    }
};

QTEST_GUILESS_MAIN(TestLogEntry)
#include "tst_log_entry.moc"
