// The record, its transport encoding, and toLog that makes it. The
// process-wide initialised flag can only be set once: the slots run in
// order, the plain path first.
#include "testsupport.h"

#include <logging/log_record.h>
#include <logging/logging.h>

#include "logging/internal/logging_p.h"

using logging::InitializerPrivate;
using logging::LogRecord;

class TestLogRecord : public QObject
{
    Q_OBJECT

    static QByteArray encode(int level, const QByteArray &file, const QByteArray &message)
    {
        const LogRecord r(logging::Level(level), QDateTime::fromMSecsSinceEpoch(1700000000123),
                          QLatin1String("m"), QByteArray(), "f()", file, 42);
        return r.sourcePositionToByteArray() + ' ' + message;
    }

    static QByteArray raw(const QByteArray &fields) { return "DStLg" + fields.toBase64() + "! x"; }

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

    void workedExample()
    {
        const LogRecord r(logging::Warning, QDateTime::fromMSecsSinceEpoch(1700000000123),
                          QLatin1String("media.audio"), QByteArray(), "void Foo::bar()", "src/foo.cpp", 42);
        const QByteArray header = r.sourcePositionToByteArray();
        QCOMPARE(header, QByteArray("DStLgMgoxNzAwMDAwMDAwMTIzCm1lZGlhLmF1ZGlvCnZvaWQgRm9vOjpiYXIoKQpzcmMvZm9vLmNwcAo0Mg==!"));

        const QSharedPointer<LogRecord> d = LogRecord::fromByteArray(header + " connection lost ");
        QVERIFY(d);
        QCOMPARE(int(d->level), 2);
        QCOMPARE(d->dateTime.toMSecsSinceEpoch(), Q_INT64_C(1700000000123));
        QCOMPARE(d->module, QString::fromLatin1("media.audio"));
        QCOMPARE(d->function, QByteArray("void Foo::bar()"));
        QCOMPARE(d->file, QByteArray("src/foo.cpp"));
        QCOMPARE(d->line, 42);
        QCOMPARE(d->message, QByteArray("connection lost "));
    }

    void decode_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<int>("level");
        QTest::addColumn<QByteArray>("message");
        const QByteArray none;
        const QByteArray bare = encode(1, "f.cpp", "");
        QTest::newRow("marker and terminator only") << QByteArray("DStLg!") << false << 0 << none;
        QTest::newRow("no terminator") << QByteArray("DStLgMgo=") << false << 0 << none;
        QTest::newRow("short marker") << QByteArray("DStL") << false << 0 << none;
        QTest::newRow("empty") << none << false << 0 << none;
        QTest::newRow("five fields") << raw("1\n2\n3\n4\n5") << false << 0 << none;
        QTest::newRow("newline in file: seven fields") << encode(3, "a\nb", "x") << false << 0 << none;
        QTest::newRow("plain text with marker") << QByteArray("DStLg hello! world") << false << 0 << none;
        QTest::newRow("level not a number") << raw("abc\n1\nm\nf\nfile\n1") << true << 0 << QByteArray("x");
        QTest::newRow("level 7 carried") << encode(7, "f.cpp", "x") << true << 7 << QByteArray("x");
        QTest::newRow("negative level carried") << encode(-3, "f.cpp", "x") << true << -3 << QByteArray("x");
        QTest::newRow("nothing after terminator") << bare.left(bare.size() - 1) << true << 1 << none;
        QTest::newRow("separator only") << bare << true << 1 << none;
        QTest::newRow("message with newlines") << encode(4, "f.cpp", "a\nb ") << true << 4 << QByteArray("a\nb ");
    }

    void decode()
    {
        QFETCH(QByteArray, text);
        QFETCH(bool, valid);
        QFETCH(int, level);
        QFETCH(QByteArray, message);
        const QSharedPointer<LogRecord> r = LogRecord::fromByteArray(text);
        QCOMPARE(!r.isNull(), valid);
        if (r) {
            QCOMPARE(int(r->level), level);
            QCOMPARE(r->message, message);
        }
    }

    void lenientFieldsAndModules()
    {
        QSharedPointer<LogRecord> r = LogRecord::fromByteArray(raw("2\nsoon\n\nf\nfile\nforty"));
        QVERIFY(r);
        QCOMPARE(r->dateTime.toMSecsSinceEpoch(), Q_INT64_C(0));
        QCOMPARE(r->line, 0);
        QVERIFY(r->module.isEmpty() && !r->module.isNull());

        // UTF-8 module, cut at a zero byte.
        r = LogRecord::fromByteArray(raw(QByteArray("2\n1\nm\xc3\xbc\0tail\nf\nfile\n1", 21)));
        QVERIFY(r);
        QCOMPARE(r->module, QString::fromUtf8("m\xc3\xbc"));
    }
};

QTEST_GUILESS_MAIN(TestLogRecord)
#include "tst_log_record.moc"
