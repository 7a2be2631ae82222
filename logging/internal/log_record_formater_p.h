#ifndef QTLOG_LOG_RECORD_FORMATER_P_H
#define QTLOG_LOG_RECORD_FORMATER_P_H

#include <logging/log_record_formater.h>

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QVarLengthArray>
#include <QtCore/QVector>

namespace logging {

class FormatItem;
class FItemTime;

// A line's bytes while it is made: a usual line needs no heap.
struct LogRecordFormater::Line : QVarLengthArray<char, 512>
{
};

// What a formatter keeps from record to record.
struct LogRecordFormater::State
{
    State() : alone(false), haveLast(false), lastSecond(0), lastDay(0), sequence(0) {}

    // Every record stands alone: full time, no day header, no number.
    bool alone;

    // The last record whose full time was written: the time cut to its whole
    // second (milliseconds since the epoch) and its local day.
    bool haveLast;
    qint64 lastSecond;
    qint64 lastDay;

    // The number of the last record formatted.
    quint64 sequence;

    // A text of the last record and its local 8-bit form, escaped or not.
    struct TextCache
    {
        TextCache() : escaped(false) {}
        QString key;
        QByteArray text;
        bool escaped;
    };
    TextCache module;
    TextCache threadName;

    // The line formatLine() made last.
    LogRecordFormater::Line line;
};

// An owning list of parsed items, in format order.
class QTLOG_EXPORT LogRecordFormater::Items
{
public:
    Items() : dayHeader(nullptr) {}
    ~Items();

    void clear();
    // Takes ownership of list's items after deleting the current ones.
    void reset(const QList<FormatItem *> &list);

    QVector<FormatItem *> items;
    const FItemTime *dayHeader;     // the first day header item, or null

private:
    Q_DISABLE_COPY(Items)
};

} // namespace logging

#endif // QTLOG_LOG_RECORD_FORMATER_P_H
