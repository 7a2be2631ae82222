// The time item's patterns: compiled into short programs that write the
// usual fields by hand, and left to QDateTime::toString() otherwise.

#include <logging/log_record.h>

#include "cold_p.h"
#include "format_items_p.h"
#include "local_time_p.h"

#include <QtCore/QVarLengthArray>

namespace logging {

namespace {

// Writes value, at least digits wide with leading zeros, at out.
char *writeDigits(char *out, int value, int digits)
{
    char *end = out + digits;
    for (char *p = end; p != out;) {
        *--p = char('0' + value % 10);
        value /= 10;
    }
    return end;
}

// Codes of the time pattern programs; text is kept as it is (below 0x80).
enum PatternCode : unsigned char {
    Hour = 0x80, Minute, Second, Millisecond, Year, Month, Day
};

const QByteArray &builtinPlan(const char *pattern)
{
    static const QByteArray dayHeader = FItemTime::compilePattern(QLatin1String("--- yyyy-MM-dd\n"));
    static const QByteArray date = FItemTime::compilePattern(QLatin1String("yyyy-MM-dd"));
    static const QByteArray time = FItemTime::compilePattern(QLatin1String("hh:mm:ss"));
    static const QByteArray msecs = FItemTime::compilePattern(QLatin1String("     zzz"));
    static const QByteArray none;
    switch (pattern[0]) {
    case '-': return dayHeader;
    case 'y': return date;
    case 'h': return time;
    case ' ': return msecs;
    default: return none;
    }
}

} // namespace

QTLOG_COLD QByteArray FItemTime::compilePattern(const QString &pattern)
{
    // The first byte says whether the date is needed.
    QByteArray plan(1, '\0');
    const int size = pattern.size();
    for (int i = 0; i < size;) {
        const ushort c = pattern.at(i).unicode();
        int run = 1;
        while (i + run < size && pattern.at(i + run).unicode() == c)
            ++run;
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        if (!letter) {
            if (c >= 0x80 || c == '\'' || c == 0)
                return QByteArray();
            plan.append(QByteArray(run, char(c)));
        } else if (c == 'h' && run == 2) {
            plan += char(Hour);
        } else if (c == 'm' && run == 2) {
            plan += char(Minute);
        } else if (c == 's' && run == 2) {
            plan += char(Second);
        } else if (c == 'z' && run == 3) {
            plan += char(Millisecond);
        } else if (c == 'y' && run == 4) {
            plan += char(Year);
            plan[0] = 1;
        } else if (c == 'M' && run == 2) {
            plan += char(Month);
            plan[0] = 1;
        } else if (c == 'd' && run == 2) {
            plan += char(Day);
            plan[0] = 1;
        } else {
            // Anything else (12-hour clock, names, single digits, zones)
            // is left to QDateTime.
            return QByteArray();
        }
        i += run;
    }
    return plan;
}

bool FItemTime::appendTime(OutFItemStream &out, const QByteArray &plan)
{
    if (plan.isEmpty() || !out.timeValid)
        return false;
    const int ms = out.time.msecOfDay;
    const char *p = plan.constData();
    const char *end = p + plan.size();
    int year = 0, month = 0, day = 0;
    if (*p++) {
        civilDate(out.time.day, &year, &month, &day);
        if (year < 1000 || year > 9999)
            return false;
    }
    // Each code writes at most four characters.
    QVarLengthArray<char, 64> text(plan.size() * 4);
    char *const start = text.data();
    char *o = start;
    for (; p != end; ++p) {
        switch (static_cast<unsigned char>(*p)) {
        case Hour: o = writeDigits(o, ms / 3600000, 2); break;
        case Minute: o = writeDigits(o, ms / 60000 % 60, 2); break;
        case Second: o = writeDigits(o, ms / 1000 % 60, 2); break;
        case Millisecond: o = writeDigits(o, ms % 1000, 3); break;
        case Year: o = writeDigits(o, year, 4); break;
        case Month: o = writeDigits(o, month, 2); break;
        case Day: o = writeDigits(o, day, 2); break;
        default: *o++ = *p; break;
        }
    }
    out.append(start, int(o - start));
    return true;
}

void FItemTime::append2Stream(OutFItemStream &out, const char *builtinPattern) const
{
    if (format.isEmpty()) {
        if (appendTime(out, builtinPlan(builtinPattern)))
            return;
    } else if (format.constData() == planFormat.constData() && appendTime(out, plan)) {
        // format is the string that plan was made from: shared, not copied.
        return;
    }
    const QString pattern = format.isEmpty() ? QString::fromUtf8(builtinPattern) : format;
    out.append(out.record->dateTime.toString(pattern).toLocal8Bit());
}

} // namespace logging
