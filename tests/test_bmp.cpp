// BMP crop: byte-exact results against a model of the image, the refusals, and a round trip
// through a real image program.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "kelvane/Kelvane4.h"
#include "imagefiles.h"
#include "testutil.h"
// After the other headers: BmpOps declares the module global `offset`.
#include "BmpOps.h"

using kvtest::TempDir;
using namespace kvtest;

namespace {

// What cropping makeBmp(width, height) at startColumn with cropWidth must give.
std::string expectedCrop(int width, int height, int startColumn, int cropWidth) {
    std::string s = makeBmp(width, height).substr(0, 54);
    const int newHeight = height - 3;
    const int dataSize = (cropWidth * 3 + paddingOf(cropWidth)) * newHeight;
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

float cropFile(const std::string& src, const std::string& dst, double column) {
    char mem1[512] = {};
    dst.copy(mem1, sizeof mem1 - 1);
    char mem2[8] = {};
    return CropBMPfile(src.c_str(), column, mem1, mem2);
}

void setWidth(double w) { CropBMP_SetWidth(nullptr, w, nullptr, nullptr); }

}  // namespace

TEST(BmpCrop, ByteExactForEveryPaddingOfSourceAndCrop) {
    TempDir dir;
    for (int width : {5, 6, 7, 8}) {  // source rows padded by 1, 2, 3, 0
        const std::string src = dir / ("w" + std::to_string(width) + ".bmp");
        kvtest::writeAll(src, makeBmp(width, 7));
        for (int cropWidth : {1, 2, 3, 4}) {  // crop rows padded by 1, 2, 3, 0
            for (int column : {0, width - cropWidth}) {
                SCOPED_TRACE("width " + std::to_string(width) + " crop " + std::to_string(cropWidth) + " at " +
                             std::to_string(column));
                const std::string dst = dir / "out.bmp";
                ASSERT_EQ(cropBMP(src.c_str(), dst.c_str(), column * 3, cropWidth), 0);
                EXPECT_EQ(kvtest::readAll(dst), expectedCrop(width, 7, column, cropWidth));
                EXPECT_TRUE(bmpV.empty());
            }
        }
    }
}

TEST(BmpCrop, HundredByTwentyThroughTheExport) {
    TempDir dir;
    const std::string src = dir / "in.bmp", dst = dir / "out.bmp";
    kvtest::writeAll(src, makeBmp(100, 20));
    setWidth(50);
    ASSERT_EQ(cropFile(src, dst, 10.9), 0);  // column 10: the number is truncated
    const std::string out = kvtest::readAll(dst);
    EXPECT_EQ(getLE(out, 18), 50u);
    EXPECT_EQ(getLE(out, 22), 17u);
    EXPECT_EQ(getLE(out, 34), 2584u);  // 17 rows of 150 bytes + 2 padding
    EXPECT_EQ(getLE(out, 2), 54u + 2584u);
    EXPECT_EQ(out.size(), 54u + 2584u);
    EXPECT_EQ(out, expectedCrop(100, 20, 10, 50));

    // A region reaching past the right edge reads on into the next stored row, as long as it
    // stays inside the file.
    kvtest::writeAll(src, makeBmp(4, 6));
    setWidth(2);
    ASSERT_EQ(cropFile(src, dst, 3), 0);
    const std::string wrapped = kvtest::readAll(dst);
    for (int ch = 0; ch < 3; ++ch) {
        EXPECT_EQ(wrapped[54 + size_t(ch)], sample(1, 3, ch));
        EXPECT_EQ(wrapped[54 + 3 + size_t(ch)], sample(2, 0, ch));
    }
    setWidth(50);
}

TEST(BmpCrop, RefusalsWriteNothingAndLeaveNothingBehind) {
    TempDir dir;
    const std::string good = dir / "good.bmp", dst = dir / "out.bmp";
    kvtest::writeAll(good, makeBmp(10, 8));
    auto refused = [&](const std::string& bytes, int startByte, int width) {
        const std::string src = dir / "bad.bmp";
        kvtest::writeAll(src, bytes);
        const float r = cropBMP(src.c_str(), dst.c_str(), startByte, width);
        EXPECT_FALSE(kvtest::exists(dst));
        EXPECT_TRUE(bmpV.empty());
        return r;
    };

    EXPECT_EQ(cropBMP(nullptr, dst.c_str(), 0, 2), -1760);
    std::string notBmp = makeBmp(10, 8);
    notBmp[0] = 'P';
    EXPECT_EQ(refused(notBmp, 0, 2), -7);
    EXPECT_EQ(refused(makeBmp(10, 2), 0, 2), -7);  // height below 3
    const std::string full = makeBmp(10, 8);
    EXPECT_EQ(refused(full.substr(0, full.size() - 20), 0, 2), -7);  // rows the bytes cannot hold
    std::string lying = full;
    putLE(lying, 2, uint32_t(full.size() - 120));  // ... even when the size field agrees
    EXPECT_EQ(refused(lying.substr(0, full.size() - 120), 0, 2), -7);
    putLE(lying, 2, 0xFFFFFFFFu);  // the size field alone is not looked at
    kvtest::writeAll(good, lying);
    EXPECT_EQ(cropBMP(good.c_str(), dst.c_str(), 0, 2), 0);
    std::remove(dst.c_str());
    kvtest::writeAll(good, full);
    // Rows of 12 bytes: a crop of 15 reads on into the next rows, and into the unread ones.
    const std::string narrow = dir / "narrow.bmp";
    kvtest::writeAll(narrow, makeBmp(3, 6));
    ASSERT_EQ(cropBMP(narrow.c_str(), dst.c_str(), 0, 5), 0);
    const std::string wide = kvtest::readAll(dst);
    ASSERT_EQ(wide.size(), 54u + 3 * 16);
    EXPECT_EQ(wide.substr(54, 15), makeBmp(3, 6).substr(54 + 12, 15));
    EXPECT_EQ(wide.substr(54 + 32, 15), makeBmp(3, 6).substr(54 + 36, 15));
    std::remove(dst.c_str());
    EXPECT_EQ(cropBMP(narrow.c_str(), (dir / "no/such/folder.bmp").c_str(), 0, 5), -5);
    setWidth(2);
    EXPECT_EQ(cropFile(narrow, dst, 1431655766), -7);  // times 3 is beyond 32 bits (it wraps to 2)
    EXPECT_FALSE(kvtest::exists(dst));
    setWidth(50);
    // Rows of 32 bytes: the region may run on into the two unread rows, never past the file.
    EXPECT_EQ(refused(full, 91, 2), -7);
    EXPECT_EQ(cropBMP(good.c_str(), dst.c_str(), 90, 2), 0);
    std::remove(dst.c_str());
    EXPECT_EQ(refused(full, -33, 2), -7);  // before the pixel data
    EXPECT_EQ(refused(full, 0, -1), -7);

    EXPECT_EQ(cropBMP(good.c_str(), (dir / "no/such/folder.bmp").c_str(), 0, 2), -5);
    EXPECT_TRUE(bmpV.empty());
    EXPECT_EQ(cropBMP(good.c_str(), nullptr, 0, 2), -5);

    // After all those failures the next crop reads its own file only.
    ASSERT_EQ(cropBMP(good.c_str(), dst.c_str(), 3 * 3, 4), 0);
    EXPECT_EQ(kvtest::readAll(dst), expectedCrop(10, 8, 3, 4));
}

TEST(BmpCrop, FileFromAnImageProgramCropsAndStillDecodes) {
    const std::string python = "/usr/bin/python3";
    int status = -1;
    kvtest::run(python + " -c 'import PIL' 2>/dev/null", &status);
    if (status != 0) GTEST_SKIP() << "Python's PIL (Debian python3-pil) is not installed";

    TempDir dir;
    const std::string script = dir / "pil.py", src = dir / "pil.bmp", dst = dir / "crop.bmp";
    kvtest::writeAll(script,
                     "import sys\n"
                     "from PIL import Image\n"
                     "if sys.argv[1] == 'make':\n"
                     "    w, h = 37, 9\n"
                     "    im = Image.new('RGB', (w, h))\n"
                     "    im.putdata([((x * 7 + y * 13) % 256, (x * 3 + y * 29 + 50) % 256, (x * 11 + y * 5 + 100) % 256)\n"
                     "                for y in range(h) for x in range(w)])\n"
                     "    im.save(sys.argv[2], 'BMP')\n"
                     "else:\n"
                     "    src = Image.open(sys.argv[2]).convert('RGB')\n"
                     "    out = Image.open(sys.argv[3])\n"
                     "    start, w = int(sys.argv[4]), int(sys.argv[5])\n"
                     "    # stored bottom row first: the bottom row and the top two are cut off\n"
                     "    want = src.crop((start, 2, start + w, src.height - 1))\n"
                     "    print(out.format, out.size, list(out.convert('RGB').getdata()) == list(want.getdata()))\n");
    std::string out = kvtest::run(python + " " + script + " make " + src + " 2>&1", &status);
    ASSERT_EQ(status, 0) << out;

    setWidth(13);  // 39 bytes a row: 1 padding byte, the source has 3
    ASSERT_EQ(cropFile(src, dst, 20), 0);
    setWidth(50);
    out = kvtest::run(python + " " + script + " check " + src + " " + dst + " 20 13 2>&1", &status);
    EXPECT_EQ(status, 0) << out;
    EXPECT_EQ(out, "BMP (13, 6) True\n");
}
