#include "testsupport.h"

#include <logging/config.h>

#include "logging/internal/logging_p.h"

#include <QtCore/QTemporaryDir>

using logging::Config;
using logging::LogRecord;

class TestConfig : public QObject
{
    Q_OBJECT

    QTemporaryDir dir;

    QString file(const QByteArray &content)
    {
        const QString name = dir.path() + QLatin1String("/log.conf");
        writeFile(name, content);
        return name;
    }

    // The parse error reports, decoded.
    static QList<QSharedPointer<LogRecord> > reports()
    {
        QList<QSharedPointer<LogRecord> > records;
        for (const QByteArray &text : MessageCapture::take())
            records.append(LogRecord::fromByteArray(text));
        return records;
    }

private Q_SLOTS:
    void initTestCase()
    {
        // Reports travel encoded once the library counts as initialised.
        logging::InitializerPrivate::checkAndSetInitialized(true);
        MessageCapture::install();
    }

    void workedExample()
    {
        Config::Settings s(file("; settings of the logging library\n"
                                "active = console file\n"
                                "level = 3\n"
                                "\n"
                                "[console]\n"
                                "level = 5\n"
                                "format = #tTf'hh:mm:ss.zzz' #lc [#cm] #ms11\n"
                                "[ file ]\n"
                                "deny = logging.conf network\n"
                                "allow=net\n"
                                "level 4\n"
                                "[gui-buffer]\n"
                                "deny = sound\n"));
        const QString none = QLatin1String("<none>");
        QCOMPARE(s.value(QString(), "active", none), QString("console file"));
        QCOMPARE(s.value(QString(), "level", none), QString("3"));
        QCOMPARE(s.value("console", "level", none), QString("5"));
        QCOMPARE(s.value("console", "format", none), QString("#tTf'hh:mm:ss.zzz' #lc [#cm] #ms11"));
        QCOMPARE(s.value("file", "deny", none), QString("sound"));
        QCOMPARE(s.value("file", "allo", none), QString("net"));
        QCOMPARE(s.value("file", "allow", none), none);
        QCOMPARE(s.keys("file").size(), 2);
        QVERIFY(s.keys("gui-buffer").isEmpty());

        const QList<QSharedPointer<LogRecord> > errors = reports();
        QCOMPARE(errors.size(), 2);
        for (int i = 0; i < errors.size(); ++i) {
            QVERIFY(errors.at(i));
            QCOMPARE(int(errors.at(i)->level), 4);
            QCOMPARE(errors.at(i)->module, QString("logging.conf"));
            QCOMPARE(errors.at(i)->function, QByteArray("logging::Config::Settings::Settings(const QString&)"));
            QCOMPARE(errors.at(i)->message, QByteArray(i == 0 ? "Error in line: 11" : "Error in line: 12"));
        }
    }

    void parse_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("section");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("value");
        QTest::addColumn<int>("errorLine");     // 0: no report

        QTest::newRow("only comments and headers") << QByteArray("# c\n;d\n[console]\n") << "console" << "level" << "<none>" << 0;
        QTest::newRow("global keys") << QByteArray("level = 2\n[console]\n") << QString() << "level" << "2" << 0;
        QTest::newRow("no blank before =") << QByteArray("x=1\n") << QString() << "" << "1" << 0;
        QTest::newRow("blank before =") << QByteArray("x = 1\n") << QString() << "x" << "1" << 0;
        QTest::newRow("value with =") << QByteArray("format = a=b\n") << QString() << "format" << "a=b" << 0;
        QTest::newRow("no inline comment") << QByteArray("level = 3 ; old\n") << QString() << "level" << "3 ; old" << 0;
        QTest::newRow("empty value") << QByteArray("deny =\n") << QString() << "deny" << "" << 0;
        QTest::newRow("CRLF, no final newline") << QByteArray("[file]\r\nlevel = 1\r\nx = 2") << "file" << "x" << "2" << 0;
        QTest::newRow("sections merge, last wins") << QByteArray("[a]\nk = 1\n[b]\n[a]\nk = 2\n") << "a" << "k" << "2" << 0;
        QTest::newRow("blanks in brackets") << QByteArray("[ console ]\nk = 1\n") << "console" << "k" << "1" << 0;
        QTest::newRow("name with blank is an error") << QByteArray("[a]\n[gui buffer]\nk = 1\n") << "a" << "k" << "1" << 2;
        QTest::newRow("physical line numbers") << QByteArray(";\n\n= 1\n") << QString() << "" << "<none>" << 3;
        QTest::newRow("non-ASCII letters") << QByteArray("[ k\xc3\xbc_ch ]\nk = 1\n") << QString::fromUtf8("k\xc3\xbc_ch") << "k" << "1" << 0;
        QTest::newRow("combining mark in key") << QByteArray("e\xcc\x81x = 1\n") << QString() << QString::fromUtf8("e\xcc\x81x") << "1" << 0;
    }

    void parse()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, section);
        QFETCH(QString, key);
        QFETCH(QString, value);
        QFETCH(int, errorLine);
        Config::Settings s(file(content));
        QCOMPARE(s.value(section, key, "<none>"), value);
        const QList<QSharedPointer<LogRecord> > errors = reports();
        QCOMPARE(errors.size(), errorLine ? 1 : 0);
        if (errorLine)
            QCOMPARE(errors.first()->message, "Error in line: " + QByteArray::number(errorLine));
    }

    void missingOrUnreadableFiles()
    {
        for (const QString &name : { QString(), dir.path() + "/missing.conf", dir.path() }) {
            Config::Settings s(name);
            QVERIFY(s.keys(QString()).isEmpty());
        }
        QVERIFY(reports().isEmpty());
    }

    void accessors_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("accessor");
        QTest::addColumn<QString>("dest");
        QTest::addColumn<QString>("expected");   // lists joined with '|'

        QTest::newRow("active default") << QByteArray() << "active" << "" << "console";
        QTest::newRow("active two blanks") << QByteArray("active = console  file\n") << "active" << "" << "console|file";
        QTest::newRow("active tab is no separator") << QByteArray("active = console\tfile\n") << "active" << "" << "console\tfile";
        QTest::newRow("active only global") << QByteArray("[console]\nactive = file\n") << "active" << "console" << "console";
        QTest::newRow("level default") << QByteArray() << "level" << "file" << "4";
        QTest::newRow("level 0") << QByteArray("level = 0\n") << "level" << "file" << "0";
        QTest::newRow("level 9") << QByteArray("level = 9\n") << "level" << "file" << "4";
        QTest::newRow("level -1") << QByteArray("level = -1\n") << "level" << "file" << "4";
        QTest::newRow("level name") << QByteArray("level = Debug\n") << "level" << "file" << "4";
        QTest::newRow("level empty") << QByteArray("level =\n") << "level" << "file" << "4";
        QTest::newRow("own section wins") << QByteArray("level = 2\n[syslog]\nlevel = 5\n") << "level" << "syslog" << "5";
        QTest::newRow("global for others") << QByteArray("level = 2\n[syslog]\nlevel = 5\n") << "level" << "console" << "2";
        QTest::newRow("empty value overrides") << QByteArray("deny = net\n[file]\ndeny =\n") << "deny" << "file" << "";
        QTest::newRow("global deny") << QByteArray("deny = net  sound\n[file]\ndeny =\n") << "deny" << "console" << "net|sound";
        QTest::newRow("allow") << QByteArray("[file]\nallow = a b\n") << "allow" << "file" << "a|b";
        QTest::newRow("format missing is null") << QByteArray() << "format" << "file" << "<null>";
        QTest::newRow("trace format") << QByteArray("trace_format = #m\n") << "trace_format" << "file" << "#m";
    }

    void accessors()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, accessor);
        QFETCH(QString, dest);
        QFETCH(QString, expected);
        const Config config(file(content), false);
        const QByteArray d = dest.toLatin1();
        const char *name = dest.isEmpty() ? nullptr : d.constData();
        QString actual;
        if (accessor == "active")
            actual = config.active().join("|");
        else if (accessor == "level")
            actual = QString::number(config.maxLevel(name));
        else if (accessor == "deny")
            actual = config.denyMod(name).join("|");
        else if (accessor == "allow")
            actual = config.allowMod(name).join("|");
        else if (accessor == "format")
            actual = config.outFormat(name).isNull() ? "<null>" : config.outFormat(name);
        else
            actual = config.outTraceFormat(name);
        QCOMPARE(actual, expected);
    }
};

QTEST_GUILESS_MAIN(TestConfig)
#include "tst_config.moc"
