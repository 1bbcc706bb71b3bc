// PSD operations. Every one loads its file(s) whole into img, parses the header and then works
// on the raw planes in place, addressed by byte offset from offst. Bounds: the parser refuses a
// file too short for the sections it declares, and planesFit one too short for its three planes,
// before any plane is touched.
#include "PsdOps.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "FileOps.h"
#include "util/exportdata.h"
#include "util/bytes.h"
#include "util/convert.h"
#include "platform/fileio.h"

#include <stb/stb_image_resize.h>  // implementation compiled in stb_image_resize_impl.cpp

extern "C" {
KV_DATA std::vector<char> img;
KV_DATA int32_t offst = 0;
KV_DATA PSDHeader fHeader = {};
}

uint16_t readShort(size_t at) { return kv::getU16LE(img.data() + at); }
uint32_t readLong(size_t at) { return kv::getU32LE(img.data() + at); }
void writeShort(size_t at, uint16_t value) { kv::putU16LE(img.data() + at, value); }

bool loadPSD(const char* path) { return path && kv::readFileRepeatLast(path, img); }

namespace {

// Length of the file in img (without the repeated last byte).
uint64_t fileLength() { return img.empty() ? 0 : img.size() - 1; }

size_t pixelCount() { return size_t{fHeader.rows} * fHeader.columns; }

// The red, green and blue planes of an image loaded at data with its image data at offset.
struct Planes {
    unsigned char* plane[3];
    size_t count;  // samples per plane: rows * columns
};
Planes planesAt(std::vector<char>& data, size_t offset) {
    auto* base = reinterpret_cast<unsigned char*>(data.data()) + offset;
    const size_t n = pixelCount();
    return {{base, base + n, base + 2 * n}, n};
}

// A colour number red * 65536 + green * 256 + blue split by truncating divisions, in single
// precision. Numbers outside 0..16777215 give components outside 0..255, which no sample equals.
struct RGB {
    int r, g, b;
};
RGB splitColour(float c) {
    const int r = kv::toInt(c / 65536.0f);
    const float rest = c - static_cast<float>(r) * 65536.0f;
    const int g = kv::toInt(rest / 256.0f);
    const int b = kv::toInt(rest - static_cast<float>(g) * 256.0f);
    return {r, g, b};
}

bool isColour(const Planes& p, size_t k, RGB c) {
    return p.plane[0][k] == c.r && p.plane[1][k] == c.g && p.plane[2][k] == c.b;
}

// Loads and parses one file: 0, -1 when it cannot be opened, or the parser's code.
float loadAndParse(const char* path) {
    if (!loadPSD(path)) return -1;
    return readPSDHeader();
}

// Copies a run of count samples, on every plane, from (row, column) of one image to another
// place of the same size of another image.
void copyRun(const Planes& from, size_t fromRow, size_t fromCol, const Planes& to, size_t toRow, size_t toCol,
             size_t count) {
    const size_t w = fHeader.columns;
    for (int p = 0; p < 3; ++p) std::memcpy(to.plane[p] + toRow * w + toCol, from.plane[p] + fromRow * w + fromCol, count);
}

}  // namespace

float readPSDHeader() {
    offst = 0;
    const uint64_t length = fileLength();
    const uint64_t limit = std::min<uint64_t>(length, INT32_MAX);  // offst is 32 bits
    if (length < 4) return -1;
    std::memcpy(fHeader.signature, img.data(), 4);
    if (std::memcmp(fHeader.signature, "8BPS", 4) != 0) return -1;
    if (length < 6) return -1;
    fHeader.version = static_cast<int16_t>(readShort(4));
    if (fHeader.version != 1) return -2;
    if (length < 34) {
        offst = -1;  // no sections, no data offset
        return -1;
    }
    fHeader.channels = readShort(12);
    fHeader.rows = readLong(14);
    fHeader.columns = readLong(18);
    fHeader.depth = readShort(22);
    fHeader.mode = readShort(24);
    fHeader.colourModeLength = readLong(26);
    if (fHeader.colourModeLength != 0) return -3;
    fHeader.resourcesLength = readLong(30);
    // A section reaching past the file leaves no data offset: offst is then -1, which no plane
    // access accepts (the heal, which ignores the second file's code, relies on it).
    uint64_t at = 34 + uint64_t{fHeader.resourcesLength};
    offst = -1;
    if (at + 4 > limit) return -1;
    offst = static_cast<int32_t>(at);
    fHeader.layerLength = readLong(at);
    at += 4 + uint64_t{fHeader.layerLength};
    offst = -1;
    if (at + 2 > limit) return -1;
    offst = static_cast<int32_t>(at);
    fHeader.compression = readShort(at);
    if (fHeader.compression != 0) return -4;
    offst += 2;
    return 0;
}

bool planesFit() {
    const uint64_t length = fileLength();
    if (offst < 0 || uint64_t(offst) > length) return false;
    const uint64_t room = (length - uint64_t(offst)) / 3;  // samples per plane the file can hold
    return fHeader.rows == 0 || fHeader.columns == 0 || fHeader.rows <= room / fHeader.columns;
}

float convertPSD(const char* path, float oldColour, float newColour, bool stencil) {
    if (const float code = loadAndParse(path); code != 0) return code;
    if (!planesFit()) return -1;
    const RGB from = splitColour(oldColour);
    const RGB to = splitColour(newColour);
    const Planes planes = planesAt(img, size_t(offst));
    for (size_t k = 0; k < planes.count; ++k) {
        if (isColour(planes, k, from) == stencil) continue;
        planes.plane[0][k] = static_cast<unsigned char>(to.r);
        planes.plane[1][k] = static_cast<unsigned char>(to.g);
        planes.plane[2][k] = static_cast<unsigned char>(to.b);
    }
    return path && kv::storeFile(path, img.data(), img.size()) ? 0 : -5;
}

float GrayscalePSD(const char* source, const char* destination, int level) {
    if (const float code = loadAndParse(source); code != 0) return code;
    if (fHeader.mode != 3) return -3;
    if (!planesFit()) return -1;
    writeShort(12, 1);  // one channel
    writeShort(24, 1);  // grayscale
    const Planes planes = planesAt(img, size_t(offst));
    std::vector<char> out(size_t(offst) + planes.count);
    std::memcpy(out.data(), img.data(), size_t(offst));
    const unsigned char *red = planes.plane[0], *green = planes.plane[1], *blue = planes.plane[2];
    for (size_t k = 0; k < planes.count; ++k) {
        int gray = static_cast<int>(0.333 * red[k] + 0.333 * green[k] + 0.333 * blue[k] + 0.5);
        if (gray != 255) {
            if (gray <= level)
                gray = 0;
            else
                gray = std::max(0, gray - (255 - gray) * (level - 1) / (255 - level));
        }
        out[size_t(offst) + k] = static_cast<char>(gray);
    }
    return destination && kv::storeFile(destination, out.data(), out.size()) ? 0 : -5;
}

float mergePSD(const char* first, const char* second, float keyColour) {
    if (const float code = loadAndParse(first); code != 0) return code;
    if (!planesFit()) return -1;
    std::vector<char> firstImg = std::move(img);
    const PSDHeader firstHeader = fHeader;
    const Planes top = planesAt(firstImg, size_t(offst));
    img.clear();

    if (const float code = loadAndParse(second); code != 0) return code;
    if (fHeader.rows != firstHeader.rows || fHeader.columns != firstHeader.columns) return -6;
    if (!planesFit()) return -1;
    const RGB key = splitColour(keyColour);
    const Planes out = planesAt(img, size_t(offst));
    for (size_t k = 0; k < top.count; ++k) {
        if (isColour(top, k, key)) continue;  // transparent: the second image shows
        for (int p = 0; p < 3; ++p) out.plane[p][k] = top.plane[p][k];
    }
    return kv::storeFile(first, img.data(), img.size()) ? 0 : -5;
}

float mergeSeamlessPSD(const char* first, const char* second, bool columns) {
    if (const float code = loadAndParse(first); code != 0) return code;
    if (fHeader.rows < 100 || fHeader.columns < 100) return -9;
    if (!planesFit()) return -1;
    std::vector<char> firstImg = std::move(img);
    const PSDHeader firstHeader = fHeader;
    const Planes source = planesAt(firstImg, size_t(offst));
    img.clear();

    // The second file's parse result is not looked at: only its size must match.
    if (!loadPSD(second)) return -1;
    readPSDHeader();
    if (fHeader.rows != firstHeader.rows || fHeader.columns != firstHeader.columns) return -6;
    if (!planesFit()) return -1;
    const Planes out = planesAt(img, size_t(offst));
    const size_t h = fHeader.rows, w = fHeader.columns;
    if (!columns) {
        for (size_t r = 0; r < 10; ++r) {
            copyRun(source, 50 + r, 0, out, r, 0, w);           // top strip from rows 50..59
            copyRun(source, 40 + r, 0, out, h - 10 + r, 0, w);  // bottom strip from rows 40..49
        }
    } else {
        for (size_t r = 2; r <= h - 2; ++r) {
            copyRun(source, r, 50, out, r, 0, 2);      // left edge from columns 50, 51
            copyRun(source, r, 48, out, r, w - 2, 2);  // right edge from columns 48, 49
        }
    }
    return kv::storeFile(first, img.data(), img.size()) ? 0 : -5;
}

float createThumb(const char* path, int size) {
    if (const float code = loadAndParse(path); code != 0) return code;
    if (fHeader.mode != 3) return -3;
    if (size < 1 || size > 4096) return -9;
    if (!planesFit() || fHeader.rows > INT32_MAX || fHeader.columns > INT32_MAX) return -1;

    // Header of a 3-channel 8-bit RGB image with raw data and empty sections: data at 40.
    const uint32_t side = static_cast<uint32_t>(size);
    std::vector<char> out;
    out.reserve(40 + 3 * size_t{side} * side);
    out.insert(out.end(), {'8', 'B', 'P', 'S'});
    kv::appendU16LE(out, 1);                      // version
    out.insert(out.end(), 6, '\0');           // reserved
    kv::appendU16LE(out, 3);                      // channels
    kv::appendU32LE(out, side);                    // rows
    kv::appendU32LE(out, side);                    // columns
    kv::appendU16LE(out, 8);                      // depth
    kv::appendU16LE(out, 3);                      // mode RGB
    kv::appendU32LE(out, 0);                       // colour-mode data
    kv::appendU32LE(out, 0);                       // image resources
    kv::appendU32LE(out, 0);                       // layer and mask information
    kv::appendU16LE(out, 0);                      // raw image data
    const size_t dataStart = out.size();
    out.resize(dataStart + 3 * size_t{side} * side, '\0');  // black

    const uint64_t h = fHeader.rows, w = fHeader.columns;
    if (h > 0 && w > 0) {
        // The longer side becomes size; the shorter one keeps the aspect ratio (rounded, at least 1).
        uint64_t newW = side, newH = side;
        if (w >= h)
            newH = std::max<uint64_t>(1, (2 * h * side + w) / (2 * w));
        else
            newW = std::max<uint64_t>(1, (2 * w * side + h) / (2 * h));
        const size_t left = (side - newW) / 2, top = (side - newH) / 2;
        const stbir_filter filter = newW < w ? STBIR_FILTER_BOX : STBIR_FILTER_CATMULLROM;
        const Planes planes = planesAt(img, size_t(offst));
        for (int p = 0; p < 3; ++p) {
            auto* to = reinterpret_cast<unsigned char*>(out.data()) + dataStart + size_t(p) * side * side + top * side + left;
            if (!stbir_resize_uint8_generic(planes.plane[p], int(w), int(h), 0, to,
                                            int(newW), int(newH), int(side), 1, STBIR_ALPHA_CHANNEL_NONE, 0,
                                            STBIR_EDGE_CLAMP, filter, STBIR_COLORSPACE_LINEAR, nullptr))
                return -5;
        }
    }
    const std::string thumb = stripExtension(path, false) + "_thumb.psd";
    return kv::storeFile(thumb.c_str(), out.data(), out.size()) ? 0 : -5;
}
