// What a posing round makes of a part mesh: the lines AppendOBJ and the splits read, as they
// read them, and the problems that would keep the part from coming back right.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace kvtool {

// What the safe round does about a problem.
enum class Remedy { Rewrite, RestPositions, Refuse };

struct Problem {
    std::string cause;
    Remedy remedy;
};

// One part as the plug-in sees it: "v " lines are its vertices, lines starting with 'f' its
// faces (position indices before any '/', read until one fails), 'g' its group lines.
struct PartScan {
    std::string path, name;  // name: the group AppendOBJ gives it, the bare file name
    bool readable = false;
    int64_t vertices = 0, faces = 0;
    int64_t crLines = 0, relative = 0, zero = 0, beyond = 0, facesBeforeGroup = 0;
    bool hasGroup = false;
    std::vector<bool> used;  // per vertex: a face uses it
    int64_t unused() const;
};

// The bare file name, as the plug-in names a part's group: after the last '/' or '\', before the last '.'.
std::string groupNameOf(std::string_view path);

// Reads a part; false (with readable unset) when it cannot be read.
bool scanPart(const std::string& path, PartScan& s);

// The problems of parts[i] within a round of all of parts (a stem shared with another is one).
std::vector<Problem> partProblems(const std::vector<PartScan>& parts, size_t i);

// Calls f(index, resolved) for each position index of face line l (l from its third byte on),
// relative ones resolved against vertices, the number of vertices read so far; stops as the
// plug-in's reader does.
template <class F>
void forEachFaceIndex(std::string_view l, int64_t vertices, F&& f);

// A copy of a part that the plug-in reads right: line feeds only, absolute indices, its faces
// under a "g" line. Empty when the file cannot be read.
bool rewritePart(const PartScan& s, std::string& out);

struct CheckArgs {
    std::vector<std::string> meshes;
};
void addCheckOptions(CLI::App& app, CheckArgs& a);
// Prints "MESH: cause" per problem; 0 when there is none, 1 otherwise.
int runCheck(const CheckArgs& a, std::ostream& out);

// ---- implementation of the template ---------------------------------------------------------

bool parseIndex(std::string_view token, int64_t& value, bool& whole);

template <class F>
void forEachFaceIndex(std::string_view l, int64_t vertices, F&& f) {
    const bool slashed = l.find('/') != std::string_view::npos;
    size_t i = 0;
    while (i < l.size()) {
        while (i < l.size() && (l[i] == ' ' || l[i] == '\t' || l[i] == '\r' || l[i] == '\v' || l[i] == '\f')) ++i;
        if (i >= l.size()) return;
        size_t end = i;
        while (end < l.size() && l[end] != ' ' && l[end] != '\t' && l[end] != '\r' && l[end] != '\v' && l[end] != '\f')
            ++end;
        std::string_view token = l.substr(i, end - i);
        i = end;
        if (slashed) token = token.substr(0, token.find('/'));
        if (slashed && token.empty()) continue;  // "/2": the plug-in keeps only a blank of it
        int64_t v = 0;
        bool whole = false;
        if (!parseIndex(token, v, whole)) return;
        f(v, v < 0 ? vertices + 1 + v : v);
        if (!whole) return;  // the next read would fail on the rest of the token
    }
}

}  // namespace kvtool
