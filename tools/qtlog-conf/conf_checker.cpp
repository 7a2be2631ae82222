#include "conf_checker.h"

#include "destination_keys.h"

#include <logging/config.h>
#include <logging/log_record.h>
#include <logging/log_record_formater.h>
#include <logging/internal/log_record_formater_p.h>
#include <logging/internal/message_handler_p.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QStringList>
#include <QtCore/QTextStream>

namespace {

using logging::Config;

const char *const s_destinations[] = { "console", "file", "syslog", "gui_buffer" };
const int s_destinationCount = 4;
const char *const s_commonKeys[] = { "level", "allow", "deny", "format", "trace_format", "escape" };
const int s_commonKeyCount = 6;
const char *const s_levelNames[] = { "Critical", "Error", "Warning", "Info", "Debug", "Trace" };
const char s_sectionList[] = "console, file, syslog, gui_buffer";

// The parser reports bad lines as records; here they are warnings instead.
void dropMessage(QtMsgType, const char *)
{
}

bool isDestination(const QString &name)
{
    for (int i = 0; i < s_destinationCount; ++i) {
        if (name == QLatin1String(s_destinations[i]))
            return true;
    }
    return false;
}

// A key that a line in section may set: the common keys everywhere, "active"
// and "crash_handler" in the global section, a destination's own keys in its
// section and, since they fall back to it, in the global section.
bool isKnownKey(const QString &section, const QString &key)
{
    for (int i = 0; i < s_commonKeyCount; ++i) {
        if (key == QLatin1String(s_commonKeys[i]))
            return true;
    }
    if (key == QLatin1String("active") || key == QLatin1String("crash_handler"))
        return true;    // misplaced ones get their own warning
    for (size_t i = 0; i < sizeof(s_destinationKeys) / sizeof(s_destinationKeys[0]); ++i) {
        if (key == QLatin1String(s_destinationKeys[i].key)
            && (section.isEmpty() || section == QLatin1String(s_destinationKeys[i].section)))
            return true;
    }
    return false;
}

bool isListKey(const QString &key)
{
    return key == QLatin1String("active") || key == QLatin1String("allow")
        || key == QLatin1String("deny");
}

// " ;" or " #" followed by a blank or the end: a comment the format does not
// have. In a format, a lone '#' is an unknown item, reported as such.
bool looksLikeComment(const QString &value, bool isFormat)
{
    for (int i = 1; i < value.size(); ++i) {
        const QChar c = value.at(i);
        if ((c == QLatin1Char(';') || (c == QLatin1Char('#') && !isFormat)) && value.at(i - 1).isSpace()
            && (i + 1 == value.size() || value.at(i + 1).isSpace()))
            return true;
    }
    return false;
}

QString sectionText(const QString &section)
{
    return section.isEmpty() ? QString::fromLatin1("the global section")
                             : QLatin1Char('[') + section + QLatin1Char(']');
}

QString levelText(int level)
{
    return QString::fromLatin1("%1 (%2)").arg(level).arg(QLatin1String(s_levelNames[level]));
}

class Checker
{
public:
    Checker(const QString &fileName, QTextStream &out)
        : fileName(fileName), out(out), config(fileName, false), warningCount(0)
    {
    }

    void checkLines();
    void showDestinations();
    int warnings() const { return warningCount; }

private:
    void warn(const Config::Settings::Line &line, const QString &text);
    void checkKey(const Config::Settings::Line &line);
    void checkFormat(const Config::Settings::Line &line);
    QString origin(const char *dest, const char *key) const;
    void showValue(const char *dest, const char *key, const QString &value);
    void showSamples(const char *dest, int maxLevel);

    QString fileName;
    QTextStream &out;
    Config config;
    int warningCount;
};

void Checker::warn(const Config::Settings::Line &line, const QString &text)
{
    ++warningCount;
    out << fileName << ':' << line.number << ": warning: " << text << "\n    " << line.text << '\n';
}

void Checker::checkLines()
{
    QList<Config::Settings::Line> lines;
    Config::Settings parsed(fileName, &lines);
    for (int i = 0; i < lines.size(); ++i) {
        const Config::Settings::Line &line = lines.at(i);
        switch (line.kind) {
        case Config::Settings::Line::Malformed:
            warn(line, QString::fromLatin1("not a setting (\"key = value\"), a section header or a "
                                           "comment: the line is ignored"));
            break;
        case Config::Settings::Line::Header:
            if (!isDestination(line.section))
                warn(line, QString::fromLatin1("unknown section [%1]: its keys are read by nothing; "
                                               "sections are %2")
                               .arg(line.section, QLatin1String(s_sectionList)));
            break;
        case Config::Settings::Line::KeyValue:
            checkKey(line);
            break;
        default:
            break;
        }
    }
}

void Checker::checkKey(const Config::Settings::Line &line)
{
    const QString &key = line.key;
    const QString &value = line.value;
    const int eq = line.text.indexOf(QLatin1Char('='));
    if (!line.text.at(eq - 1).isSpace()) {
        // The parser drops the character before '=': "level=3" sets "leve".
        const QString meant = line.text.left(eq).trimmed();
        warn(line, QString::fromLatin1("the key is read as \"%1\": the character just before '=' is "
                                       "dropped; write \"%2 = %3\"")
                       .arg(key, meant, value));
        return;
    }
    const bool knownSection = line.section.isEmpty() || isDestination(line.section);
    if (knownSection && !isKnownKey(line.section, key)) {
        warn(line, QString::fromLatin1("unknown key \"%1\" in %2: it has no effect")
                       .arg(key, sectionText(line.section)));
        return;
    }
    const bool isFormat = key == QLatin1String("format") || key == QLatin1String("trace_format");
    const bool comment = looksLikeComment(value, isFormat);
    if (comment)
        warn(line, QString::fromLatin1("there are no comments after a value: the value is \"%1\"; "
                                       "put the comment on a line of its own")
                       .arg(value));
    if (key == QLatin1String("level")) {
        bool ok = false;
        const int level = value.toInt(&ok, 10);
        if (!ok || level < 0 || level > 5)
            warn(line, QString::fromLatin1("the level \"%1\" is not a number from 0 to 5: "
                                           "4 (Debug) is used").arg(value));
    }
    if (key == QLatin1String("escape") && !comment && value != QLatin1String("0")
        && value != QLatin1String("1"))
        warn(line, QString::fromLatin1("the value \"%1\" of \"escape\" is not understood: "
                                       "the default is used (only 0 turns escaping off)").arg(value));
    if (isListKey(key) && value.contains(QLatin1Char('\t')))
        warn(line, QString::fromLatin1("a tab does not separate the names of \"%1\"; use blanks")
                       .arg(key));
    if ((key == QLatin1String("active") || key == QLatin1String("crash_handler"))
        && !line.section.isEmpty()) {
        warn(line, QString::fromLatin1("\"%1\" is read only above the first section; here in "
                                       "[%2] it has no effect").arg(key, line.section));
    } else if (key == QLatin1String("crash_handler")) {
        if (value != QLatin1String("0") && value != QLatin1String("1"))
            warn(line, QString::fromLatin1("the value \"%1\" of \"crash_handler\" is not understood: "
                                           "the handler is installed (only 0 leaves it out)").arg(value));
    } else if (key == QLatin1String("active")) {
        if (!comment) {
            const QStringList names = value.split(QLatin1Char(' '));
            for (int i = 0; i < names.size(); ++i) {
                if (!names.at(i).isEmpty() && !names.at(i).contains(QLatin1Char('\t'))
                    && !isDestination(names.at(i)))
                    warn(line, QString::fromLatin1("\"active\" names no destination \"%1\"; "
                                                   "destinations are %2")
                                   .arg(names.at(i), QLatin1String(s_sectionList)));
            }
        }
    }
    if (isFormat)
        checkFormat(line);
    for (size_t i = 0; i < sizeof(s_destinationKeys) / sizeof(s_destinationKeys[0]); ++i) {
        const DestinationKey &known = s_destinationKeys[i];
        if (key == QLatin1String(known.key) && known.understood && !comment
            && !known.understood(value))
            warn(line, QString::fromLatin1("the value \"%1\" of \"%2\" is not understood: "
                                           "the default is used").arg(value, key));
    }
}

void Checker::checkFormat(const Config::Settings::Line &line)
{
    // The formatter's own parser says which '#' starts no item.
    const QByteArray text = line.value.trimmed().toLocal8Bit();
    QList<int> unknown;
    logging::LogRecordFormater::Items items;
    logging::LogRecordFormater::configStringToItems(items, text, &unknown);
    for (int i = 0; i < unknown.size(); ++i) {
        const QByteArray item = text.mid(unknown.at(i), 2);
        warn(line, item.size() < 2
                       ? QString::fromLatin1("a '#' at the end of the format is dropped")
                       : QString::fromLatin1("unknown format item \"%1\": the '#' is dropped "
                                             "(items are #l, #t, #m, #c, #p, #n)")
                             .arg(QString::fromLocal8Bit(item.constData(), item.size())));
    }
}

QString Checker::origin(const char *dest, const char *key) const
{
    if (dest && config.keys(dest).contains(QLatin1String(key)))
        return QString::fromLatin1("from [%1]").arg(QLatin1String(dest));
    if (config.keys(0).contains(QLatin1String(key)))
        return QString::fromLatin1("from the global section");
    return QString::fromLatin1("by default");
}

void Checker::showValue(const char *dest, const char *key, const QString &value)
{
    const QString setting = QString::fromLatin1("  %1 = %2").arg(QLatin1String(key), value);
    out << setting.leftJustified(40) << "  " << origin(dest, key) << '\n';
}

void Checker::showSamples(const char *dest, int maxLevel)
{
    logging::LogRecordFormater formatter;
    formatter.reloadConfig(config, dest);
    const QDateTime time(QDate(2026, 1, 15), QTime(14, 3, 27, 512));
    out << "  sample lines:\n";
    for (int level = logging::Critical; level <= maxLevel; ++level) {
        // A sample's process and thread, not qtlog-conf's own.
        const logging::LogRecord record(logging::Level(level), time.addMSecs(level), QLatin1String("media"),
                                        QByteArray("message text"), QByteArray("void Player::play()"),
                                        QByteArray("src/player.cpp"), 42, Q_INT64_C(12345678) + level,
                                        1234, 1234, QLatin1String("player"));
        const QByteArray line = formatter.format(record);
        out << "    " << QString::fromLocal8Bit(line.constData(), line.size()) << '\n';
    }
    QStringList dropped;
    for (int level = maxLevel + 1; level <= logging::Trace; ++level)
        dropped << QLatin1String(s_levelNames[level]);
    if (!dropped.isEmpty())
        out << "    (" << dropped.join(QLatin1String(", ")) << ": not written at this level)\n";
}

void Checker::showDestinations()
{
    const QStringList active = config.active();
    out << '\n';
    showValue(0, "active", active.join(QLatin1String(" ")));
    for (int i = 0; i < s_destinationCount; ++i) {
        const char *dest = s_destinations[i];
        out << "\n[" << dest << "] ";
        if (QLatin1String(dest) == QLatin1String("gui_buffer"))
            out << "used by every DPBuffer the application creates\n";
        else
            out << (active.contains(QLatin1String(dest)) ? "active\n" : "not active\n");
        const int level = config.maxLevel(dest);
        showValue(dest, "level", levelText(level));
        showValue(dest, "allow", config.allowMod(dest).join(QLatin1String(" ")));
        showValue(dest, "deny", config.denyMod(dest).join(QLatin1String(" ")));
        const QString format = config.outFormat(dest);
        const QString traceFormat = config.outTraceFormat(dest);
        showValue(dest, "format", format.trimmed().isEmpty()
                      ? QString::fromLatin1(logging::LogRecordFormater::builtinFormat(false)) : format);
        showValue(dest, "trace_format", traceFormat.trimmed().isEmpty()
                      ? QString::fromLatin1(logging::LogRecordFormater::builtinFormat(true)) : traceFormat);
        showValue(dest, "escape", config.value(dest, QLatin1String("escape"), QLatin1String("1")));
        for (size_t k = 0; k < sizeof(s_destinationKeys) / sizeof(s_destinationKeys[0]); ++k) {
            const DestinationKey &known = s_destinationKeys[k];
            if (QLatin1String(known.section) != QLatin1String(dest))
                continue;
            const QString value = config.value(dest, QLatin1String(known.key),
                                               QLatin1String(known.defaultValue));
            const bool isDefault = origin(dest, known.key).startsWith(QLatin1String("by"));
            showValue(dest, known.key, isDefault && *known.defaultMeaning
                          ? value + QString::fromLatin1("(%1)").arg(QLatin1String(known.defaultMeaning))
                          : value);
        }
        showSamples(dest, level);
    }
}

} // namespace

int checkSettingsFile(const QString &fileName, QTextStream &out, QTextStream &err)
{
    QFile file(fileName);
    if (QFileInfo(fileName).isDir() || !file.open(QIODevice::ReadOnly)) {
        err << "qtlog-conf: cannot read " << fileName << ": "
            << (QFileInfo(fileName).isDir() ? QString::fromLatin1("is a directory") : file.errorString())
            << '\n';
        err.flush();
        return 2;
    }
    file.close();

    logging::compat::installMessageHandler(dropMessage);
    Checker checker(fileName, out);
    checker.checkLines();
    checker.showDestinations();
    logging::compat::installMessageHandler(0);

    const int warnings = checker.warnings();
    out << '\n' << fileName << ": ";
    if (warnings == 0)
        out << "no warnings\n";
    else
        out << warnings << (warnings == 1 ? " warning\n" : " warnings\n");
    out.flush();
    return warnings ? 1 : 0;
}
