// Which records a destination's filter lets through.
#include "testsupport.h"

#include <logging/config.h>
#include <logging/filter_log_records.h>

using namespace logging;

class TestFilter : public QObject
{
    Q_OBJECT

    TempDir dir;

    static QVector<QString> list(const QString &joined)
    {
        return joined.isNull() ? QVector<QString>() : joined.split(QLatin1Char('|')).toVector();
    }

private Q_SLOTS:
    // The filter: level first, then the allow and deny prefixes.
    void filter_data()
    {
        QTest::addColumn<int>("maxLevel");
        QTest::addColumn<QString>("allow");     // prefixes joined with '|'; null: none
        QTest::addColumn<QString>("deny");
        QTest::addColumn<int>("level");
        QTest::addColumn<QString>("module");
        QTest::addColumn<bool>("accepted");

        const QString none;
        QTest::newRow("default rejects trace") << 4 << none << none << 5 << "m" << false;
        QTest::newRow("level 0 rejects error") << 0 << none << none << 1 << "m" << false;
        QTest::newRow("level 5 passes trace") << 5 << none << none << 5 << "m" << true;
        QTest::newRow("negative record level passes") << 0 << none << none << -1 << "m" << true;
        QTest::newRow("no lists, no module") << 4 << none << none << 4 << QString() << true;
        QTest::newRow("allow net: network") << 4 << "net" << none << 4 << "network" << true;
        QTest::newRow("allow net: sound") << 4 << "net" << none << 4 << "sound" << false;
        QTest::newRow("allow net: no module") << 4 << "net" << none << 4 << QString() << false;
        QTest::newRow("allow longer than module") << 4 << "network" << none << 4 << "net" << false;
        QTest::newRow("deny wins: net.ftp") << 4 << "net" << "net.dns" << 4 << "net.ftp" << true;
        QTest::newRow("deny wins: net.dns.cache") << 4 << "net" << "net.dns" << 4 << "net.dns.cache" << false;
        QTest::newRow("case-sensitive") << 4 << none << "Net" << 4 << "net" << true;
        QTest::newRow("empty deny prefix rejects all") << 4 << none << "" << 4 << QString() << false;
        QTest::newRow("level before allow") << 2 << "net" << none << 3 << "net" << false;
    }

    void filter()
    {
        QFETCH(int, maxLevel);
        QFETCH(QString, allow);
        QFETCH(QString, deny);
        QFETCH(int, level);
        QFETCH(QString, module);
        QFETCH(bool, accepted);
        FilterLogRecords filter;
        if (maxLevel != 4)
            filter.setLevel(maxLevel);
        filter.setAllow(list(allow));
        filter.setDeny(list(deny));
        QCOMPARE(filter.check(record(logging::Level(level), at(10, 0, 0, 0), module)), accepted);
    }

    void filterReloadReplacesAllThree()
    {
        const QString name = dir.file("log.conf");
        writeFile(name, "level = 1\nallow = net\n[file]\ndeny = net.dns\n");
        Config config(name, false);
        FilterLogRecords filter;
        filter.reloadConfig(config, "file");
        QVERIFY(filter.check(record(logging::Error, at(10, 0, 0, 0), "net.ftp")));
        QVERIFY(!filter.check(record(logging::Warning, at(10, 0, 0, 0), "net.ftp")));
        QVERIFY(!filter.check(record(logging::Error, at(10, 0, 0, 0), "net.dns")));
    }
};

QTEST_GUILESS_MAIN(TestFilter)
#include "tst_filter.moc"
