#ifndef QTLOG_CONFIG_H
#define QTLOG_CONFIG_H

#include <logging/qtlog_global.h>

#include <QtCore/QHash>
#include <QtCore/QMutex>
#include <QtCore/QList>
#include <QtCore/QReadWriteLock>
#include <QtCore/QScopedPointer>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace logging {

// Read access to the settings file, with a destination's own section falling
// back to the global section (the lines above the first header) and then to a
// built-in default. The parsed file lives only during a refresh().
//
// Section names are the destinations' names: "console", "file", "syslog",
// "gui_buffer". Keys: "active" (global only), "level", "allow", "deny",
// "format", "trace_format", and the file destination's "filename",
// "max_size" and "max_files" (see dp_file.h).
class QTLOG_EXPORT Config
{
public:
    class Settings;
    class ReloadThread;

    // With reload true and a non-empty name, a thread checks the file's
    // modification time every 5 seconds and refreshes when it grows newer.
    // The file itself is not read here.
    Config(const QString &fileName, bool reload);
    // Stops the reload thread (returns within about 500 ms unless a refresh
    // is under way, which is let finish).
    ~Config();

    // The parsed file, read on first use after construction or freeFile().
    Settings *file() const;
    void freeFile();

    // Re-reads the file once and re-applies it to every registered
    // destination: the "active" list, then each one's formats, filter and
    // own settings. Refreshes of one Config run one at a time.
    void refresh();

    // A Config without a file whose look-ups answer as this one's do now.
    // The caller owns it.
    Config *snapshot() const;

    // key in dest's section, else in the global section, else defaultValue.
    // A key present with an empty value counts as set. A null dest reads the
    // global section.
    QString value(const char *dest, const QString &key, const QString &defaultValue) const;
    // The key names of dest's own section, in no particular order.
    QStringList keys(const char *dest) const;

    // "active": destination names separated by blanks; default "console".
    QStringList active() const;
    // "level": 0 (Critical) to 5 (Trace); anything else gives 4 (Debug).
    int maxLevel(const char *dest) const;
    // "allow" and "deny": module-name prefixes separated by blanks.
    QStringList allowMod(const char *dest) const;
    QStringList denyMod(const char *dest) const;
    // "format" and "trace_format"; a null string when not set.
    QString outFormat(const char *dest) const;
    QString outTraceFormat(const char *dest) const;

private:
    Q_DISABLE_COPY(Config)

    QString fileName;
    mutable QScopedPointer<Settings> settings;
    ReloadThread *reloadThread;
    // Held for a whole refresh: the parsed file is read and freed there
    // without a lock of its own.
    QMutex refreshMutex;
};

// The parsed settings file: an INI-like text in UTF-8.
//
// - Blank lines and lines starting with ';' or '#' are ignored; there are no
//   inline comments.
// - "[name]" starts a section; a name is one run of word characters, blanks
//   around it allowed. Repeated sections merge.
// - "key = value" stores a value; the character just before the first '=' is
//   always dropped from the key, so a key needs a blank before '='. The last
//   value of a key wins.
// - Any other line is reported as a Debug record of module "logging.conf"
//   ("Error in line: N") and skipped.
// A missing or unreadable file gives an empty configuration, silently.
class QTLOG_EXPORT Config::Settings
{
public:
    // One line of the file as the parser classified it.
    struct Line
    {
        enum Kind { Blank, Comment, Header, KeyValue, Malformed };

        int number;         // physical line number, from 1
        Kind kind;
        QString text;       // the line, trimmed
        QString section;    // the section it belongs to (a header: the new one)
        QString key;        // KeyValue: the key name as stored
        QString value;      // KeyValue: the value as stored
    };

    explicit Settings(const QString &fileName);
    // Parses the same way, but hands every line to lines (when not null)
    // instead of reporting malformed ones.
    Settings(const QString &fileName, QList<Line> *lines);

    QString value(const QString &section, const QString &key, const QString &defaultValue) const;
    QStringList keys(const QString &section) const;

private:
    Q_DISABLE_COPY(Settings)
    friend class Config;

    void parse(const QString &fileName, QList<Line> *lines);

    QHash<QString, QHash<QString, QString> > sections;
    mutable QReadWriteLock lock;
};

} // namespace logging

#endif // QTLOG_CONFIG_H
