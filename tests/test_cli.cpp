// End to end: the built `kelvane` program loads the built plug-in with dlopen and calls its
// exports by name, so results are checked as the host sees them.
#include <gtest/gtest.h>

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
    for (auto [name, text, status, piece] : std::vector<std::tuple<const char*, const char*, int, const char*>>{
             {"good.obj", "v 1 0 0\nv 1 1 0\nvt 0 0\ng x\nf 1/1 2/1 1/1\n", 0, "ok  part: 2 vertices (1 moved), 1 faces, 1 UVs"},
             {"stale.obj", "v 1 0 0\nv 2 0 0\nvt 0 0\ng x\nf 1/1 2/1 1/1\n", 1, "positions differ"},
             {"nouv.obj", "v 1 0 0\nv 1 1 0\ng x\nf 1/1 2/1 1/1\n", 1, "faces, UVs and normals differ"}}) {
        kvtest::writeAll(dir / name, text);
        const std::string verify = "verify --part " + dir / "part.obj" + " --combined " + dir / "posed.obj" + " --group part";
        expectRun(verify + " --posed-part " + dir / name, status, piece);
    }
}
