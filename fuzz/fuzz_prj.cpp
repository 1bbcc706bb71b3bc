// OpenPrjFile on arbitrary bytes: the references read stay within the file, every lookup stays
// inside its record, a written-back project reopens to the same records, and only
// <number>X.dat files appear, all in the output folder.
#include <cstring>
#include <string>
#include <vector>

#include "FrameState.h"
#include "harness.h"

static bool isExtractedName(const char* name) {  // decimal digits, then "X.dat"
    size_t digits = std::strspn(name, "0123456789");
    return digits > 0 && digits <= 10 && std::strcmp(name + digits, "X.dat") == 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* prj = kvfuzz::writeInput(data, size, "input.prj");
    float result = -1;
    kvfuzz::call(OpenPrjFile, prj, 0, kvfuzz::outPath("x"), &result);
    KV_FUZZ_CHECK(result == 0);
    KV_FUZZ_CHECK(tPoseList.size() <= size / 516);
    kvfuzz::checkOutput(isExtractedName);

    if (!tPoseList.empty()) {  // every name is found, and the project writes back and reopens alike
        float value = -1;
        KV_FUZZ_CHECK(std::strlen(kvfuzz::call(GetTPoseRef, tPoseList.back().name, 0, "", &value)) <= 256);
        KV_FUZZ_CHECK(value >= 0);
        const std::vector<TPoseRef> read = tPoseList;
        const char* again = kvfuzz::outPath("again.prj");
        kvfuzz::call(WritePrjFile, again, 0, nullptr, &result);
        KV_FUZZ_CHECK(result == 0);
        kvfuzz::call(OpenPrjFile, again, 0, again, &result);
        KV_FUZZ_CHECK(result == 0 && tPoseList.size() == read.size());
        KV_FUZZ_CHECK(std::memcmp(tPoseList.data(), read.data(), read.size() * sizeof(TPoseRef)) == 0);
        kvfuzz::checkOutput([](const char* name) { return std::strcmp(name, "again.prj") == 0; });
    }
    return 0;
}
