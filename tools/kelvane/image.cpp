// Image decoding for `kelvane image`. Every size read from a header is checked against the file
// before a pixel is touched.
#include "image.h"

#include <climits>
#include <cstring>

#include "util/bytes.h"

namespace kvtool {
namespace {

bool fail(std::string& error, const std::string& why) {
    error = why;
    return false;
}

// Room for the pixels of a width x height image, when it fits in a PNG row and in the file.
bool sized(Raster& r, uint64_t width, uint64_t height, int channels, uint64_t available, std::string& error) {
    if (width == 0 || height == 0) return fail(error, "the image has no pixels");
    if (width * uint64_t(channels) > INT_MAX / 2 || height > INT_MAX / 2 ||
        width * height * uint64_t(channels) > available)
        return fail(error, "the header's " + std::to_string(width) + " x " + std::to_string(height) +
                               " pixels do not fit in the file");
    r.width = int(width), r.height = int(height), r.channels = channels;
    r.pixels.assign(size_t(width * height) * size_t(channels), 0);
    return true;
}

bool decodePsd(const char* d, size_t n, Raster& r, std::string& error) {
    if (n < 40) return fail(error, "too short for a PSD header");
    if (kv::getU16LE(d + 4) != 1) return fail(error, "not the plug-in's PSD dialect (version is not 1 low byte first)");
    const unsigned channels = kv::getU16LE(d + 12), depth = kv::getU16LE(d + 22), mode = kv::getU16LE(d + 24);
    if (depth != 8) return fail(error, "not 8 bits per channel");
    if (kv::getU32LE(d + 26) != 0) return fail(error, "the PSD has colour-mode data");
    uint64_t at = 34 + uint64_t{kv::getU32LE(d + 30)};
    if (at + 4 > n) return fail(error, "the PSD's resources run past the end of the file");
    at += 4 + uint64_t{kv::getU32LE(d + at)};
    if (at + 2 > n) return fail(error, "the PSD's layer section runs past the end of the file");
    if (kv::getU16LE(d + at) != 0) return fail(error, "the PSD's image data is compressed");
    at += 2;
    const int planes = mode == 3 && channels >= 3 ? 3 : mode == 1 && channels >= 1 ? 1 : 0;
    if (planes == 0) return fail(error, "colour mode " + std::to_string(mode) + " with " + std::to_string(channels) +
                                            " channels: neither RGB nor one gray plane");
    const uint64_t rows = kv::getU32LE(d + 14), columns = kv::getU32LE(d + 18);
    if (!sized(r, columns, rows, planes, n - at, error)) return false;
    const size_t count = size_t(rows * columns);
    for (int p = 0; p < planes; ++p)
        for (size_t i = 0; i < count; ++i) r.pixels[i * size_t(planes) + size_t(p)] = uint8_t(d[at + size_t(p) * count + i]);
    return true;
}

bool decodeBmp(const char* d, size_t n, Raster& r, std::string& error) {
    if (n < 54) return fail(error, "too short for a BMP header");
    if (kv::getU16LE(d + 28) != 24) return fail(error, "not a 24-bit BMP");
    if (kv::getU32LE(d + 30) != 0) return fail(error, "the BMP is compressed");
    const uint64_t offset = kv::getU32LE(d + 10);
    const int64_t width = int32_t(kv::getU32LE(d + 18)), height = int32_t(kv::getU32LE(d + 22));
    const uint64_t rows = uint64_t(height < 0 ? -height : height), stride = (uint64_t(width) * 3 + 3) & ~uint64_t{3};
    if (width <= 0 || offset > n) return fail(error, "the BMP's width or pixel offset makes no sense");
    // The last stored row need not carry its padding.
    const uint64_t room = n - offset + (stride - uint64_t(width) * 3);
    if (!sized(r, uint64_t(width), rows, 3, rows == 0 ? 0 : room / stride * uint64_t(width) * 3, error)) return false;
    for (uint64_t y = 0; y < rows; ++y) {
        const char* row = d + offset + (height < 0 ? y : rows - 1 - y) * stride;
        uint8_t* out = &r.pixels[size_t(y * uint64_t(width) * 3)];
        for (int64_t x = 0; x < width; ++x, row += 3, out += 3)
            out[0] = uint8_t(row[2]), out[1] = uint8_t(row[1]), out[2] = uint8_t(row[0]);
    }
    return true;
}

}  // namespace

bool decodeImage(const std::vector<char>& bytes, Raster& out, std::string& error) {
    if (bytes.size() >= 4 && std::memcmp(bytes.data(), "8BPS", 4) == 0) return decodePsd(bytes.data(), bytes.size(), out, error);
    if (bytes.size() >= 2 && bytes[0] == 'B' && bytes[1] == 'M') return decodeBmp(bytes.data(), bytes.size(), out, error);
    return fail(error, "neither a PSD nor a BMP");
}

}  // namespace kvtool
