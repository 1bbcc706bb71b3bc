// End to end: the built `kelvane` program loads the built plug-in with dlopen and calls its
// exports by name, so results are checked as the host sees them.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "testutil.h"

namespace {

std::string kelvaneWith(const std::string& plugin, const std::string& args, int* status) {
    return kvtest::run(std::string(KELVANE_BIN) + " --plugin " + plugin + " " + args + " 2>&1", status);
}

std::string kelvane(const std::string& args, int* status) { return kelvaneWith(KELVANE_PLUGIN, args, status); }

// Runs kelvane, expects its exit status and a piece of its output, and returns the output.
std::string expectRun(const std::string& args, int status, const std::string& piece) {
    int got = -1;
    const std::string out = kelvane(args, &got);
    EXPECT_EQ(got, status) << args << "\n" << out;
    EXPECT_NE(out.find(piece), std::string::npos) << args << "\n" << out;
    return out;
}

}  // namespace

TEST(Cli, ListsTheExportsAndCallPrintsTheFloatResultAndMemBlock1) {
    for (const char* name : {"AddTPoseRef\n", "FileCopyTo\n", "EmptyFolder\n"}) expectRun("list", 0, name);
    expectRun("list --data", 0, "tPoseList (data)");
    // A null text reaches the export as a null pointer; a failure code comes with its meaning.
    for (auto [args, out] : std::vector<std::pair<const char*, const char*>>{
             {"call Version", "Version -> 4.05\n"}, {"--version", "kelvane 4.05\n"},
             {"call FileDelete --null-text", "FileDelete -> -1 (the file cannot be deleted)\n"},
             {"call SetPrjModfier --number nan", "SetPrjModfier -> -1 (the number is not above 0)\n"},
             {"call GetFile --mem1 untouched", "GetFile -> -1 (no folder is open)\n"}}) {
        int status = -1;
        EXPECT_EQ(kelvane(args, &status), out);
        EXPECT_EQ(status, 0) << args;
    }
    expectRun("call NoSuchExport", 2, "no export named NoSuchExport");
    int status = -1;
    EXPECT_NE(kelvaneWith("/nonexistent/lib.so", "call Version", &status).find("kelvane:"), std::string::npos);
    EXPECT_EQ(status, 2);
}

TEST(Cli, RunKeepsStateBetweenLinesAndStopsAtTheFirstNegativeResult) {
    kvtest::TempDir dir;
    const std::string script = dir / "refs.kvs";
    kvtest::writeAll(script,
                     "# a reference list across calls\n"
                     "ClearTPoseList\n"
                     "AddTPoseRef --text 'left arm' --number 3 --mem1 \"arm data\"\n"
                     "SetPrjModfier --number 5000000000\n"
                     "GetPrjModfier --set mod --expect 4294967295\n"
                     "GetTPoseRef --text 'left arm' --expect 3 --expect-mem1 'arm data'   # found\n"
                     "echo modifier is $mod\n"
                     "GetTPoseRef --text missing --expect -1\n"
                     "GetTPoseRef --text missing\n"
                     "Version\n");
    const std::string out = expectRun("run " + script, 1, "refs.kvs:9: GetTPoseRef failed with -1 (no reference of that name)\n");
    for (const char* line : {"AddTPoseRef -> 0\n", "GetTPoseRef -> 3\n  memBlock1: arm data\n", "modifier is 4294967296\n"})
        EXPECT_NE(out.find(line), std::string::npos) << out;
    EXPECT_EQ(out.find("Version ->"), std::string::npos) << out;  // stopped before the last line
    expectRun("run --keep-going " + script, 1, "Version -> 4.05");
    kvtest::writeAll(script, "Version --expect 4\n");
    expectRun("run " + script, 1, "returned 4.05, expected 4");
}

// The host's side of the posing round: `pose` turns one group only; `verify` rejects a part
// whose positions or other lines are not the posed ones.
TEST(Cli, PoseTurnsOneGroupAndVerifyCatchesWrongParts) {
    kvtest::TempDir dir;
    kvtest::writeAll(dir / "part.obj", "# p\nv 1 0 0\nv 2 0 0\nvt 0 0\ng x\nf 1/1 2/1 1/1\n");
    kvtest::writeAll(dir / "c.obj", "v 5 5 5\nv 1 0 0\nv 2 0 0\ng A\nf 1 1 1\ng part\nf 2 3 2 \n");
    expectRun("pose " + dir / "c.obj" + " " + dir / "posed.obj" + " --group part --axis z --angle 90 --about 1,0,0", 0, "pose: part: ");
    EXPECT_EQ(kvtest::readAll(dir / "posed.obj"), "v 5 5 5\nv 1 0 0\nv 1 1 0\ng A\nf 1 1 1\ng part\nf 2 3 2 \n");
    expectRun("pose " + dir / "c.obj" + " " + dir / "p2.obj --group nobody", 1, "no group");
    // Right-handed about y as about x and z: +x turns to -z; a moved float keeps all its digits.
    kvtest::writeAll(dir / "y.obj", "v 1.2345678 0 0\r\ng arm\r\nf 1 1 1\r\n");
    expectRun("pose " + dir / "y.obj" + " " + dir / "y2.obj --group arm --axis y --angle 90", 0, "1 vertices turned");
    EXPECT_NE(kvtest::readAll(dir / "y2.obj").find(" 0 -1.2345678\ng arm\r\n"), std::string::npos);
    for (auto [name, text, status, piece] : std::vector<std::tuple<const char*, const char*, int, const char*>>{
             {"good.obj", "v 1 0 0\nv 1 1 0\nvt 0 0\ng x\nf 1/1 2/1 1/1\n", 0, "ok  part: 2 vertices (1 moved), 1 faces, 1 UVs"},
             {"stale.obj", "v 1 0 0\nv 2 0 0\nvt 0 0\ng x\nf 1/1 2/1 1/1\n", 1, "positions differ"},
             {"nouv.obj", "v 1 0 0\nv 1 1 0\ng x\nf 1/1 2/1 1/1\n", 1, "faces, UVs and normals differ"}}) {
        kvtest::writeAll(dir / name, text);
        const std::string verify = "verify --part " + dir / "part.obj" + " --combined " + dir / "posed.obj" + " --group part";
        expectRun(verify + " --posed-part " + dir / name, status, piece);
    }
}

namespace {

// The trap meshes of tests/data/round_traps.txt written into dir; returns the cases.
std::vector<std::pair<std::vector<std::string>, std::string>> writeTraps(const kvtest::TempDir& dir) {
    std::istringstream table(kvtest::readAll(std::string(KELVANE_SOURCE_DIR) + "/tests/data/round_traps.txt"));
    std::vector<std::pair<std::vector<std::string>, std::string>> cases;
    std::string line, mesh, bytes;
    auto flush = [&] {
        if (mesh.empty()) return;
        std::filesystem::create_directories(std::filesystem::path(dir / mesh).parent_path());
        kvtest::writeAll(dir / mesh, bytes);
    };
    while (std::getline(table, line)) {
        if (line.starts_with("== ")) {
            flush();
            mesh = line.substr(3), bytes.clear();
        } else if (line.starts_with("case ")) {
            const size_t arrow = line.find(" -> ");
            std::vector<std::string> parts;
            std::istringstream list(line.substr(5, arrow - 5));
            for (std::string p; std::getline(list, p, '|');) parts.push_back(p);
            cases.emplace_back(parts, line.substr(arrow + 4));
        } else if (!mesh.empty()) {
            const bool cr = line.ends_with("<CR>");
            bytes += (cr ? line.substr(0, line.size() - 4) + "\r" : line) + "\n";
        }
    }
    flush();
    return cases;
}

// The part as it must come back from a round whose posed mesh holds "v K 0 0" for its K-th
// vertex: its used vertices (1-based indices, relative ones resolved) at offset + their index.
std::string expectedPosed(const std::string& part, long offset) {
    std::vector<std::string> lines;
    std::istringstream in(part);
    std::set<long> used;
    long vertices = 0;
    for (std::string l; std::getline(in, l);) {
        lines.push_back(l);
        vertices += l.starts_with("v ");
        std::istringstream words(l.starts_with("f") ? l.substr(1) : "");
        for (std::string w; words >> w;) used.insert(std::stol(w) < 0 ? vertices + 1 + std::stol(w) : std::stol(w));
    }
    std::string out;
    long v = 0;
    for (const std::string& l : lines) {
        const bool cr = l.ends_with("\r");
        out += l.starts_with("v ") && used.count(++v) ? "v " + std::to_string(offset + v) + " 0 0" + (cr ? "\r" : "") : l;
        out += "\n";
    }
    return out;
}

}  // namespace

// Every trap mesh either comes back from `combine` and `split-back` exact, at its posed
// positions, again as fresh files when run twice, or is refused with its reason, nothing written.
TEST(Cli, SafeRoundBringsEveryTrapBackExactOrRefusesIt) {
    kvtest::TempDir dir;
    for (const auto& [parts, outcome] : writeTraps(dir)) {
        std::string args, label;
        for (const std::string& p : parts) args += " '" + dir / p + "'", label += p + " ";
        std::filesystem::remove_all(dir / "out");
        std::filesystem::remove(dir / "c.obj"), std::filesystem::remove(dir / "c.obj.round");
        if (outcome != "exact") {
            expectRun("combine" + args + " --out " + dir / "c.obj", 1, dir / outcome.substr(8));
            EXPECT_FALSE(kvtest::exists(dir / "c.obj") || kvtest::exists(dir / "c.obj.round")) << label;
            continue;
        }
        expectRun("combine" + args + " --out " + dir / "c.obj", 0, "combine: " + std::to_string(parts.size()) + " parts");
        expectRun("combine" + args + " --out " + dir / "c.obj", 1, "exists");  // never appended to
        // The host moves every vertex: the K-th to (K, 0, 0).
        std::istringstream combined(kvtest::readAll(dir / "c.obj"));
        std::string posed;
        long k = 0;
        for (std::string l; std::getline(combined, l);)
            posed += (l.starts_with("v ") ? "v " + std::to_string(++k) + " 0 0" : l) + "\n";
        kvtest::writeAll(dir / "posed.obj", posed);
        const std::string back = "split-back --round " + dir / "c.obj.round" + " --out " + dir / "out/new ";
        expectRun(back + dir / "posed.obj", 0, "at rest");
        expectRun(back + dir / "c.obj", 0, "_copy1.obj");  // a second round: fresh names
        long offset = 0;
        for (const std::string& p : parts) {
            const std::string part = kvtest::readAll(dir / p), name = std::filesystem::path(p).stem().string();
            EXPECT_EQ(kvtest::readAll(dir / ("out/new/" + name + ".obj")), expectedPosed(part, offset)) << p;
            EXPECT_EQ(kvtest::readAll(dir / ("out/new/" + name + "_copy1.obj")), part) << p;
            for (size_t at = 0; (at = part.find("v ", at)) != std::string::npos; ++at) offset += at == 0 || part[at - 1] == '\n';
        }
        kvtest::writeAll(dir / "posed.obj", posed + "f 1 2 3\n");  // a face the round has not got
        expectRun(back + dir / "posed.obj", 1, "the round combined");
    }
}
