#ifndef QTLOG_LOGVIEW_H
#define QTLOG_LOGVIEW_H

// A live view of the application's recent log: a logging::DPBuffer made on
// the GUI thread, its lines in a list coloured by level, a filter box,
// pause/resume, clear, and a built-in load generator.

#include <logging/dp_buffer.h>

#include <QAbstractListModel>
#include <QElapsedTimer>
#include <QStringList>
#include <QThread>
#include <QTimer>
#include <QWidget>

#include <atomic>

QT_BEGIN_NAMESPACE
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListView;
class QPushButton;
class QSortFilterProxyModel;
QT_END_NAMESPACE

namespace logview {

// The lines shown, oldest first, at most a fixed number of them. Each line's
// colour follows its first letter, the level letter of the buffer's format.
class LogLineModel : public QAbstractListModel
{
    Q_OBJECT

public:
    explicit LogLineModel(int maxLines, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;

    // Drops the oldest lines that the new ones push beyond the limit, then
    // appends the new ones in one insertion.
    void append(const QStringList &lines);
    void clear();

private:
    const int maxLines;
    QStringList lines;
};

// Logs all levels from several modules on a thread of its own, at a steady
// rate. Each message starts with "#" and a running number.
class LoadGenerator : public QThread
{
    Q_OBJECT

public:
    explicit LoadGenerator(QObject *parent = nullptr);
    ~LoadGenerator() override;

    // Records per second; 0 stops the thread.
    void setRate(int recordsPerSecond);
    int rate() const { return perSecond.load(); }
    // Records logged since the generator was made (wraps around).
    unsigned produced() const { return count.load(); }

protected:
    void run() override;

private:
    std::atomic<int> perSecond;
    std::atomic<unsigned> count;     // 32 bits: no 64-bit atomics on small devices
};

class LogViewWindow : public QWidget
{
    Q_OBJECT

public:
    explicit LogViewWindow(QWidget *parent = nullptr);
    ~LogViewWindow() override;

    // The lines as shown, after the filter.
    QAbstractItemModel *shownLines() const;
    // Lines taken from the buffer since the start, and the times the buffer
    // had moved on by more than it keeps since the last look.
    qint64 linesReceived() const { return received; }
    int gaps() const { return gapCount; }
    LoadGenerator *generator() { return &load; }

public Q_SLOTS:
    void setFilterText(const QString &text);
    void setPaused(bool paused);
    void clear();
    // Records per second of the load generator; 0 switches it off.
    void setGeneratorRate(int recordsPerSecond);

private Q_SLOTS:
    void bufferChanged();
    void takeNewLines();
    void generatorToggled(bool on);
    void rateChosen(int index);
    void updateStatus();

private:
    logging::DPBuffer buffer;
    LogLineModel *model;
    QSortFilterProxyModel *filtered;
    LoadGenerator load;

    QLineEdit *filterEdit;
    QPushButton *pauseButton;
    QCheckBox *generatorBox;
    QComboBox *rateBox;
    QListView *list;
    QLabel *status;

    QTimer coalesce;        // one look at the buffer per interval, at most
    QTimer statusTimer;
    QString filterText;
    QString lastSeen;       // the newest line taken; kept alive, so its data identifies it
    bool paused;
    qint64 received;
    int gapCount;
    qint64 receivedAtLastStatus;
    unsigned producedAtLastStatus;
    QElapsedTimer sinceLastStatus;
};

} // namespace logview

#endif // QTLOG_LOGVIEW_H
