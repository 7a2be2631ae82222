#ifndef QTLOG_CONF_DESTINATION_KEYS_H
#define QTLOG_CONF_DESTINATION_KEYS_H

// The keys of the destinations' own sections, beside the ones every section
// has ("level", "allow", "deny", "format", "trace_format", "escape"): one
// line per key, with the value the destination uses when the key is set
// nowhere and what that default means. Like the common keys, they fall back
// to the global section. A value that the destination does not understand
// gets a warning.
#include <logging/dp_file.h>

#include <QtCore/QString>

struct DestinationKey
{
    const char *section;
    const char *key;
    const char *defaultValue;
    const char *defaultMeaning;     // shown after the default; may be empty
    bool (*understood)(const QString &value);   // null: every value is
};

inline bool isMaxSize(const QString &v) { return v == QLatin1String("0") || logging::DPFile::parseMaxSize(v) > 0; }
inline bool isMaxFiles(const QString &v) { return v == QLatin1String("1") || logging::DPFile::parseMaxFiles(v) != 1; }
inline bool isRecorder(const QString &v) { return v == QLatin1String("0") || logging::DPFile::parseRecorder(v) > 0; }
inline bool isLevel(const QString &v) { return v.size() == 1 && v.at(0) >= QLatin1Char('0') && v.at(0) <= QLatin1Char('5'); }

static const DestinationKey s_destinationKeys[] = {
    { "file", "filename", "", "no file is written", 0 },
    { "file", "max_size", "", "the file only grows", isMaxSize },
    { "file", "max_files", "1", "", isMaxFiles },
    { "file", "recorder", "0", "no flight recorder", isRecorder },
    { "file", "recorder_level", "5", "", isLevel },
    { "file", "recorder_dump", "1", "", isLevel },
};

#endif // QTLOG_CONF_DESTINATION_KEYS_H
