// Escaping of record text: the scan that finds nothing to do in usual text,
// and the UTF-8 decoding behind the escapes.

#include "text_escape_p.h"

#include <cstring>

#ifdef __SSE2__
#  include <emmintrin.h>
#endif

namespace logging {

bool plainText(const char *data, int size)
{
    // A word at a time. A byte below 0x20 borrows in w - 0x2020..., 0x7f
    // becomes 0 and borrows in (w ^ 0x7f7f...) - 0x0101...: both set the
    // byte's top bit, as a byte above 0x7f has it. A borrow that runs on
    // into the next byte comes only from a byte found already.
    typedef unsigned long Word;
    const int wordSize = int(sizeof(Word));
    const Word ones = ~Word(0) / 0xff;
#ifdef __SSE2__
    // Sixteen bytes at a time: signed, a byte above 0x7f is below 0x20 too.
    if (size >= 16) {
        const __m128i space = _mm_set1_epi8(0x20);
        const __m128i del = _mm_set1_epi8(0x7f);
        __m128i hits = _mm_setzero_si128();
        for (int at = 0;; at += 16) {
            if (at > size - 16)
                at = size - 16;     // the last block ends at the end
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(data + at));
            hits = _mm_or_si128(hits, _mm_or_si128(_mm_cmplt_epi8(v, space), _mm_cmpeq_epi8(v, del)));
            if (at == size - 16)
                break;
        }
        return _mm_movemask_epi8(hits) == 0;
    }
#endif
    if (size < wordSize) {
        for (int i = 0; i < size; ++i) {
            const unsigned char c = static_cast<unsigned char>(data[i]);
            if (c < 0x20 || c >= 0x7f)
                return false;
        }
        return true;
    }
    Word found = 0;
    Word w;
    int at = 0;
    for (; at <= size - 2 * wordSize; at += 2 * wordSize) {
        Word v;
        std::memcpy(&w, data + at, sizeof w);
        std::memcpy(&v, data + at + wordSize, sizeof v);
        found |= w | (w - ones * 0x20) | ((w ^ (ones * 0x7f)) - ones)
            | v | (v - ones * 0x20) | ((v ^ (ones * 0x7f)) - ones);
    }
    // What is left: one or two words, the last one ending at the end.
    if (at < size - wordSize) {
        std::memcpy(&w, data + at, sizeof w);
        found |= w | (w - ones * 0x20) | ((w ^ (ones * 0x7f)) - ones);
    }
    if (at < size) {
        std::memcpy(&w, data + size - wordSize, sizeof w);
        found |= w | (w - ones * 0x20) | ((w ^ (ones * 0x7f)) - ones);
    }
    return (found & (ones * 0x80)) == 0;
}

int decodeUtf8(const unsigned char *p, const unsigned char *end, unsigned *code)
{
    const unsigned c = *p;
    if (c < 0xc2 || c > 0xf4)
        return -1;
    const int n = c < 0xe0 ? 2 : c < 0xf0 ? 3 : 4;
    unsigned low = c == 0xe0 ? 0xa0 : c == 0xf0 ? 0x90 : 0x80;
    unsigned high = c == 0xed ? 0x9f : c == 0xf4 ? 0x8f : 0xbf;
    unsigned value = c & (0x7fu >> n);
    for (int i = 1; i < n; ++i) {
        if (p + i >= end || p[i] < low || p[i] > high)
            return -i;
        low = 0x80;
        high = 0xbf;
        value = (value << 6) | (p[i] & 0x3fu);
    }
    *code = value;
    return n;
}

} // namespace logging
