// The host's side of a posing round, for the emulator: `pose` moves the vertices of one group
// of a combined OBJ (as the user does in the host), `verify` checks a part that came back
// from the plug-in against its own mesh and the posed combined mesh. Both read OBJ text
// with their own small reader, independent of the plug-in's, so that they can judge it.
#include "pose.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <numbers>
#include <set>
#include <sstream>

namespace kvtool {
namespace {

bool readLines(const std::string& path, std::vector<std::string>& lines) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    lines.clear();
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return true;
}

uint32_t be32(const unsigned char* p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3]; }

bool isVertex(const std::string& l) { return l.size() > 1 && l[0] == 'v' && l[1] == ' '; }

// The 1-based position indices of a face line ("f 1/2/3 4//5 6").
std::vector<long> faceIndices(const std::string& l) {
    std::vector<long> out;
    std::istringstream words(l.substr(std::min<size_t>(2, l.size())));
    for (std::string w; words >> w;) {
        char* end = nullptr;
        long i = std::strtol(w.c_str(), &end, 10);
        if (end == w.c_str()) break;
        out.push_back(i);
    }
    return out;
}

// The name on a group line, as the host reads it: a CR before the line end is no part of it.
std::string groupName(const std::string& l) {
    std::string name = l.size() > 2 ? l.substr(2) : "";
    if (!name.empty() && name.back() == '\r') name.pop_back();
    return name;
}

// The 1-based vertex indices used by the faces of each group of a mesh.
std::map<std::string, std::set<long>> groupVertices(const std::vector<std::string>& lines) {
    std::map<std::string, std::set<long>> groups;
    std::string current;
    for (const std::string& l : lines) {
        if (!l.empty() && l[0] == 'g') current = groupName(l);
        else if (!l.empty() && l[0] == 'f')
            for (long i : faceIndices(l)) groups[current].insert(i);
    }
    return groups;
}

// The vertex indices used by the faces of one record of a polygroup list file (GroupListSave's
// 136-byte records: a 128-byte name, first face, end face), as the list-driven splits assign
// faces: by their number, faces past the last record's end to the last record.
bool listVertices(const std::string& listFile, const std::vector<std::string>& lines, const std::string& group,
                  std::set<long>& out) {
    std::ifstream in(listFile, std::ios::binary);
    std::vector<unsigned char> b((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    struct Record {
        std::string name;
        long first, end;
    };
    std::vector<Record> list;
    for (size_t at = 0; at + 136 <= b.size(); at += 136) {
        const char* name = reinterpret_cast<const char*>(&b[at]);
        list.push_back({std::string(name, strnlen(name, 128)), long(int32_t(be32(&b[at + 128]))),
                        long(int32_t(be32(&b[at + 132])))});
    }
    if (!in.eof() && !in) return false;
    long face = -1;
    size_t current = 0;
    for (const std::string& l : lines) {
        if (l.empty() || l[0] != 'f') continue;
        ++face;
        while (current + 1 < list.size() && face >= list[current].end) ++current;
        if (current < list.size() && list[current].name == group)
            for (long i : faceIndices(l)) out.insert(i);
    }
    return std::any_of(list.begin(), list.end(), [&](const Record& r) { return r.name == group; });
}

bool parseVertex(const std::string& l, double v[3]) {
    return std::sscanf(l.c_str(), "v %lf %lf %lf", &v[0], &v[1], &v[2]) == 3;
}

bool writeLines(const std::string& path, const std::vector<std::string>& lines) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    for (const std::string& l : lines) out << l << '\n';
    return static_cast<bool>(out);
}

}  // namespace

void addPoseOptions(CLI::App& app, PoseArgs& a) {
    app.add_option("input", a.input, "Combined OBJ to pose")->required();
    app.add_option("output", a.output, "Posed OBJ to write (may be the input)")->required();
    app.add_option("--group", a.group, "Group whose vertices move")->required();
    app.add_option("--axis", a.axis, "Rotation axis: x, y or z")->check(CLI::IsMember({"x", "y", "z"}));
    app.add_option("--angle", a.angle, "Rotation angle in degrees");
    app.add_option("--about", a.about, "Pivot point x,y,z");
}

int runPose(const PoseArgs& a, std::ostream& out, std::ostream& err) {
    std::vector<std::string> lines;
    if (!readLines(a.input, lines)) {
        err << "pose: cannot read " << a.input << "\n";
        return 2;
    }
    double pivot[3] = {0, 0, 0};
    if (std::sscanf(a.about.c_str(), "%lf,%lf,%lf", &pivot[0], &pivot[1], &pivot[2]) != 3) {
        err << "pose: --about wants x,y,z\n";
        return 2;
    }
    auto groups = groupVertices(lines);
    auto it = groups.find(a.group);
    if (it == groups.end()) {
        err << "pose: no group " << a.group << " in " << a.input << "\n";
        return 1;
    }
    // The plane of the rotation, (u, w) in right-handed order: (y, z) about x, (z, x) about y, (x, y) about z.
    const int axis = a.axis[0] - 'x', u = (axis + 1) % 3, w = (axis + 2) % 3;
    const double rad = a.angle * std::numbers::pi / 180, c = std::cos(rad), s = std::sin(rad);
    long index = 0, moved = 0;
    for (std::string& l : lines) {
        if (!isVertex(l)) continue;
        ++index;
        double v[3];
        if (!it->second.count(index) || !parseVertex(l, v)) continue;
        const double du = v[u] - pivot[u], dw = v[w] - pivot[w];
        v[u] = pivot[u] + c * du - s * dw;
        v[w] = pivot[w] + s * du + c * dw;
        // Each coordinate in the fewest digits that read back as the same float.
        char buf[128] = "v";
        char* p = buf + 1;
        for (double coord : v) {
            *p++ = ' ';
            p = std::to_chars(p, buf + sizeof buf, static_cast<float>(coord)).ptr;
        }
        l.assign(buf, p);
        ++moved;
    }
    if (!writeLines(a.output, lines)) {
        err << "pose: cannot write " << a.output << "\n";
        return 2;
    }
    out << "pose: " << a.group << ": " << moved << " vertices turned " << a.angle << " degrees about " << a.axis
        << " through (" << a.about << ")\n";
    return 0;
}

void addVerifyOptions(CLI::App& app, VerifyArgs& a) {
    app.add_option("--part", a.part, "The part's own mesh, as appended")->required();
    app.add_option("--posed-part", a.posedPart, "The part after SplitOBJ and SwapVertices")->required();
    app.add_option("--combined", a.combined, "The posed combined mesh")->required();
    app.add_option("--group", a.group, "The part's group in the combined mesh")->required();
    app.add_option("--vyt", a.vyt, "The part's vertex file from SplitOBJtoVyx");
    app.add_option("--list", a.list, "The polygroup list file of a list-driven round (GroupListSave)");
}

int runVerify(const VerifyArgs& a, std::ostream& out, std::ostream& err) {
    std::vector<std::string> part, posed, combined;
    if (!readLines(a.part, part) || !readLines(a.posedPart, posed) || !readLines(a.combined, combined)) {
        err << "verify: cannot read the files of " << a.group << "\n";
        return 2;
    }
    std::vector<std::string> partRest, posedRest, posedV, combinedV, partV;
    for (const std::string& l : part)
        if (isVertex(l)) partV.push_back(l);
        else if (l.empty() || l[0] != '#') partRest.push_back(l);
    for (const std::string& l : posed) (isVertex(l) ? posedV : posedRest).push_back(l);
    for (const std::string& l : combined)
        if (isVertex(l)) combinedV.push_back(l);
    std::set<long> used;
    if (a.list.empty()) used = groupVertices(combined)[a.group];
    else if (!listVertices(a.list, combined, a.group, used)) {
        err << "verify: " << a.list << " holds no group " << a.group << "\n";
        return 2;
    }
    std::vector<std::string> expectV;
    for (long i : used)
        if (i >= 1 && size_t(i) <= combinedV.size()) expectV.push_back(combinedV[size_t(i - 1)]);

    auto fail = [&](const std::string& what) {
        err << "verify: " << a.group << ": " << what << "\n";
        return 1;
    };
    if (posedRest != partRest) return fail("faces, UVs and normals differ from the part's own");
    if (posedV != expectV) return fail("positions differ from the group's in the posed mesh");
    if (posedV.size() != partV.size()) return fail("vertex count differs from the part's");
    long moved = 0;
    for (size_t i = 0; i < partV.size(); ++i) moved += partV[i] != posedV[i];
    if (!a.vyt.empty()) {
        std::ifstream in(a.vyt, std::ios::binary);
        std::vector<unsigned char> b((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (b.size() < 16 || be32(&b[0]) != 10001 || be32(&b[4]) != b.size() || be32(&b[8]) != expectV.size() ||
            b.size() != 16 + 12 * expectV.size())
            return fail("vertex file head is wrong");
        for (size_t i = 0; i < expectV.size(); ++i) {
            double v[3];
            parseVertex(expectV[i], v);
            for (int k = 0; k < 3; ++k) {
                uint32_t bits = be32(&b[16 + 12 * i + 4 * size_t(k)]);
                float f;
                std::memcpy(&f, &bits, 4);
                if (f != static_cast<float>(v[k])) return fail("vertex file position " + std::to_string(i) + " differs");
            }
        }
    }
    long faces = 0, uvs = 0, normals = 0;
    for (const std::string& l : posedRest) {
        faces += !l.empty() && l[0] == 'f';
        uvs += l.rfind("vt", 0) == 0;
        normals += l.rfind("vn", 0) == 0;
    }
    out << "  ok  " << a.group << ": " << posedV.size() << " vertices (" << moved << " moved), " << faces
        << " faces, " << uvs << " UVs, " << normals << " normals" << (a.vyt.empty() ? "" : ", vertex file matches")
        << "\n";
    return 0;
}

}  // namespace kvtool
