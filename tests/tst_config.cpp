#include "testsupport.h"

#include <logging/config.h>
#include <logging/dp_buffer.h>

#include "logging/internal/logging_p.h"

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
            QCOMPARE(errors.at(i)->message, streamed(QByteArray(i == 0 ? "Error in line: 11" : "Error in line: 12")));
        }
    }

    void edgeCases()
    {
        Config::Settings s(file("x=1\n"                       // 1: the name loses its last letter
                                "format = a=b ; c\n"          // 2: no inline comments
                                "deny =\n"                    // 3: present, empty
                                "[ k\xc3\xbc_ch ]\r\n"         // 4: letters beyond ASCII
                                "e\xcc\x81x = 1\r\n"           // 5: a combining mark
                                "[gui buffer]\n"              // 6: not a header
                                "[a]\nk = 1\n[b]\n[a]\nk = 2\n" // 7-11: merged, last wins
                                "; c\n\n= 1\n"                // 12-14: physical line numbers
                                "[empty]\n[a]\n"              // 15-16: no key follows
                                "z = last"));                 // 17: no final newline
        const QString none = QLatin1String("<none>");
        QCOMPARE(s.value(QString(), "", none), QString("1"));
        QCOMPARE(s.value(QString(), "format", none), QString("a=b ; c"));
        QCOMPARE(s.value(QString(), "deny", none), QString(""));
        QCOMPARE(s.value(QString::fromUtf8("k\xc3\xbc_ch"), QString::fromUtf8("e\xcc\x81x"), none), QString("1"));
        QCOMPARE(s.value("a", "k", none), QString("2"));
        QCOMPARE(s.value("a", "z", none), QString("last"));
        QVERIFY(s.keys("empty").isEmpty() && s.keys("b").isEmpty());

        const QList<QSharedPointer<LogRecord> > errors = reports();
        QCOMPARE(errors.size(), 2);
        QCOMPARE(errors.at(0)->message, streamed(QByteArray("Error in line: 6")));
        QCOMPARE(errors.at(1)->message, streamed(QByteArray("Error in line: 14")));
    }

    void missingOrUnreadableFiles()
    {
        for (const QString &name : { QString(), dir.path() + "/missing.conf", dir.path() }) {
            Config::Settings s(name);
            QVERIFY(s.keys(QString()).isEmpty());
        }
        QVERIFY(reports().isEmpty());
    }

    void accessors()
    {
        const Config config(file("level = 2\n"
                                 "deny = net  sound\n"
                                 "active = console  file\n"
                                 "[syslog]\nlevel = 5\nactive = syslog\n"
                                 "[file]\ndeny =\nallow = a b\nlevel = 0\ntrace_format = #m\n"
                                 "[a]\nlevel = 9\n[b]\nlevel = -1\n[c]\nlevel = Debug\n[d]\nlevel =\n"
                                 "[tab]\ndeny = console\tfile\n"), false);
        QCOMPARE(config.active(), QStringList() << "console" << "file");
        QCOMPARE(config.maxLevel("syslog"), 5);
        QCOMPARE(config.maxLevel("console"), 2);
        QCOMPARE(config.maxLevel("file"), 0);
        for (const char *bad : { "a", "b", "c", "d" })
            QCOMPARE(config.maxLevel(bad), 4);
        QCOMPARE(config.denyMod("console"), QStringList() << "net" << "sound");
        QVERIFY(config.denyMod("file").isEmpty());
        QCOMPARE(config.allowMod("file"), QStringList() << "a" << "b");
        QVERIFY(config.outFormat("file").isNull());
        QCOMPARE(config.outTraceFormat("file"), QString("#m"));
        QCOMPARE(config.denyMod("tab"), QStringList() << "console\tfile");   // a tab does not split

        const Config empty(QString(), true);
        QCOMPARE(empty.active(), QStringList() << "console");
        QCOMPARE(empty.maxLevel("file"), 4);
    }

    // Refreshes of one Config from two threads (the reload thread and the
    // start-up, say) run one after the other: neither frees the parsed file
    // under the other.
    void overlappingRefreshes()
    {
        Config config(file("[gui_buffer]\nlevel = 5\n"), false);
        // Destinations whose refresh reads the file, many of them, so that
        // one refresh reads for a while.
        QList<QSharedPointer<logging::DPBuffer> > buffers;
        for (int i = 0; i < 200; ++i)
            buffers.append(QSharedPointer<logging::DPBuffer>(new logging::DPBuffer));
        const auto refreshes = [&config]() {
            for (int i = 0; i < 30; ++i)
                config.refresh();
        };
        WorkThread a(refreshes), b(refreshes);
        a.start();
        b.start();
        QVERIFY(a.wait(60000) && b.wait(60000));
        QVERIFY(buffers.last()->filter().check(record(logging::Trace, at(10, 0, 0, 0))));
    }
};

QTEST_GUILESS_MAIN(TestConfig)
#include "tst_config.moc"
