// End to end: the built `kelvane` program loads the built plug-in with dlopen and calls its
// exports by name, so results are checked as the host sees them.
#include <gtest/gtest.h>

#include <string>

#include "imagefiles.h"
#include "testutil.h"

namespace {

std::string kelvaneWith(const std::string& plugin, const std::string& args, int* status) {
    return kvtest::run(std::string(KELVANE_BIN) + " --plugin " + plugin + " " + args + " 2>&1", status);
}

std::string kelvane(const std::string& args, int* status) { return kelvaneWith(KELVANE_PLUGIN, args, status); }

// Runs a script with dir as the working folder.
std::string runIn(const kvtest::TempDir& dir, const std::string& script, int* status) {
    return kvtest::run("cd " + dir.path + " && " KELVANE_BIN " --plugin " KELVANE_PLUGIN " run " + script + " 2>&1", status);
}

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

TEST(Cli, ShippedSampleScriptRuns) {
    int status = -1;
    kvtest::TempDir dir;
    std::string out = runIn(dir, KELVANE_SOURCE_DIR "/examples/sample.kvs", &status);
    EXPECT_EQ(status, 0) << out;
    EXPECT_NE(out.find("Version -> 4.05"), std::string::npos) << out;
}

TEST(Cli, ImageExampleScriptRuns) {
    kvtest::TempDir dir;
    kvtest::writeAll(dir / "render.bmp", kvtest::makeBmp(100, 20));
    auto pattern = [](int seed) {
        kvtest::Psd p;
        p.rows = p.columns = 128;
        p.pixels([seed](size_t k) {
            const int v = static_cast<int>(k * 7 + size_t(seed)) % 256;
            return k % 5 == 0 ? kvtest::Rgb{255, 0, 0} : kvtest::Rgb{v, 255 - v, v / 2};
        });
        return p.bytes();
    };
    const std::string color = pattern(0), base = pattern(1);
    kvtest::writeAll(dir / "color.psd", color);
    kvtest::writeAll(dir / "decal.psd", pattern(2));
    kvtest::writeAll(dir / "base.psd", base);
    kvtest::writeAll(dir / "tile.psd", pattern(3));
    int status = -1;
    std::string out = runIn(dir, KELVANE_SOURCE_DIR "/examples/images.kvs", &status);
    EXPECT_EQ(status, 0) << out;
    EXPECT_NE(out.find("CreateThumbnail -> -3"), std::string::npos) << out;
    EXPECT_EQ(kvtest::readAll(dir / "strip.bmp").size(), 54u + 17 * 152);
    EXPECT_EQ(kvtest::readAll(dir / "mask.psd").size(), color.size() + 2);  // two rewrites
    EXPECT_EQ(kvtest::readAll(dir / "gray.psd").size(), 40u + 128 * 128);
    EXPECT_EQ(kvtest::readAll(dir / "decal.psd").size(), base.size() + 1);
    EXPECT_EQ(kvtest::readAll(dir / "tile.psd").size(), base.size() + 1);
    EXPECT_EQ(kvtest::readAll(dir / "color_thumb.psd").size(), 40u + 3 * 64 * 64);
    EXPECT_FALSE(kvtest::exists(dir / "gray_thumb.psd"));
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

TEST(Cli, ProjectScriptRoundTripsThroughThePlugin) {
    int status = -1;
    kvtest::TempDir dir;
    std::string out = runIn(dir, KELVANE_SOURCE_DIR "/examples/project.kvs", &status);
    EXPECT_EQ(status, 0) << out;
    const std::string a = kvtest::readAll(dir / "12.dat"), b = kvtest::readAll(dir / "7.dat");
    EXPECT_EQ(a.size(), 16u + 516u);
    EXPECT_EQ(b.size(), 16u + 2 * 516u);
    EXPECT_EQ(kvtest::readAll(dir / "12X.dat"), a);
    EXPECT_EQ(kvtest::readAll(dir / "7X.dat"), b);
    // Header, two references, then each data file as a 16-byte chunk header, its bytes and a padding byte.
    EXPECT_EQ(kvtest::readAll(dir / "scene.prj").size(), 16u + 2 * 516u + (16 + a.size() + 1) + (16 + b.size() + 1));
}

TEST(Cli, VyxMeshRoundThroughTheExports) {
    kvtest::TempDir dir;
    using kvtest::be32;
    auto block = [&](uint32_t tag, uint32_t count, const std::string& records) {
        return be32(tag) + be32(uint32_t(16 + records.size())) + be32(count) + be32(0) + records;
    };
    const std::string one = be32(0x3F800000), half = be32(0x3F000000);  // 1.0f, 0.5f
    // One triangle (0, 0, 0), (1, 0.5, 1), (0.5, 1, 0.5) with colours, UVs all in tile 00.
    const std::string mesh =
        std::string(32, 'h') + block(10001, 3, std::string(12, '\0') + one + half + one + half + one + half) +
        block(35001, 3, be32(0x0000FF00) + be32(0) + be32(0x10203000)) +
        block(20001, 1, be32(0) + be32(1) + be32(2) + be32(0xFFFFFFFF)) +
        block(25001, 1, half + half + half + half + half + half + half + half) + std::string(16, '\0');
    kvtest::writeAll(dir / "mesh.Vyx", mesh);
    kvtest::writeAll(dir / "posed.Vyt", block(10001, 3, std::string(36, '\0')));
    kvtest::writeAll(dir / "round.kvs",
                     "getFaceIDs --text mesh.Vyx --number 1 --expect 1\n"
                     "vyxtoOBJ --text mesh.Vyx --mem1 mesh.obj\n"
                     "vyxtoOBJ --text mesh.Vyx --mem1 again.obj --expect -18\n"
                     "GetUVTile --text mesh.Vyx --expect 1 --expect-mem1 00\n"
                     "GetUVsFromVyx --text mesh.Vyx --expect 1\n"
                     "getUVTileString --number 0 --expect-mem1 mesh0.Vyx\n"
                     "SwapVertices_Vyx --text posed.Vyt --mem1 mesh.Vyx\n");
    int status = -1;
    std::string out = runIn(dir, "round.kvs", &status);
    EXPECT_EQ(status, 0) << out;
    EXPECT_EQ(kvtest::readAll(dir / "mesh.obj"),
              "# File exported by Vandor plugin\n#Vertex count 3\n#Face count 1\nv 0 0 0\nv 1 0.5 1\nv 0.5 1 0.5\n"
              "# The following RGB block contains Vandor Vertex Color (Chromelay) output as 3 hexadecimal values per "
              "vertex. The vertex color format is RRGGBB with up to 32 entries per RGB line.\n"
              "#RGB  ff0000000000 000000 300000002000000010000000\n# End of RGB block\n#FaceID 1\nf 1 2 3 \n");
    EXPECT_EQ(kvtest::readAll(dir / "mesh0.Vyx"), mesh);  // one tile: every UV kept, the UV block was last
    EXPECT_EQ(kvtest::readAll(dir / "mesh.Vyx"), mesh.substr(0, 48) + std::string(36, '\0') + mesh.substr(84));
}
