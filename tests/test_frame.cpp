// The frame's exports, called as the host calls them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <set>
#include <string>

#include "FrameState.h"
#include "kelvane/Kelvane4.h"
#include "testutil.h"

using kvtest::callFn;
using kvtest::TempDir;

namespace {

const double kNaN = std::nan("");

}  // namespace

TEST(Frame, VersionAndSettings) {
    EXPECT_FLOAT_EQ(callFn(Version), 4.05f);

    EXPECT_EQ(callFn(CropBMP_SetWidth, nullptr, 12.7), 0);
    EXPECT_EQ(imgW, 12.7f);
    EXPECT_EQ(callFn(SetInColor, nullptr, -3.25), 0);
    EXPECT_EQ(colIn, -3.25f);
    callFn(CropBMP_SetWidth, nullptr, 50);
    callFn(SetInColor, nullptr, 0);
}

TEST(Frame, ProjectModifierChecksAndSaturation) {
    callFn(ClearTPoseList);
    EXPECT_EQ(callFn(SetPrjModfier, nullptr, 7.9), 0);
    EXPECT_EQ(callFn(GetPrjModfier), 7.0f);
    // Not greater than zero, NaN included: refused, the modifier stays.
    EXPECT_EQ(callFn(SetPrjModfier, nullptr, 0), -1);
    EXPECT_EQ(callFn(SetPrjModfier, nullptr, -2), -1);
    EXPECT_EQ(callFn(SetPrjModfier, nullptr, kNaN), -1);
    EXPECT_EQ(callFn(GetPrjModfier), 7.0f);
    EXPECT_EQ(callFn(SetPrjModfier, nullptr, 5000000000.0), 0);
    EXPECT_EQ(thisPrjHdr[3], 4294967295u);
    EXPECT_EQ(callFn(GetPrjModfier), 4294967296.0f);  // the nearest float to 2^32-1
    EXPECT_EQ(callFn(ClearTPoseList), 0);
    EXPECT_EQ(callFn(GetPrjModfier), 0);
}

TEST(Frame, TPoseListAddLookUpAndCheckOrder) {
    callFn(ClearTPoseList);
    char data[64] = "pose data";
    char out[300];

    // Empty list: -5 before the text is looked at.
    EXPECT_EQ(callFn(GetTPoseRef, nullptr, 0, out), -5);
    EXPECT_EQ(callFn(GetTPoseRef, "x", 0, out), -5);
    // The value check comes before the null checks.
    EXPECT_EQ(callFn(AddTPoseRef, nullptr, 0, nullptr), -1);
    EXPECT_EQ(callFn(AddTPoseRef, "a", -1, data), -1);
    EXPECT_EQ(callFn(AddTPoseRef, nullptr, 1, data), -2);
    EXPECT_EQ(callFn(AddTPoseRef, "a", 1, nullptr), -2);
    EXPECT_TRUE(tPoseList.empty());

    EXPECT_EQ(callFn(AddTPoseRef, "arm", 0.5, data), 0);  // 0.5 > 0 passes, stored as 0
    char data2[] = "second";
    EXPECT_EQ(callFn(AddTPoseRef, "leg", 3, data2), 0);
    char data3[] = "shadowed";
    EXPECT_EQ(callFn(AddTPoseRef, "leg", 9, data3), 0);
    EXPECT_EQ(callFn(AddTPoseRef, "nan", kNaN, data), 0);  // NaN passes and becomes 2^31
    EXPECT_EQ(thisPrjHdr[2], 4u);
    ASSERT_EQ(tPoseList.size(), 4u);

    EXPECT_EQ(callFn(GetTPoseRef, "arm", 0, out), 0);
    EXPECT_STREQ(out, "pose data");
    EXPECT_EQ(callFn(GetTPoseRef, "leg", 0, out), 3);  // the first match wins
    EXPECT_STREQ(out, "second");
    EXPECT_EQ(callFn(GetTPoseRef, "nan", 0, out), 2147483648.0f);
    EXPECT_EQ(callFn(GetTPoseRef, "Leg", 0, out), -1);  // case-sensitive
    EXPECT_EQ(callFn(GetTPoseRef, nullptr, 0, out), -1);

    // Names and data longer than their fields are cut, never overflow the record.
    std::string longName(400, 'n'), longData(600, 'd');
    EXPECT_EQ(callFn(AddTPoseRef, longName.c_str(), 1, longData.data()), 0);
    EXPECT_EQ(std::strlen(tPoseList.back().name), 254u);
    EXPECT_EQ(std::strlen(tPoseList.back().data), 256u);

    callFn(ClearTPoseList);
    EXPECT_TRUE(tPoseList.empty());
    for (uint32_t w : thisPrjHdr) EXPECT_EQ(w, 0u);
}

TEST(Frame, FileDeleteCopyRename) {
    TempDir dir;
    const std::string a = dir / "a.bin", b = dir / "b.bin", c = dir / "c.bin";
    std::string payload(10007, '\0');  // several 4000-byte blocks and a short tail
    for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>(i * 31 + 7);
    kvtest::writeAll(a, payload);

    std::string dest = b;
    EXPECT_EQ(callFn(FileCopyTo, nullptr, 0, dest.data()), -1);
    EXPECT_EQ(callFn(FileCopyTo, a.c_str(), 0, nullptr), -1);
    kvtest::writeAll(b, std::string(50000, 'x'));  // an older, longer destination is replaced
    EXPECT_EQ(callFn(FileCopyTo, a.c_str(), 0, dest.data()), 0);
    EXPECT_TRUE(kvtest::readAll(b) == payload);
    // The destination is deleted before the source is opened, even when that then fails.
    std::string missing = dir / "none.bin";
    EXPECT_EQ(callFn(FileCopyTo, missing.c_str(), 0, dest.data()), -1);
    EXPECT_FALSE(kvtest::exists(b));
    EXPECT_EQ(callFn(FileCopyTo, a.c_str(), 0, dest.data()), 0);
    std::string noFolder = dir / "no/such/folder.bin";
    EXPECT_EQ(callFn(FileCopyTo, a.c_str(), 0, noFolder.data()), -1);

    // Copying onto itself deletes the source before opening it.
    std::string self = a;
    EXPECT_EQ(callFn(FileCopyTo, a.c_str(), 0, self.data()), -1);
    EXPECT_FALSE(kvtest::exists(a));

    std::string target = c;
    EXPECT_EQ(callFn(FileRename, b.c_str(), 0, target.data()), 0);
    EXPECT_FALSE(kvtest::exists(b));
    EXPECT_TRUE(kvtest::readAll(c) == payload);
    EXPECT_EQ(callFn(FileRename, nullptr, 0, target.data()), -1);
    EXPECT_EQ(callFn(FileRename, c.c_str(), 0, nullptr), -1);

    EXPECT_EQ(callFn(FileDelete, c.c_str()), 0);
    EXPECT_FALSE(kvtest::exists(c));
    EXPECT_EQ(callFn(FileDelete, nullptr), -1);
}

TEST(Frame, FolderListing) {
    TempDir dir;
    kvtest::writeAll(dir / "one.txt", "1");
    kvtest::writeAll(dir / ".hidden", "h");
    char out[512];

    EXPECT_EQ(callFn(GetFile, nullptr, 0, out), -1);  // nothing open yet
    EXPECT_EQ(callFn(CloseFolder), -1);
    EXPECT_EQ(callFn(OpenFolder, (dir / "missing").c_str()), -1);
    EXPECT_EQ(callFn(OpenFolder, nullptr), -1);

    ASSERT_EQ(callFn(OpenFolder, dir.path.c_str()), 0);
    std::multiset<std::string> names;
    float r;
    while ((r = callFn(GetFile, nullptr, 0, out)) == 0) names.insert(out);
    EXPECT_EQ(r, -3);
    EXPECT_EQ(names, (std::multiset<std::string>{".", "..", ".hidden", "one.txt"}));
    EXPECT_EQ(callFn(GetFile, nullptr, 0, out), -3);  // still open after the last entry
    EXPECT_EQ(callFn(CloseFolder), 0);
    EXPECT_EQ(callFn(CloseFolder), -1);
    EXPECT_EQ(callFn(GetFile, nullptr, 0, out), -1);

    // Opening again while a listing is open starts a new listing.
    ASSERT_EQ(callFn(OpenFolder, dir.path.c_str()), 0);
    ASSERT_EQ(callFn(OpenFolder, dir.path.c_str()), 0);
    int count = 0;
    while (callFn(GetFile, nullptr, 0, out) == 0) ++count;
    EXPECT_EQ(count, 4);
    EXPECT_EQ(callFn(CloseFolder), 0);
}

TEST(Frame, HelloWorldWritesItsLine) {
    testing::internal::CaptureStdout();
    Kelvane4 k;
    k.HelloWorld("hello from the plug-in");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "hello from the plug-in\n");
}
