#include <logging/config.h>

#include <logging/destpoint.h>
#include <logging/logging.h>

#include "config_p.h"
#include "report_deferral_p.h"
#include "qt_compat_p.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#if QT_VERSION >= 0x060000
#  include <QtCore/QRegularExpression>
#else
#  include <QtCore/QRegExp>
#endif

#include <sys/stat.h>

namespace logging {

namespace compat {

#if QT_VERSION < 0x050000

// A file's modification time to the millisecond; invalid when the file is
// missing. Qt 4's QFileInfo knows whole seconds only, which would hide a
// change made within the second of the last one.
inline QDateTime fileModified(const QString &fileName)
{
    struct stat info;
    if (fileName.isEmpty() || ::stat(QFile::encodeName(fileName).constData(), &info) != 0)
        return QDateTime();
    return QDateTime::fromMSecsSinceEpoch(qint64(info.st_mtim.tv_sec) * 1000 + info.st_mtim.tv_nsec / 1000000);
}

#else // Qt 5 and Qt 6

// A file's modification time to the millisecond; invalid when the file is
// missing.
inline QDateTime fileModified(const QString &fileName)
{
    return QFileInfo(fileName).lastModified();
}

#endif

// A case-sensitive regular expression whose classes "\w" (letter, digit,
// combining mark or '_') and "\s" (white space as QChar::isSpace() sees it)
// mean the same on every Qt version. They may appear inside brackets only.
class RegExp
{
public:
    explicit RegExp(const char *pattern)
#if QT_VERSION >= 0x060000
        : rx(translate(pattern))
#else
        : rx(QString::fromLatin1(pattern), Qt::CaseSensitive, QRegExp::RegExp)
#endif
    {
    }

    // True when the expression matches somewhere in text.
    bool matches(const QString &text) const
    {
#if QT_VERSION < 0x060000 && defined(QTLOG_TSAN)
        const IgnoreQt ignore;
#endif
#if QT_VERSION >= 0x060000
        return rx.match(text).hasMatch();
#else
        return rx.indexIn(text) != -1;
#endif
    }

private:
#if QT_VERSION >= 0x060000
    // PCRE's own \w and \s are ASCII-only; spell out QRegExp's meaning.
    static QString translate(const char *pattern)
    {
        QString p = QString::fromLatin1(pattern);
        p.replace(QLatin1String("\\w"), QLatin1String("\\p{L}\\p{N}\\p{M}_"));
        p.replace(QLatin1String("\\s"), QLatin1String("\\p{Z}\\x{09}-\\x{0D}\\x{85}"));
        return p;
    }
    QRegularExpression rx;
#else
#  ifdef QTLOG_TSAN
    // QRegExp shares compiled patterns between threads through a cache under
    // a lock of Qt's own, which the sanitizer cannot see: it looks away while
    // a pattern is made, used and dropped. open and close bracket rx, in
    // construction and, reversed, in destruction.
    IgnoreQt open;
    QRegExp rx;
    UnignoreQt close;
#  else
    QRegExp rx;
#  endif
#endif
};

} // namespace compat

namespace {

const char s_levelCName[] = "level";
const char s_allowCName[] = "allow";
const char s_denyCName[] = "deny";
const char s_activeCName[] = "active";
const char s_outFormatCName[] = "format";
const char s_outTraceFormatCName[] = "trace_format";

const int s_reloadPeriod = 5;           // seconds between two looks at the file
const unsigned long s_stopWait = 500;   // ms that ~Config waits for the thread

// Splits at each space character (U+0020 only), dropping empty parts.
QStringList splitAtBlanks(const QString &text)
{
    QStringList parts;
    const int size = text.size();
    int start = 0;
    for (int i = 0; i <= size; ++i) {
        if (i == size || text.at(i) == QLatin1Char(' ')) {
            if (i > start)
                parts.append(text.mid(start, i - start));
            start = i + 1;
        }
    }
    return parts;
}

} // namespace

// ---------------------------------------------------------------------------
// Config::Settings

Config::Settings::Settings(const QString &fileName)
{
    parse(fileName, nullptr);
}

Config::Settings::Settings(const QString &fileName, QList<Line> *lines)
{
    parse(fileName, lines);
}

void Config::Settings::parse(const QString &fileName, QList<Line> *lines)
{
    // A bad line is reported while the lock is held: hold the reports back
    // until it is released.
    ReportDeferral deferral;
    compat::WriteLocker locker(&lock);

    if (fileName.isEmpty())
        return;
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        return;

    const compat::RegExp comment("^[;#].*$");
    const compat::RegExp header("^[\\[][\\s]*[\\w]+[\\s]*[\\]]$");
    const compat::RegExp keyLine("^[\\w]+[\\s]*[=][\\s]*");

    QString section;
    int lineNumber = 0;
    while (!file.atEnd()) {
        const QByteArray raw = file.readLine();
        if (raw.isEmpty())
            break;  // a read error, or not a regular file: never loop on it
        const QString line = QString::fromUtf8(raw.constData(), raw.size()).trimmed();
        ++lineNumber;

        Line parsed;
        parsed.number = lineNumber;
        parsed.text = line;
        if (line.isEmpty() || comment.matches(line)) {
            parsed.kind = line.isEmpty() ? Line::Blank : Line::Comment;
        } else if (header.matches(line)) {
            section = line.mid(1, line.size() - 2).trimmed();
            parsed.kind = Line::Header;
        } else if (keyLine.matches(line)) {
            // The character just before '=' is dropped from the name; the
            // format has always worked that way and files rely on it.
            const int eq = line.indexOf(QLatin1Char('='));
            parsed.kind = Line::KeyValue;
            parsed.key = line.left(eq - 1).trimmed();
            parsed.value = line.mid(eq + 1).trimmed();
            sections[section].insert(parsed.key, parsed.value);
        } else {
            parsed.kind = Line::Malformed;
        }
        parsed.section = section;
        if (lines) {
            lines->append(parsed);
            continue;
        }
        if (parsed.kind != Line::Malformed)
            continue;
        toLog(Debug, detail::bytes("logging"), detail::bytes(__FILE__), __LINE__,
              detail::bytes("logging::Config::Settings::Settings(const QString&)"),
              detail::bytes("conf"))
            << "Error in line:" << lineNumber;
    }
}

QString Config::Settings::value(const QString &section, const QString &key,
                                const QString &defaultValue) const
{
    compat::ReadLocker locker(&lock);
    const QHash<QString, QHash<QString, QString> >::const_iterator s = sections.constFind(section);
    if (s == sections.constEnd())
        return defaultValue;
    const QHash<QString, QString>::const_iterator k = s->constFind(key);
    return k == s->constEnd() ? defaultValue : k.value();
}

QStringList Config::Settings::keys(const QString &section) const
{
    compat::ReadLocker locker(&lock);
    return sections.value(section).keys();
}

// ---------------------------------------------------------------------------
// Config

Config::Config(const QString &fileName, bool reload)
    : fileName(fileName)
    , reloadThread(nullptr)
{
    if (reload && !fileName.isEmpty()) {
        reloadThread = new ReloadThread(this, s_reloadPeriod);
        reloadThread->start(QThread::LowestPriority);
    }
}

Config::~Config()
{
    if (reloadThread) {
        reloadThread->requestStop();
        // The sleep is interruptible, so this returns at once unless a
        // refresh is running; that one is let finish, since it works on this
        // object and on the destinations.
        if (!reloadThread->wait(s_stopWait))
            reloadThread->wait();
        delete reloadThread;
    }
}

Config::Settings *Config::file() const
{
    if (!settings)
        settings.reset(new Settings(fileName));
    return settings.data();
}

void Config::freeFile()
{
    settings.reset();
}

void Config::refresh()
{
    // Reports of the parser and the destinations wait until the registry
    // and the destinations are unlocked again.
    ReportDeferral deferral;
    compat::MutexLocker locker(&refreshMutex);
    freeFile();
    DestPoint::allDestPointManager()->refreshConfig(*this);
    freeFile();
}

Config *Config::snapshot() const
{
    Config *copy = new Config(QString(), false);
    Settings *parsed = new Settings(QString());
    {
        const Settings *source = file();
        compat::ReadLocker locker(&source->lock);
        parsed->sections = source->sections;
    }
    copy->settings.reset(parsed);
    return copy;
}

QString Config::value(const char *dest, const QString &key, const QString &defaultValue) const
{
    const Settings *parsed = file();
    const QString global = parsed->value(QString(), key, defaultValue);
    return parsed->value(QString::fromLatin1(dest), key, global);
}

QStringList Config::keys(const char *dest) const
{
    return file()->keys(QString::fromLatin1(dest));
}

QStringList Config::active() const
{
    return splitAtBlanks(value(nullptr, QLatin1String(s_activeCName), QLatin1String("console")));
}

int Config::maxLevel(const char *dest) const
{
    bool ok = false;
    const int level = value(dest, QLatin1String(s_levelCName), QLatin1String("4")).toInt(&ok, 10);
    return ok && unsigned(level) <= 5u ? level : 4;
}

QStringList Config::allowMod(const char *dest) const
{
    return splitAtBlanks(value(dest, QLatin1String(s_allowCName), QString()));
}

QStringList Config::denyMod(const char *dest) const
{
    return splitAtBlanks(value(dest, QLatin1String(s_denyCName), QString()));
}

QString Config::outFormat(const char *dest) const
{
    return value(dest, QLatin1String(s_outFormatCName), QString());
}

QString Config::outTraceFormat(const char *dest) const
{
    return value(dest, QLatin1String(s_outTraceFormatCName), QString());
}

// ---------------------------------------------------------------------------
// Config::ReloadThread

Config::ReloadThread::ReloadThread(Config *config, int period)
    : config(config)
    , period(period)
    , stop(false)
{
    lastModify = currLastModify();
}

Config::ReloadThread::~ReloadThread()
{
}

QDateTime Config::ReloadThread::currLastModify()
{
    return compat::fileModified(config->fileName);
}

void Config::ReloadThread::requestStop()
{
    compat::MutexLocker locker(&stopMutex);
    stop = true;
    stopCondition.wakeAll();
}

bool Config::ReloadThread::sleepPeriod()
{
    compat::MutexLocker locker(&stopMutex);
    QElapsedTimer slept;
    slept.start();
    const qint64 total = qint64(period) * 1000;
    while (!stop) {
        const qint64 left = total - slept.elapsed();
        if (left <= 0)
            break;
        stopCondition.wait(&stopMutex, static_cast<unsigned long>(left));
    }
    return stop;
}

void Config::ReloadThread::run()
{
    for (;;) {
        if (sleepPeriod())
            return;
        // Only a strictly newer time counts; a deleted file (invalid time)
        // never does, and a file created since the start always does.
        const QDateTime current = currLastModify();
        if (!current.isValid() || (lastModify.isValid() && !(lastModify < current)))
            continue;
        lastModify = currLastModify();
        config->refresh();
        toLog(Info, detail::bytes("logging"), detail::bytes(__FILE__), __LINE__,
              detail::bytes("virtual void logging::Config::ReloadThread::run()"),
              detail::bytes("conf.reloader"))
            << "Config file has modify:" << config->fileName;
    }
}

} // namespace logging
