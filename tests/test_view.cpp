// The emulator's pictures, read back with stb's PNG reader: `kelvane render` and `kelvane image`.
#include <gtest/gtest.h>

#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_PNG
#include <stb/stb_image.h>

#include <functional>
#include <vector>

#include "imagefiles.h"
#include "testutil.h"

namespace {

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

std::string kelvane(const std::string& args, int* status) { return kvtest::run(KELVANE_BIN " " + args + " 2>&1", status); }

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

}  // namespace

// Two squares side by side in groups "left" and "right": solidly filled, framed to the picture,
// one colour each. A small square written before a large one behind it stays in front.
TEST(View, RenderFillsFacesInOneColourPerGroupNearestInFront) {
    kvtest::TempDir dir;
    kvtest::writeAll(dir / "two.obj", "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 2 0 0\nv 2 1 0\n"
                                      "g left\nf 1 2 3 4\ng right\nf 2/1/1 5/2/1 6/3/1 3/4/1\n");
    kvtest::writeAll(dir / "depth.obj", "v -1 -1 1\nv 1 -1 1\nv 1 1 1\nv -1 1 1\nv -4 -4 0\nv 4 -4 0\nv 4 4 0\nv -4 4 0\n"
                                        "g near\nf 1 2 3 4\ng far\nf 5 6 7 8\n");
    int status = -1;
    std::string out = kelvane("render " + dir / "two.obj" + " --size 200 --out " + dir / "two.png", &status);
    ASSERT_EQ(status, 0) << out;
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
        out = kelvane("render " + dir / "depth.obj" + " --view " + view + " --out " + dir / "depth.png", &status);
        const Png d(dir / "depth.png");
        const Box e(d);
        EXPECT_EQ(d.at(e.x0, e.y0) == d.at((e.x0 + e.x1) / 2, (e.y0 + e.y1) / 2), view[0] == 'b') << view << out;
    }
    kvtest::writeAll(dir / "bad.obj", "v 0 0 0\nv 1 2\n");
    out = kelvane("render " + dir / "bad.obj" + " --out " + dir / "bad.png", &status);
    EXPECT_NE(out.find("bad.obj: line 2: a vertex line without three numbers"), std::string::npos) << out;
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
        int status = -1;
        const std::string out = kelvane("image " + dir / t.file + " " + dir / "out.png", &status);
        const Png p(dir / "out.png");
        ASSERT_EQ(status * 1000 + p.w * 100 + p.h * 10 + p.n, 7 * 100 + 5 * 10 + t.channels) << t.file << out;
        int wrong = 0;
        for (int i = 0; i < 35 * t.channels; ++i)
            wrong += p.px[size_t(i)] != t.expected(i / t.channels % 7, i / t.channels / 7, i % t.channels);
        EXPECT_EQ(wrong, 0) << t.file;
    }
    kvtest::writeAll(dir / "cut.psd", rgb.bytes().substr(0, 100));
    int status = -1;
    EXPECT_NE(kelvane("image " + dir / "cut.psd" + " " + dir / "x.png", &status).find("do not fit"), std::string::npos);
}
