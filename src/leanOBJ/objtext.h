// The OBJ text readers every OBJ operation shares: line kinds by their first characters, the
// position indices of a face line, and the three floats of a vertex line, each read as a
// standard input stream would read it (fast paths for the common forms, general readers for
// the rest). They work on a pointer range and never allocate per line.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "leanOBJ/leanOBJ.h"
#include "util/text.h"

namespace obj {

enum class LineKind { Vertex, Face, Group, Comment, Other };

// Classifies a line by its first characters only: "v " vertex, 'f' face, 'g' group,
// '#' comment. "vt"/"vn" lines and lines with leading blanks are Other.
inline LineKind classify(std::string_view line) {
    if (line.empty()) return LineKind::Other;
    switch (line[0]) {
        case 'v': return line.size() > 1 && line[1] == ' ' ? LineKind::Vertex : LineKind::Other;
        case 'f': return LineKind::Face;
        case 'g': return LineKind::Group;
        case '#': return LineKind::Comment;
        default: return LineKind::Other;
    }
}

// The text after the first two characters of a face or group line (empty for "f" or "g").
inline std::string_view rest(std::string_view line) { return line.size() > 2 ? line.substr(2) : std::string_view{}; }

// Reads whitespace-separated decimal integers the way stream extraction into an int does
// (optional sign, digits; a failed or out-of-range read ends the list) and hands each to fn.
template <typename Fn>
void forEachInt(const char* p, const char* end, Fn&& fn);

// Reduces a face line to its position indices (in "a/b/c" tokens only "a" counts; tokens are
// split at blanks) and hands each index to fn, as read, until one fails. scratch is reused
// between calls so that no allocation happens per line.
template <typename Fn>
void forEachFaceIndex(std::string_view line, std::string& scratch, Fn&& fn);

// Parses a "v " line into its three floats as stream extraction would (the first word is
// skipped); a coordinate that fails to parse, and any after it, is 0. Bytes up to readable, when
// it lies past the line's end, may be read for speed (their values play no part).
vertexS parseVertex(std::string_view line, const char* readable = nullptr);

// ---- Template definitions ----

inline bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

template <typename Fn>
void forEachInt(const char* p, const char* end, Fn&& fn) {
    for (;;) {
        while (p < end && isSpace(*p)) ++p;
        if (p == end) return;
        bool negative = false;
        if (*p == '+' || *p == '-') {
            negative = *p == '-';
            ++p;
        }
        if (p == end || *p < '0' || *p > '9') return;
        int64_t v = 0;
        while (p < end && *p >= '0' && *p <= '9') {
            v = v * 10 + (*p - '0');
            if (v > int64_t(INT32_MAX) + 1) return;  // out of range: the read fails
            ++p;
        }
        if (negative) v = -v;
        if (v > INT32_MAX) return;
        fn(static_cast<int32_t>(v));
    }
}

// The indices of a face line that holds a '/', from p (a token's start) on: each blank-separated
// token keeps its text before the first '/', followed by one blank, and the kept text is read as
// forEachInt reads. While a token's kept text is a plain (signed) number, it is read in place.
template <typename Fn>
void forEachTokenIndex(const char* p, const char* end, std::string& scratch, Fn&& fn) {
    while (p < end) {
        const char* t = p;
        bool negative = false;
        if (*t == '+' || *t == '-') negative = *t++ == '-';
        const char* digits = t;
        int64_t v = 0;
        while (t < end && *t >= '0' && *t <= '9' && t - digits < 10) v = v * 10 + (*t++ - '0');
        if (t == end || *t == '/' || *t == ' ') {
            if (t == digits) {
                if (t != p) return;  // a sign alone: the read fails
            } else {
                if (negative) v = -v;
                if (v > INT32_MAX || v < INT32_MIN) return;
                fn(static_cast<int32_t>(v));
            }
            t = kv::findBlank(t, end);  // drop the rest of the token
            p = t < end ? t + 1 : end;
            continue;
        }
        break;  // anything else: reduce the rest of the line and read it as a stream would
    }
    if (p >= end) return;
    scratch.clear();
    for (;;) {
        const char* blank = static_cast<const char*>(std::memchr(p, ' ', static_cast<size_t>(end - p)));
        const char* stop = blank ? blank : end;
        const char* slash = static_cast<const char*>(std::memchr(p, '/', static_cast<size_t>(stop - p)));
        scratch.append(p, slash ? slash : stop);
        scratch.push_back(' ');
        if (!blank) break;
        p = blank + 1;
    }
    forEachInt(scratch.data(), scratch.data() + scratch.size(), fn);
}

// A line without '/' is read by forEachInt, one with a '/' by forEachTokenIndex. Both read the
// common tokens alike: a number of at most eight digits (signed or not) ended by a blank, by the
// line's end (a carriage return there included) or, in the second reading only, by a '/' (the
// rest of the token is dropped). Those are read here, eight bytes at a time, without looking
// for a '/' first; at any other token the rest of the line goes to the reading it calls for.
template <typename Fn>
void forEachFaceIndex(std::string_view line, std::string& scratch, Fn&& fn) {
    const std::string_view text = rest(line);
    const char* p = text.data();
    const char* const full = p + text.size();
    const char* const end = p < full && full[-1] == '\r' ? full - 1 : full;
    bool slashes = false;  // a '/' in the tokens read so far
    while (p < end) {
        const bool negative = *p == '-';
        const char* q = p + (negative || *p == '+');
        int n = 0;
        uint32_t v = 0;
        if (end - q >= 8) {
            const uint64_t w = kv::loadWord(q);
            n = kv::leadingDigits(w);
            if (n == 8) break;  // a longer number: checked for range by the general readings
            v = n ? kv::digitsValue(w, n) : 0;
        } else {
            for (; q + n < end && q[n] >= '0' && q[n] <= '9'; ++n) v = v * 10 + uint32_t(q[n] - '0');
        }
        const char* after = q + n;
        if (n == 0) {
            if (q != p) return;  // a sign alone: the read fails
            if (*p == ' ') {      // an empty token
                ++p;
                continue;
            }
            if (*p != '/') break;
        } else {
            if (after < end && *after != ' ' && *after != '/') break;
            fn(negative ? -static_cast<int32_t>(v) : static_cast<int32_t>(v));
            if (after == end) return;
            if (*after == ' ') {
                p = after + 1;
                continue;
            }
        }
        slashes = true;
        const char* blank = kv::findBlank(after, end);
        p = blank < end ? blank + 1 : end;
    }
    if (p >= end) return;
    if (slashes || std::memchr(p, '/', static_cast<size_t>(full - p))) forEachTokenIndex(p, full, scratch, fn);
    else forEachInt(p, full, fn);
}

}  // namespace obj
