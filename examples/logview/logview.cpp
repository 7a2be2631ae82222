#include "logview.h"

#include <logging/logging.h>

#include <QCheckBox>
#include <QColor>
#include <QComboBox>
#include <QFont>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPersistentModelIndex>
#include <QPushButton>
#include <QScrollBar>
#include <QSortFilterProxyModel>
#include <QVBoxLayout>

namespace logview {

namespace {

// Lines kept by the buffer and by the view. The view looks at the buffer
// every updateMs, so the buffer must hold more than arrives in that time:
// 5000 lines cover half a second at 10,000 records per second.
const int bufferLines = 5000;
const int viewLines = 5000;
const int updateMs = 100;

// Stands where the buffer had moved on by more than it keeps.
const char gapText[] = "~ more lines arrived here than the buffer keeps; some are not shown";

} // namespace

LogLineModel::LogLineModel(int maxLines, QObject *parent)
    : QAbstractListModel(parent)
    , maxLines(maxLines)
{
}

int LogLineModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : lines.size();
}

QVariant LogLineModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= lines.size())
        return QVariant();
    const QString &line = lines.at(index.row());
    if (role == Qt::DisplayRole)
        return line;
    const char level = line.isEmpty() ? 0 : line.at(0).toLatin1();
    switch (role) {
    case Qt::ForegroundRole:
        switch (level) {
        case 'c': return QColor(Qt::white);
        case 'e': return QColor(0xc0, 0x00, 0x00);
        case 'w': return QColor(0xa8, 0x58, 0x00);
        case 'i': return QColor(0x00, 0x40, 0xa0);
        case 'd': return QColor(0x20, 0x20, 0x20);
        case 't':
        case '~': return QColor(0x88, 0x88, 0x88);
        default: return QVariant();
        }
    case Qt::BackgroundRole:
        if (level == 'c')
            return QColor(0xb0, 0x00, 0x00);
        return QVariant();
    case Qt::FontRole:
        if (level == 'c' || level == 'e' || level == '~') {
            // Only these attributes; the rest comes from the view's font.
            QFont font;
            if (level == '~')
                font.setItalic(true);
            else
                font.setBold(true);
            return font;
        }
        return QVariant();
    default:
        return QVariant();
    }
}

void LogLineModel::append(const QStringList &fresh)
{
    const int adding = qMin(fresh.size(), maxLines);
    if (adding == 0)
        return;
    const int dropping = qMin(lines.size(), lines.size() + adding - maxLines);
    if (dropping > 0) {
        beginRemoveRows(QModelIndex(), 0, dropping - 1);
        lines.erase(lines.begin(), lines.begin() + dropping);
        endRemoveRows();
    }
    beginInsertRows(QModelIndex(), lines.size(), lines.size() + adding - 1);
    if (adding == fresh.size())
        lines += fresh;
    else
        lines += fresh.mid(fresh.size() - adding);
    endInsertRows();
}

void LogLineModel::clear()
{
    if (lines.isEmpty())
        return;
    beginRemoveRows(QModelIndex(), 0, lines.size() - 1);
    lines.clear();
    endRemoveRows();
}

namespace {

struct Sample
{
    logging::Level level;
    const char *module;
    const char *text;
    const char *unit;   // null: the message has no value
};

// One round of the generator: mostly trace and debug, as on a device.
const Sample samples[] = {
    { logging::Trace, "net.link", "rx frame", " bytes" },
    { logging::Debug, "sensor.temperature", "reading", " C" },
    { logging::Trace, "ui", "repaint took", " ms" },
    { logging::Info, "net", "heartbeat", nullptr },
    { logging::Trace, "net.link", "tx frame", " bytes" },
    { logging::Debug, "storage", "flushed", " blocks" },
    { logging::Trace, "sensor.pressure", "raw sample", "" },
    { logging::Debug, "net.dns", "resolved device.local in", " ms" },
    { logging::Warning, "power", "battery low:", "%" },
    { logging::Trace, "ui", "touch event at row", "" },
    { logging::Info, "storage", "free space on /data:", " MB" },
    { logging::Debug, "sensor.pressure", "reading", " hPa" },
    { logging::Trace, "net.link", "rx frame", " bytes" },
    { logging::Error, "storage", "write failed, retry", "" },
    { logging::Debug, "ui", "frame time", " ms" },
    { logging::Info, "sensor", "calibration done", nullptr },
    { logging::Trace, "sensor.temperature", "raw sample", "" },
    { logging::Warning, "net", "link quality", "%" },
    { logging::Debug, "power", "charging current", " mA" },
    { logging::Info, "ui", "screen dimmed", nullptr },
};
const unsigned sampleCount = sizeof(samples) / sizeof(samples[0]);

void logSample(unsigned number)
{
    static const char file[] = __FILE__;
    static const char function[] = "logview::LoadGenerator::run()";
    // Every fifth round ends in a critical record.
    static const Sample critical = { logging::Critical, "power", "brown-out detected, state saved", nullptr };
    const Sample &sample = number % (5 * sampleCount) == 5 * sampleCount - 1
        ? critical : samples[number % sampleCount];
    QDebug out = logging::toLog(sample.level,
                                QByteArray::fromRawData(sample.module, int(qstrlen(sample.module))),
                                QByteArray::fromRawData(file, int(sizeof(file) - 1)), __LINE__,
                                QByteArray::fromRawData(function, int(sizeof(function) - 1)));
    out.nospace() << '#' << number << ' ' << sample.text;
    if (sample.unit)
        out << ' ' << (number * 37) % 100 << sample.unit;
}

} // namespace

LoadGenerator::LoadGenerator(QObject *parent)
    : QThread(parent)
    , perSecond(0)
    , count(0)
{
}

LoadGenerator::~LoadGenerator()
{
    setRate(0);
}

void LoadGenerator::setRate(int recordsPerSecond)
{
    perSecond = qMax(0, recordsPerSecond);
    if (perSecond > 0 && !isRunning())
        start();
    else if (perSecond == 0)
        wait();
}

void LoadGenerator::run()
{
    QElapsedTimer clock;
    clock.start();
    qint64 done = 0;
    int rateNow = perSecond;
    while (const int rate = perSecond) {
        if (rate != rateNow) {
            clock.restart();
            done = 0;
            rateNow = rate;
        }
        const qint64 due = clock.elapsed() * rate / 1000;
        // After a stall, catch up by at most a fifth of a second's worth.
        done = qMax(done, due - rate / 5);
        for (; done < due; ++done)
            logSample(count++);
        msleep(5);
    }
}

LogViewWindow::LogViewWindow(QWidget *parent)
    : QWidget(parent)
    , model(new LogLineModel(viewLines, this))
    , filtered(new QSortFilterProxyModel(this))
    , filterEdit(new QLineEdit)
    , pauseButton(new QPushButton(tr("Pause")))
    , generatorBox(new QCheckBox(tr("Load generator")))
    , rateBox(new QComboBox)
    , list(new QListView)
    , status(new QLabel)
    , paused(false)
    , received(0)
    , gapCount(0)
    , receivedAtLastStatus(0)
    , producedAtLastStatus(0)
{
    setWindowTitle(tr("qtlog log view"));
    buffer.setRotateLineCount(bufferLines);

    filtered->setSourceModel(model);
    filtered->setFilterCaseSensitivity(Qt::CaseInsensitive);

    filterEdit->setPlaceholderText(tr("Filter: show lines containing this text"));
    pauseButton->setCheckable(true);
    QPushButton *clearButton = new QPushButton(tr("Clear"));
    rateBox->addItem(tr("100 records/s"), 100);
    rateBox->addItem(tr("1,000 records/s"), 1000);
    rateBox->addItem(tr("10,000 records/s"), 10000);
    rateBox->setCurrentIndex(1);

    list->setModel(filtered);
    list->setUniformItemSizes(true);
    // A fixed-width font, so that the columns of the lines align (what a
    // platform calls its fixed font varies; fontconfig knows "Monospace").
    QFont fixed(QLatin1String("Monospace"));
    fixed.setStyleHint(QFont::TypeWriter);
    list->setFont(fixed);
    list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    list->setSelectionMode(QAbstractItemView::ExtendedSelection);

    QHBoxLayout *bar = new QHBoxLayout;
    bar->addWidget(filterEdit, 1);
    bar->addWidget(pauseButton);
    bar->addWidget(clearButton);
    bar->addSpacing(16);
    bar->addWidget(generatorBox);
    bar->addWidget(rateBox);
    QVBoxLayout *layout = new QVBoxLayout(this);
    layout->addLayout(bar);
    layout->addWidget(list, 1);
    layout->addWidget(status);

    connect(filterEdit, SIGNAL(textChanged(QString)), this, SLOT(setFilterText(QString)));
    connect(pauseButton, SIGNAL(toggled(bool)), this, SLOT(setPaused(bool)));
    connect(clearButton, SIGNAL(clicked()), this, SLOT(clear()));
    connect(generatorBox, SIGNAL(toggled(bool)), this, SLOT(generatorToggled(bool)));
    connect(rateBox, SIGNAL(currentIndexChanged(int)), this, SLOT(rateChosen(int)));

    // The buffer lives on this thread, so the signal comes in directly,
    // once per drain, with the whole list: only note it here, and take the
    // new lines once per interval.
    coalesce.setSingleShot(true);
    coalesce.setInterval(updateMs);
    connect(&buffer, SIGNAL(logContentChanged(QStringList)), this, SLOT(bufferChanged()));
    connect(&coalesce, SIGNAL(timeout()), this, SLOT(takeNewLines()));

    connect(&statusTimer, SIGNAL(timeout()), this, SLOT(updateStatus()));
    statusTimer.start(1000);
    sinceLastStatus.start();
    updateStatus();
}

LogViewWindow::~LogViewWindow()
{
    load.setRate(0);
}

QAbstractItemModel *LogViewWindow::shownLines() const
{
    return filtered;
}

void LogViewWindow::setFilterText(const QString &text)
{
    if (filterEdit->text() != text)
        filterEdit->setText(text);  // comes back here through textChanged()
    if (filterText == text)
        return;
    filterText = text;
    filtered->setFilterFixedString(text);
    list->scrollToBottom();
}

void LogViewWindow::setPaused(bool on)
{
    if (pauseButton->isChecked() != on)
        pauseButton->setChecked(on);
    if (paused == on)
        return;
    paused = on;
    pauseButton->setText(on ? tr("Resume") : tr("Pause"));
    if (on)
        coalesce.stop();
    else
        takeNewLines();
}

void LogViewWindow::clear()
{
    // The buffer keeps its lines; lastSeen stays, so only newer ones follow.
    model->clear();
    updateStatus();
}

void LogViewWindow::setGeneratorRate(int recordsPerSecond)
{
    if (recordsPerSecond > 0) {
        int index = rateBox->findData(recordsPerSecond);
        if (index < 0) {
            rateBox->addItem(tr("%1 records/s").arg(recordsPerSecond), recordsPerSecond);
            index = rateBox->count() - 1;
        }
        rateBox->setCurrentIndex(index);
    }
    generatorBox->setChecked(recordsPerSecond > 0);
    load.setRate(recordsPerSecond);
}

void LogViewWindow::bufferChanged()
{
    // Called with the buffer locked: no getLines() here.
    if (!paused && !coalesce.isActive())
        coalesce.start();
}

void LogViewWindow::takeNewLines()
{
    const QStringList current = buffer.getLines();
    // The buffer only appends and drops its oldest lines, and copies of a
    // line share its data: the new lines are those after the one seen last.
    int first = 0;
    bool gap = false;
    if (!lastSeen.isNull()) {
        first = current.size();
        while (first > 0 && current.at(first - 1).constData() != lastSeen.constData())
            --first;
        gap = first == 0;
    }
    if (first == current.size())
        return;
    QStringList fresh = current.mid(first);
    if (gap)
        fresh.prepend(QString::fromLatin1(gapText));
    received += current.size() - first;
    gapCount += gap;
    lastSeen = current.last();

    // Follow the end unless the user has scrolled up; then keep the line at
    // the top where it is while old lines go.
    QScrollBar *bar = list->verticalScrollBar();
    const bool following = bar->value() >= bar->maximum();
    const QPersistentModelIndex top = following ? QModelIndex() : list->indexAt(QPoint(1, 1));
    model->append(fresh);
    if (following)
        list->scrollToBottom();
    else if (top.isValid())
        list->scrollTo(top, QAbstractItemView::PositionAtTop);
}

void LogViewWindow::generatorToggled(bool on)
{
    load.setRate(on ? rateBox->itemData(rateBox->currentIndex()).toInt() : 0);
}

void LogViewWindow::rateChosen(int index)
{
    if (generatorBox->isChecked())
        load.setRate(rateBox->itemData(index).toInt());
}

void LogViewWindow::updateStatus()
{
    const qint64 ms = qMax(qint64(1), sinceLastStatus.restart());
    const unsigned produced = load.produced();
    QString text = tr("%1 of %2 lines shown, %3 lines/s")
                       .arg(filtered->rowCount()).arg(model->rowCount())
                       .arg((received - receivedAtLastStatus) * 1000 / ms);
    if (load.rate() > 0)
        text += tr(", generator %1 records/s").arg(qint64(produced - producedAtLastStatus) * 1000 / ms);
    if (gapCount > 0)
        text += tr(", %1 gaps").arg(gapCount);
    status->setText(text);
    receivedAtLastStatus = received;
    producedAtLastStatus = produced;
}

} // namespace logview
