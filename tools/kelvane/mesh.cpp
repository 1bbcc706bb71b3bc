// The viewer's mesh readers. OBJ lines are classified by their first characters: "v " a
// position, "f" a face (position indices before any '/', negative ones relative), "g" a group.
// Vyx files are walked block by block from offset 32; the vertex and face blocks are read, the
// others skipped by their length. Every count and index is checked against the file.
#include "mesh.h"

#include <charconv>
#include <cmath>
#include <unordered_map>

#include "util/bytes.h"
#include "platform/mapfile.h"
#include "util/numtext.h"
#include "util/text.h"
#include "util/vyxtags.h"

namespace kvtool {
namespace {

constexpr uint32_t kNoCorner = 0xFFFFFFFF;
// Coordinates are drawn up to this size, so that no sum or difference of them overflows.
constexpr float kLargest = 1e30f;

bool drawable(float f) { return std::fabs(f) <= kLargest; }  // false for NaN too

const char* skipBlanks(const char* p, const char* e) {
    while (p < e && (*p == ' ' || *p == '\t')) ++p;
    return p;
}

bool parseVertex(std::string_view l, std::vector<float>& xyz) {
    const char* p = l.data() + 2;
    const char* e = l.data() + l.size();
    for (int i = 0; i < 3; ++i) {
        p = skipBlanks(p, e);
        if (p < e && *p == '+') ++p;
        float f = 0;
        auto r = kv::readFloat(p, e, f);
        if (r.ec != std::errc() || !drawable(f)) return false;
        xyz.push_back(f);
        p = r.ptr;
    }
    return true;
}

// The 0-based position indices of a face line, read until a word is no number. False for an
// index 0 or a relative index before the first vertex.
bool parseFace(std::string_view l, size_t vertices, std::vector<int64_t>& corners) {
    corners.clear();
    const char* p = l.data() + std::min<size_t>(2, l.size());
    const char* e = l.data() + l.size();
    for (;;) {
        p = skipBlanks(p, e);
        int64_t i = 0;
        auto r = std::from_chars(p, e, i);
        if (r.ec != std::errc()) return true;
        const int64_t at = i > 0 ? i - 1 : static_cast<int64_t>(vertices) + i;
        if (i == 0 || at < 0) return false;
        corners.push_back(at);
        for (p = r.ptr; p < e && *p != ' ' && *p != '\t';) ++p;  // texture and normal indices
    }
}

// Fans a face into triangles. False when an index cannot be a vertex index at all.
bool addFace(const std::vector<int64_t>& c, uint32_t group, Mesh& m) {
    for (int64_t i : c)
        if (i >= int64_t{kNoCorner}) return false;
    for (size_t k = 1; k + 1 < c.size(); ++k) {
        m.tris.insert(m.tris.end(), {uint32_t(c[0]), uint32_t(c[k]), uint32_t(c[k + 1])});
        m.triGroup.push_back(group);
    }
    return true;
}

// Group names to indices; faces before the first "g" line belong to "(no group)".
struct GroupTable {
    explicit GroupTable(Mesh& m) : mesh(m) {}
    Mesh& mesh;
    std::unordered_map<std::string, uint32_t> ids;
    std::string pending = "(no group)";
    uint32_t current = 0;
    bool started = false;

    void start(std::string_view name) {
        while (!name.empty() && (name.front() == ' ' || name.front() == '\t')) name.remove_prefix(1);
        while (!name.empty() && (name.back() == ' ' || name.back() == '\t')) name.remove_suffix(1);
        pending = name.empty() ? "(no group)" : std::string(name);
        started = false;
    }
    uint32_t forFace() {
        if (!started) {
            auto [it, added] = ids.try_emplace(pending, uint32_t(mesh.groups.size()));
            if (added) mesh.groups.push_back(pending);
            current = it->second;
            started = true;
        }
        return current;
    }
};

bool lineFault(std::string& error, size_t lineNo, const char* what) {
    error = "line " + std::to_string(lineNo) + ": " + what;
    return false;
}

bool readObj(const char* data, size_t size, Mesh& m, std::string& error) {
    kv::LineScanner lines(data, size);
    GroupTable groups(m);
    std::vector<int64_t> corners;
    std::string_view l;
    for (size_t lineNo = 1; lines.next(l); ++lineNo) {
        if (!l.empty() && l.back() == '\r') l.remove_suffix(1);
        if (l.empty()) continue;
        if (l[0] == 'v' && l.size() > 1 && (l[1] == ' ' || l[1] == '\t')) {
            if (!parseVertex(l, m.xyz)) return lineFault(error, lineNo, "a vertex line without three numbers below 1e30");
        } else if (l[0] == 'f') {
            if (!parseFace(l, m.vertexCount(), corners) || !addFace(corners, groups.forFace(), m))
                return lineFault(error, lineNo, "a face with a vertex index that cannot exist");
        } else if (l[0] == 'g') {
            groups.start(l.substr(1));
        }
    }
    return true;
}

bool readVyxBlock(const char* b, uint32_t tag, uint32_t count, Mesh& m, std::string& error) {
    if (tag == kVyxVertexTag) {
        m.xyz.resize(size_t{count} * 3);
        for (size_t i = 0; i < m.xyz.size(); ++i) m.xyz[i] = kv::getF32BE(b + 4 * i);
        for (float f : m.xyz)
            if (!drawable(f)) return (error = "a vertex coordinate is not a number below 1e30"), false;
        return true;
    }
    for (uint32_t f = 0; f < count; ++f, b += 16) {
        const uint32_t v[4] = {kv::getU32BE(b), kv::getU32BE(b + 4), kv::getU32BE(b + 8), kv::getU32BE(b + 12)};
        m.tris.insert(m.tris.end(), {v[0], v[1], v[2]});
        m.triGroup.push_back(0);
        if (v[3] == kNoCorner) continue;
        m.tris.insert(m.tris.end(), {v[0], v[2], v[3]});
        m.triGroup.push_back(0);
    }
    return true;
}

bool readVyx(const char* d, size_t n, Mesh& m, std::string& error) {
    if (n < 48) return (error = "too short for a Vyx mesh"), false;
    bool vertices = false;
    uint64_t off = 32;
    while (off + 16 <= n) {
        const uint32_t tag = kv::getU32BE(d + off), length = kv::getU32BE(d + off + 4);
        const uint32_t count = kv::getU32BE(d + off + 8);
        if ((tag == kVyxVertexTag && !vertices) || tag == kVyxFaceTag) {
            const uint64_t record = tag == kVyxVertexTag ? 12 : 16;
            if (uint64_t{count} * record > n - off - 16)
                return (error = "a block of " + std::to_string(count) + " records runs past the end of the file"), false;
            if (!readVyxBlock(d + off + 16, tag, count, m, error)) return false;
            vertices = vertices || tag == kVyxVertexTag;
        }
        off += length == 0 ? 16 : length;
    }
    m.groups = {m.name};
    if (!vertices) return (error = "no vertex block"), false;
    return off == n || ((error = "the file ends inside a block"), false);
}

// A vertex file: a vertex block's 16-byte head and its records, nothing else.
bool readVyt(const char* d, size_t n, Mesh& m, std::string& error) {
    if (n < 16 || kv::getU32BE(d) != kVyxVertexTag) return (error = "not a vertex file"), false;
    const uint32_t count = kv::getU32BE(d + 8);
    if (uint64_t{count} * 12 > n - 16)
        return (error = "its " + std::to_string(count) + " vertices run past the end of the file"), false;
    return readVyxBlock(d + 16, kVyxVertexTag, count, m, error);
}

std::string extensionOf(const std::string& path) {
    std::string ext = path.size() < 4 ? "" : path.substr(path.size() - 4);
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}

}  // namespace

bool readMesh(const std::string& path, Mesh& mesh, std::string& error) {
    mesh = Mesh{};
    mesh.name = path.substr(path.find_last_of('/') + 1);
    kv::MappedFile file;
    bool ok = false;
    if (!file.open(path.c_str())) error = "cannot read the file";
    else if (extensionOf(path) == ".vyx") ok = readVyx(file.data(), file.size(), mesh, error);
    else if (extensionOf(path) == ".vyt") ok = readVyt(file.data(), file.size(), mesh, error);
    else ok = readObj(file.data(), file.size(), mesh, error);
    if (ok && mesh.xyz.empty()) {
        error = "no vertices";
        ok = false;
    }
    for (size_t i = 0; ok && i < mesh.tris.size(); ++i) {
        if (mesh.tris[i] < mesh.vertexCount()) continue;
        error = "a face refers to vertex " + std::to_string(uint64_t{mesh.tris[i]} + 1) + " of " +
                std::to_string(mesh.vertexCount());
        ok = false;
    }
    if (!ok) error = path + ": " + error;
    return ok;
}

}  // namespace kvtool
