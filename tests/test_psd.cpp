// PSD operations: the header reader's codes and bounds, swap and stencil, grayscale arithmetic,
// merging with a key colour, seam healing at its fixed rows and columns, and thumbnails.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <string>

#include "kelvane/Kelvane4.h"
#include "imagefiles.h"
#include "testutil.h"
// After the other headers: PsdOps declares the module globals `img`, `offst`, `fHeader`.
#include "PsdOps.h"

using kvtest::TempDir;
using namespace kvtest;

namespace {

unsigned char at(const std::string& s, size_t i) { return static_cast<unsigned char>(s[i]); }

float call(KelvaneFn fn, const std::string& text, double number, const std::string& mem1 = "") {
    char block1[512] = {};
    mem1.copy(block1, sizeof block1 - 1);
    char block2[8] = {};
    return fn(text.c_str(), number, block1, block2);
}

// Loads a file and parses it as every operation does.
float parse(const std::string& path) { return loadPSD(path.c_str()) ? readPSDHeader() : -100; }

}  // namespace

TEST(PsdHeader, CodesDataOffsetAndShortFiles) {
    TempDir dir;
    const std::string f = dir / "h.psd";
    const Psd good = uniform(2, 3, {1, 2, 3});

    kvtest::writeAll(f, good.bytes());
    EXPECT_EQ(parse(f), 0);
    EXPECT_EQ(offst, 40);  // 34 + layer length word + compression word
    EXPECT_EQ(fHeader.rows, 2u);
    EXPECT_EQ(fHeader.columns, 3u);
    EXPECT_EQ(img.size(), good.bytes().size() + 1);  // the last byte is read twice
    EXPECT_EQ(img.back(), img[img.size() - 2]);

    Psd sections = good;
    sections.resources = "resour";
    sections.layers = "layerlayer";
    kvtest::writeAll(f, sections.bytes());
    EXPECT_EQ(parse(f), 0);
    EXPECT_EQ(offst, 34 + 6 + 4 + 10 + 2);

    std::string bad = good.bytes();
    bad[3] = 'B';
    kvtest::writeAll(f, bad);
    EXPECT_EQ(parse(f), -1);
    Psd published = good;
    published.version = std::string("\x00\x01", 2);
    kvtest::writeAll(f, published.bytes());
    EXPECT_EQ(parse(f), -2);
    Psd colourData = good;
    colourData.colourModeLength = 4;
    kvtest::writeAll(f, colourData.bytes());
    EXPECT_EQ(parse(f), -3);
    Psd packed = good;
    packed.compression = 1;
    kvtest::writeAll(f, packed.bytes());
    EXPECT_EQ(parse(f), -4);

    // Too short for what the header declares: -1, never a read past the file.
    const std::string whole = sections.bytes();
    for (size_t cut : {size_t(5), size_t(33), size_t(34 + 3), size_t(34 + 6 + 3), size_t(34 + 6 + 4 + 10 + 1)}) {
        kvtest::writeAll(f, whole.substr(0, cut));
        EXPECT_EQ(parse(f), -1) << "cut at " << cut;
    }
    Psd hugeSection = good;
    hugeSection.resources = "abc";
    std::string lying = hugeSection.bytes();
    lying[33] = '\x7f';  // resources length about 2^31
    kvtest::writeAll(f, lying);
    EXPECT_EQ(parse(f), -1);
    EXPECT_EQ(SwapColorsPSD(nullptr, 0, nullptr, nullptr), -1);
}

TEST(PsdConvert, SwapAndStencilOnTheKeyColour) {
    TempDir dir;
    const std::string f = dir / "c.psd";
    const Rgb black{0, 0, 0}, white{255, 255, 255};
    const Rgb source[6] = {black, {255, 0, 0}, {0x12, 0x34, 0x56}, black, {0, 0, 1}, white};
    Psd p;
    p.rows = 2;
    p.columns = 3;
    p.channels = 4;
    p.pixels([&](size_t k) { return source[k]; });
    p.planes += "ALPHA!";  // a fourth channel, left alone
    p.tail = "tail";
    const std::string original = p.bytes();
    auto pixel = [](const std::string& s, size_t k) {
        return Rgb{at(s, 40 + k), at(s, 40 + 6 + k), at(s, 40 + 12 + k)};
    };
    auto same = [](Rgb a, Rgb b) { return a.r == b.r && a.g == b.g && a.b == b.b; };

    SetInColor(nullptr, 0, nullptr, nullptr);
    kvtest::writeAll(f, original);
    ASSERT_EQ(call(SwapColorsPSD, f, 16777215), 0);
    std::string out = kvtest::readAll(f);
    ASSERT_EQ(out.size(), original.size() + 1);
    EXPECT_EQ(out.back(), 'l');  // the last byte, repeated
    EXPECT_EQ(out.substr(0, 40), original.substr(0, 40));
    EXPECT_EQ(out.substr(40 + 18, original.size() - 58), original.substr(40 + 18));
    for (size_t k = 0; k < 6; ++k)
        EXPECT_TRUE(same(pixel(out, k), same(source[k], black) ? white : source[k])) << "pixel " << k;

    kvtest::writeAll(f, original);
    ASSERT_EQ(call(MakeStencilPSD, f, 16777215), 0);
    out = kvtest::readAll(f);
    for (size_t k = 0; k < 6; ++k)
        EXPECT_TRUE(same(pixel(out, k), same(source[k], black) ? black : white)) << "pixel " << k;
    EXPECT_EQ(out.substr(40 + 18, 6), "ALPHA!");

    // Colour numbers are red * 65536 + green * 256 + blue, red in plane 0.
    kvtest::writeAll(f, original);
    SetInColor(nullptr, 0x123456, nullptr, nullptr);
    ASSERT_EQ(call(SwapColorsPSD, f, 0x0000FF), 0);
    out = kvtest::readAll(f);
    for (size_t k = 0; k < 6; ++k) EXPECT_TRUE(same(pixel(out, k), k == 2 ? Rgb{0, 0, 255} : source[k])) << k;
    SetInColor(nullptr, 0, nullptr, nullptr);
}

TEST(PsdGrayscale, WeightsLevelsAndOutputLayout) {
    TempDir dir;
    const std::string src = dir / "rgb.psd", dst = dir / "gray.psd";
    // Gray values with weights 0.333 (+ 0.5, truncated): 255, 254 (one third each would give 255),
    // 20, 1, 100, 200, 101, 0.
    const Rgb source[8] = {{255, 255, 255}, {255, 255, 254}, {10, 20, 30},    {1, 1, 1},
                           {100, 100, 100}, {200, 200, 200}, {101, 101, 101}, {0, 0, 0}};
    Psd p;
    p.rows = 2;
    p.columns = 4;
    p.channels = 4;
    p.resources = "RES";
    p.pixels([&](size_t k) { return source[k]; });
    p.planes += "alphaxyz";
    p.tail = "after";
    kvtest::writeAll(src, p.bytes());
    const size_t dataAt = 34 + 3 + 4 + 2;
    auto grays = [&](double level) {
        EXPECT_EQ(call(RGBtoGrayscale, src, level, dst), 0);
        const std::string out = kvtest::readAll(dst);
        std::string values;
        for (size_t k = 0; k < 8 && dataAt + k < out.size(); ++k) values += std::to_string(at(out, dataAt + k)) + " ";
        return values;
    };

    EXPECT_EQ(grays(-4), "255 254 20 1 100 200 101 0 ");  // level 0: as computed
    EXPECT_EQ(grays(std::nan("")), "255 254 20 1 100 200 101 0 ");
    // Level 100: not above 100 -> 0; above, g - (255 - g) * 99 / 155 in integers.
    EXPECT_EQ(grays(100.9), "255 254 0 0 0 165 3 0 ");
    EXPECT_EQ(grays(300), "255 0 0 0 0 0 0 0 ");  // level 255: all but white black

    const std::string out = kvtest::readAll(dst);
    const std::string in = p.bytes();
    EXPECT_EQ(out.size(), dataAt + 8);  // one plane; the other channels and the tail are dropped
    EXPECT_EQ(at(out, 12), 1);          // channels
    EXPECT_EQ(at(out, 13), 0);
    EXPECT_EQ(at(out, 24), 1);  // mode: grayscale
    EXPECT_EQ(at(out, 25), 0);
    EXPECT_EQ(out.substr(0, 12), in.substr(0, 12));
    EXPECT_EQ(out.substr(14, 10), in.substr(14, 10));
    EXPECT_EQ(out.substr(26, dataAt - 26), in.substr(26, dataAt - 26));
    EXPECT_EQ(kvtest::readAll(src), in);  // the source stays as it was

    Psd gray = uniform(1, 2, {9, 9, 9});
    gray.mode = 1;
    kvtest::writeAll(src, gray.bytes());
    EXPECT_EQ(call(RGBtoGrayscale, src, 0, dst), -3);
    kvtest::writeAll(src, p.bytes());
    EXPECT_EQ(call(RGBtoGrayscale, src, 0, dir / "no/such/dir.psd"), -5);
}

TEST(PsdMerge, KeyColourShowsTheSecondImage) {
    TempDir dir;
    const std::string first = dir / "first.psd", second = dir / "second.psd";
    const Rgb red{255, 0, 0};
    const Rgb top[4] = {red, {1, 2, 3}, red, {255, 0, 1}};
    Psd a;
    a.rows = 2;
    a.columns = 2;
    a.pixels([&](size_t k) { return top[k]; });
    Psd b;  // its sections differ in length, so its data lies elsewhere
    b.rows = 2;
    b.columns = 2;
    b.channels = 4;
    b.resources = "0123456789";
    b.pixels([](size_t k) { return Rgb{int(40 + k), int(50 + k), int(60 + k)}; });
    b.planes += "AAAA";
    b.tail = "bottom";
    const std::string bBytes = b.bytes();
    const size_t bData = 34 + 10 + 4 + 2;
    auto pixel = [&](const std::string& s, size_t k) {
        return std::to_string(at(s, bData + k)) + "," + std::to_string(at(s, bData + 4 + k)) + "," +
               std::to_string(at(s, bData + 8 + k));
    };

    kvtest::writeAll(first, a.bytes());
    kvtest::writeAll(second, bBytes);
    ASSERT_EQ(call(MergePSDfiles, first, 16711680, second), 0);  // pure red is transparent
    std::string out = kvtest::readAll(first);
    ASSERT_EQ(out.size(), bBytes.size() + 1);
    EXPECT_EQ(out.substr(0, bData), bBytes.substr(0, bData));
    EXPECT_EQ(out.substr(bData + 12), bBytes.substr(bData + 12) + "m");
    EXPECT_EQ(pixel(out, 0), "40,50,60");
    EXPECT_EQ(pixel(out, 1), "1,2,3");
    EXPECT_EQ(pixel(out, 2), "42,52,62");
    EXPECT_EQ(pixel(out, 3), "255,0,1");
    EXPECT_EQ(kvtest::readAll(second), bBytes);

    kvtest::writeAll(first, a.bytes());
    ASSERT_EQ(call(MergePSDfiles, first, 0x010203 + 1, second), 0);  // a key no pixel has
    out = kvtest::readAll(first);
    for (size_t k = 0; k < 4; ++k)
        EXPECT_EQ(pixel(out, k), std::to_string(top[k].r) + "," + std::to_string(top[k].g) + "," + std::to_string(top[k].b));

    // Failures leave the first file as it was.
    const std::string aBytes = a.bytes();
    kvtest::writeAll(first, aBytes);
    Psd wide = uniform(2, 3, red);
    kvtest::writeAll(second, wide.bytes());
    EXPECT_EQ(call(MergePSDfiles, first, 0, second), -6);
    Psd published = b;
    published.version = std::string("\x00\x01", 2);
    kvtest::writeAll(second, published.bytes());
    EXPECT_EQ(call(MergePSDfiles, first, 0, second), -2);
    EXPECT_EQ(call(MergePSDfiles, first, 0, dir / "missing.psd"), -1);
    EXPECT_EQ(kvtest::readAll(first), aBytes);
    kvtest::writeAll(first, published.bytes());
    kvtest::writeAll(second, bBytes);
    EXPECT_EQ(call(MergePSDfiles, first, 0, second), -2);
    EXPECT_EQ(kvtest::readAll(first), published.bytes());
}

TEST(PsdHeal, FixedRowsAndColumnsFromTheFirstImage) {
    TempDir dir;
    const std::string first = dir / "first.psd", second = dir / "second.psd";
    const uint32_t h = 120, w = 110;
    auto image = [&](int seed) {
        Psd p;
        p.rows = h;
        p.columns = w;
        p.tail = "T";
        const size_t n = size_t{h} * w;
        p.planes.resize(3 * n);
        for (size_t plane = 0; plane < 3; ++plane)
            for (size_t k = 0; k < n; ++k)
                p.planes[plane * n + k] = static_cast<char>(seed + plane * 50 + (k / w) * 3 + (k % w) * 7);
        return p.bytes();
    };
    const std::string a = image(0), b = image(1);
    // Row r of plane p, columns from c on, count samples.
    auto run = [&](const std::string& s, size_t p, size_t r, size_t c, size_t count) {
        return s.substr(40 + p * h * w + r * w + c, count);
    };

    kvtest::writeAll(first, a);
    kvtest::writeAll(second, b);
    ASSERT_EQ(call(HealPSDfiles, first, std::nan(""), second), 0);  // NaN: rows
    std::string out = kvtest::readAll(first);
    ASSERT_EQ(out.size(), b.size() + 1);
    for (size_t p = 0; p < 3; ++p) {
        SCOPED_TRACE("plane " + std::to_string(p));
        EXPECT_EQ(run(out, p, 0, 0, w), run(a, p, 50, 0, w));
        EXPECT_EQ(run(out, p, 9, 0, w), run(a, p, 59, 0, w));
        EXPECT_EQ(run(out, p, 10, 0, w), run(b, p, 10, 0, w));
        EXPECT_EQ(run(out, p, h - 11, 0, w), run(b, p, h - 11, 0, w));
        EXPECT_EQ(run(out, p, h - 10, 0, w), run(a, p, 40, 0, w));
        EXPECT_EQ(run(out, p, h - 1, 0, w), run(a, p, 49, 0, w));
    }
    EXPECT_EQ(out.substr(40 + 3 * h * w), "TT");

    kvtest::writeAll(first, a);
    ASSERT_EQ(call(HealPSDfiles, first, 1, second), 0);
    out = kvtest::readAll(first);
    for (size_t p = 0; p < 3; ++p) {
        for (size_t r : {size_t(0), size_t(1), size_t(h - 1)}) EXPECT_EQ(run(out, p, r, 0, w), run(b, p, r, 0, w)) << r;
        for (size_t r : {size_t(2), size_t(60), size_t(h - 2)}) {
            SCOPED_TRACE("plane " + std::to_string(p) + " row " + std::to_string(r));
            EXPECT_EQ(run(out, p, r, 0, 2), run(a, p, r, 50, 2));
            EXPECT_EQ(run(out, p, r, 2, w - 4), run(b, p, r, 2, w - 4));
            EXPECT_EQ(run(out, p, r, w - 2, 2), run(a, p, r, 48, 2));
        }
    }

    // Below 100 in either direction: -9, nothing written; a size mismatch: -6.
    for (auto [rows, columns] : {std::pair<uint32_t, uint32_t>{100, 99}, {99, 100}}) {
        const std::string small = uniform(rows, columns, {1, 1, 1}).bytes();
        kvtest::writeAll(first, small);
        EXPECT_EQ(call(HealPSDfiles, first, 0, second), -9);
        EXPECT_EQ(kvtest::readAll(first), small);
    }
    const std::string other = uniform(100, 100, {1, 1, 1}).bytes();
    kvtest::writeAll(first, other);
    EXPECT_EQ(call(HealPSDfiles, first, 1, second), -6);
    EXPECT_EQ(kvtest::readAll(first), other);
    // A second file whose sections reach past its end has no planes to patch: -1, first kept.
    for (size_t at : {size_t(30), size_t(34)}) {
        std::string cut = b;
        for (size_t i = 0; i < 4; ++i) cut[at + i] = i < 3 ? '\xFF' : '\x7F';
        kvtest::writeAll(first, a);
        kvtest::writeAll(second, cut);
        EXPECT_EQ(call(HealPSDfiles, first, 0, second), -1) << at;
        EXPECT_EQ(kvtest::readAll(first), a);
    }
}

TEST(PsdThumbnail, CentredOnBlackAndAreaAveraged) {
    TempDir dir;
    ASSERT_EQ(::mkdir((dir / "set.v2").c_str(), 0755), 0);
    const std::string src = dir / "set.v2/wide.psd", thumb = dir / "set.v2/wide_thumb.psd";
    // Counts, per plane, the samples of a size x size thumbnail inside and outside the box
    // [left, left + bw) x [top, top + bh) that do not have the expected value.
    auto wrong = [](const std::string& t, uint32_t size, size_t left, size_t top, size_t bw, size_t bh, Rgb c) {
        int inside = 0, outside = 0;
        const int want[3] = {c.r, c.g, c.b};
        for (size_t p = 0; p < 3; ++p)
            for (size_t y = 0; y < size; ++y)
                for (size_t x = 0; x < size; ++x) {
                    const bool in = x >= left && x < left + bw && y >= top && y < top + bh;
                    const int v = at(t, 40 + p * size * size + y * size + x);
                    if (in && v != want[p]) ++inside;
                    if (!in && v != 0) ++outside;
                }
        return std::to_string(inside) + "/" + std::to_string(outside);
    };

    kvtest::writeAll(src, uniform(100, 200, {10, 200, 30}).bytes());
    ASSERT_EQ(call(CreateThumbnail, src, 64), 0);
    std::string t = kvtest::readAll(thumb);
    ASSERT_EQ(t.size(), 40u + 3 * 64 * 64);
    EXPECT_EQ(t.substr(0, 40), uniform(64, 64, {0, 0, 0}).bytes().substr(0, 40));
    EXPECT_EQ(wrong(t, 64, 0, 16, 64, 32, {10, 200, 30}), "0/0");  // 64 x 32 in rows 16..47

    const std::string tall = dir / "set.v2/tall";  // no extension: the name gets the suffix
    kvtest::writeAll(tall, uniform(150, 50, {250, 0, 128}).bytes());
    ASSERT_EQ(call(CreateThumbnail, tall, 30), 0);
    t = kvtest::readAll(tall + "_thumb.psd");
    ASSERT_EQ(t.size(), 40u + 3 * 30 * 30);
    EXPECT_EQ(wrong(t, 30, 10, 0, 10, 30, {250, 0, 128}), "0/0");  // 10 x 30 in columns 10..19

    kvtest::writeAll(tall, uniform(1, 2, {7, 8, 9}).bytes());  // enlarged
    ASSERT_EQ(call(CreateThumbnail, tall, 8.7), 0);
    EXPECT_EQ(wrong(kvtest::readAll(tall + "_thumb.psd"), 8, 0, 2, 8, 4, {7, 8, 9}), "0/0");

    // A one-pixel checkerboard shrunk by 4 averages to mid-gray; picking pixels would give 0 or 255.
    Psd board;
    board.rows = board.columns = 64;
    board.pixels([](size_t k) {
        const int v = ((k / 64 + k % 64) % 2) * 255;
        return Rgb{v, v, v};
    });
    kvtest::writeAll(src, board.bytes());
    ASSERT_EQ(call(CreateThumbnail, src, 16), 0);
    t = kvtest::readAll(thumb);
    for (size_t i = 40; i < t.size(); ++i) ASSERT_NEAR(at(t, i), 127.5, 1.0) << "sample " << i - 40;

    Psd gray = uniform(4, 4, {1, 1, 1});
    gray.mode = 1;
    kvtest::writeAll(src, gray.bytes());
    EXPECT_EQ(call(CreateThumbnail, src, 16), -3);
    kvtest::writeAll(src, board.bytes());
    EXPECT_EQ(call(CreateThumbnail, src, 0.5), -9);
    EXPECT_EQ(call(CreateThumbnail, src, 4097), -9);
    ASSERT_EQ(std::remove(thumb.c_str()), 0);
    ASSERT_EQ(::mkdir(thumb.c_str(), 0755), 0);  // the thumbnail's name is taken by a folder
    EXPECT_EQ(call(CreateThumbnail, src, 16), -5);
}
