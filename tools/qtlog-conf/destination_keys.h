#ifndef QTLOG_CONF_DESTINATION_KEYS_H
#define QTLOG_CONF_DESTINATION_KEYS_H

// The keys of the destinations' own sections, beside the ones every section
// has ("level", "allow", "deny", "format", "trace_format"): one line per key,
// with the value the destination uses when the key is set nowhere and what
// that default means. Like the common keys, they fall back to the global
// section.
struct DestinationKey
{
    const char *section;
    const char *key;
    const char *defaultValue;
    const char *defaultMeaning;     // shown after the default; may be empty
};

static const DestinationKey s_destinationKeys[] = {
    { "file", "filename", "", "no file is written" },
    { "file", "max_size", "", "the file only grows" },
    { "file", "max_files", "1", "" },
};

#endif // QTLOG_CONF_DESTINATION_KEYS_H
