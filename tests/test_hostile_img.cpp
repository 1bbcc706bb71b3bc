// Hostile BMP and PSD images through every image export: every cut of a sound file, header
// sizes at 0, 1, 2^31-1 and 2^32-1, and crop settings at their limits. Each call gives one of its
// codes, leaves its input as it was when it fails, writes nothing outside the output folder and
// holds no more memory than a small multiple of its input.
#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <vector>

#include "hostile.h"
#include "imagefiles.h"

using namespace kvtest;

namespace {

bool oneOf(float r, const std::vector<float>& codes) { return std::find(codes.begin(), codes.end(), r) != codes.end(); }

// Runs every PSD export on bytes (as out/a.psd, with a sound second image out/b.psd where one
// is needed) and checks results and files.
enum class Expect { sound, broken, either };
void allPsdOperations(const Sandbox& box, const std::string& bytes, Expect expect) {
    const Psd second = uniform(120, 120, {9, 9, 9});
    const std::string a = box.out + "/a.psd", b = box.out + "/b.psd", gray = box.out + "/g.psd";
    struct Op {
        const char* name;
        KelvaneFn fn;
        double number;
        const char* mem1;
        std::vector<float> failures;
        bool rewrites;  // a changes when the call succeeds
    };
    const std::vector<Op> ops = {
        {"MakeStencilPSD", MakeStencilPSD, 0xFF0000, nullptr, {-1, -2, -3, -4, -5}, true},
        {"SwapColorsPSD", SwapColorsPSD, 0x00FF00, nullptr, {-1, -2, -3, -4, -5}, true},
        {"RGBtoGrayscale", RGBtoGrayscale, 128, gray.c_str(), {-1, -2, -3, -4, -5}, false},
        {"MergePSDfiles", MergePSDfiles, 0x010203, b.c_str(), {-1, -2, -3, -4, -5, -6}, true},
        {"HealPSDfiles", HealPSDfiles, 1, b.c_str(), {-1, -2, -3, -4, -5, -6, -9}, true},
        {"CreateThumbnail", CreateThumbnail, 16, nullptr, {-1, -2, -3, -4, -5, -9}, false},
    };
    for (const Op& op : ops) {
        SCOPED_TRACE(op.name);
        writeAll(a, bytes);
        writeAll(b, second.bytes());
        const float r = callFn(op.fn, a.c_str(), op.number, op.mem1);
        if (expect == Expect::sound) {
            EXPECT_TRUE(r == 0 || oneOf(r, {-6, -9})) << r;  // sizes may still not match
        } else {
            EXPECT_TRUE(oneOf(r, op.failures) || (expect == Expect::either && r == 0)) << r;
        }
        if (r != 0) {
            EXPECT_EQ(readAll(a), bytes);
            EXPECT_EQ(box.outputs().size(), 2u) << "a failed call wrote a file";
        } else if (op.rewrites) {
            EXPECT_EQ(readAll(a).size(), bytes.size() + 1);  // the repeated last byte
        }
        box.clearOut();
    }
}

}  // namespace

TEST(HostileImages, PsdCutAtEveryOffset) {
    Sandbox box;
    Psd p = uniform(3, 4, {255, 0, 0});
    p.resources = "res";
    p.layers = "lay";
    const std::string whole = p.bytes();
    const auto before = box.outside();
    for (size_t cut = 0; cut < whole.size(); ++cut) {
        SCOPED_TRACE(cut);
        allPsdOperations(box, whole.substr(0, cut), Expect::broken);
    }
    allPsdOperations(box, whole, Expect::sound);
    EXPECT_EQ(box.outside(), before);
}

// Rows, columns and channels at their limits, section lengths that reach past the file: each
// case in a child, whose peak memory is measured.
TEST(HostileImages, PsdSizesAtTheirLimits) {
    Sandbox box;
    const auto before = box.outside();
    const Psd base = uniform(2, 3, {1, 2, 3});
    for (uint32_t rows : {0u, 1u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        for (uint32_t columns : {0u, 1u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
            for (uint16_t channels : {uint16_t(0), uint16_t(1), uint16_t(3), uint16_t(0xFFFF)}) {
                Psd p = base;
                p.rows = rows;
                p.columns = columns;
                p.channels = channels;
                const std::string bytes = p.bytes();
                SCOPED_TRACE(std::to_string(rows) + "x" + std::to_string(columns) + "x" + std::to_string(channels));
                const Measured m = inChild([&] {
                    allPsdOperations(box, bytes, Expect::either);  // tiny images fit
                    return ::testing::Test::HasFailure() ? -1.f : 0.f;
                });
                ASSERT_TRUE(m.ok);
                EXPECT_EQ(m.result, 0) << "a check failed in the child";
                if (!kUnderAsan) {
                    EXPECT_LE(m.growthKiB, memoryAllowanceKiB(bytes.size()));
                }
            }
        }
    }
    for (uint32_t length : {1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
        // The colour-mode, resources and layers lengths.
        for (size_t at : {size_t(26), size_t(30), size_t(34)}) {
            std::string b = base.bytes();
            putLE(b, at, length);
            SCOPED_TRACE(std::to_string(at) + ": " + std::to_string(length));
            const Measured m = inChild([&] {
                allPsdOperations(box, b, Expect::broken);
                return ::testing::Test::HasFailure() ? -1.f : 0.f;
            });
            ASSERT_TRUE(m.ok);
            EXPECT_EQ(m.result, 0) << "a check failed in the child";
        }
    }
    EXPECT_EQ(box.outside(), before);
}

TEST(HostileImages, BmpCutAndHeaderFieldsAtTheirLimits) {
    Sandbox box;
    const std::string src = box.in + "/s.bmp";
    const std::string dst = box.out + "/c.bmp";
    const std::string whole = makeBmp(10, 6);
    writeAll(src, whole);
    const auto before = box.outside();
    auto crop = [&](double column, double width) {
        CropBMP_SetWidth(nullptr, width, nullptr, nullptr);
        const float r = callFn(CropBMPfile, src.c_str(), column, dst.c_str());
        EXPECT_TRUE(r == 0 || r == -7) << r;
        EXPECT_EQ(exists(dst), r == 0);
        std::remove(dst.c_str());
        return r;
    };
    // Cut anywhere: refused; whole: cropped.
    for (size_t cut = 0; cut < whole.size(); ++cut) {
        SCOPED_TRACE(cut);
        writeAll(src, whole.substr(0, cut));
        EXPECT_EQ(crop(2, 4), -7);
    }
    writeAll(src, whole);
    EXPECT_EQ(crop(2, 4), 0);
    // Start column and width outside the image, and at the limits of the conversions.
    // A region past a row's edge reads on into the neighbouring row, as the crop always has;
    // one that leaves the pixel data is refused.
    for (double column : {-1.0, 7.0, 10.0}) EXPECT_EQ(crop(column, 4), 0) << column;
    for (double column : {-30.0, 40.0, 2147483647.0, -2147483648.0, 1e300, -1e300}) EXPECT_EQ(crop(column, 4), -7) << column;
    for (double width : {0.0, -1.0, 11.0, 2147483647.0, 4294967295.0, 1e30, -1e30})
        EXPECT_TRUE(oneOf(crop(0, width), {0, -7})) << width;
    EXPECT_EQ(crop(0, 10), 0);
    // Header fields at 0, 1, 2^31-1 and 2^32-1: refused or cropped within the file.
    for (size_t at : {size_t(2), size_t(10), size_t(18), size_t(22), size_t(34)}) {
        for (uint32_t value : {0u, 1u, 3u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
            std::string bytes = whole;
            putLE(bytes, at, value);
            writeAll(src, bytes);
            SCOPED_TRACE(std::to_string(at) + ": " + std::to_string(value));
            const Measured m = inChild([&] { return crop(0, 2); });
            ASSERT_TRUE(m.ok);
            EXPECT_TRUE(oneOf(m.result, {0, -7})) << m.result;
            if (!kUnderAsan) {
                EXPECT_LE(m.growthKiB, memoryAllowanceKiB(bytes.size()));
            }
        }
    }
    std::remove(src.c_str());
    writeAll(src, whole);
    EXPECT_EQ(box.outside(), before);
    CropBMP_SetWidth(nullptr, 50, nullptr, nullptr);
}

// The second image of a merge or heal cut anywhere: refused, the first image left as it was.
TEST(HostileImages, SecondPsdCutAtEveryInterestingOffset) {
    Sandbox box;
    const std::string a = box.out + "/a.psd", b = box.out + "/b.psd";
    const std::string first = uniform(120, 120, {1, 2, 3}).bytes();
    const std::string second = uniform(120, 120, {7, 8, 9}).bytes();
    std::vector<size_t> cuts;
    for (size_t cut = 0; cut < 64; ++cut) cuts.push_back(cut);  // the header and section lengths
    for (size_t plane = 1; plane <= 3; ++plane)
        for (size_t d : {size_t(0), size_t(1)}) cuts.push_back(40 + plane * 120 * 120 - d);  // plane ends
    for (size_t cut : cuts) {
        if (cut >= second.size()) continue;
        SCOPED_TRACE(cut);
        for (KelvaneFn fn : {MergePSDfiles, HealPSDfiles}) {
            writeAll(a, first);
            writeAll(b, second.substr(0, cut));
            const float r = callFn(fn, a.c_str(), 1, b.c_str());
            EXPECT_TRUE(oneOf(r, {-1, -2, -3, -4, -6})) << r;
            EXPECT_EQ(readAll(a), first);
        }
    }
    writeAll(b, second);
    EXPECT_EQ(callFn(MergePSDfiles, a.c_str(), 0x010203, b.c_str()), 0);
    EXPECT_EQ(box.outputs().size(), 2u);
}
