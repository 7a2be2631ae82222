#ifndef QTLOG_FORMAT_PARSER_P_H
#define QTLOG_FORMAT_PARSER_P_H

#include <QtCore/QByteArray>

#include <cstring>

namespace logging {

// A forward reader over one format string.
class ByteArray2CharStream
{
public:
    explicit ByteArray2CharStream(const QByteArray &data)
        : data(data), pos(0), size(data.size())
    {
    }

    bool atEnd() const { return pos >= size; }
    // The next character, or 0 at the end.
    char peek() const { return pos < size ? data.at(pos) : '\0'; }
    void next() { ++pos; }

    // Consumes the next character if it is one of letters and returns its
    // index there; returns -1 and consumes nothing otherwise.
    int lookUp(const char *letters)
    {
        const char c = peek();
        const char *hit = c ? std::strchr(letters, c) : nullptr;
        if (!hit)
            return -1;
        ++pos;
        return int(hit - letters);
    }

    // The text up to the next c (or the end); the reader stops on that c.
    QByteArray before(char c);
    // Moves back n characters; false (and back to the start) if there are fewer.
    bool stepBack(int n);

    QByteArray data;
    int pos;
    int size;
};

} // namespace logging

#endif // QTLOG_FORMAT_PARSER_P_H
