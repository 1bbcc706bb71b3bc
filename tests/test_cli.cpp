// End to end: the built `kelvane` program loads the built plug-in with dlopen and calls its
// exports by name, so results are checked as the host sees them.
#include <gtest/gtest.h>

#include <string>

#include "testutil.h"

namespace {

std::string kelvaneWith(const std::string& plugin, const std::string& args, int* status) {
    return kvtest::run(std::string(KELVANE_BIN) + " --plugin " + plugin + " " + args + " 2>&1", status);
}

std::string kelvane(const std::string& args, int* status) { return kelvaneWith(KELVANE_PLUGIN, args, status); }

}  // namespace

TEST(Cli, ListsTheExportsItCanResolve) {
    int status = -1;
    std::string out = kelvane("list", &status);
    EXPECT_EQ(status, 0) << out;
    for (const char* name : {"Version\n", "AddTPoseRef\n", "FileCopyTo\n", "EmptyFolder\n"})
        EXPECT_NE(out.find(name), std::string::npos) << name << " missing from\n" << out;
    EXPECT_EQ(out.find("_Z"), std::string::npos) << out;
    out = kelvane("list --data", &status);
    EXPECT_NE(out.find("tPoseList (data)"), std::string::npos) << out;
}

TEST(Cli, CallPrintsTheFloatResultAndMemBlock1) {
    int status = -1;
    EXPECT_EQ(kelvane("call Version", &status), "Version -> 4.05\n");
    EXPECT_EQ(status, 0);
    // A null text reaches the export as a null pointer; a failure code comes with its meaning.
    EXPECT_EQ(kelvane("call FileDelete --null-text", &status), "FileDelete -> -1 (the file cannot be deleted)\n");
    EXPECT_EQ(kelvane("call SetPrjModfier --number nan", &status), "SetPrjModfier -> -1 (the number is not above 0)\n");
    EXPECT_EQ(kelvane("call GetFile --mem1 untouched", &status), "GetFile -> -1 (no folder is open)\n");
    EXPECT_EQ(kelvane("--version", &status), "kelvane 4.05\n");
    EXPECT_EQ(kelvane("call NoSuchExport", &status).find("no export named NoSuchExport") != std::string::npos, true);
    EXPECT_EQ(status, 2);
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
    int status = -1;
    std::string out = kelvane("run " + script, &status);
    EXPECT_EQ(status, 1) << out;
    EXPECT_NE(out.find("AddTPoseRef -> 0\n"), std::string::npos) << out;
    EXPECT_NE(out.find("GetTPoseRef -> 3\n  memBlock1: arm data\n"), std::string::npos) << out;
    EXPECT_NE(out.find("modifier is 4294967296\n"), std::string::npos) << out;
    EXPECT_NE(out.find("refs.kvs:9: GetTPoseRef failed with -1 (no reference of that name)\n"), std::string::npos) << out;
    EXPECT_EQ(out.find("Version ->"), std::string::npos) << out;  // stopped before the last line

    out = kelvane("run --keep-going " + script, &status);
    EXPECT_EQ(status, 1);
    EXPECT_NE(out.find("Version -> 4.05"), std::string::npos) << out;

    kvtest::writeAll(script, "Version --expect 4\n");
    out = kelvane("run " + script, &status);
    EXPECT_EQ(status, 1);
    EXPECT_NE(out.find("returned 4.05, expected 4"), std::string::npos) << out;
}

// The host's side of the posing round: `pose` turns one group only; `verify` rejects a part
// whose positions or other lines are not the posed ones.
TEST(Cli, PoseTurnsOneGroupAndVerifyCatchesWrongParts) {
    kvtest::TempDir dir;
    kvtest::writeAll(dir / "part.obj", "# p\nv 1 0 0\nv 2 0 0\nvt 0 0\ng x\nf 1/1 2/1 1/1\n");
    kvtest::writeAll(dir / "c.obj", "v 5 5 5\nv 1 0 0\nv 2 0 0\ng A\nf 1 1 1\ng part\nf 2 3 2 \n");
    int status = -1;
    std::string out = kelvane("pose " + dir / "c.obj" + " " + dir / "posed.obj" +
                                  " --group part --axis z --angle 90 --about 1,0,0",
                              &status);
    EXPECT_EQ(status, 0) << out;
    EXPECT_EQ(kvtest::readAll(dir / "posed.obj"), "v 5 5 5\nv 1 0 0\nv 1 1 0\ng A\nf 1 1 1\ng part\nf 2 3 2 \n");
    EXPECT_NE(kelvane("pose " + dir / "c.obj" + " " + dir / "p2.obj --group nobody", &status).find("no group"),
              std::string::npos);
    EXPECT_EQ(status, 1);

    const std::string verify = "verify --part " + dir / "part.obj" + " --combined " + dir / "posed.obj" +
                               " --group part --posed-part ";
    kvtest::writeAll(dir / "good.obj", "v 1 0 0\nv 1 1 0\nvt 0 0\ng x\nf 1/1 2/1 1/1\n");
    out = kelvane(verify + dir / "good.obj", &status);
    EXPECT_EQ(status, 0) << out;
    EXPECT_NE(out.find("ok  part: 2 vertices (1 moved), 1 faces, 1 UVs"), std::string::npos) << out;
    kvtest::writeAll(dir / "stale.obj", "v 1 0 0\nv 2 0 0\nvt 0 0\ng x\nf 1/1 2/1 1/1\n");
    EXPECT_NE(kelvane(verify + dir / "stale.obj", &status).find("positions differ"), std::string::npos);
    EXPECT_EQ(status, 1);
    kvtest::writeAll(dir / "nouv.obj", "v 1 0 0\nv 1 1 0\ng x\nf 1/1 2/1 1/1\n");
    EXPECT_NE(kelvane(verify + dir / "nouv.obj", &status).find("faces, UVs and normals differ"), std::string::npos);
    EXPECT_EQ(status, 1);
}

