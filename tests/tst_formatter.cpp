// What a destination's formatter makes of a record.
#include "testsupport.h"

#include <logging/config.h>
#include <logging/log_record_formater.h>

using namespace logging;

class TestFormatter : public QObject
{
    Q_OBJECT

    TempDir dir;

    // Loads format and trace_format into formatter through a settings file.
    void configure(LogRecordFormater &formatter, const QByteArray &format, const QByteArray &trace = QByteArray(),
                   const QByteArray &keys = QByteArray())
    {
        writeFile(dir.file("log.conf"), "[console]\nformat = " + format + "\ntrace_format = " + trace + "\n" + keys);
        Config config(dir.file("log.conf"), false);
        formatter.reloadConfig(config, "console");
    }

private Q_SLOTS:
    // Each format applied to one record: level as given, 14:03:07.250,
    // module "net", message "a\nb", from /src/a/b.cpp line 42 in "void f()".
    void format_data()
    {
        QTest::addColumn<QByteArray>("format");     // null: the built-in ones
        QTest::addColumn<int>("level");
        QTest::addColumn<QByteArray>("expected");
        const QByteArray spaces(1024, ' ');
        QTest::newRow("built-in") << QByteArray() << 2 << QByteArray("14:03:07.250 w [net] a\n           b");
        QTest::newRow("built-in trace") << QByteArray() << 5 << QByteArray("14:03:07.250 b.cpp:42 [net]");
        QTest::newRow("blank is built-in") << QByteArray("   ") << 3 << QByteArray("14:03:07.250 i [net] a\n           b");
        QTest::newRow("lone #") << QByteArray("#") << 2 << QByteArray("");
        QTest::newRow("# at the end") << QByteArray("abc#") << 2 << QByteArray("abc");
        QTest::newRow("unknown letter") << QByteArray("#x") << 2 << QByteArray("x");
        QTest::newRow("## is no escape") << QByteArray("##l") << 2 << QByteArray("w");
        QTest::newRow("percent") << QByteArray("100%#") << 2 << QByteArray("100%");
        QTest::newRow("unknown level mode") << QByteArray("#lq") << 2 << QByteArray("wq");
        QTest::newRow("level number") << QByteArray("#ln") << 3 << QByteArray("3");
        QTest::newRow("level name") << QByteArray("#lt: #mf") << 0 << QByteArray("Critical: a\nb");
        QTest::newRow("level 7") << QByteArray("#lc#lt") << 7 << QByteArray("77");
        QTest::newRow("lone f") << QByteArray("#tf") << 2 << QByteArray("14:03:07f");
        QTest::newRow("date pattern") << QByteArray("#tDf'yy'") << 2 << QByteArray("26");
        QTest::newRow("unclosed pattern") << QByteArray("#tf'hh") << 2 << QByteArray("14");
        QTest::newRow("empty pattern is built-in") << QByteArray("#tf''x") << 2 << QByteArray("14:03:07x");
        QTest::newRow("date and day header") << QByteArray("#tD #td") << 2 << QByteArray("2026-11-22 --- 2026-11-22\n");
        QTest::newRow("two time items") << QByteArray("#t#t") << 2 << QByteArray("14:03:07     250");
        QTest::newRow("plain message") << QByteArray("#m") << 2 << QByteArray("a\n           b");
        QTest::newRow("indent 0") << QByteArray("#m0") << 2 << QByteArray("a\nb");
        QTest::newRow("leading zeros") << QByteArray("#m007") << 2 << QByteArray("a\n       b");
        QTest::newRow("huge indent is capped") << QByteArray("#m99999999999") << 2 << "a\n" + spaces + "b";
        QTest::newRow("joined takes no number") << QByteArray("#md7") << 2 << QByteArray("a b7");
        QTest::newRow("full") << QByteArray("#mf") << 2 << QByteArray("a\nb");
        QTest::newRow("line prefix") << QByteArray("#clp-") << 2 << QByteArray("-42");
        QTest::newRow("p after module") << QByteArray("#cmp") << 2 << QByteArray("netp");
        QTest::newRow("#c at the end") << QByteArray("#c") << 2 << QByteArray("net");
        QTest::newRow("file, name, function") << QByteArray("#cf #cF #cu") << 2 << QByteArray("/src/a/b.cpp b.cpp void f()");
        QTest::newRow("process, thread, name") << QByteArray("#pp #pt #pn") << 2 << QByteArray("77 4242 worker");
        QTest::newRow("#p is the process") << QByteArray("#p|#px") << 2 << QByteArray("77|77x");
        QTest::newRow("time since boot") << QByteArray("#tu #tuf'hh'") << 2 << QByteArray("12345.006 12345.006");
        QTest::newRow("sequence") << QByteArray("#n|#n|#nx") << 2 << QByteArray("1|1|1x");
    }

    void format()
    {
        QFETCH(QByteArray, format);
        QFETCH(int, level);
        QFETCH(QByteArray, expected);
        LogRecordFormater formatter;
        if (!format.isNull())
            configure(formatter, format);
        LogRecord r = record(Level(level), at(14, 3, 7, 250), "net", "a\nb", "/src/a/b.cpp", 42);
        r.processId = 77;
        r.threadId = 4242;
        r.threadName = QLatin1String("worker");
        r.bootTime = Q_INT64_C(12345006);
        QCOMPARE(formatter.format(r), expected);
    }

    // Control characters in every field that a record brings; the message
    // items keep the meaning of their line feeds.
    void escape_data()
    {
        QTest::addColumn<QByteArray>("format");
        QTest::addColumn<QByteArray>("text");       // message, module, file, function and thread name
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("#ms") << QByteArray("#ms2") << QByteArray("a\r\nb\x1b") << QByteArray("a\\x0d\n  b\\x1b");
        QTest::newRow("#md") << QByteArray("#md") << QByteArray("a\b\nb") << QByteArray("a\\x08 b");
        QTest::newRow("#mf") << QByteArray("#mf") << QByteArray("a\nb\x7f\t") << QByteArray("a\nb\\x7f\t");
        QTest::newRow("fields") << QByteArray("#cm|#cf|#cF|#cu|#pn") << QByteArray("x/\n\x1b")
                                << QByteArray("x/\\x0a\\x1b|x/\\x0a\\x1b|\\x0a\\x1b|x/\\x0a\\x1b|x/\\x0a\\x1b");
        QTest::newRow("off") << QByteArray("#ms2|#cm") << QByteArray("a\r\nb\x1b") << QByteArray("a\r\n  b\x1b|a\r\nb\x1b");
    }

    void escape()
    {
        QFETCH(QByteArray, format);
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, expected);
        LogRecordFormater formatter;
        configure(formatter, format, QByteArray(), QTest::currentDataTag() == QByteArray("off") ? "escape = 0\n" : "");
        LogRecord r = record(Info, at(14, 3, 7, 250), QString::fromLatin1(text), text, text);
        r.function = text;
        r.threadName = QString::fromLatin1(text);
        QCOMPARE(formatter.format(r), expected);
    }

    void emptyFields()
    {
        LogRecordFormater formatter;
        configure(formatter, "#m#md#mf#clp:#cF");
        QCOMPARE(formatter.format(record(Debug, at(14, 3, 7, 250), "net", "", "dir/", 0)), QByteArray());
        configure(formatter, "#md|#m2");
        QCOMPARE(formatter.format(record(Debug, at(14, 3, 7, 250), "net", "a\nb\n")), QByteArray("a b |a\n  b\n  "));
    }

    void abbreviatedTimeAndDayHeader_data()
    {
        QTest::addColumn<QByteArray>("format");
        QTest::addColumn<QString>("expected");  // one text per record, joined with '|'
        // Records: 10:00:00.100, 10:00:00.900, 10:00:01.000, 10:00:01.001,
        // then the clock set back to 09:59:59.500 (a full time again: the
        // milliseconds alone would read as 10:00:01.500), then 10:00:03.000
        // the next day.
        QTest::newRow("#t") << QByteArray("#t") << "10:00:00|     900|     000|10:00:01|09:59:59|10:00:03";
        QTest::newRow("#tT") << QByteArray("#tT") << "10:00:00|10:00:00|10:00:01|10:00:01|09:59:59|10:00:03";
        QTest::newRow("day header with time")
            << QByteArray("#td#tT")
            << "--- 2026-11-22\n10:00:00|10:00:00|10:00:01|10:00:01|09:59:59|--- 2026-11-23\n10:00:03";
        // Without a full time lastTime never moves: a header before every record.
        QTest::newRow("day header alone")
            << QByteArray("#td")
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
        configure(formatter, "", "#lt #mf");
        QCOMPARE(formatter.format(record(Trace, at(10, 0, 0, 300), "net", "c")), QByteArray("Trace c"));
        QCOMPARE(formatter.format(record(Info, at(10, 0, 0, 300), "net", "c")), QByteArray("10:00:00.300 i [net] c"));
    }

    // No message and no format make one record's text longer than 1 MiB:
    // longer texts are cut and end with a marker.
    void recordBound_data()
    {
        QTest::addColumn<QByteArray>("format");
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<bool>("cut");
        const int mib = 1024 * 1024;
        QTest::newRow("indented line feeds") << QByteArray("#ms1024") << QByteArray(2200000, '\n') << true;
        QTest::newRow("joined") << QByteArray("#md") << QByteArray(3 * mib, 'x') << true;
        QTest::newRow("exactly 1 MiB") << QByteArray("#mf") << QByteArray(mib, 'x') << false;
        QTest::newRow("1 MiB and one byte") << QByteArray("#mf") << QByteArray(mib + 1, 'x') << true;
        QTest::newRow("text after the message") << QByteArray("#mf tail") << QByteArray(mib - 2, 'x') << true;
    }

    void recordBound()
    {
        QFETCH(QByteArray, format);
        QFETCH(QByteArray, message);
        QFETCH(bool, cut);
        static const QByteArray marker(" [cut: record longer than 1 MiB]");
        LogRecordFormater formatter;
        configure(formatter, format);
        const QByteArray text = formatter.format(record(Debug, at(10, 0, 0, 0), "net", message));
        QCOMPARE(text.size(), 1024 * 1024);
        QCOMPARE(text.endsWith(marker), cut);
        if (cut)
            QCOMPARE(text.left(8), format == "#ms1024" ? QByteArray("\n       ") : QByteArray("xxxxxxxx"));
    }
};

QTEST_GUILESS_MAIN(TestFormatter)
#include "tst_formatter.moc"
