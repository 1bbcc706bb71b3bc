// Text scanning and number formatting shared by the readers and writers of text files.
#pragma once

#include <charconv>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace kv {

// Walks a buffer line by line with memchr. A line excludes its line feed; a carriage return
// before the line feed stays in the line. The last line need not end in a line feed.
struct LineScanner {
    const char* pos;
    const char* end;

    LineScanner(const char* data, size_t size) : pos(data), end(data + size) {}

    bool next(std::string_view& line) {
        if (pos >= end) return false;
        const void* nl = std::memchr(pos, '\n', static_cast<size_t>(end - pos));
        const char* stop = nl ? static_cast<const char*>(nl) : end;
        line = std::string_view(pos, static_cast<size_t>(stop - pos));
        pos = nl ? stop + 1 : end;
        return true;
    }
};

// Appends text to a growing output buffer.
inline void append(std::vector<char>& out, std::string_view s) { out.insert(out.end(), s.begin(), s.end()); }

// Appends a decimal integer.
template <typename Int>
inline void appendInt(std::vector<char>& out, Int v) {
    char buf[24];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    out.insert(out.end(), buf, r.ptr);
}

// Appends a float as printf's "%g" writes it (6 significant digits, shortest of fixed and
// exponent forms, trailing zeros dropped, "-0" kept).
inline void appendG(std::vector<char>& out, double v) {
    char buf[32];
    auto r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::general, 6);
    out.insert(out.end(), buf, r.ptr);
}

}  // namespace kv
