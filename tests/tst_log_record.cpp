// The record and its transport encoding.
#include "testsupport.h"

#include <logging/log_record.h>

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
