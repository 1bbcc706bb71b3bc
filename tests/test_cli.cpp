// End to end: the built `kelvane` program loads the built plug-in with dlopen and calls its
// exports by name, so results are checked as the host sees them; its pictures (`kelvane render`,
// `kelvane image`) are read back with stb's PNG reader.
#include <gtest/gtest.h>

#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_PNG
#include <stb/stb_image.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "imagefiles.h"
#include "testutil.h"

namespace {

std::string kelvaneWith(const std::string& plugin, const std::string& args, int* status) {
    return kvtest::run(std::string(KELVANE_BIN) + " --plugin " + plugin + " " + args + " 2>&1", status);
}

std::string kelvane(const std::string& args, int* status) { return kelvaneWith(KELVANE_PLUGIN, args, status); }

struct Png {
    int w = 0, h = 0, n = 0;
    std::vector<unsigned char> px;
    explicit Png(const std::string& path) {
        unsigned char* d = stbi_load(path.c_str(), &w, &h, &n, 0);
        if (d) px.assign(d, d + size_t(w) * size_t(h) * size_t(n)), stbi_image_free(d);
    }
    unsigned at(int x, int y) const {  // an RGB pixel as one number
        const unsigned char* p = &px[(size_t(y) * size_t(w) + size_t(x)) * 3];
        return unsigned(p[0]) << 16 | unsigned(p[1]) << 8 | p[2];
    }
};

// The box of the first band of rows from the top that holds more than background (the mesh).
struct Box {
    int x0 = 1 << 30, y0 = -1, x1 = -1, y1 = -1;
    explicit Box(const Png& p) {
        for (int y = 0, found = 0; y < p.h && (found || y0 < 0); ++y) {
            found = 0;
            for (int x = 0; x < p.w; ++x)
                if (p.at(x, y) != p.at(0, 0)) ++found, x0 = std::min(x0, x), x1 = std::max(x1, x);
            if (found) y1 = y, y0 = y0 < 0 ? y : y0;
        }
    }
};

// Runs kelvane, expects its exit status and a piece of its output, and returns the output.
std::string expectRun(const std::string& args, int status, const std::string& piece) {
    int got = -1;
    const std::string out = kelvane(args, &got);
    EXPECT_EQ(got, status) << args << "\n" << out;
    EXPECT_NE(out.find(piece), std::string::npos) << args << "\n" << out;
    return out;
}

}  // namespace

TEST(Cli, ListsTheExportsItCanResolve) {
    const std::string out = expectRun("list", 0, "Version\n");
    for (const char* name : {"AddTPoseRef\n", "FileCopyTo\n", "EmptyFolder\n"}) EXPECT_NE(out.find(name), std::string::npos) << name;
    EXPECT_EQ(out.find("_Z"), std::string::npos) << out;
    expectRun("list --data", 0, "tPoseList (data)");
}

TEST(Cli, CallPrintsTheFloatResultAndMemBlock1) {
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
    expectRun("pose " + dir / "c.obj" + " " + dir / "posed.obj" + " --group part --axis z --angle 90 --about 1,0,0", 0, "");
    EXPECT_EQ(kvtest::readAll(dir / "posed.obj"), "v 5 5 5\nv 1 0 0\nv 1 1 0\ng A\nf 1 1 1\ng part\nf 2 3 2 \n");
    expectRun("pose " + dir / "c.obj" + " " + dir / "p2.obj --group nobody", 1, "no group");
    for (auto [name, text, status, piece] : std::vector<std::tuple<const char*, const char*, int, const char*>>{
             {"good.obj", "v 1 0 0\nv 1 1 0\nvt 0 0\ng x\nf 1/1 2/1 1/1\n", 0, "ok  part: 2 vertices (1 moved), 1 faces, 1 UVs"},
             {"stale.obj", "v 1 0 0\nv 2 0 0\nvt 0 0\ng x\nf 1/1 2/1 1/1\n", 1, "positions differ"},
             {"nouv.obj", "v 1 0 0\nv 1 1 0\ng x\nf 1/1 2/1 1/1\n", 1, "faces, UVs and normals differ"}}) {
        kvtest::writeAll(dir / name, text);
        expectRun("verify --part " + dir / "part.obj" + " --combined " + dir / "posed.obj" + " --group part --posed-part " + dir / name, status, piece);
    }
}

// Two squares side by side in groups "left" and "right": solidly filled, framed to the picture,
// one colour each. A small square written before a large one behind it stays in front.
TEST(View, RenderFillsFacesInOneColourPerGroupNearestInFront) {
    kvtest::TempDir dir;
    kvtest::writeAll(dir / "two.obj", "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 2 0 0\nv 2 1 0\n"
                                      "g left\nf 1 2 3 4\ng right\nf 2/1/1 5/2/1 6/3/1 3/4/1\n");
    kvtest::writeAll(dir / "depth.obj", "v -1 -1 1\nv 1 -1 1\nv 1 1 1\nv -1 1 1\nv -4 -4 0\nv 4 -4 0\nv 4 4 0\nv -4 4 0\n"
                                        "g near\nf 1 2 3 4\ng far\nf 5 6 7 8\n");
    expectRun("render " + dir / "two.obj" + " --size 200 --out " + dir / "two.png", 0, "");
    const Png p(dir / "two.png");
    const Box b(p);
    const int w = b.x1 - b.x0 + 1, h = b.y1 - b.y0 + 1;
    EXPECT_GE(w, 160) << "framed to the panel";
    EXPECT_NEAR(w, 2 * h, 2);
    const unsigned left = p.at(b.x0, b.y0), right = p.at(b.x1, b.y1);
    int counts[3] = {0, 0, 0};
    for (int y = b.y0; y <= b.y1; ++y)
        for (int x = b.x0; x <= b.x1; ++x) ++counts[p.at(x, y) == left ? 0 : p.at(x, y) == right ? 1 : 2];
    EXPECT_EQ(counts[2], 0) << "holes or a third colour in the faces";
    EXPECT_NEAR(counts[0], counts[1], 2 * h);
    EXPECT_NE(left, right);
    for (const char* view : {"front", "back"}) {  // seen from the back, the large square hides the small one
        expectRun("render " + dir / "depth.obj" + " --view " + view + " --out " + dir / "depth.png", 0, "");
        const Png d(dir / "depth.png");
        const Box e(d);
        EXPECT_EQ(d.at(e.x0, e.y0) == d.at((e.x0 + e.x1) / 2, (e.y0 + e.y1) / 2), view[0] == 'b') << view;
    }
    kvtest::writeAll(dir / "bad.obj", "v 0 0 0\nv 1 2\n");
    int status = -1;
    EXPECT_NE(kelvane("render " + dir / "bad.obj" + " --out " + dir / "bad.png", &status).find("bad.obj: line 2: a vertex line without three numbers"), std::string::npos);
}

// A PSD of the plug-in's dialect (RGB, and the one gray plane of its grayscale export) and a
// 24-bit BMP (rows stored bottom up, blue first, padded) come out pixel for pixel.
TEST(View, ImageConvertsPsdAndBmpPixelForPixel) {
    kvtest::TempDir dir;
    kvtest::Psd rgb, gray;
    rgb.rows = gray.rows = 5, rgb.columns = gray.columns = 7, gray.channels = 1, gray.mode = 1;
    rgb.resources = "8BIMxxxx", rgb.layers = "layer";
    rgb.pixels([](size_t k) { return kvtest::Rgb{int(k * 7 % 256), int(255 - k), int(k * 31 % 256)}; });
    for (size_t k = 0; k < 35; ++k) gray.planes += char(k * 9);
    kvtest::writeAll(dir / "rgb.psd", rgb.bytes());
    kvtest::writeAll(dir / "gray.psd", gray.bytes());
    kvtest::writeAll(dir / "in.bmp", kvtest::makeBmp(7, 5));
    auto byte = [](char c) { return int(static_cast<unsigned char>(c)); };
    const struct {  // a file, its channels, the byte of column x, row y from the top, channel c
        const char* file; int channels; std::function<int(int, int, int)> expected;
    } cases[] = {
        {"rgb.psd", 3, [&](int x, int y, int c) { return byte(rgb.planes[size_t(c * 35 + y * 7 + x)]); }},
        {"gray.psd", 1, [&](int x, int y, int) { return byte(gray.planes[size_t(y * 7 + x)]); }},
        {"in.bmp", 3, [&](int x, int y, int c) { return byte(kvtest::sample(4 - y, x, 2 - c)); }},
    };
    for (const auto& t : cases) {
        expectRun("image " + dir / t.file + " " + dir / "out.png", 0, "");
        const Png p(dir / "out.png");
        ASSERT_EQ(p.w * 100 + p.h * 10 + p.n, 7 * 100 + 5 * 10 + t.channels) << t.file;
        int wrong = 0;
        for (int i = 0; i < 35 * t.channels; ++i)
            wrong += p.px[size_t(i)] != t.expected(i / t.channels % 7, i / t.channels / 7, i % t.channels);
        EXPECT_EQ(wrong, 0) << t.file;
    }
    kvtest::writeAll(dir / "cut.psd", rgb.bytes().substr(0, 100));
    int status = -1;
    EXPECT_NE(kelvane("image " + dir / "cut.psd" + " " + dir / "x.png", &status).find("do not fit"), std::string::npos);
}
