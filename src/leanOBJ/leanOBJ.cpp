// The OBJ operations behind the exports: the polygroup list, the splits by group and by list,
// the append of a part to the combined mesh, the vertex transfer, the face-count map and the
// unique names. The splits map their input and scan it on every core (splitscan) and store the
// part files on every core (partfiles); the other operations read their inputs whole
// (kv::readFile) and walk them line by line. Every output file is written with one call, or
// appended to with one.
#include "leanOBJ/leanOBJ.h"

#include <algorithm>
#include <cstring>

#include "FileOps.h"
#include "leanOBJ/objtext.h"
#include "leanOBJ/partfiles.h"
#include "leanOBJ/splitscan.h"
#include "platform/fileio.h"
#include "util/bytes.h"
#include "util/exportdata.h"
#include "util/numtext.h"
#include "util/text.h"


// Module state (exported data symbols).
extern "C" {
KV_DATA std::vector<groupID> groupsList;
KV_DATA int32_t faceIndex = 0;
KV_DATA std::map<std::string, int32_t> groupFacesList;
KV_DATA std::set<std::string> nameSet;
}

namespace {

// Copies name into a record's field, cut to 127 bytes, the rest zeroed.
void setName(groupID& g, std::string_view name) {
    std::memset(g.name, 0, sizeof g.name);
    std::memcpy(g.name, name.data(), std::min(name.size(), sizeof g.name - 1));
}

// Appends the lines of a part mesh other than its vertex lines and comments to out, each ending
// in a line feed, and counts them in others; returns the number of vertex lines.
size_t appendOtherLines(const std::vector<char>& mesh, std::vector<char>& out, size_t& others) {
    size_t vertices = 0;
    std::string_view line;
    for (kv::LineScanner lines(mesh.data(), mesh.size()); lines.next(line);) {
        const obj::LineKind kind = obj::classify(line);
        if (kind == obj::LineKind::Vertex) {
            ++vertices;
        } else if (kind != obj::LineKind::Comment) {
            kv::append(out, line);
            out.push_back('\n');
            ++others;
        }
    }
    return vertices;
}

}  // namespace

// ---- Polygroup list ----------------------------------------------------------------------

void addToGroupsList(const char* name, int32_t count) {
    groupID g;
    setName(g, name);
    g.firstFace = faceIndex;
    g.endFace = static_cast<int32_t>(static_cast<uint32_t>(faceIndex) + static_cast<uint32_t>(count));
    groupsList.push_back(g);
    faceIndex = g.endFace;
}

float getGroupsListSize() { return groupsList.empty() ? -1.0f : static_cast<float>(groupsList.size()); }

std::string getGroupName(int32_t index) {
    if (groupsList.empty() || index < 0 || size_t(index) >= groupsList.size()) return "null";
    return groupsList[size_t(index)].name;
}

void clearGroupsList() {
    groupsList.clear();
    faceIndex = 0;
    groupFacesList.clear();
}

int saveGroupsList(const char* path) {
    if (groupsList.empty()) return -1;
    std::vector<char> out(groupsList.size() * sizeof(groupID));
    char* p = out.data();
    for (const groupID& g : groupsList) {
        std::memcpy(p, g.name, sizeof g.name);
        kv::putU32BE(p + 128, static_cast<uint32_t>(g.firstFace));
        kv::putU32BE(p + 132, static_cast<uint32_t>(g.endFace));
        p += sizeof(groupID);
    }
    return kv::storeFile(path, out.data(), out.size()) ? 0 : -3;
}

int loadGroupsList(const char* path) {
    groupsList.clear();
    faceIndex = 0;  // stays 0: the loaded records carry their own face ranges
    std::vector<char> buf;
    if (!kv::readFile(path, buf)) return -3;
    groupsList.reserve((buf.size() + sizeof(groupID) - 1) / sizeof(groupID));  // one record per 136 bytes, no regrowth
    for (size_t at = 0; at < buf.size(); at += sizeof(groupID)) {
        char rec[sizeof(groupID)] = {};  // a short tail record reads as zeros past the file's end
        std::memcpy(rec, buf.data() + at, std::min(sizeof rec, buf.size() - at));
        groupID g;
        std::memcpy(g.name, rec, sizeof g.name);
        g.name[sizeof g.name - 1] = '\0';
        g.firstFace = kv::getS32BE(rec + 128);
        g.endFace = kv::getS32BE(rec + 132);
        groupsList.push_back(g);
    }
    return 0;
}

// ---- Lean splits by the file's groups ----------------------------------------------------

double LeanSplitOBJ(const char* objPath, char* outPath, const obj::ScanOptions& options) {
    obj::SplitScan s;
    s.options = options;
    if (!obj::loadForSplit(objPath, s)) return -1;
    std::map<std::string, int32_t, std::less<>> names;
    obj::scanByGroups(s, names);
    const std::string folder = FileNameExtract(outPath, kFolderPart);
    const obj::IndexSet empty;
    std::vector<const obj::IndexSet*> sets;  // in name order
    for (const auto& [name, number] : names) sets.push_back(size_t(number) < s.sets.size() ? &s.sets[size_t(number)] : &empty);
    return obj::storeOutputs(
        sets.size(), s.threads(),
        [&](size_t k, std::string& path) {
            const size_t count = sets[k]->count(0, s.vertexCount());
            if (count == 0) return -2.0;  // a group without a vertex line
            path = obj::freeName(folder + kv::decimal(static_cast<int64_t>(count)), ".obj");
            return 0.0;
        },
        [&](size_t k, std::vector<char>& out) { obj::buildVertexLines(s, *sets[k], 0, out); });
}

double LeanSplitVyx(const char* objPath, char* outPath, const obj::ScanOptions& options) {
    obj::SplitScan s;
    s.options = options;
    s.readPositions = true;
    if (!obj::loadForSplit(objPath, s)) return -1;
    std::map<std::string, int32_t, std::less<>> names;
    obj::scanByGroups(s, names);
    obj::PartList parts;  // in name order
    for (const auto& [name, number] : names) parts.emplace_back(name, size_t(number) < s.sets.size() ? &s.sets[size_t(number)] : nullptr);
    return obj::storePartFiles(outPath, parts, ".Vyt", s.threads(), [&](size_t k, std::vector<char>& out) { obj::buildVertexFile(s, parts[k].second, out); });
}

// ---- Append a part to the combined mesh --------------------------------------------------

double LeanAddGroupOBJ(const char* partPath, char* combinedPath, int vertexOffset) {
    groupID g;
    setName(g, FileNameExtract(partPath, kBareName));
    const std::string_view name(g.name);
    std::vector<char> in;
    if (!kv::readFile(partPath, in)) return -1;

    std::vector<char> out;
    out.reserve(in.size() + in.size() / 4);
    kv::LineScanner lines(in.data(), in.size());
    std::string scratch;
    std::string_view line;
    int32_t vertices = 0, faces = 0;
    while (lines.next(line)) {
        switch (obj::classify(line)) {
            case obj::LineKind::Vertex:
                kv::append(out, line);
                out.push_back('\n');
                ++vertices;
                break;
            case obj::LineKind::Group:
                kv::append(out, "g ");
                kv::append(out, name);
                out.push_back('\n');
                break;
            case obj::LineKind::Face:
                kv::append(out, "f ");
                obj::forEachFaceIndex(line, scratch, [&](int32_t i) {
                    kv::appendInt(out, int64_t(i) + vertexOffset);
                    out.push_back(' ');
                });
                out.push_back('\n');
                ++faces;
                break;
            default: break;
        }
    }
    if (!kv::appendFile(combinedPath, out.data(), out.size())) return -2;
    g.firstFace = faceIndex;
    faceIndex = static_cast<int32_t>(static_cast<uint32_t>(faceIndex) + static_cast<uint32_t>(faces));
    g.endFace = faceIndex;
    groupsList.push_back(g);
    return vertices;
}

// ---- Vertex transfer ---------------------------------------------------------------------

double LeanSwapVertsOBJ(const char* vertexPath, const char* meshPath) {
    if (!kv::appendFile(vertexPath, "", 0)) return -10;  // opened for appending, created when missing
    std::vector<char> in;
    if (!kv::readFile(meshPath, in)) return -20;
    std::vector<char> out;
    out.reserve(in.size());
    size_t others = 0;
    const size_t vertices = appendOtherLines(in, out, others);
    if (!kv::appendFile(vertexPath, out.data(), out.size())) return -10;
    return vertices == 0 ? -30 : 0;
}

bool LeanSwapVerts(const char* vertexPath, const char* meshPath) {
    std::vector<char> vin, min;
    if (!kv::readFile(vertexPath, vin) || !kv::readFile(meshPath, min)) return false;
    std::vector<char> out;
    kv::append(out, "# written by Kelvane plugin for Vandor\n");
    std::string_view line;
    size_t newVertices = 0;
    for (kv::LineScanner lines(vin.data(), vin.size()); lines.next(line);) {
        if (obj::classify(line) != obj::LineKind::Vertex) continue;
        kv::append(out, line);
        out.push_back('\n');
        ++newVertices;
    }
    size_t others = 0;
    const size_t meshVertices = appendOtherLines(min, out, others);
    if (newVertices == 0 || meshVertices == 0 || newVertices != meshVertices || others == 0) return false;
    return kv::storeFile(meshPath, out.data(), out.size());
}

// ---- Splits by the polygroup list --------------------------------------------------------

// Scans the mesh by the polygroup list; parts: each name's first record's set (null when it has
// none), in ascending name order.
static bool scanForListSplit(const char* objPath, obj::SplitScan& s, obj::PartList& parts) {
    std::map<std::string_view, size_t> index;
    for (size_t k = 0; k < groupsList.size(); ++k) index.emplace(groupsList[k].name, k);
    if (!obj::loadForSplit(objPath, s)) return false;
    obj::scanByList(s);
    for (const auto& [name, k] : index) parts.emplace_back(name, k < s.sets.size() ? &s.sets[k] : nullptr);
    return true;
}

double ListSplitOBJ(const char* objPath, char* outPath, const obj::ScanOptions& options) {
    if (groupsList.empty()) return -5;
    obj::SplitScan s;
    s.options = options;
    obj::PartList parts;
    if (!scanForListSplit(objPath, s, parts)) return -1;
    const obj::IndexSet empty;
    return obj::storePartFiles(outPath, parts, ".obj", s.threads(), [&](size_t k, std::vector<char>& out) {
        obj::buildVertexLines(s, parts[k].second ? *parts[k].second : empty, 1, out);
    });
}

double ListSplitVyx(const char* objPath, char* outPath, const obj::ScanOptions& options) {
    if (groupsList.empty()) return -5;
    obj::SplitScan s;
    s.options = options;
    s.readPositions = true;
    obj::PartList parts;
    if (!scanForListSplit(objPath, s, parts)) return -1;
    return obj::storePartFiles(outPath, parts, ".Vyt", s.threads(), [&](size_t k, std::vector<char>& out) { obj::buildVertexFile(s, parts[k].second, out); });
}

// ---- Face counts and unique names --------------------------------------------------------

float CreateGroupFacesList() {
    if (groupsList.empty()) return -5;
    groupFacesList.clear();
    for (const groupID& g : groupsList)
        groupFacesList.emplace(g.name, static_cast<int32_t>(static_cast<uint32_t>(g.endFace) -
                                                            static_cast<uint32_t>(g.firstFace)));
    return 0;
}

int32_t getGroupFaces(const char* name) {
    auto it = groupFacesList.find(name);
    return it == groupFacesList.end() ? -1 : it->second;
}

std::string NameCheck(const char* name) {
    if (nameSet.insert(name).second) return name;
    std::string working = name;
    for (unsigned counter = 1;; ++counter) {
        size_t copy = working.find("_copy");
        std::string base = copy == std::string::npos ? working + "_copy" : working.substr(0, copy + 5);
        working = base + kv::decimal(counter);
        if (nameSet.insert(working).second) return working;
    }
}

void NameSetClear() { nameSet.clear(); }
