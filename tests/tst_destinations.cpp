#include "testsupport.h"

#include <logging/config.h>
#include <logging/destpoint.h>
#include <logging/dp_buffer.h>
#include <logging/dp_syslog.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace logging;

namespace {

// Records what its drains take.
class Probe : public DestPoint
{
    Q_OBJECT
public:
    explicit Probe(const char *name = "probe") : name(name) {}
    const char *confName() const override { return name; }
    void outItems() override
    {
        ++drains;
        while (const QSharedPointer<LogRecord> r = takeFirstLogRecord())
            taken << r;
    }
    const char *name;
    int drains = 0;
    QList<QSharedPointer<LogRecord> > taken;
};

DestPoint::AllDestPointsManager *registry()
{
    return DestPoint::allDestPointManager();
}

} // namespace

class TestDestinations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void queueKeepsTimeOrder()
    {
        Probe p;
        QVERIFY(!p.takeFirstLogRecord());
        const QSharedPointer<LogRecord> late = shared(Info, at(10, 0, 2, 0));
        const QSharedPointer<LogRecord> first = shared(Info, at(10, 0, 1, 0));
        const QSharedPointer<LogRecord> second = shared(Info, at(10, 0, 1, 0));
        p.insertLogRecord(late);
        p.insertLogRecord(first);
        p.insertLogRecord(second);
        p.insertLogRecord(shared(Trace, at(10, 0, 0, 0)));    // rejected by the default filter
        QCOMPARE(p.takeFirstLogRecord(), first);
        QCOMPARE(p.takeFirstLogRecord(), second);
        QCOMPARE(p.takeFirstLogRecord(), late);
        QVERIFY(!p.takeFirstLogRecord());
    }

    void activationAndFanOut()
    {
        QSignalSpy emitted(registry(), SIGNAL(startActive()));
        registry()->sendLogRecord(shared(Info, at(10, 0, 0, 0)));
        QCOMPARE(emitted.count(), 1);      // also with nobody listening

        Probe a("file"), b("syslog"), c("console");
        a.setActive(true);
        a.setActive(true);
        c.setActive(true);
        registry()->setActiveDestPoints(QStringList() << "file" << "syslog" << "Console");
        QVERIFY(a.isActive() && b.isActive() && !c.isActive());

        registry()->sendLogRecord(shared(Info, at(10, 0, 0, 0)));
        QCOMPARE(a.drains, 1);             // connected once
        QCOMPARE(a.taken.size(), 1);
        QCOMPARE(c.taken.size(), 0);       // inactive: offered nothing

        b.setAlwaysActive();
        registry()->setActiveDestPoints(QStringList());
        QVERIFY(!a.isActive() && b.isActive());
        registry()->sendLogRecord(shared(Info, at(10, 0, 0, 0)));
        QCOMPARE(a.drains, 1);
        QCOMPARE(b.taken.size(), 2);

        registry()->addDestPoint(&b);      // registered twice: offered twice
        registry()->sendLogRecord(shared(Info, at(10, 0, 0, 0)));
        QCOMPARE(b.taken.size(), 4);
        registry()->removeDestPoint(&b);   // removes both entries
        registry()->sendLogRecord(shared(Info, at(10, 0, 0, 0)));
        QCOMPARE(b.taken.size(), 4);
        registry()->addDestPoint(&b);      // for its destructor's sake
    }

    void refreshConfigAndBuffer()
    {
        TempDir dir;
        const QString name = dir.file("log.conf");
        writeFile(name, "active = probe gui_buffer\n[gui_buffer]\nlevel = 1\nformat = #mf\n");
        Probe p;
        DPBuffer buffer;
        QSignalSpy changed(&buffer, SIGNAL(logContentChanged(QStringList)));
        Config config(name, false);
        registry()->refreshConfig(config);
        QVERIFY(p.isActive() && buffer.isActive());

        registry()->sendLogRecord(shared(Info, at(10, 0, 0, 0)));     // above the buffer's level 1
        QCOMPARE(changed.count(), 1);
        QVERIFY(buffer.getLines().isEmpty());

        writeFile(name, "active = probe\n");    // the buffer stays active anyway
        config.freeFile();
        registry()->refreshConfig(config);
        QVERIFY(buffer.isActive());
        for (int i = 1; i <= 201; ++i)
            registry()->sendLogRecord(shared(Info, at(10, 0, 0, i), QByteArray::number(i)));
        QStringList lines = buffer.getLines();
        QCOMPARE(lines.size(), 200);
        QVERIFY(lines.first().endsWith(" [mod] 2") && lines.last().endsWith(" [mod] 201"));

        buffer.setRotateLineCount(10);
        QCOMPARE(buffer.getLines().size(), 200);
        registry()->sendLogRecord(shared(Info, at(10, 0, 1, 0)));
        QCOMPARE(buffer.getLines().size(), 10);
        buffer.setRotateLineCount(-1);
        registry()->sendLogRecord(shared(Info, at(10, 0, 2, 0)));
        QVERIFY(buffer.getLines().isEmpty());
    }

    void syslog()
    {
        // A small system logger of our own on /dev/log, unless one runs already.
        if (QFile::exists("/dev/log"))
            QTLOG_SKIP("/dev/log belongs to a running system logger");
        const int sock = socket(AF_UNIX, SOCK_DGRAM, 0);
        sockaddr_un addr = {};
        addr.sun_family = AF_UNIX;
        strcpy(addr.sun_path, "/dev/log");
        if (bind(sock, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)) != 0) {
            ::close(sock);
            QTLOG_SKIP("cannot create /dev/log (not root?)");
        }
        struct Cleanup { int s; ~Cleanup() { ::close(s); unlink("/dev/log"); } } cleanup = { sock };
        timeval timeout = { 2, 0 };
        setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));

        DPSysLog sysLog;
        sysLog.filter().setLevel(7);
        const int levels[] = { 0, 1, 2, 3, 4, 5, 7 };
        for (int level : levels)
            sysLog.insertLogRecord(shared(Level(level), at(10, 0, 0, level), "level " + QByteArray::number(level) + " %s"));
        sysLog.outItems();

        // <facility * 8 + severity>: LOG_USER is 1; Trace (5) is never sent.
        const QStringList expected = QStringList() << "<10>" << "<11>" << "<12>" << "<14>" << "<15>" << "<15>";
        for (int i = 0; i < expected.size(); ++i) {
            char buf[512];
            const ssize_t n = recv(sock, buf, sizeof(buf) - 1, 0);
            QVERIFY2(n > 0, "no syslog message arrived");
            const QString text = QString::fromLocal8Bit(buf, int(n));
            QVERIFY2(text.startsWith(expected.at(i)), qPrintable(text));
            QVERIFY2(text.contains("quimbo: ") && text.contains(" %s"), qPrintable(text));
            QVERIFY(!text.contains("level 5"));
        }
    }
};

QTEST_GUILESS_MAIN(TestDestinations)
#include "tst_destinations.moc"
