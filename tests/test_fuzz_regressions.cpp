// Inputs the fuzz harnesses found faults with, reduced to what triggers each fault, kept so that
// the faults stay fixed.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "BmpOps.h"
#include "imagefiles.h"
#include "kelvane/Kelvane4.h"
#include "testutil.h"

using kvtest::TempDir;
using namespace std::string_literals;

namespace {

std::string be32(uint32_t v) {
    return {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8), static_cast<char>(v)};
}

float call(KelvaneFn fn, const char* text, double number = 0, const char* mem1 = nullptr) {
    std::string block = mem1 ? mem1 : "";
    block.resize(1024);
    char mem2[8] = {};
    return fn(text, number, mem1 ? block.data() : nullptr, mem2);
}

}  // namespace

// A face block whose length field is below its 16-byte head made the conversion take the face
// records as running on past the end of the file.
TEST(FuzzRegressions, VyxFaceBlockShorterThanItsHeadHoldsNoFaces) {
    TempDir dir;
    const std::string base = dir / "base.Vyx", mesh = dir / "mesh.Vyx", obj = dir / "mesh.obj";
    kvtest::writeAll(base, std::string(32, 'H') + be32(20001) + be32(32) + be32(1) + be32(0) + be32(0) + be32(1) +
                               be32(2) + be32(0xFFFFFFFFu));
    ASSERT_EQ(call(getFaceIDs, base.c_str(), 1), 1);
    for (uint32_t length : {1u, 4u, 15u}) {
        const std::string vertexBlock = be32(10001) + be32(28) + be32(1) + be32(0) + std::string(12, '\0');
        const std::string colourBlock = be32(35001) + be32(20) + be32(1) + be32(0) + be32(0x0000FF00u);
        kvtest::writeAll(mesh, std::string(32, 'H') + vertexBlock + colourBlock + be32(20001) + be32(length) +
                                   be32(1) + be32(0));  // the file ends with the face block's head
        EXPECT_EQ(call(vyxtoOBJ, mesh.c_str(), 0, obj.c_str()), 0) << length;
        const std::string text = kvtest::readAll(obj);
        EXPECT_NE(text.find("v 0 0 0\n"), std::string::npos);
        EXPECT_EQ(text.find("#FaceID"), std::string::npos) << length;
        EXPECT_EQ(text.find("\nf "), std::string::npos) << length;
        ASSERT_EQ(call(getFaceIDs, base.c_str(), 1), 1);  // a conversion uses the runs up
    }
    // A first block of tag 0 is the result 0 and nothing is written; its count is never taken
    // for vertices (the split-up conversion read 0x484848 vertices from a 169-byte file).
    std::remove(obj.c_str());
    kvtest::writeAll(mesh, std::string(32, 'H') + be32(0) + be32(0) + be32(0x484848) + be32(0));
    EXPECT_EQ(call(vyxtoOBJ, mesh.c_str(), 0, obj.c_str()), 0);
    EXPECT_FALSE(kvtest::exists(obj));
}

// A BMP with rows of 0 bytes and a large height let a crop copy the same bytes into every output
// row: gigabytes from a file of a few dozen bytes. Such an output is refused; a crop of no bytes
// a row does not walk the rows; an output of no bytes at all is written empty.
TEST(FuzzRegressions, BmpCropOfEmptyRowsIsBounded) {
    TempDir dir;
    const std::string src = dir / "in.bmp", dst = dir / "out.bmp";
    std::string zeroWidth = kvtest::makeBmp(1, 4);
    kvtest::putLE(zeroWidth, 18, 0);         // width 0: rows of 0 bytes
    kvtest::putLE(zeroWidth, 22, 1000000);  // and a million of them
    kvtest::writeAll(src, zeroWidth);
    EXPECT_EQ(cropBMP(src.c_str(), dst.c_str(), 0, 1), -7);
    EXPECT_FALSE(kvtest::exists(dst));
    EXPECT_EQ(cropBMP(src.c_str(), dst.c_str(), 0, 0), 0);  // a crop of no pixels takes no bytes
    EXPECT_EQ(kvtest::readAll(dst).size(), 54u);
    kvtest::putLE(zeroWidth, 22, 0x7FFFFFFF);  // nor does it walk 2^31 empty rows (that took seconds)
    kvtest::writeAll(src, zeroWidth);
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(cropBMP(src.c_str(), dst.c_str(), 0, 0), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(1));
    EXPECT_EQ(kvtest::readAll(dst).size(), 54u);

    std::string noHeader = kvtest::makeBmp(5, 3);  // pixel data from offset 0, no row left to crop
    kvtest::putLE(noHeader, 10, 0);
    kvtest::writeAll(src, noHeader);
    EXPECT_EQ(cropBMP(src.c_str(), dst.c_str(), 0, 5), 0);  // an empty output: nothing to copy
    EXPECT_EQ(kvtest::readAll(dst).size(), 0u);

}

// A group name holding a NUL byte cut the output path short at the NUL: the split wrote a file
// of another name, or, with the NUL first, took the output folder itself for a taken name and
// looked for a free "_copy" name forever.
TEST(FuzzRegressions, GroupNameWithNulIsNotAFileName) {
    TempDir dir;
    const std::string obj = dir / "posed.obj";
    kvtest::writeAll(obj, "v 0 0 0\nv 1 1 1\ng a\0b\nf 1 2\n"s);
    EXPECT_EQ(call(SplitOBJtoVyx, obj.c_str(), 0, (dir / "x").c_str()), -3);
    EXPECT_FALSE(kvtest::exists(dir / "a"));
    kvtest::writeAll(obj, "v 0 0 0\ng \0\nf 1\n"s);
    EXPECT_EQ(call(SplitOBJtoVyx, obj.c_str(), 0, (dir / "x").c_str()), -3);
    EXPECT_EQ(kvtest::run("ls -A '" + dir.path + "'"), "posed.obj\n");
}
