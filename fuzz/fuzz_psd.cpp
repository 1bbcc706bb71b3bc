// The PSD conversions on arbitrary bytes. Input: the colour to replace and the new colour
// (3 bytes each), a gray level, a thumbnail size, then the PSD file. SwapColorsPSD and
// MakeStencilPSD rewrite the file (one byte longer on success, untouched on failure),
// RGBtoGrayscale writes gray.psd and CreateThumbnail image_thumb.psd, each with a documented code.
#include <cstring>
#include <string>
#include <vector>

#include "harness.h"
#include "platform/fileio.h"

static double colour(kvfuzz::Bytes& in) {
    const double r = in.u8(), g = in.u8(), b = in.u8();
    return r * 65536 + g * 256 + b;
}

// Runs a rewrite of path and checks the file against its content before.
static float rewrite(KelvaneFn fn, const std::string& path, double number) {
    std::vector<char> before, after;
    KV_FUZZ_CHECK(kv::readFile(path.c_str(), before));
    float r = 0;
    kvfuzz::call(fn, path.c_str(), number, nullptr, &r);
    KV_FUZZ_CHECK(r == 0 || (r <= -1 && r >= -4));
    KV_FUZZ_CHECK(kv::readFile(path.c_str(), after));
    if (r == 0) {
        KV_FUZZ_CHECK(after.size() == before.size() + 1 && after.back() == before.back());
        KV_FUZZ_CHECK(std::memcmp(after.data(), before.data(), 26) == 0);  // the header stays
    } else {
        KV_FUZZ_CHECK(after == before);
    }
    return r;
}

static bool isPsdOutput(const char* name) {
    return !std::strcmp(name, "image.psd") || !std::strcmp(name, "gray.psd") || !std::strcmp(name, "image_thumb.psd");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kvfuzz::Bytes in{data, size};
    const double oldColour = colour(in), newColour = colour(in);
    const double level = in.u8();
    const double thumb = in.u8() % 17;  // 0 is refused; up to 16 pixels keeps runs quick
    const std::string image = kvfuzz::writeOutInput(in.p, in.n, "image.psd");

    kvfuzz::call(SetInColor, nullptr, oldColour, nullptr);
    const float swapped = rewrite(SwapColorsPSD, image, newColour);
    const float stencilled = rewrite(MakeStencilPSD, image, newColour);
    KV_FUZZ_CHECK(swapped == stencilled);  // the same header and planes, the same verdict

    float r = 0;
    kvfuzz::call(RGBtoGrayscale, image.c_str(), level, kvfuzz::outPath("gray.psd"), &r);
    KV_FUZZ_CHECK(r == 0 || (r <= -1 && r >= -4));
    if (swapped != 0) KV_FUZZ_CHECK(r != 0);
    kvfuzz::call(CreateThumbnail, image.c_str(), thumb, nullptr, &r);
    KV_FUZZ_CHECK(r == 0 || (r <= -1 && r >= -4) || r == -9);
    if (thumb == 0) KV_FUZZ_CHECK(r != 0);
    kvfuzz::checkOutput(isPsdOutput);
    return 0;
}
