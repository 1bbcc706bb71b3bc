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

// The number of lines of a buffer (which starts at a line start) whose first byte is c: line
// feeds and c are found 64 bytes at a time, as LineScanner finds line feeds.
inline size_t countLinesStartingWith(const char* data, size_t size, char c) {
    size_t count = 0, i = 0;
    uint64_t atStart = 1;  // the byte before ended a line
#if defined(__SSE2__)
    const __m128i nl = _mm_set1_epi8('\n'), want = _mm_set1_epi8(c);
    for (; i + 64 <= size; i += 64) {
        uint64_t lineFeeds = 0, hits = 0;
        for (int k = 0; k < 4; ++k) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i + 16 * k));
            lineFeeds |= uint64_t(uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(v, nl)))) << (16 * k);
            hits |= uint64_t(uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(v, want)))) << (16 * k);
        }
        count += static_cast<size_t>(std::popcount((lineFeeds << 1 | atStart) & hits));
        atStart = lineFeeds >> 63;
    }
#endif
    for (; i < size; ++i) {
        count += atStart && data[i] == c;
        atStart = data[i] == '\n';
    }
    return count;
}

// Appends text to a growing output buffer.
inline void append(std::vector<char>& out, std::string_view s) { out.insert(out.end(), s.begin(), s.end()); }

}  // namespace kv
