// qtlog-conf's checks, one small settings file per row.

#include "testsupport.h"

#include "conf_checker.h"

#include <QtCore/QTextStream>

class TestConfChecker : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void check_data()
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
    }

    void check()
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

    void unreadable()
    {
        TempDir dir;
        QString text, errors;
        QTextStream out(&text), err(&errors);
        QCOMPARE(checkSettingsFile(dir.file("missing.conf"), out, err), 2);
        QCOMPARE(checkSettingsFile(dir.path(), out, err), 2);
        QVERIFY(text.isEmpty());
        QVERIFY(errors.contains(QLatin1String("cannot read")));
    }
};

QTEST_GUILESS_MAIN(TestConfChecker)
#include "tst_conf_checker.moc"
