// Hostile project files beyond the cut and malformed-chunk cases of the project tests: a count
// of 2^32-1 over 10 MB of records and chunks at the extreme file numbers, opened within a small
// multiple of the file's size and extracted only into the chosen folder.
#include <gtest/gtest.h>

#include <string>

#include "hostile.h"

using namespace kvtest;

namespace {

std::string record(uint32_t value, const std::string& name) {
    std::string r = be32(value) + name;
    r.resize(516, '\0');
    return r;
}

std::string chunk(uint32_t number, const std::string& data) {
    return be32(number) + be32(uint32_t(16 + data.size())) + be32(0) + be32(0) + data + (data.empty() ? '\0' : data.back());
}

}  // namespace

TEST(HostilePrj, HugeCountExtremeNumbersAndTenMegabytes) {
    Sandbox box;
    std::string prj = be32(0) + be32(0) + be32(0xFFFFFFFFu) + be32(7);
    const size_t records = (size_t(10) << 20) / 516;
    for (size_t i = 0; i < records; ++i) prj += record(uint32_t(i + 1), "ref" + std::to_string(i));
    // Whole records only: a cut one is not taken, so the chunks that follow are not found either.
    const std::string tail = chunk(0, "zero") + chunk(0xFFFFFFFFu, std::string(size_t(1) << 20, 'd'));
    const std::string path = box.input("p.prj", prj + tail);
    const std::string target = box.out + "/x";
    const auto before = box.outside();
    const Measured m = inChild([&] {
        if (callFn(OpenPrjFile, path.c_str(), 0, target.c_str()) != 0) return -1.f;
        char data[300] = {};
        return callFn(GetTPoseRef, ("ref" + std::to_string(records - 1)).c_str(), 0, data);
    });
    ASSERT_TRUE(m.ok);
    // The count claims 2^32-1 references: every record present is read, and the chunks behind
    // them are read as further (cut) records, none of them extracted.
    EXPECT_EQ(m.result, float(records));
    if (!kUnderAsan) {
        EXPECT_LE(m.growthKiB, memoryAllowanceKiB(prj.size() + tail.size()));
    }
    EXPECT_TRUE(box.outputs().empty());

    // With the true count the chunks are extracted by number, into the folder of the target.
    std::string counted = prj;
    counted.replace(8, 4, be32(uint32_t(records)));
    writeAll(path, counted + tail);
    const auto counted_before = box.outside();
    ASSERT_EQ(callFn(OpenPrjFile, path.c_str(), 0, target.c_str()), 0);
    const auto files = box.outputs();
    ASSERT_EQ(files.size(), 2u);
    EXPECT_EQ(files.at("0X.dat"), "zero");
    EXPECT_EQ(files.at("4294967295X.dat").size(), size_t(1) << 20);
    EXPECT_EQ(box.outside(), counted_before);
    EXPECT_NE(before, counted_before);  // only the project itself changed in between
    callFn(ClearTPoseList, nullptr);
}
