#ifndef QTLOG_SIGNAL_SAFE_P_H
#define QTLOG_SIGNAL_SAFE_P_H

// Text output that a signal handler may use: no heap, no locks, no stdio.

#include <errno.h>
#include <unistd.h>

namespace logging {

// write(2) until everything is out or it fails for good.
inline void writeAll(int fd, const char *data, int size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size_t(size));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        data += n;
        size -= int(n);
    }
}

// Decimal digits of value at out, zero-padded to width; returns the end.
inline char *putNumber(char *out, unsigned long value, int width)
{
    char digits[24];
    int n = 0;
    do {
        digits[n++] = char('0' + value % 10);
        value /= 10;
    } while (value && n < int(sizeof digits));
    while (n < width && n < int(sizeof digits))
        digits[n++] = '0';
    while (n > 0)
        *out++ = digits[--n];
    return out;
}

inline char *putText(char *out, const char *text)
{
    while (*text)
        *out++ = *text++;
    return out;
}

} // namespace logging

#endif // QTLOG_SIGNAL_SAFE_P_H
