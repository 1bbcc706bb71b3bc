// `kelvane check`: reads part meshes line by line as the plug-in does and names what would make
// a posing round go wrong; the safe round (round.cpp) reads and rewrites parts with the same code.
#include "meshcheck.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>

#include "platform/mapfile.h"
#include "util/text.h"

namespace kvtool {
namespace {

bool isVertexLine(std::string_view l) { return l.size() > 1 && l[0] == 'v' && l[1] == ' '; }

// A name the splits refuse on some system, or that the list's 128-byte field cuts.
bool splitsRefuse(const std::string& n) {
    if (n.empty() || n == "." || n == ".." || n.size() >= 128) return true;
    for (unsigned char c : n)
        if (c < 32 || c == 127 || std::strchr("<>:\"|?*", c) != nullptr) return true;
    if (n.back() == '.' || n.back() == ' ') return true;
    std::string device = n.substr(0, n.find('.'));
    for (char& c : device) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (device == "CON" || device == "PRN" || device == "AUX" || device == "NUL") return true;
    return device.size() == 4 && (device.starts_with("COM") || device.starts_with("LPT")) && device[3] >= '1' &&
           device[3] <= '9';
}

// Appends face line l with its relative indices made absolute (v, vt, vn counted so far).
void appendAbsoluteFace(std::string_view l, const int64_t counts[3], std::string& out) {
    out += 'f';
    size_t i = 1;
    while (i < l.size()) {
        while (i < l.size() && std::isspace(static_cast<unsigned char>(l[i]))) ++i;
        size_t end = i;
        while (end < l.size() && !std::isspace(static_cast<unsigned char>(l[end]))) ++end;
        if (end == i) break;
        out += ' ';
        std::string_view token = l.substr(i, end - i);
        for (int k = 0; !token.empty() || k == 0; ++k) {
            const size_t slash = token.find('/');
            const std::string_view part = token.substr(0, slash);
            int64_t v = 0;
            bool whole = false;
            if (k < 3 && parseIndex(part, v, whole) && whole && v < 0) out += std::to_string(counts[k] + 1 + v);
            else out.append(part);
            if (slash == std::string_view::npos) break;
            out += '/';
            token.remove_prefix(slash + 1);
        }
        i = end;
    }
}

}  // namespace

int64_t PartScan::unused() const { return static_cast<int64_t>(std::count(used.begin(), used.end(), false)); }

std::string groupNameOf(std::string_view path) {
    const size_t sep = path.find_last_of("/\\");
    std::string_view name = sep == std::string_view::npos ? path : path.substr(sep + 1);
    return std::string(name.substr(0, name.rfind('.')));
}

bool parseIndex(std::string_view token, int64_t& value, bool& whole) {
    const char* p = token.data();
    const char* e = p + token.size();
    if (p < e && *p == '+' && p + 1 < e && *(p + 1) != '-') ++p;
    int32_t v = 0;  // the plug-in reads 32-bit integers
    auto r = std::from_chars(p, e, v);
    if (r.ec != std::errc()) return false;
    value = v;
    whole = r.ptr == e;
    return true;
}

bool scanPart(const std::string& path, PartScan& s) {
    s = PartScan{};
    s.path = path;
    s.name = groupNameOf(path);
    kv::MappedFile file;
    if (!file.open(path.c_str())) return false;
    s.readable = true;
    std::string_view l;
    for (kv::LineScanner lines(file.data(), file.size()); lines.next(l);) s.vertices += isVertexLine(l);
    s.used.assign(static_cast<size_t>(s.vertices), false);
    int64_t seen = 0;
    for (kv::LineScanner lines(file.data(), file.size()); lines.next(l);) {
        if (!l.empty() && l.back() == '\r') ++s.crLines;
        if (isVertexLine(l)) {
            ++seen;
        } else if (!l.empty() && l[0] == 'g') {
            s.hasGroup = true;
        } else if (!l.empty() && l[0] == 'f') {
            ++s.faces;
            s.facesBeforeGroup += !s.hasGroup;
            forEachFaceIndex(l.substr(std::min<size_t>(2, l.size())), seen, [&s](int64_t raw, int64_t at) {
                if (raw == 0) ++s.zero;
                else if (raw < 0) ++s.relative;
                if (raw != 0 && (at < 1 || at > s.vertices)) ++s.beyond;
                else if (raw != 0) s.used[static_cast<size_t>(at - 1)] = true;
            });
        }
    }
    return true;
}

std::vector<Problem> partProblems(const std::vector<PartScan>& parts, size_t i) {
    const PartScan& s = parts[i];
    std::vector<Problem> p;
    if (!s.readable) return {{"cannot be read", Remedy::Refuse}};
    if (s.faces == 0) p.push_back({"no faces", Remedy::Refuse});
    if (s.faces > 0 && !s.hasGroup) p.push_back({"no \"g\" line", Remedy::Rewrite});
    else if (s.facesBeforeGroup > 0) p.push_back({"faces before its first \"g\" line", Remedy::Rewrite});
    if (s.relative > 0) p.push_back({"relative face indices", Remedy::Rewrite});
    if (s.zero > 0) p.push_back({"zero face indices", Remedy::Refuse});
    if (s.beyond > 0)
        p.push_back({"face indices beyond its " + std::to_string(s.vertices) + " vertices", Remedy::Refuse});
    if (s.faces > 0 && s.unused() > 0)
        p.push_back({std::to_string(s.unused()) + " of " + std::to_string(s.vertices) + " vertices no face uses",
                     Remedy::RestPositions});
    if (s.crLines > 0) p.push_back({"CR line ends", Remedy::Rewrite});
    for (size_t j = 0; j < parts.size(); ++j)
        if (j != i && parts[j].name == s.name) {
            p.push_back({"stem " + s.name + " shared with " + parts[j].path, Remedy::Refuse});
            break;
        }
    if (s.name.find(' ') != std::string::npos)
        p.push_back({"name " + s.name + " is read as several groups", Remedy::Refuse});
    else if (splitsRefuse(s.name))
        p.push_back({"name " + s.name + " is refused by the splits", Remedy::Refuse});
    return p;
}

bool rewritePart(const PartScan& s, std::string& out) {
    kv::MappedFile file;
    if (!file.open(s.path.c_str())) return false;
    out.clear();
    out.reserve(file.size() + s.name.size() + 3);
    if (s.facesBeforeGroup > 0) out.append("g ").append(s.name).append("\n");
    int64_t counts[3] = {0, 0, 0};  // v, vt, vn lines so far
    std::string_view l;
    for (kv::LineScanner lines(file.data(), file.size()); lines.next(l);) {
        if (!l.empty() && l.back() == '\r') l.remove_suffix(1);
        if (isVertexLine(l)) ++counts[0];
        else if (l.starts_with("vt")) ++counts[1];
        else if (l.starts_with("vn")) ++counts[2];
        if (!l.empty() && l[0] == 'f' && l.find('-') != std::string_view::npos) appendAbsoluteFace(l, counts, out);
        else out.append(l);
        out += '\n';
    }
    return true;
}

void addCheckOptions(CLI::App& app, CheckArgs& a) {
    app.add_option("meshes", a.meshes, "Part meshes (OBJ) that are to go through a posing round")->required();
}

int runCheck(const CheckArgs& a, std::ostream& out) {
    std::vector<PartScan> parts(a.meshes.size());
    for (size_t i = 0; i < parts.size(); ++i) scanPart(a.meshes[i], parts[i]);
    bool any = false;
    for (size_t i = 0; i < parts.size(); ++i)
        for (const Problem& p : partProblems(parts, i)) {
            out << parts[i].path << ": " << p.cause << "\n";
            any = true;
        }
    return any ? 1 : 0;
}

}  // namespace kvtool
