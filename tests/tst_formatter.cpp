#include "testsupport.h"

#include <logging/config.h>
#include <logging/log_record_formater.h>

#include "logging/internal/log_record_formater_p.h"

#include <QtCore/QTemporaryDir>

using namespace logging;

class TestFormatter : public QObject
{
    Q_OBJECT

    QTemporaryDir dir;

    // A compact description of parsed items: S'text', L<mode>, T<mode>'pattern',
    // M<mode><indent>, C<mode>p<prefix>.
    static QString describe(const QByteArray &format)
    {
        LogRecordFormater::Items items;
        LogRecordFormater::configStringToItems(items, format);
        QStringList parts;
        for (const FormatItem *item : items.items) {
            if (const FItemStaticText *t = dynamic_cast<const FItemStaticText *>(item))
                parts << "S'" + QString::fromLatin1(t->text) + "'";
            else if (const FItemLevel *l = dynamic_cast<const FItemLevel *>(item))
                parts << QString("L") + "cnt"[l->mode];
            else if (const FItemTime *tm = dynamic_cast<const FItemTime *>(item))
                parts << QString("T") + "dDtT"[tm->mode] + (tm->format.isNull() ? QString() : "'" + tm->format + "'");
            else if (const FItemMessText *m = dynamic_cast<const FItemMessText *>(item))
                parts << QString("M") + "sdf"[m->mode] + (m->mode == 0 ? QString::number(m->indent) : QString());
            else if (const FItemCallPos *c = dynamic_cast<const FItemCallPos *>(item))
                parts << QString("C") + "mfFlu"[c->mode] + (c->linePrefix ? QString("p") + c->linePrefix : QString());
        }
        return parts.join("|");
    }

    // Loads format and trace_format into formatter through a settings file.
    void configure(LogRecordFormater &formatter, const QByteArray &format, const QByteArray &trace = QByteArray())
    {
        const QString name = dir.path() + "/log.conf";
        writeFile(name, "[console]\nformat = " + format + "\ntrace_format = " + trace + "\n");
        Config config(name, false);
        formatter.reloadConfig(config, "console");
    }

private Q_SLOTS:
    void parse_data()
    {
        QTest::addColumn<QByteArray>("format");
        QTest::addColumn<QString>("items");
        QTest::newRow("normal built-in") << QByteArray("#tTf'hh:mm:ss.zzz' #lc [#cm] #ms11")
                                         << "TT'hh:mm:ss.zzz'|S' '|Lc|S' ['|Cm|S'] '|Ms11";
        QTest::newRow("trace built-in") << QByteArray("#tTf'hh:mm:ss.zzz' #cF:#cl [#cm]")
                                        << "TT'hh:mm:ss.zzz'|S' '|CF|S':'|Cl|S' ['|Cm|S']'";
        QTest::newRow("empty") << QByteArray() << "";
        QTest::newRow("lone #") << QByteArray("#") << "";
        QTest::newRow("# at the end") << QByteArray("abc#") << "S'abc'";
        QTest::newRow("unknown letter") << QByteArray("#x") << "S'x'";
        QTest::newRow("## is no escape") << QByteArray("##l") << "Lc";
        QTest::newRow("percent") << QByteArray("100%#") << "S'100%'";
        QTest::newRow("unknown level mode") << QByteArray("#lq") << "Lc|S'q'";
        QTest::newRow("lone f") << QByteArray("#tf") << "Tt|S'f'";
        QTest::newRow("date pattern") << QByteArray("#tDf'yy'") << "TD'yy'";
        QTest::newRow("unclosed pattern") << QByteArray("#tf'hh") << "Tt'hh'";
        QTest::newRow("empty pattern") << QByteArray("#tf''x") << "Tt''|S'x'";
        QTest::newRow("joined takes no number") << QByteArray("#md7") << "Md|S'7'";
        QTest::newRow("leading zeros") << QByteArray("#m007") << "Ms7";
        QTest::newRow("number without s") << QByteArray("#m4") << "Ms4";
        QTest::newRow("plain message") << QByteArray("#m") << "Ms11";
        QTest::newRow("huge indent is capped") << QByteArray("#m99999999999") << "Ms1024";
        QTest::newRow("line prefix") << QByteArray("#clp-") << "Clp-";
        QTest::newRow("p at the end") << QByteArray("#clp") << "Cl|S'p'";
        QTest::newRow("p after module") << QByteArray("#cmp") << "Cm|S'p'";
        QTest::newRow("#c at the end") << QByteArray("#c") << "Cm";
    }

    void parse()
    {
        QFETCH(QByteArray, format);
        QFETCH(QString, items);
        QCOMPARE(describe(format), items);
    }

    void output_data()
    {
        QTest::addColumn<QByteArray>("format");
        QTest::addColumn<int>("level");
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<int>("line");
        QTest::addColumn<QByteArray>("expected");

        QTest::newRow("worked example") << QByteArray() << 2 << QByteArray("first\nsecond") << QByteArray() << 0
                                        << QByteArray("14:03:07.250 w [net] first\n           second");
        QTest::newRow("worked trace example") << QByteArray() << 5 << QByteArray("x") << QByteArray("/src/a/b.cpp") << 42
                                              << QByteArray("14:03:07.250 b.cpp:42 [net]");
        QTest::newRow("blank format is built-in") << QByteArray("   ") << 3 << QByteArray("m") << QByteArray() << 0
                                                  << QByteArray("14:03:07.250 i [net] m");
        QTest::newRow("level number") << QByteArray("#ln") << 3 << QByteArray() << QByteArray() << 0 << QByteArray("3");
        QTest::newRow("level name") << QByteArray("#lt: #mf") << 0 << QByteArray("m") << QByteArray() << 0 << QByteArray("Critical: m");
        QTest::newRow("level 7") << QByteArray("#lc#lt") << 7 << QByteArray() << QByteArray() << 0 << QByteArray("77");
        QTest::newRow("negative level") << QByteArray("#ln") << -1 << QByteArray() << QByteArray() << 0 << QByteArray("-1");
        QTest::newRow("joined") << QByteArray("#md") << 4 << QByteArray("a\nb\n") << QByteArray() << 0 << QByteArray("a b ");
        QTest::newRow("full") << QByteArray("#mf") << 4 << QByteArray("a\nb") << QByteArray() << 0 << QByteArray("a\nb");
        QTest::newRow("indent 0") << QByteArray("#m0") << 4 << QByteArray("a\nb") << QByteArray() << 0 << QByteArray("a\nb");
        QTest::newRow("indent 2") << QByteArray("#m2") << 4 << QByteArray("a\nb") << QByteArray() << 0 << QByteArray("a\n  b");
        QTest::newRow("empty message") << QByteArray("#m#md#mf") << 4 << QByteArray() << QByteArray() << 0 << QByteArray();
        QTest::newRow("line 0") << QByteArray("#clp:") << 4 << QByteArray() << QByteArray() << 0 << QByteArray();
        QTest::newRow("line with prefix") << QByteArray("#clp:") << 4 << QByteArray() << QByteArray() << 5 << QByteArray(":5");
        QTest::newRow("file name without dir") << QByteArray("#cF") << 4 << QByteArray() << QByteArray("name.cpp") << 0 << QByteArray("name.cpp");
        QTest::newRow("file name of dir") << QByteArray("#cF") << 4 << QByteArray() << QByteArray("dir/") << 0 << QByteArray();
        QTest::newRow("full file, function") << QByteArray("#cf #cu") << 4 << QByteArray() << QByteArray("a/b.c") << 0 << QByteArray("a/b.c void f()");
        QTest::newRow("date and day header") << QByteArray("#tD #td") << 4 << QByteArray() << QByteArray() << 0 << QByteArray("2026-11-22 --- 2026-11-22\n");
        QTest::newRow("two time items") << QByteArray("#t#t") << 4 << QByteArray() << QByteArray() << 0 << QByteArray("14:03:07     250");
    }

    void output()
    {
        QFETCH(QByteArray, format);
        QFETCH(int, level);
        QFETCH(QByteArray, message);
        QFETCH(QByteArray, file);
        QFETCH(int, line);
        QFETCH(QByteArray, expected);
        LogRecordFormater formatter;
        if (!format.isNull())
            configure(formatter, format);
        QCOMPARE(formatter.format(record(Level(level), at(14, 3, 7, 250), "net", message, file, line)), expected);
    }

    void abbreviatedTimeAndDayHeader_data()
    {
        QTest::addColumn<QByteArray>("format");
        QTest::addColumn<QString>("expected");  // one text per record, joined with '|'
        // Records: 10:00:00.100, 10:00:00.900, 10:00:01.000, 10:00:01.001,
        // then the clock set back to 09:59:59.500, then 10:00:03.000 the next day.
        QTest::newRow("#t") << QByteArray("#t")
                            << "10:00:00|     900|     000|10:00:01|     500|10:00:03";
        QTest::newRow("#tT") << QByteArray("#tT")
                             << "10:00:00|10:00:00|10:00:01|10:00:01|09:59:59|10:00:03";
        QTest::newRow("day header with time") << QByteArray("#td#tT")
                                              << "--- 2026-11-22\n10:00:00|10:00:00|10:00:01|10:00:01|09:59:59|--- 2026-11-23\n10:00:03";
        // Without a full time lastTime never moves: a header before every record.
        QTest::newRow("day header alone") << QByteArray("#td")
                                          << "--- 2026-11-22\n|--- 2026-11-22\n|--- 2026-11-22\n|--- 2026-11-22\n|--- 2026-11-22\n|--- 2026-11-23\n";
    }

    void abbreviatedTimeAndDayHeader()
    {
        QFETCH(QByteArray, format);
        QFETCH(QString, expected);
        LogRecordFormater formatter;
        configure(formatter, format);
        const QDateTime times[] = { at(10, 0, 0, 100), at(10, 0, 0, 900), at(10, 0, 1, 0),
                                    at(10, 0, 1, 1), at(9, 59, 59, 500), at(10, 0, 3, 0, 23) };
        QStringList texts;
        for (const QDateTime &time : times)
            texts << QString::fromLatin1(formatter.format(record(Debug, time)));
        QCOMPARE(texts.join("|"), expected);
    }

    void reloadKeepsLastTimeAndTraceFormat()
    {
        LogRecordFormater formatter;
        configure(formatter, "#t #lt: #mf");
        QCOMPARE(formatter.format(record(Warning, at(10, 0, 0, 100), "net", "a")), QByteArray("10:00:00 Warning: a"));
        configure(formatter, "#t #lt: #mf");
        QCOMPARE(formatter.format(record(Warning, at(10, 0, 0, 200), "net", "b")), QByteArray("     200 Warning: b"));
        QCOMPARE(formatter.format(record(Trace, at(10, 0, 0, 300), "net", "c", "x/t.cpp", 3)),
                 QByteArray("10:00:00.300 t.cpp:3 [net]"));
        configure(formatter, "", "#lt #mf");
        QCOMPARE(formatter.format(record(Trace, at(10, 0, 0, 300), "net", "c")), QByteArray("Trace c"));
        QCOMPARE(formatter.format(record(Info, at(10, 0, 0, 300), "net", "c")), QByteArray("10:00:00.300 i [net] c"));
    }
};

QTEST_GUILESS_MAIN(TestFormatter)
#include "tst_formatter.moc"
