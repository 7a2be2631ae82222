#include "testsupport.h"

#include <logging/config.h>

#include "logging/internal/logging_p.h"

#include "conf_checker.h"

using logging::Config;
using logging::LogRecord;

class TestConfig : public QObject
{
    Q_OBJECT

    TempDir dir;

    QString file(const QByteArray &content)
    {
        writeFile(dir.file("log.conf"), content);
        return dir.file("log.conf");
    }

    // The messages of the parse reports, taken from the records they travel in.
    static QList<QByteArray> reports()
    {
        QList<QByteArray> messages;
        for (const QByteArray &text : MessageCapture::take()) {
            const QSharedPointer<LogRecord> record = LogRecord::fromByteArray(text);
            messages.append(record ? record->message : "not a record: " + text);
        }
        return messages;
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
        const Config config(file("; settings of the logging library\n"
                                 "active = console  file\n"
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
                                 "deny = sound\n"), false);
        QCOMPARE(config.active(), QStringList() << "console" << "file");
        QCOMPARE(config.maxLevel("console"), 5);
        QCOMPARE(config.maxLevel("file"), 3);           // "level 4" is no setting
        QCOMPARE(config.outFormat("console"), QString("#tTf'hh:mm:ss.zzz' #lc [#cm] #ms11"));
        QVERIFY(config.outFormat("file").isNull());
        QCOMPARE(config.denyMod("file"), QStringList() << "sound");   // the bad header's key lands here
        QCOMPARE(config.value("file", "allo", "<none>"), QString("net"));
        QVERIFY(config.allowMod("file").isEmpty());
        QCOMPARE(config.keys("file").size(), 2);

        QCOMPARE(reports(), QList<QByteArray>() << streamed(QByteArray("Error in line: 11"))
                                                << streamed(QByteArray("Error in line: 12")));
    }

    void edgeCases()
    {
        const Config config(file("x=1\n"                       // 1: the name loses its last letter
                                 "format = a=b ; c\n"          // 2: no inline comments
                                 "deny =\n"                    // 3: present, empty
                                 "[ k\xc3\xbc_ch ]\r\n"         // 4: letters beyond ASCII
                                 "e\xcc\x81x = 1\r\n"           // 5: a combining mark
                                 "[gui buffer]\n"              // 6: not a header
                                 "[a]\nk = 1\n[b]\n[a]\nk = 2\n" // 7-11: merged, last wins
                                 "; c\n\n= 1\n"                // 12-14: physical line numbers
                                 "[empty]\n[a]\n"              // 15-16: no key follows
                                 "level = 9\nallow = a\tb\n"     // 17-18: out of range; a tab does not split
                                 "[c]\nlevel = Debug\nactive = syslog\n[d]\nlevel =\n[e]\nlevel = -1\ntrace_format = #m\n"
                                 "z = last"), false);           // no final newline
        const QString none = QLatin1String("<none>");
        QCOMPARE(config.value(nullptr, "", none), QString("1"));
        QCOMPARE(config.outFormat(nullptr), QString("a=b ; c"));
        QCOMPARE(config.value(nullptr, "deny", none), QString(""));
        QVERIFY(config.denyMod("console").isEmpty());
        QCOMPARE(config.file()->value(QString::fromUtf8("k\xc3\xbc_ch"), QString::fromUtf8("e\xcc\x81x"), none),
                 QString("1"));
        QCOMPARE(config.value("a", "k", none), QString("2"));
        QVERIFY(config.keys("empty").isEmpty() && config.keys("b").isEmpty());
        QCOMPARE(config.allowMod("a"), QStringList() << "a\tb");
        for (const char *bad : { "a", "c", "d", "e" })
            QCOMPARE(config.maxLevel(bad), 4);
        QCOMPARE(config.outTraceFormat("e"), QString("#m"));
        QCOMPARE(config.active(), QStringList() << "console");     // read above the first section only
        QCOMPARE(config.value("e", "z", none), QString("last"));

        QCOMPARE(reports(), QList<QByteArray>() << streamed(QByteArray("Error in line: 6"))
                                                << streamed(QByteArray("Error in line: 14")));
    }

    void missingOrUnreadableFiles()
    {
        // The defaults, no report; the checker says it cannot read the file.
        QString text, errors;
        QTextStream out(&text), err(&errors);
        for (const QString &name : { QString(), dir.path() + "/missing.conf", dir.path() }) {
            const Config config(name, true);
            QVERIFY(config.keys(nullptr).isEmpty());
            QCOMPARE(config.active(), QStringList() << "console");
            QCOMPARE(config.maxLevel("file"), 4);
            QVERIFY(name.isEmpty() || checkSettingsFile(name, out, err) == 2);
        }
        QVERIFY(reports().isEmpty());
        QVERIFY(text.isEmpty() && errors.count(QLatin1String("cannot read")) == 2);
    }

    // qtlog-conf's checks, one small settings file per row.
    void checker_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<int>("status");
        QTest::addColumn<QStringList>("expected");  // fragments of lines, blanks collapsed

        QTest::newRow("clean") << QByteArray("; a comment\nactive = console file\nlevel = 2\n"
                                             "[console]\nlevel = 5\ndeny = net.dns\n"
                                             "[file]\nfilename = /tmp/app.log\n")
            << 0 << (QStringList() << "no warnings"
                     << "[console] active" << "level = 5 (Trace) from [console]"
                     << "deny = net.dns from [console]" << "[syslog] not active"
                     << "level = 2 (Warning) from the global section"
                     << "filename = /tmp/app.log from [file]"
                     << "format = #tTf'hh:mm:ss.zzz' #lc [#cm] #ms11 by default"
                     << "14:03:27.512 c [media] message text"
                     << "player.cpp:42 [media]"
                     << "(Info, Debug, Trace: not written at this level)");
        QTest::newRow("inline comment") << QByteArray("level = 3 ; most verbose\n")
            << 1 << (QStringList() << ":1: warning: there are no comments after a value"
                     << "level = 3 ; most verbose" << "4 (Debug) is used" << "2 warnings");
        QTest::newRow("key lost a character") << QByteArray("\n[console]\nlevel=3\n")
            << 1 << (QStringList() << ":3: warning: the key is read as \"leve\""
                     << "write \"level = 3\"");
        QTest::newRow("bad levels") << QByteArray("level = Debug\n[file]\nlevel = 9\n")
            << 1 << (QStringList() << ":1: warning: the level \"Debug\" is not a number from 0 to 5"
                     << ":3: warning: the level \"9\"" << "2 warnings");
        QTest::newRow("tab in a list") << QByteArray("deny = net\tdns\n")
            << 1 << (QStringList() << ":1: warning: a tab does not separate the names of \"deny\"");
        QTest::newRow("active in a section") << QByteArray("[console]\nactive = file\n")
            << 1 << (QStringList() << ":2: warning: \"active\" is read only above the first section");
        QTest::newRow("unknown names") << QByteArray("active = console consol\n[file]\nfile = x\n[sound]\nlevel = 1\n")
            << 1 << (QStringList() << ":1: warning: \"active\" names no destination \"consol\""
                     << ":3: warning: unknown key \"file\" in [file]"
                     << ":4: warning: unknown section [sound]" << "3 warnings");
        QTest::newRow("rotation values") << QByteArray("[file]\nmax_size = 10 MB\nmax_files = 0\n")
            << 1 << (QStringList() << ":2: warning: the value \"10 MB\" of \"max_size\" is not understood"
                     << ":3: warning: the value \"0\" of \"max_files\"" << "2 warnings");
        QTest::newRow("malformed line") << QByteArray("level = 3\nthis is no setting\n")
            << 1 << (QStringList() << ":2: warning: not a setting" << "this is no setting"
                     << "filename = (no file is written) by default");
        QTest::newRow("format items") << QByteArray("[syslog]\nformat = #ln #x #mf #\n")
            << 1 << (QStringList() << ":2: warning: unknown format item \"#x\""
                     << ":2: warning: a '#' at the end of the format is dropped"
                     << "0 x message text");
        QTest::newRow("escape and the newer items") << QByteArray("escape = 0\n[file]\nescape = yes\nformat = #n #tu #pp #pt #pn #mf\n")
            << 1 << (QStringList() << ":3: warning: the value \"yes\" of \"escape\" is not understood"
                     << "escape = 0 from the global section" << "escape = yes from [file]" << "1 warning"
                     << "2 12345.679 1234 1234 player message text");
    }

    void checker()
    {
        QFETCH(QByteArray, content);
        QFETCH(int, status);
        QFETCH(QStringList, expected);
        TempDir dir;
        const QString name = dir.file("log.conf");
        writeFile(name, content);
        QString text, errors;
        QTextStream out(&text), err(&errors);
        QCOMPARE(checkSettingsFile(name, out, err), status);
        QVERIFY(errors.isEmpty());

        QStringList lines = text.split(QLatin1Char('\n'));
        for (int i = 0; i < lines.size(); ++i)
            lines[i] = lines.at(i).simplified();
        for (int i = 0; i < expected.size(); ++i) {
            bool found = false;
            for (int k = 0; k < lines.size() && !found; ++k)
                found = lines.at(k).contains(expected.at(i));
            QVERIFY2(found, qPrintable(expected.at(i) + QLatin1String("\nnot in:\n") + text));
        }
    }
};

QTEST_GUILESS_MAIN(TestConfig)
#include "tst_config.moc"
