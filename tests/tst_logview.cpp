// The log view example under load, on Qt's offscreen platform: lines arrive
// in order and complete, the filter narrows them, scrolling up holds the
// view, and the window keeps answering at 10,000 records a second.

#include "testsupport.h"

#include "logview.h"

#include <logging/logging.h>

#include <QApplication>
#include <QColor>
#include <QLineEdit>
#include <QListView>
#include <QScrollBar>
#include <QSortFilterProxyModel>

#include <time.h>

namespace {

// The number of a generated line ("... [module] #123 text"), or -1.
int numberOf(const QString &line)
{
    const int at = line.indexOf(QLatin1String("] #"));
    return at < 0 ? -1 : line.mid(at + 3, line.indexOf(QLatin1Char(' '), at + 3) - at - 3).toInt();
}

QStringList rows(const QAbstractItemModel *model)
{
    QStringList lines;
    for (int row = 0; row < model->rowCount(); ++row)
        lines << model->index(row, 0).data().toString();
    return lines;
}

int lastNumber(const QAbstractItemModel *model)
{
    const int count = model->rowCount();
    return count ? numberOf(model->index(count - 1, 0).data().toString()) : -1;
}

// CPU time used by the calling thread so far.
qint64 threadCpuMs()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return qint64(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

} // namespace

class TestLogView : public QObject
{
    Q_OBJECT

private:
    QScopedPointer<logging::Initializer> logging;
    QScopedPointer<logview::LogViewWindow> window;  // goes first, with its buffer
    const QAbstractItemModel *shown;    // after the filter
    const QAbstractItemModel *all;
    QListView *list;

    qint64 worstStall;  // the longest 10 ms wait of the last generate()

    // Runs the generator at rate for ms, then waits until the view holds
    // its last record. Returns the records produced.
    unsigned generate(int rate, int ms)
    {
        window->setGeneratorRate(rate);
        QElapsedTimer total, step;
        total.start();
        worstStall = 0;
        while (total.elapsed() < ms) {
            step.start();
            QTest::qWait(10);
            worstStall = qMax(worstStall, step.elapsed());
        }
        window->setGeneratorRate(0);
        const int last = int(window->generator()->produced()) - 1;
        waitUntil([&]() { return lastNumber(all) == last; }, 5000);
        return last + 1;
    }

private Q_SLOTS:
    void initTestCase()
    {
        logging.reset(new logging::Initializer(QStringList() << QLatin1String(QTLOG_LOGVIEW_DIR "/")));
        window.reset(new logview::LogViewWindow);
        window->resize(960, 540);
        window->show();
        shown = window->shownLines();
        all = qobject_cast<const QSortFilterProxyModel *>(shown)->sourceModel();
        list = window->findChild<QListView *>();
        QVERIFY(list);
    }

    void underLoad()
    {
        // Responsive: the GUI thread spends a small part of its time on the
        // log (CPU time, whatever else the machine runs), and its events run.
        QElapsedTimer wall;
        wall.start();
        const qint64 cpuBefore = threadCpuMs();
        const unsigned produced = generate(10000, 2000);
        const qint64 cpu = threadCpuMs() - cpuBefore, elapsed = wall.elapsed();
        QVERIFY2(produced >= 10000, qPrintable(QString::number(produced)));
        QVERIFY2(cpu < elapsed / 3, qPrintable(QString::fromLatin1("%1 of %2 ms").arg(cpu).arg(elapsed)));
        QVERIFY2(worstStall < 2000, qPrintable(QString::number(worstStall)));
        QCOMPARE(lastNumber(shown), int(produced) - 1);

        // In order and complete; a line missing only where a marker says so.
        const QStringList lines = rows(shown);
        QCOMPARE(lines.size(), 5000);
        int previous = -1;
        bool marked = false;
        QSet<QString> colours;
        for (int row = 0; row < lines.size(); ++row) {
            const QString &line = lines.at(row);
            const int number = numberOf(line);
            if (number < 0) {   // a gap marker, or a message of Qt's own
                marked = marked || line.startsWith(QLatin1Char('~'));
                continue;
            }
            QVERIFY2(previous < 0 || number == previous + 1 || (marked && number > previous),
                     qPrintable(line));
            previous = number;
            marked = false;
            const QModelIndex index = shown->index(row, 0);
            colours << line.left(1) + qvariant_cast<QColor>(index.data(Qt::ForegroundRole)).name()
                           + qvariant_cast<QColor>(index.data(Qt::BackgroundRole)).name();
        }
        QCOMPARE(colours.size(), 6);    // one look per level
        QCOMPARE(list->verticalScrollBar()->value(), list->verticalScrollBar()->maximum());
    }

    void filter()
    {
        const QStringList lines = rows(shown);
        QLineEdit *edit = window->findChild<QLineEdit *>();
        QTest::keyClicks(edit, QLatin1String("STORAGE]"));
        const QStringList narrowed = rows(shown);
        QCOMPARE(narrowed.size(), lines.filter(QLatin1String("storage]")).size());
        QVERIFY(narrowed.size() > 0 && narrowed.size() < lines.size() / 4);
        QCOMPARE(narrowed.filter(QLatin1String("[storage]")), narrowed);

        // New lines pass the same filter.
        generate(1000, 300);
        QCOMPARE(rows(shown).filter(QLatin1String("[storage]")).size(), shown->rowCount());
        edit->setText(QLatin1String("no such text"));
        QCOMPARE(shown->rowCount(), 0);
        edit->clear();
        QCOMPARE(shown->rowCount(), 5000);
    }

    void scrolledUpStays()
    {
        QScrollBar *bar = list->verticalScrollBar();
        bar->setValue(bar->maximum() / 2);
        const QString top = list->indexAt(QPoint(1, 1)).data().toString();
        generate(1000, 300);
        QCOMPARE(list->indexAt(QPoint(1, 1)).data().toString(), top);
        QVERIFY(bar->value() < bar->maximum());
        bar->setValue(bar->maximum());
        generate(1000, 300);
        QCOMPARE(bar->value(), bar->maximum());
    }
};

int main(int argc, char **argv)
{
    // No display needed.
    if (qgetenv("QT_QPA_PLATFORM").isEmpty())
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    TestLogView test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_logview.moc"
