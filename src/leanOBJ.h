// OBJ processing: the polygroup list, the shared OBJ line rules, the splits of a posed
// combined mesh into one file per part, the append that builds the combined mesh, the
// vertex transfer back into the parts, the face-count map and the unique-name check.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "util/text.h"

// One polygroup of the combined mesh: faces [firstFace, endFace), counted 0-based over the
// whole mesh. 136 bytes, written to the group list file as laid out (integers big-endian).
struct groupID {
    char name[128];  // NUL-terminated; names are cut to 127 bytes
    int32_t firstFace;
    int32_t endFace;
};
static_assert(sizeof(groupID) == 136, "groupID is a 136-byte file record");

// One vertex position.
struct vertexS {
    float x, y, z;
};

// Module state (exported data symbols), alive while the library is loaded.
extern "C" {
extern std::vector<groupID> groupsList;                  // the polygroups, in mesh order
extern int32_t faceIndex;                                // first face of the next record added
extern std::map<std::string, int32_t> groupFacesList;    // group name -> face count
extern std::set<std::string> nameSet;                    // names handed out by NameCheck
}

// ---- The OBJ line rules shared by every OBJ function ----
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

// Output path base: the folder part of outPath + name. False when name would leave that
// folder (an absolute name, or a ".." component) or holds a NUL byte, which no file name can.
bool outputBase(const char* outPath, std::string_view name, std::string& base);

// The splits scan a large input on several threads: threads (0: the KELVANE_THREADS setting,
// else one per core, at most 16), no chunk below minChunk bytes (8 MiB by default); a list
// split's chunks keep their faces in blocks of at least blockFaces faces (4096 by default).
void setScanThreads(unsigned threads, size_t minChunk, int64_t blockFaces = 4096);

// The first free name among base + ext, base + "_copy1" + ext, base + "_copy2" + ext, ...
std::string freeName(const std::string& base, const char* ext);

}  // namespace obj

// ---- Polygroup list ----
void addToGroupsList(const char* name, int32_t count);
float getGroupsListSize();
std::string getGroupName(int32_t index);  // "null" when out of range or empty
void clearGroupsList();
int saveGroupsList(const char* path);   // 0, -1 empty list, -3 cannot write
int loadGroupsList(const char* path);   // 0, -3 cannot open

// ---- Splits, append and vertex transfer ----
double LeanSplitOBJ(const char* objPath, char* outPath);   // 0, -1, -2, -3
double LeanSplitVyx(const char* objPath, char* outPath);   // 0, -1, -3
double LeanAddGroupOBJ(const char* partPath, char* combinedPath, int vertexOffset);  // count, -1, -2
double LeanSwapVertsOBJ(const char* vertexPath, const char* meshPath);  // 0, -10, -20, -30
bool LeanSwapVerts(const char* vertexPath, const char* meshPath);

// ---- List-driven splits, face counts and unique names ----
double ListSplitOBJ(const char* objPath, char* outPath);  // 0, -1, -3, -5
double ListSplitVyx(const char* objPath, char* outPath);  // 0, -1, -3, -5
float CreateGroupFacesList();                            // 0, -5
int32_t getGroupFaces(const char* name);                 // count, -1
std::string NameCheck(const char* name);
void NameSetClear();

// ---- Template definitions ----
namespace obj {

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
