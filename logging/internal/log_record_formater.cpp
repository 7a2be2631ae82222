// The formatter: its two item lists, their reload from the settings, and
// the formatting of one record with the list its level calls for.

#include <logging/log_record_formater.h>

#include <logging/config.h>

#include "cold_p.h"
#include "format_items_p.h"
#include "log_record_formater_p.h"
#include "qt_compat_p.h"

#include <limits>

namespace logging {

namespace {

const char defaultFormat[] = "#tTf'hh:mm:ss.zzz' #lc [#cm] #ms11";
const char defaultTraceFormat[] = "#tTf'hh:mm:ss.zzz' #cF:#cl [#cm]";

// The format text of a configured string: the built-in one when it is blank.
QByteArray formatText(const QString &configured, const char *builtin)
{
    const QString trimmed = configured.trimmed();
    return trimmed.isEmpty() ? QByteArray(builtin) : trimmed.toLocal8Bit();
}

// The escaping setting of a section: on unless "escape" is 0.
bool escapeSetting(const Config &config, const char *section)
{
    return config.value(section, QLatin1String("escape"), QString()).trimmed() != QLatin1String("0");
}

} // namespace

// ---------------------------------------------------------------------------
// Items

QTLOG_COLD LogRecordFormater::Items::~Items()
{
    clear();
}

QTLOG_COLD void LogRecordFormater::Items::clear()
{
    dayHeader = nullptr;
    for (int i = items.size() - 1; i >= 0; --i)
        delete items.at(i);
    items.clear();
}

QTLOG_COLD void LogRecordFormater::Items::reset(const QList<FormatItem *> &list)
{
    clear();
    items.reserve(list.size());
    for (FormatItem *item : list) {
        items.append(item);
        const FItemTime *time = dynamic_cast<const FItemTime *>(item);
        if (!dayHeader && time && time->mode == FItemTime::DayHeader)
            dayHeader = time;
    }
}

// ---------------------------------------------------------------------------
// LogRecordFormater

QTLOG_COLD LogRecordFormater::LogRecordFormater()
    : state(new State)
    , aloneState(new State)
    , items(new Items)
    , traceItems(new Items)
    , escape(true)
{
    aloneState->alone = true;
    // A configuration without a file yields the built-in formats.
    Config defaults(QString(), false);
    reloadConfig(defaults, nullptr);
}

QTLOG_COLD LogRecordFormater::~LogRecordFormater()
{
    compat::MutexLocker locker(&lock);
    items->clear();
    traceItems->clear();
}

QTLOG_COLD void LogRecordFormater::reloadConfig(Config &config, const char *section)
{
    compat::MutexLocker locker(&lock);
    configStringToItems(*items, formatText(config.outFormat(section), defaultFormat));
    configStringToItems(*traceItems, formatText(config.outTraceFormat(section), defaultTraceFormat));
    escape = escapeSetting(config, section);
}

QByteArray LogRecordFormater::builtinFormat(bool trace)
{
    return QByteArray(trace ? defaultTraceFormat : defaultFormat);
}

QByteArray LogRecordFormater::format(const LogRecord &record)
{
    compat::MutexLocker locker(&lock);
    return formatWith(*state, record);
}

const char *LogRecordFormater::formatAlone(const LogRecord &record, int *size)
{
    compat::MutexLocker locker(&lock);
    formatInto(*aloneState, record, aloneState->line);
    *size = aloneState->line.size();
    return aloneState->line.constData();
}

void LogRecordFormater::restart()
{
    compat::MutexLocker locker(&lock);
    state->lastSecond = std::numeric_limits<qint64>::min() / 2;
}

QByteArray LogRecordFormater::formatWith(State &last, const LogRecord &record)
{
    Line line;
    formatInto(last, record, line);
    return QByteArray(line.constData(), line.size());
}

const char *LogRecordFormater::formatLine(const LogRecord &record, int *size, int *dayHeader)
{
    compat::MutexLocker locker(&lock);
    formatInto(*state, record, state->line, dayHeader);
    *size = state->line.size();
    return state->line.constData();
}

void LogRecordFormater::formatInto(State &last, const LogRecord &record, Line &line, int *dayHeader)
{
    line.resize(0);
    if (!last.alone)
        ++last.sequence;
    OutFItemStream out(&last, &record, line, escape);
    const Items &list = record.level == Trace ? *traceItems : *items;
    if (dayHeader) {
        // The header that a file beginning with this line needs, when the
        // line does not bring one itself.
        *dayHeader = 0;
        if (list.dayHeader && !out.dateChanged && out.timeValid) {
            out.dateChanged = true;
            list.dayHeader->out(out);
            out.dateChanged = false;
            *dayHeader = line.size();
        }
    }
    for (const FormatItem *item : list.items)
        item->out(out);
    if (out.timeWritten) {
        // Keep the time cut to its whole second. An invalid time leaves none.
        last.haveLast = out.timeValid;
        if (out.timeValid) {
            last.lastSecond = out.time.msecs - out.time.msecOfDay % 1000;
            last.lastDay = out.time.day;
        }
    }
    if (out.cut) {
        static const char marker[] = " [cut: record longer than 1 MiB]";
        line.resize(OutFItemStream::maxText - int(sizeof marker - 1));
        line.append(marker, int(sizeof marker - 1));
    }
}

} // namespace logging
