// Images: the BMP crop byte for byte against a model of the image, and the PSD operations
// (header codes, swap and stencil, grayscale, merging with a key colour, seam healing, thumbnails).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>

#include "imagefiles.h"
#include "testutil.h"
// After the other headers: these declare the module globals `offset`, `img`, `offst`, `fHeader`.
#include "BmpOps.h"
#include "PsdOps.h"

using namespace kvtest;

namespace {

// What cropping makeBmp(width, height) at startColumn with cropWidth must give.
std::string expectedCrop(int width, int height, int startColumn, int cropWidth) {
    std::string s = makeBmp(width, height).substr(0, 54);
    const int newHeight = height - 3, dataSize = (cropWidth * 3 + paddingOf(cropWidth)) * newHeight;
    putLE(s, 2, uint32_t(54 + dataSize));
    putLE(s, 18, uint32_t(cropWidth));
    putLE(s, 22, uint32_t(newHeight));
    putLE(s, 34, uint32_t(dataSize));
    for (int r = 0; r < newHeight; ++r) {
        for (int c = 0; c < cropWidth; ++c)
            for (int ch = 0; ch < 3; ++ch) s += sample(r + 1, startColumn + c, ch);
        s.append(size_t(paddingOf(cropWidth)), '\0');
    }
    return s;
}

void setWidth(double w) { CropBMP_SetWidth(nullptr, w, nullptr, nullptr); }

unsigned char at(const std::string& s, size_t i) { return static_cast<unsigned char>(s[i]); }

// The first count pixels of a PSD whose three planes start at dataAt, as "r,g,b r,g,b ...".
std::string pixels(const std::string& s, size_t dataAt, size_t planeSize, size_t count) {
    std::string out;
    for (size_t k = 0; k < count; ++k)
        for (size_t p = 0; p < 3; ++p) out += std::to_string(at(s, dataAt + p * planeSize + k)) + (p < 2 ? "," : " ");
    return out;
}

}  // namespace

TEST(BmpCrop, ByteExactForEveryPaddingOfSourceAndCrop) {
    TempDir dir;
    for (int width : {5, 6, 7, 8}) {  // source rows padded by 1, 2, 3, 0
        const std::string src = dir / ("w" + std::to_string(width) + ".bmp"), dst = dir / "out.bmp";
        writeAll(src, makeBmp(width, 7));
        for (int cropWidth : {1, 2, 3, 4})  // crop rows padded by 1, 2, 3, 0
            for (int column : {0, width - cropWidth}) {
                SCOPED_TRACE(std::to_string(width) + " " + std::to_string(cropWidth) + " " + std::to_string(column));
                setWidth(cropWidth);
                ASSERT_EQ(callFn(CropBMPfile, src, column + 0.9, dst), 0);  // the column is truncated
                EXPECT_EQ(readAll(dst), expectedCrop(width, 7, column, cropWidth));
                EXPECT_TRUE(bmpV.empty());
            }
    }
    writeAll(dir / "big.bmp", makeBmp(256, 100));  // sizes over 64 KiB: every byte of the header's words
    setWidth(256);
    ASSERT_EQ(callFn(CropBMPfile, dir / "big.bmp", 0, dir / "out.bmp"), 0);
    EXPECT_EQ(readAll(dir / "out.bmp"), expectedCrop(256, 100, 0, 256));
    setWidth(50);
}

TEST(BmpCrop, RefusalsWriteNothing) {
    TempDir dir;
    const std::string good = dir / "good.bmp", dst = dir / "out.bmp", full = makeBmp(10, 8);
    writeAll(good, full);
    std::string notBmp = full, lying = full, zeroWidth = makeBmp(1, 4), tallZeroWidth, shortest = makeBmp(0, 3).substr(0, 37);
    notBmp[0] = 'P';
    putLE(lying, 2, uint32_t(full.size() - 120));
    putLE(zeroWidth, 18, 0), tallZeroWidth = zeroWidth, putLE(zeroWidth, 22, 0x7FFFFFFF);  // rows of 0 bytes, a large height
    putLE(tallZeroWidth, 22, 1000);  // a crop of 997 rows of 4 bytes: more than four times the 16 pixel bytes
    putLE(shortest, 10, 37);         // the header is read up to the data size, whose last byte is the repeated one
    // Rows of 32 bytes: the region may run on into the two unread rows, never past the file.
    for (auto [bytes, startByte, width] : std::vector<std::tuple<std::string, int, int>>{
             {notBmp, 0, 2}, {makeBmp(10, 2), 0, 2} /* height below 3 */, {full.substr(0, full.size() - 20), 0, 2} /* rows the bytes cannot hold */,
             {lying.substr(0, full.size() - 120), 0, 2} /* ... even when the size field agrees */, {full, 91, 2},
             {full, -33, 2} /* before the pixel data */, {full, 0, -1}, {zeroWidth, 0, 1}, {tallZeroWidth, 0, 1}, {shortest.substr(0, 36), 0, 0}}) {
        writeAll(dir / "bad.bmp", bytes);
        EXPECT_EQ(cropBMP((dir / "bad.bmp").c_str(), dst.c_str(), startByte, width), -7) << bytes.size() << " " << startByte;
        EXPECT_FALSE(exists(dst));
        EXPECT_TRUE(bmpV.empty());
    }
    EXPECT_EQ(cropBMP(nullptr, dst.c_str(), 0, 2), -1760);
    EXPECT_EQ(cropBMP(good.c_str(), (dir / "no/such/folder.bmp").c_str(), 0, 2), -5);
    EXPECT_EQ(cropBMP(good.c_str(), nullptr, 0, 2), -5);
    EXPECT_TRUE(bmpV.empty());
    putLE(lying, 2, 0xFFFFFFFFu);  // the size field alone is not looked at
    writeAll(dir / "lying.bmp", lying);
    EXPECT_EQ(cropBMP((dir / "lying.bmp").c_str(), dst.c_str(), 0, 2), 0);
    setWidth(2);
    EXPECT_EQ(callFn(CropBMPfile, good, 1431655766, dir / "wrap.bmp"), -7);  // times 3 is beyond 32 bits (it wraps to 2)
    EXPECT_FALSE(exists(dir / "wrap.bmp"));
    setWidth(50);
    EXPECT_EQ(cropBMP(good.c_str(), dst.c_str(), 90, 2), 0);
    EXPECT_EQ(cropBMP(good.c_str(), dst.c_str(), 3 * 3, 4), 0);  // after the failures: its own file only
    EXPECT_EQ(readAll(dst), expectedCrop(10, 8, 3, 4));
    writeAll(good, zeroWidth);  // a crop of no bytes does not walk the rows
    EXPECT_EQ(cropBMP(good.c_str(), dst.c_str(), 0, 0), 0);
    EXPECT_EQ(readAll(dst).size(), 54u);
    writeAll(good, shortest);
    EXPECT_EQ(cropBMP(good.c_str(), dst.c_str(), 0, 0), 0);
    EXPECT_EQ(readAll(dst).size(), 37u);
    // Rows of 12 bytes: a crop of 15 reads on into the next rows, and into the unread ones.
    writeAll(good, makeBmp(3, 6));
    ASSERT_EQ(cropBMP(good.c_str(), dst.c_str(), 0, 5), 0);
    const std::string wide = readAll(dst);
    ASSERT_EQ(wide.size(), 54u + 3 * 16);
    EXPECT_EQ(wide.substr(54, 15), makeBmp(3, 6).substr(54 + 12, 15));
    EXPECT_EQ(wide.substr(54 + 32, 15), makeBmp(3, 6).substr(54 + 36, 15));
}

// A header the operations refuse, with its code: the file stays as it was.
TEST(PsdHeader, RefusalCodes) {
    TempDir dir;
    const Psd good = uniform(2, 3, {1, 2, 3});
    Psd published = good, colourData = good, packed = good;
    published.version = std::string("\x00\x01", 2), colourData.colourModeLength = 4, packed.compression = 1;
    std::string badSignature = good.bytes(), lying = good.bytes();
    badSignature[3] = 'B', lying[33] = '\x7f';  // a resources length about 2^31
    for (auto [bytes, code] : std::vector<std::pair<std::string, float>>{
             {badSignature, -1}, {published.bytes(), -2}, {colourData.bytes(), -3}, {packed.bytes(), -4}, {lying, -1},
             {colourData.bytes().substr(0, 34), -3} /* the header's fields all there */, {colourData.bytes().substr(0, 33), -1}}) {
        writeAll(dir / "h.psd", bytes);
        EXPECT_EQ(callFn(SwapColorsPSD, dir / "h.psd", 0), code);
        EXPECT_EQ(readAll(dir / "h.psd"), bytes);
    }
}

TEST(PsdConvert, SwapStencilAndGrayscale) {
    TempDir dir;
    const std::string f = dir / "c.psd", gray = dir / "gray.psd";
    const Rgb source[8] = {{0, 0, 0}, {255, 0, 0}, {0x12, 0x34, 0x56}, {0, 0, 0}, {255, 255, 254}, {255, 255, 255}, {101, 101, 101}, {10, 20, 30}};
    Psd p;
    p.rows = 2, p.columns = 4, p.channels = 4, p.resources = "RES", p.layers = "LAY", p.tail = "tail";
    p.pixels([&](size_t k) { return source[k]; });
    p.planes += "ALPHA!!!";  // a fourth channel, left alone
    const std::string original = p.bytes();
    const size_t data = 40 + 3 + 3;  // after the resources and the layers
    // Each operation, the in-colour, the key colour (red * 65536 + green * 256 + blue), the pixels:
    // the in-colour replaces the key colour.
    const std::tuple<KelvaneFn, double, double, const char*> cases[] = {
        {SwapColorsPSD, 0, 16777215, "255,255,255 255,0,0 18,52,86 255,255,255 255,255,254 255,255,255 101,101,101 10,20,30 "},
        {SwapColorsPSD, 0x123456, 0x0000FF, "0,0,0 255,0,0 0,0,255 0,0,0 255,255,254 255,255,255 101,101,101 10,20,30 "},
        {MakeStencilPSD, 0, 16777215, "0,0,0 255,255,255 255,255,255 0,0,0 255,255,255 255,255,255 255,255,255 255,255,255 "},
    };
    for (const auto& [fn, inColour, key, want] : cases) {
        writeAll(f, original);
        SetInColor(nullptr, inColour, nullptr, nullptr);
        ASSERT_EQ(callFn(fn, f, key), 0);
        const std::string out = readAll(f);
        EXPECT_EQ(pixels(out, data, 8, 8), want);
        EXPECT_EQ(out.substr(0, data), original.substr(0, data));
        EXPECT_EQ(out.substr(data + 24), original.substr(data + 24) + "l");  // the last byte, repeated
    }
    SetInColor(nullptr, 0, nullptr, nullptr);

    // Gray with weights 0.333 (+ 0.5, truncated); a level above 100 moves g to g - (255 - g) * (level - 1) / 155.
    writeAll(f, original);
    for (auto [level, grays] : std::vector<std::pair<double, const char*>>{
             {-4, "0 85 52 0 254 255 101 20 "}, {std::nan(""), "0 85 52 0 254 255 101 20 "},
             {100.9, "0 0 0 0 254 255 3 0 "}, {300, "0 0 0 0 0 255 0 0 "}}) {
        EXPECT_EQ(callFn(RGBtoGrayscale, f, level, gray), 0);
        const std::string out = readAll(gray);
        ASSERT_EQ(out.size(), data + 8);  // one plane; the other channels and the tail are dropped
        std::string values;
        for (size_t k = 0; k < 8; ++k) values += std::to_string(at(out, data + k)) + " ";
        EXPECT_EQ(values, grays) << level;
        std::string header = original.substr(0, data);
        header[12] = 1, header[13] = 0, header[24] = 1, header[25] = 0;  // one channel, mode grayscale
        EXPECT_EQ(out.substr(0, data), header);
    }
    EXPECT_EQ(readAll(f), original);  // the source stays as it was
    Psd grayIn = uniform(1, 2, {9, 9, 9});
    grayIn.mode = 1;
    writeAll(f, grayIn.bytes());
    EXPECT_EQ(callFn(RGBtoGrayscale, f, 0, gray), -3);
    EXPECT_EQ(callFn(CreateThumbnail, f, 16), -3);
    writeAll(f, original);
    EXPECT_EQ(callFn(RGBtoGrayscale, f, 0, dir / "no/such/dir.psd"), -5);
}

TEST(PsdMerge, KeyColourShowsTheSecondImage) {
    TempDir dir;
    const std::string first = dir / "first.psd", second = dir / "second.psd";
    const Rgb red{255, 0, 0}, top[4] = {red, {1, 2, 3}, red, {255, 0, 1}};
    Psd a, b;  // b's sections differ in length, so its data lies elsewhere
    a.rows = a.columns = b.rows = b.columns = 2;
    a.pixels([&](size_t k) { return top[k]; });
    b.channels = 4, b.resources = "0123456789", b.tail = "bottom";
    b.pixels([](size_t k) { return Rgb{int(40 + k), int(50 + k), int(60 + k)}; });
    b.planes += "AAAA";
    const std::string aBytes = a.bytes(), bBytes = b.bytes();
    const size_t bData = 34 + 10 + 4 + 2;
    for (auto [key, want] : std::vector<std::pair<double, const char*>>{
             {16711680, "40,50,60 1,2,3 42,52,62 255,0,1 "},  // pure red is transparent
             {0x010204, "255,0,0 1,2,3 255,0,0 255,0,1 "}}) {  // a key no pixel has
        writeAll(first, aBytes);
        writeAll(second, bBytes);
        ASSERT_EQ(callFn(MergePSDfiles, first, key, second), 0);
        std::string out = readAll(first);
        EXPECT_EQ(pixels(out, bData, 4, 4), want);
        EXPECT_EQ(out.replace(bData, 12, bBytes.substr(bData, 12)), bBytes + "m");  // elsewhere the second file's bytes
        EXPECT_EQ(readAll(second), bBytes);
    }
    // Failures leave the first file as it was.
    Psd published = b;
    published.version = std::string("\x00\x01", 2);
    for (auto [firstBytes, secondBytes, code] : std::vector<std::tuple<std::string, std::string, float>>{
             {aBytes, uniform(2, 3, red).bytes(), -6}, {aBytes, published.bytes(), -2}, {aBytes, "", -1}, {published.bytes(), bBytes, -2}}) {
        writeAll(first, firstBytes);
        writeAll(second, secondBytes);
        if (secondBytes.empty()) std::remove(second.c_str());
        EXPECT_EQ(callFn(MergePSDfiles, first, 0, second), code);
        EXPECT_EQ(readAll(first), firstBytes);
    }
}

TEST(PsdHeal, FixedRowsAndColumnsFromTheFirstImage) {
    TempDir dir;
    const std::string first = dir / "first.psd", second = dir / "second.psd";
    const uint32_t h = 120, w = 110;
    auto image = [&](int seed) {
        Psd p = uniform(h, w, {0, 0, 0});
        p.tail = "T";
        p.pixels([&](size_t k) { const int v = seed + int(k / w) * 3 + int(k % w) * 7; return Rgb{v, v + 50, v + 100}; });
        return p.bytes();
    };
    const std::string a = image(0), b = image(1);
    // Row r of plane p, columns from c on, count samples.
    auto run = [&](const std::string& s, size_t p, size_t r, size_t c, size_t count) { return s.substr(40 + p * h * w + r * w + c, count); };
    writeAll(first, a);
    writeAll(second, b);
    ASSERT_EQ(callFn(HealPSDfiles, first, 0, second), 0);  // 0 (and below): rows
    std::string out = readAll(first);
    writeAll(first, a);
    ASSERT_EQ(callFn(HealPSDfiles, first, std::nan(""), second), 0);  // NaN: rows too
    EXPECT_EQ(readAll(first), out);
    ASSERT_EQ(out.size(), b.size() + 1);
    EXPECT_EQ(out.substr(40 + 3 * h * w), "TT");
    for (size_t p = 0; p < 3; ++p)  // rows 0..9 from 50..59, the last ten from 40..49
        for (auto [r, from] : std::vector<std::pair<size_t, const std::string*>>{{0, &a}, {9, &a}, {10, &b}, {h - 11, &b}, {h - 10, &a}, {h - 1, &a}})
            EXPECT_EQ(run(out, p, r, 0, w), run(*from, p, from == &a ? (r < 10 ? r + 50 : r - (h - 10) + 40) : r, 0, w)) << p << " " << r;
    writeAll(first, a);
    ASSERT_EQ(callFn(HealPSDfiles, first, 1, second), 0);  // columns: 0, 1 from 50, 51; the last two from 48, 49
    out = readAll(first);
    for (size_t p = 0; p < 3; ++p) {
        for (size_t r : {size_t(0), size_t(1), size_t(h - 1)}) EXPECT_EQ(run(out, p, r, 0, w), run(b, p, r, 0, w)) << r;
        for (size_t r : {size_t(2), size_t(60), size_t(h - 2)}) {
            EXPECT_EQ(run(out, p, r, 0, 2), run(a, p, r, 50, 2));
            EXPECT_EQ(run(out, p, r, 2, w - 4), run(b, p, r, 2, w - 4));
            EXPECT_EQ(run(out, p, r, w - 2, 2), run(a, p, r, 48, 2));
        }
    }
    // Below 100 in either direction: -9; a size mismatch: -6. (Cut files: the fuzz harness.)
    for (auto [bytes, code] : std::vector<std::pair<std::string, float>>{
             {uniform(100, 99, {1, 1, 1}).bytes(), -9}, {uniform(99, 100, {1, 1, 1}).bytes(), -9}, {uniform(100, 100, {1, 1, 1}).bytes(), -6}}) {
        writeAll(first, bytes);
        EXPECT_EQ(callFn(HealPSDfiles, first, 1, second), code);
        EXPECT_EQ(readAll(first), bytes);
    }
    writeAll(first, a);
    for (size_t at : {size_t(30), size_t(34)}) {  // sections reaching past the end: no planes to patch
        std::string cut = b;
        cut.replace(at, 4, "\xFF\xFF\xFF\x7F");
        writeAll(second, cut);
        EXPECT_EQ(callFn(HealPSDfiles, first, 0, second), -1) << at;
        EXPECT_EQ(readAll(first), a);
    }
}

TEST(PsdThumbnail, CentredOnBlackAndAreaAveraged) {
    TempDir dir;
    ASSERT_TRUE(std::filesystem::create_directory(dir / "set.v2"));
    // A size x size thumbnail: black, but for a box [left, left + width) x [top, top + height) of colour c.
    auto boxed = [](uint32_t size, size_t left, size_t top, size_t width, size_t height, Rgb c) {
        Psd p = uniform(size, size, c);
        const auto inBox = [&](size_t k) { return k % size >= left && k % size < left + width && k / size >= top && k / size < top + height; };
        p.pixels([&](size_t k) { return inBox(k) ? c : Rgb{0, 0, 0}; });
        return p.bytes();
    };
    // A wide image fills rows in the middle, a tall one columns in the middle, a small one is
    // enlarged; a name without an extension gets the suffix.
    const std::string src = dir / "set.v2/wide.psd", thumb = dir / "set.v2/wide_thumb.psd", tall = dir / "set.v2/tall";
    for (auto [path, image, size, expected] : std::vector<std::tuple<std::string, Psd, double, std::string>>{
             {src, uniform(100, 200, {10, 200, 30}), 64, boxed(64, 0, 16, 64, 32, {10, 200, 30})},
             {tall, uniform(150, 50, {250, 0, 128}), 30, boxed(30, 10, 0, 10, 30, {250, 0, 128})},
             {tall, uniform(1, 2, {7, 8, 9}), 8.7, boxed(8, 0, 2, 8, 4, {7, 8, 9})}}) {
        writeAll(path, image.bytes());
        ASSERT_EQ(callFn(CreateThumbnail, path, size), 0);
        EXPECT_TRUE(readAll(path == src ? thumb : tall + "_thumb.psd") == expected) << size;
    }
    // A one-pixel checkerboard shrunk by 4 averages to mid-gray; picking pixels would give 0 or 255.
    Psd board = uniform(64, 64, {0, 0, 0});
    board.pixels([](size_t k) { return (k / 64 + k % 64) % 2 ? Rgb{255, 255, 255} : Rgb{0, 0, 0}; });
    writeAll(src, board.bytes());
    ASSERT_EQ(callFn(CreateThumbnail, src, 16), 0);
    const std::string t = readAll(thumb);
    for (size_t i = 40; i < t.size(); ++i) ASSERT_NEAR(at(t, i), 127.5, 1.0) << "sample " << i - 40;
    for (double size : {0.5, 4097.0}) EXPECT_EQ(callFn(CreateThumbnail, src, size), -9) << size;
    Psd empty;  // no columns: a black thumbnail, up to the rows the resizer can take
    empty.rows = 0x7FFFFFFF, empty.columns = 0;
    writeAll(src, empty.bytes());
    ASSERT_EQ(callFn(CreateThumbnail, src, 2), 0);
    EXPECT_EQ(readAll(thumb).substr(40), std::string(12, '\0'));
    empty.rows = 0x80000000u;
    writeAll(src, empty.bytes());
    EXPECT_EQ(callFn(CreateThumbnail, src, 2), -1);
    writeAll(src, board.bytes());
    ASSERT_EQ(std::remove(thumb.c_str()), 0);
    ASSERT_TRUE(std::filesystem::create_directory(thumb));  // the thumbnail's name is taken by a folder
    EXPECT_EQ(callFn(CreateThumbnail, src, 16), -5);
}
