// Text scanning and number formatting shared by the readers and writers of text files.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kv {

// Walks a buffer line by line. A line excludes its line feed; a carriage return before the
// line feed stays in the line. The last line need not end in a line feed.
// Line feeds are found 64 bytes at a time (SSE2 compares into a bit mask), so that short
// lines, the common case in mesh text, cost a few instructions each instead of a call.
struct LineScanner {
    const char* pos;
    const char* end;

    LineScanner(const char* data, size_t size) : pos(data), end(data + size), block_(data), mask_(maskAt(data)) {}

    bool next(std::string_view& line) {
        if (pos >= end) return false;
        while (mask_ == 0) {
            block_ += 64;
            if (block_ >= end) {
                line = std::string_view(pos, static_cast<size_t>(end - pos));
                pos = end;
                return true;
            }
            mask_ = maskAt(block_);
        }
        const char* nl = block_ + std::countr_zero(mask_);
        mask_ &= mask_ - 1;
        line = std::string_view(pos, static_cast<size_t>(nl - pos));
        pos = nl + 1;
        return true;
    }

private:
    const char* block_;  // start of the 64-byte block that mask_ describes
    uint64_t mask_;      // line feeds in that block not yet handed out, one bit per byte

    uint64_t maskAt(const char* p) const {
        if (p >= end) return 0;
        uint64_t m = 0;
#if defined(__SSE2__)
        if (end - p >= 64) {
            const __m128i nl = _mm_set1_epi8('\n');
            for (int i = 0; i < 4; ++i) {
                __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * i));
                m |= uint64_t(uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(v, nl)))) << (16 * i);
            }
            return m;
        }
#endif
        const size_t n = std::min<size_t>(64, static_cast<size_t>(end - p));
        for (size_t i = 0; i < n; ++i) m |= uint64_t(p[i] == '\n') << i;
        return m;
    }
};

// The end of the line that starts at p: its line feed, or end.
inline const char* lineEnd(const char* p, const char* end) {
    const void* nl = std::memchr(p, '\n', static_cast<size_t>(end - p));
    return nl ? static_cast<const char*>(nl) : end;
}

// The first blank at or after p, or end: 16 bytes at a time (SSE2), then 8 (bit tricks).
inline const char* findBlank(const char* p, const char* end) {
#if defined(__SSE2__)
    for (const __m128i blank = _mm_set1_epi8(' '); end - p >= 16; p += 16) {
        const auto m = unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)), blank)));
        if (m) return p + std::countr_zero(m);
    }
#endif
    if constexpr (std::endian::native == std::endian::little) {
        for (; end - p >= 8; p += 8) {
            uint64_t w;
            std::memcpy(&w, p, 8);
            const uint64_t x = w ^ 0x2020202020202020ull;  // blank bytes become zero
            const uint64_t z = (x - 0x0101010101010101ull) & ~x & 0x8080808080808080ull;
            if (z) return p + std::countr_zero(z) / 8;  // the lowest flagged byte is exact
        }
    }
    while (p < end && *p != ' ') ++p;
    return p;
}

// Which of the 16 * blocks (at most 64) bytes at p are blanks (a space, \t or \r), decimal digits,
// points and minus signs: bit i for byte i. Without SSE2 the masks are built byte by byte, slower
// than the readers that do without them (kFastByteMasks tells).
#if defined(__SSE2__)
inline constexpr bool kFastByteMasks = true;
#else
inline constexpr bool kFastByteMasks = false;
#endif
struct ByteMasks {
    uint64_t blank = 0, digit = 0, point = 0, minus = 0;
};
inline ByteMasks byteMasks(const char* p, int blocks) {
    ByteMasks m;
#if defined(__SSE2__)
    const auto bits = [](__m128i v, int i) { return uint64_t(uint32_t(_mm_movemask_epi8(v))) << (16 * i); };
    const auto is = [](__m128i v, char c) { return _mm_cmpeq_epi8(v, _mm_set1_epi8(c)); };
    for (int i = 0; i < blocks; ++i) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * i));
        const __m128i d = _mm_sub_epi8(v, _mm_set1_epi8('0'));
        m.blank |= bits(_mm_or_si128(_mm_or_si128(is(v, ' '), is(v, '\t')), is(v, '\r')), i);
        m.digit |= bits(_mm_cmpeq_epi8(_mm_min_epu8(d, _mm_set1_epi8(9)), d), i);
        m.point |= bits(is(v, '.'), i);
        m.minus |= bits(is(v, '-'), i);
    }
#else
    for (int i = 0; i < 16 * blocks; ++i) {
        m.blank |= uint64_t(p[i] == ' ' || p[i] == '\t' || p[i] == '\r') << i;
        m.digit |= uint64_t(p[i] >= '0' && p[i] <= '9') << i;
        m.point |= uint64_t(p[i] == '.') << i;
        m.minus |= uint64_t(p[i] == '-') << i;
    }
#endif
    return m;
}

// Eight text bytes as one little-endian word, the first byte lowest (for the digit readers below).
inline uint64_t loadWord(const char* p) {
    uint64_t w;
    std::memcpy(&w, p, 8);
    return std::endian::native == std::endian::little ? w : __builtin_bswap64(w);
}

// Up to eight text bytes before end as loadWord reads them, zeros in place of the bytes beyond;
// bytes up to readable (at or after end) may be read to get them.
inline uint64_t loadWordUpTo(const char* p, const char* end, const char* readable) {
    if (end - p >= 8) return loadWord(p);
    if (readable - p >= 8) return loadWord(p) & ((uint64_t(1) << (8 * (end > p ? end - p : 0))) - 1);
    char bytes[8] = {};
    if (end > p) std::memcpy(bytes, p, static_cast<size_t>(end - p));
    return loadWord(bytes);
}

// How many of the eight bytes of w, from the first, are decimal digits before the first that is
// not (8 when all are).
inline int leadingDigits(uint64_t w) {
    const uint64_t low = w & 0x7F7F7F7F7F7F7F7Full;  // no carry leaves a byte below
    const uint64_t other = (w | (low + 0x4646464646464646ull) | ~(low + 0x5050505050505050ull)) & 0x8080808080808080ull;
    return other ? std::countr_zero(other) / 8 : 8;
}

// The number that the first n (1 to 8) bytes of w, all digits, spell: the digits are moved to the
// top of the word and summed in pairs, fours and eights, lane-wise.
inline uint32_t digitsValue(uint64_t w, int n) {
    w = (w & 0x0F0F0F0F0F0F0F0Full) << (8 * (8 - n));
    w = (w * 2561) >> 8;
    w = ((w & 0x00FF00FF00FF00FFull) * 6553601) >> 16;
    return static_cast<uint32_t>(((w & 0x0000FFFF0000FFFFull) * 42949672960001ull) >> 32);
}

// Appends text to a growing output buffer.
inline void append(std::vector<char>& out, std::string_view s) { out.insert(out.end(), s.begin(), s.end()); }

}  // namespace kv
