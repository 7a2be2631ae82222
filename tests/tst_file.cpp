#include "testsupport.h"

#include <logging/config.h>
#include <logging/dp_file.h>

using namespace logging;

// The file destination on its own: rotation by size, following the file by
// its name, the flight recorder. Its reports go to Qt's output, as before
// start-up.
class TestFile : public QObject
{
    Q_OBJECT

    QScopedPointer<DPFile> dest;
    QScopedPointer<TempDir> dir;    // a fresh one for every test

    // Applies the section "file" (with "#mf" lines: the message only).
    void configure(const QByteArray &keys)
    {
        writeFile(dir->file("log.conf"), "active = file\n[file]\nformat = #mf\nfilename = "
                  + QFile::encodeName(dir->file("app.log")) + "\n" + keys);
        Config(dir->file("log.conf"), false).refresh();
    }

    void log(const QByteArray &message, Level level = Info, const QDateTime &time = QDateTime::currentDateTime())
    {
        dest->insertLogRecord(QSharedPointer<LogRecord>(new LogRecord(record(level, time, "app", message))));
        dest->outItems();
    }

private Q_SLOTS:
    void initTestCase() { MessageCapture::install(); }

    void init()
    {
        dest.reset();
        dir.reset(new TempDir);
        dest.reset(new DPFile);
        MessageCapture::take();
    }

    void parseKeys_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<qint64>("maxSize");
        QTest::addColumn<int>("maxFiles");
        QTest::newRow("empty") << "" << Q_INT64_C(0) << 1;
        QTest::newRow("plain") << "3" << Q_INT64_C(3) << 3;
        QTest::newRow("K") << "512K" << Q_INT64_C(524288) << 1;
        QTest::newRow("M") << "2M" << Q_INT64_C(2097152) << 1;
        QTest::newRow("limits") << "99" << Q_INT64_C(99) << 99;
        QTest::newRow("too many") << "100" << Q_INT64_C(100) << 1;
        QTest::newRow("zero") << "0" << Q_INT64_C(0) << 1;
        QTest::newRow("sign") << "-5" << Q_INT64_C(0) << 1;
        QTest::newRow("lower case unit") << "4k" << Q_INT64_C(0) << 1;
        QTest::newRow("blank inside") << "5 K" << Q_INT64_C(0) << 1;
        QTest::newRow("beyond any file") << "99999999999999999999M" << Q_INT64_C(0) << 1;
    }

    void parseKeys()
    {
        QFETCH(QString, text);
        QFETCH(qint64, maxSize);
        QFETCH(int, maxFiles);
        QCOMPARE(DPFile::parseMaxSize(text), maxSize);
        QCOMPARE(DPFile::parseMaxFiles(text), maxFiles);
    }

    void rotation_data()
    {
        QTest::addColumn<QByteArray>("keys");
        QTest::addColumn<QByteArray>("messages");   // one record per word; "=" followed by
                                                    // text: app.log holds it before
        QTest::addColumn<QStringList>("expected");  // app.log, app.log.1, ...

        QTest::newRow("no limit") << QByteArray("") << QByteArray("aaaa bbbb cccc")
                                  << (QStringList() << "aaaa\nbbbb\ncccc\n");
        QTest::newRow("existing file counts") << QByteArray("max_size = 10\n") << QByteArray("=12345678 a")
                                              << (QStringList() << "a\n" << "12345678\n");
        // 5 + 5 bytes make exactly 10: no rotation yet.
        QTest::newRow("exactly max_size") << QByteArray("max_size = 10\n") << QByteArray("aaaa bbbb")
                                          << (QStringList() << "aaaa\nbbbb\n");
        QTest::newRow("one byte more") << QByteArray("max_size = 10\n") << QByteArray("aaaa bbbb c")
                                       << (QStringList() << "c\n" << "aaaa\nbbbb\n");
        QTest::newRow("oversized record") << QByteArray("max_size = 10\n") << QByteArray("aa 0123456789ABC b")
                                          << (QStringList() << "b\n" << "0123456789ABC\n");
        QTest::newRow("oversized first") << QByteArray("max_size = 10\n") << QByteArray("0123456789ABC b")
                                         << (QStringList() << "b\n" << "0123456789ABC\n");
        QTest::newRow("several files") << QByteArray("max_size = 4\nmax_files = 3\n")
                                       << QByteArray("aaa bbb ccc ddd eee fff")
                                       << (QStringList() << "fff\n" << "eee\n" << "ddd\n" << "ccc\n");
        QTest::newRow("max_files out of range") << QByteArray("max_size = 4\nmax_files = 100\n")
                                                << QByteArray("aaa bbb ccc")
                                                << (QStringList() << "ccc\n" << "bbb\n");
    }

    void rotation()
    {
        QFETCH(QByteArray, keys);
        QFETCH(QByteArray, messages);
        QFETCH(QStringList, expected);
        QList<QByteArray> words = messages.split(' ');
        if (words.first().startsWith('='))
            writeFile(dir->file("app.log"), words.takeFirst().mid(1) + "\n");
        configure(keys);
        for (int i = 0; i < words.size(); ++i)
            log(words.at(i));
        QStringList names;
        for (int i = 0; i < expected.size(); ++i) {
            names << (i ? QString("app.log.%1").arg(i) : QString("app.log"));
            QCOMPARE(QString::fromLatin1(readFile(dir->file(names.last()))), expected.at(i));
        }
        QCOMPARE(QDir(dir->path()).entryList(QStringList() << "app.log*", QDir::Files, QDir::Name), names);
        QCOMPARE(MessageCapture::take(), QList<QByteArray>());
    }

    void failedRenameReportedOnce()
    {
        // app.log.1 is a directory that is not empty: the rename fails.
        QVERIFY(QDir().mkpath(dir->file("app.log.1/x")));
        configure("max_size = 4\n");
        for (int i = 0; i < 5; ++i)
            log("rec");
        QVERIFY(QDir().rmdir(dir->file("app.log.1/x")) && QDir().rmdir(dir->file("app.log.1")));
        QCOMPARE(readFile(dir->file("app.log")), QByteArray("rec\nrec\nrec\nrec\nrec\n"));
        const QList<QByteArray> reports = MessageCapture::take();
        QCOMPARE(reports.size(), 1);
        QVERIFY2(reports.first().startsWith("Error rotate log-file: \""), reports.first().constData());
    }

    void followsName_data()
    {
        QTest::addColumn<QString>("action");
        QTest::addColumn<QByteArray>("current");
        QTest::addColumn<QByteArray>("old");     // app.log.old
        QTest::newRow("renamed") << "rename" << QByteArray("three\n") << QByteArray("one\ntwo\n");
        QTest::newRow("deleted") << "delete" << QByteArray("three\n") << QByteArray();
        // As logrotate's copytruncate does: the same file goes on, and its
        // size is taken anew (else "three" would start a rotation).
        QTest::newRow("truncated") << "truncate" << QByteArray("two\nthree\n") << QByteArray();
    }

    void followsName()
    {
        QFETCH(QString, action);
        QFETCH(QByteArray, current);
        QFETCH(QByteArray, old);
        configure("max_size = 12\n");
        log("one");
        if (action == "delete")
            QVERIFY(QFile::remove(dir->file("app.log")));
        else if (action == "rename")
            QVERIFY(QFile::rename(dir->file("app.log"), dir->file("app.log.old")));
        else
            QVERIFY(QFile::resize(dir->file("app.log"), 0));
        log("two");     // still into the file as it was opened
        QTest::qWait(1100);
        log("three");
        QCOMPARE(readFile(dir->file("app.log")), current);
        QCOMPARE(readFile(dir->file("app.log.old")), old);
        QCOMPARE(MessageCapture::take(), QList<QByteArray>());
    }

    void waitsForItsDirectory()
    {
        // 1,200 lines of about 1 KB while the directory is missing: 1 MiB
        // of them wait, the oldest go; one report only.
        writeFile(dir->file("log.conf"), "active = file\n[file]\nformat = #mf\nfilename = "
                  + QFile::encodeName(dir->file("late/app.log")) + "\n");
        Config(dir->file("log.conf"), false).refresh();
        const QByteArray pad(1000, 'x');
        for (int i = 0; i < 1200; ++i)
            log(QByteArray::number(i) + " " + pad);
        QVERIFY(QDir().mkdir(dir->file("late")));
        QTest::qWait(1100);
        log("last");
        QList<QByteArray> lines = readFile(dir->file("late/app.log")).split('\n');
        QCOMPARE(lines.takeLast(), QByteArray());
        QCOMPARE(lines.takeLast(), QByteArray("last"));
        const QByteArray note = lines.takeFirst();
        const int dropped = note.left(note.indexOf(' ')).toInt();
        QCOMPARE(note.mid(note.indexOf(' ')), QByteArray(" records dropped while the log-file could not be opened"));
        QVERIFY(dropped > 100 && dropped < 200);
        for (int i = 0; i < lines.size(); ++i)
            QCOMPARE(lines.at(i), QByteArray::number(dropped + i) + " " + pad);
        QCOMPARE(dropped + lines.size(), 1200);
        const QList<QByteArray> reports = MessageCapture::take();
        QCOMPARE(reports.size(), 1);
        QVERIFY2(reports.first().startsWith("Error open log-file: \""), reports.first().constData());
    }

    // A file that another program rotated, or that the library rotated or
    // opened anew, starts with the day header of its first line.
    void dayHeaderInEveryFile_data()
    {
        QTest::addColumn<QString>("action");
        QTest::addColumn<QByteArray>("current");
        QTest::addColumn<QByteArray>("old");     // app.log.1, or app.log.old
        const QByteArray day("--- 2026-11-22\n");
        QTest::newRow("rotated") << "rotate" << day + "10:00:02 three\n" << day + "10:00:01 two\n";
        QTest::newRow("renamed") << "rename" << day + "10:00:02 three\n" << day + "10:00:00 one\n10:00:01 two\n";
        QTest::newRow("deleted") << "delete" << day + "10:00:02 three\n" << QByteArray();
        QTest::newRow("truncated") << "truncate" << day + "10:00:01 two\n10:00:02 three\n" << QByteArray();
    }

    void dayHeaderInEveryFile()
    {
        QFETCH(QString, action);
        QFETCH(QByteArray, current);
        QFETCH(QByteArray, old);
        configure(action == "rotate" ? "format = #td#tT #mf\nmax_size = 30\n" : "format = #td#tT #mf\n");
        log("one", Info, at(10, 0, 0, 0));
        if (action == "delete")
            QVERIFY(QFile::remove(dir->file("app.log")));
        else if (action == "rename")
            QVERIFY(QFile::rename(dir->file("app.log"), dir->file("app.log.old")));
        else if (action == "truncate")
            QVERIFY(QFile::resize(dir->file("app.log"), 0));
        log("two", Info, at(10, 0, 1, 0));
        if (action == "rename" || action == "delete")
            QTest::qWait(1100);
        log("three", Info, at(10, 0, 2, 0));
        QCOMPARE(readFile(dir->file("app.log")), current);
        QCOMPARE(readFile(dir->file(action == "rotate" ? "app.log.1" : "app.log.old")), old);
    }

    // In normal operation the recorder writes nothing until an Error, then
    // its records before the Error's own line. Its records have no number
    // in the file's sequence.
    void recorderBeforeError()
    {
        configure("format = #n #lc #mf\nlevel = 2\nrecorder = 3\nrecorder_level = 4\n");
        const Level levels[] = { Debug, Trace, Info, Warning, Debug, Info, Error, Debug, Critical };
        for (int i = 0; i < 9; ++i)
            log(QByteArray::number(i), levels[i]);
        QCOMPARE(readFile(dir->file("app.log")), QByteArray(
            "1 w 3\n---- flight recorder: 3 records follow ----\n- i 2\n- d 4\n- i 5\n"
            "---- flight recorder: end of 3 records ----\n2 e 6\n"
            "---- flight recorder: 1 record follows ----\n- d 7\n"
            "---- flight recorder: end of 1 record ----\n3 c 8\n"));
    }
};

QTEST_GUILESS_MAIN(TestFile)

#include "tst_file.moc"
