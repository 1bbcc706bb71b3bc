// The safe posing round. `combine` checks every part, refuses those that cannot come back,
// rewrites into a work copy those that only need a lossless rewrite (CR line ends, relative
// indices, faces outside a "g" line), appends them with AppendOBJ and writes the round file.
// `split-back` rebuilds the polygroup list from the round file, splits the posed mesh with
// ListSplitOBJtoOBJ into a scratch folder and gives each part its own file back: every line as
// it was, the vertex lines that its faces use at their posed positions.
#include "round.h"

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "meshcheck.h"
#include "platform/mapfile.h"
#include "util/text.h"

namespace kvtool {
namespace fs = std::filesystem;

namespace {

bool isVertexLine(std::string_view l) { return l.size() > 1 && l[0] == 'v' && l[1] == ' '; }

std::string_view withoutCR(std::string_view l) {
    if (!l.empty() && l.back() == '\r') l.remove_suffix(1);
    return l;
}

// Calls an export as the host does: text, number, memBlock1 (a 1 MiB block starting with mem1).
float callExport(const Plugin& plugin, const char* name, const std::string* text, double number,
                 const std::string& mem1 = "") {
    KelvaneFn fn = plugin.find(name);
    if (!fn) return -1e9f;
    std::vector<char> block(1 << 20, '\0'), block2(16, '\0');
    mem1.copy(block.data(), std::min(mem1.size(), block.size() - 1));
    return fn(text ? text->c_str() : nullptr, number, block.data(), block2.data());
}

// A folder of its own for the round's scratch files, removed on destruction.
struct ScratchDir {
    fs::path path;
    explicit ScratchDir(const fs::path& near) {
        std::random_device rd;
        for (int i = 0; i < 100 && path.empty(); ++i) {
            fs::path p = near / (".kelvane-round-" + std::to_string(rd()));
            std::error_code ec;
            if (fs::create_directory(p, ec)) path = p;
        }
    }
    ~ScratchDir() {
        std::error_code ec;
        if (!path.empty()) fs::remove_all(path, ec);
    }
};

bool storeNew(const fs::path& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out.flush());
}

// The first name of DIR/name, DIR/<stem>_copy1<ext>, ... that is not taken.
fs::path freshName(const fs::path& dir, const std::string& fileName) {
    const size_t dot = fileName.rfind('.');
    const std::string stem = fileName.substr(0, dot), ext = dot == std::string::npos ? "" : fileName.substr(dot);
    fs::path candidate = dir / fileName;
    for (unsigned n = 1; fs::exists(candidate); ++n) candidate = dir / (stem + "_copy" + std::to_string(n) + ext);
    return candidate;
}

// The vertex and face lines of a mesh, counted as the plug-in counts them.
bool countLines(const std::string& path, int64_t& vertices, int64_t& faces) {
    kv::MappedFile file;
    if (!file.open(path.c_str())) return false;
    vertices = faces = 0;
    std::string_view l;
    for (kv::LineScanner lines(file.data(), file.size()); lines.next(l);) {
        vertices += isVertexLine(l);
        faces += !l.empty() && l[0] == 'f';
    }
    return true;
}

// Part s with its used vertices at the positions of posed (one "v " line per used vertex, in
// order) and every other byte as it was; a vertex line keeps its CR.
void posedPart(const PartScan& s, const std::vector<std::string_view>& posed, std::string& out) {
    kv::MappedFile file;
    file.open(s.path.c_str());
    const char* end = file.data() + file.size();
    out.clear();
    out.reserve(file.size() + file.size() / 8);
    size_t vertex = 0, next = 0;
    std::string_view l;
    for (kv::LineScanner lines(file.data(), file.size()); lines.next(l);) {
        if (isVertexLine(l) && s.used[vertex++]) {
            out.append(withoutCR(posed[next++]));
            if (l.back() == '\r') out += '\r';
        } else {
            out.append(l);
        }
        if (l.data() + l.size() < end) out += '\n';
    }
}

}  // namespace

bool writeRoundFile(const std::string& file, const std::vector<RoundPart>& parts) {
    std::ostringstream s;
    s << "# kelvane posing round: the parts in the order they were combined\n"
         "# part <vertex offset> <vertices> <first face> <end face> <group> <path>\n"
         "kelvane-round 1\n";
    for (const RoundPart& p : parts)
        s << "part " << p.offset << ' ' << p.vertices << ' ' << p.firstFace << ' ' << p.endFace << ' ' << p.name
          << ' ' << p.path << '\n';
    return storeNew(file, s.str());
}

bool readRoundFile(const std::string& file, std::vector<RoundPart>& parts, std::string& error) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        error = "cannot read " + file;
        return false;
    }
    parts.clear();
    bool header = false;
    int lineNo = 0;
    for (std::string line; std::getline(in, line);) {
        ++lineNo;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line[0] == '#') continue;
        std::istringstream words(line);
        std::string word;
        words >> word;
        if (!header) {
            int version = 0;
            header = word == "kelvane-round" && (words >> version) && version == 1;
            if (!header) break;
            continue;
        }
        RoundPart p;
        if (word == "part" && (words >> p.offset >> p.vertices >> p.firstFace >> p.endFace >> p.name) &&
            words.get() == ' ' && std::getline(words, p.path) && !p.path.empty() && p.vertices >= 0 &&
            p.endFace > p.firstFace) {
            parts.push_back(p);
            continue;
        }
        error = file + ":" + std::to_string(lineNo) + ": not a part line";
        return false;
    }
    if (!header || parts.empty()) error = file + ": not a round file (no \"kelvane-round 1\" line and parts)";
    return header && !parts.empty();
}

void addCombineOptions(CLI::App& app, CombineArgs& a) {
    app.add_option("parts", a.parts, "Part meshes (OBJ), in order")->required();
    app.add_option("--out", a.out, "The combined mesh to write (its round file: the same name + .round)")->required();
}

void addSplitBackOptions(CLI::App& app, SplitBackArgs& a) {
    app.add_option("posed", a.posed, "The posed combined mesh")->required();
    app.add_option("--round", a.round, "The round file written by combine")->required();
    app.add_option("--out", a.outDir, "Folder for the posed parts (made when missing)")->required();
}

int runCombine(const Plugin& plugin, const CombineArgs& a, std::ostream& out, std::ostream& err) {
    const std::string roundFile = a.out + ".round";
    for (const std::string& f : {a.out, roundFile})
        if (fs::exists(f)) {
            err << "combine: " << f << " exists: a round never appends to a finished file\n";
            return 1;
        }
    std::vector<PartScan> scans(a.parts.size());
    std::vector<std::vector<Problem>> problems(a.parts.size());
    bool refused = false;
    for (size_t i = 0; i < scans.size(); ++i) scanPart(a.parts[i], scans[i]);
    for (size_t i = 0; i < scans.size(); ++i) {
        problems[i] = partProblems(scans, i);
        for (const Problem& p : problems[i])
            if (p.remedy == Remedy::Refuse) {
                err << scans[i].path << ": " << p.cause << "\n";
                refused = true;
            }
    }
    if (refused) {
        err << "combine: refused, nothing written\n";
        return 1;
    }
    std::error_code ec;
    const fs::path outDir = fs::absolute(a.out).parent_path();
    ScratchDir work(outDir);
    if (work.path.empty()) {
        err << "combine: cannot make a work folder in " << outDir.string() << "\n";
        return 2;
    }
    if (callExport(plugin, "GroupListClear", nullptr, 0) != 0) {
        err << "combine: the plug-in has no GroupListClear\n";
        return 2;
    }
    std::vector<RoundPart> parts;
    int64_t offset = 0, face = 0;
    std::string copy;
    for (size_t i = 0; i < scans.size(); ++i) {
        const PartScan& s = scans[i];
        std::string source = s.path;
        for (const Problem& p : problems[i]) {
            if (p.remedy == Remedy::Rewrite && source == s.path) {
                source = (work.path / (s.name + ".obj")).string();
                if (!rewritePart(s, copy) || !storeNew(source, copy)) {
                    err << "combine: cannot write the work copy " << source << "\n";
                    fs::remove(a.out, ec);
                    return 2;
                }
            }
            out << s.path << ": " << p.cause
                << (p.remedy == Remedy::Rewrite ? " -> combined from a rewritten copy\n"
                                                : " -> they come back at their rest positions\n");
        }
        const float r = callExport(plugin, "AppendOBJ", &source, static_cast<double>(offset), a.out);
        if (r != static_cast<float>(s.vertices)) {
            err << s.path << ": AppendOBJ -> " << withMeaning("AppendOBJ", r) << ", expected " << s.vertices << "\n";
            fs::remove(a.out, ec);
            return 1;
        }
        parts.push_back({offset, s.vertices, face, face + s.faces, s.name, fs::absolute(s.path).string()});
        offset += s.vertices;
        face += s.faces;
    }
    if (!writeRoundFile(roundFile, parts)) {
        err << "combine: cannot write " << roundFile << "\n";
        return 2;
    }
    out << "combine: " << parts.size() << " parts, " << offset << " vertices, " << face << " faces -> " << a.out
        << " (round file " << roundFile << ")\n";
    return 0;
}

int runSplitBack(const Plugin& plugin, const SplitBackArgs& a, std::ostream& out, std::ostream& err) {
    std::vector<RoundPart> parts;
    std::string error;
    if (!readRoundFile(a.round, parts, error)) {
        err << "split-back: " << error << "\n";
        return 2;
    }
    // Every part and the posed mesh must still be what was combined.
    std::vector<PartScan> scans(parts.size());
    int64_t vertices = 0, faces = 0, posedV = 0, posedF = 0;
    bool refused = false;
    for (size_t i = 0; i < parts.size(); ++i) {
        PartScan& s = scans[i];
        const RoundPart& p = parts[i];
        if (!scanPart(p.path, s) || s.vertices != p.vertices || s.faces != p.endFace - p.firstFace) {
            err << p.path << ": not the part that was combined (" << p.vertices << " vertices, "
                << p.endFace - p.firstFace << " faces)\n";
            refused = true;
        }
        vertices = std::max(vertices, p.offset + p.vertices);
        faces = std::max(faces, p.endFace);
    }
    if (!countLines(a.posed, posedV, posedF)) {
        err << "split-back: cannot read " << a.posed << "\n";
        return 2;
    }
    if (posedV != vertices || posedF != faces) {
        err << a.posed << ": " << posedV << " vertices and " << posedF << " faces, the round combined " << vertices
            << " and " << faces << "\n";
        refused = true;
    }
    std::error_code ec;
    fs::create_directories(a.outDir, ec);
    ScratchDir scratch(fs::absolute(a.outDir));
    if (refused || scratch.path.empty()) {
        err << "split-back: " << (refused ? "refused" : "cannot make a scratch folder in " + a.outDir)
            << ", nothing written\n";
        return refused ? 1 : 2;
    }
    callExport(plugin, "GroupListClear", nullptr, 0);
    for (const RoundPart& p : parts) callExport(plugin, "GroupListAdd", &p.name, double(p.endFace - p.firstFace));
    const std::string into = (scratch.path / "").string();
    if (float r = callExport(plugin, "ListSplitOBJtoOBJ", &a.posed, 0, into); r != 0) {
        err << "split-back: ListSplitOBJtoOBJ -> " << withMeaning("ListSplitOBJtoOBJ", r) << "\n";
        return 1;
    }
    // Each part is built and checked against its own vertex count before any is written.
    std::vector<std::string> results(parts.size());
    std::vector<std::string_view> posed;
    for (size_t i = 0; i < parts.size() && !refused; ++i) {
        kv::MappedFile split;
        posed.clear();
        if (split.open((scratch.path / (parts[i].name + ".obj")).string().c_str())) {
            std::string_view l;
            for (kv::LineScanner lines(split.data(), split.size()); lines.next(l);)
                if (isVertexLine(l)) posed.push_back(l);
        }
        const int64_t want = scans[i].vertices - scans[i].unused();
        if (static_cast<int64_t>(posed.size()) != want) {
            err << parts[i].path << ": the split gave " << posed.size() << " vertices, its faces use " << want << "\n";
            refused = true;
        } else {
            posedPart(scans[i], posed, results[i]);
        }
    }
    if (refused) {
        err << "split-back: refused, nothing written\n";
        return 1;
    }
    for (size_t i = 0; i < parts.size(); ++i) {
        const fs::path target = freshName(a.outDir, fs::path(parts[i].path).filename().string());
        if (!storeNew(target, results[i])) {
            err << "split-back: cannot write " << target.string() << "\n";
            return 2;
        }
        out << parts[i].path << " -> " << target.string() << " (" << scans[i].vertices << " vertices, "
            << scans[i].unused() << " at rest)\n";
    }
    return 0;
}

}  // namespace kvtool
