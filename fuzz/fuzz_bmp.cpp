// CropBMPfile on arbitrary bytes. Input: a signed 16-bit start column, a signed 16-bit crop
// width, then the BMP file. The result is a documented code; a crop writes exactly one file,
// a small multiple of the source at most, and fails otherwise without leaving a file.
#include <sys/stat.h>

#include <cstring>

#include "harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kvfuzz::Bytes in{data, size};
    const auto column = static_cast<int16_t>(in.u16());
    const auto width = static_cast<int16_t>(in.u16());
    const char* bmp = kvfuzz::writeInput(in.p, in.n, "image.bmp");

    kvfuzz::call(CropBMP_SetWidth, nullptr, width, nullptr);
    const char* crop = kvfuzz::outPath("crop.bmp");
    float r = 0;
    kvfuzz::call(CropBMPfile, bmp, column, crop, &r);
    KV_FUZZ_CHECK(r == 0 || r == -7);
    struct stat st {};
    const bool written = ::stat(crop, &st) == 0;
    KV_FUZZ_CHECK(written == (r == 0));
    // The pixel data written is at most four times the pixel bytes the file holds: a small
    // multiple of the input, never an amplification.
    if (written) KV_FUZZ_CHECK(static_cast<size_t>(st.st_size) <= 5 * in.n + 64);
    kvfuzz::checkOutput([](const char* name) { return std::strcmp(name, "crop.bmp") == 0; });
    return 0;
}
