// Builders of small BMP and PSD files for the image tests.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace kvtest {

inline void putLE(std::string& s, size_t at, uint32_t v, int bytes = 4) {
    for (int i = 0; i < bytes; ++i) s[at + size_t(i)] = static_cast<char>(v >> (8 * i));
}

// The byte of channel ch of the pixel at column col of stored row row (row 0 is stored first).
inline char sample(int row, int col, int ch) { return static_cast<char>(row * 31 + col * 7 + ch * 101 + 5); }

inline int paddingOf(int width) { return (4 - (width * 3) % 4) % 4; }

// A 24-bit BMP with a 54-byte header, header numbers least significant byte first.
inline std::string makeBmp(int width, int height) {
    const int rowSize = width * 3 + paddingOf(width);
    std::string s = "BM" + std::string(52, '\0');
    // File size, data offset, info header size, width, height, planes, bits, data size, resolution.
    for (auto [at, value, bytes] : {std::array{2, 54 + rowSize * height, 4}, {10, 54, 4}, {14, 40, 4}, {18, width, 4}, {22, height, 4},
                                    {26, 1, 2}, {28, 24, 2}, {34, rowSize * height, 4}, {38, 2835, 4}, {42, 2835, 4}})
        putLE(s, size_t(at), uint32_t(value), bytes);
    for (int r = 0; r < height; ++r) {
        for (int c = 0; c < width; ++c)
            for (int ch = 0; ch < 3; ++ch) s += sample(r, c, ch);
        s.append(size_t(paddingOf(width)), '\0');
    }
    return s;
}

struct Rgb {
    int r, g, b;
};

// A PSD of the accepted dialect (header numbers least significant byte first).
struct Psd {
    uint32_t rows = 1, columns = 1;
    uint16_t channels = 3, mode = 3, compression = 0;
    uint32_t colourModeLength = 0;
    std::string version = std::string("\x01\x00", 2);
    std::string resources, layers;
    std::string planes;  // plane after plane
    std::string tail;    // anything after the planes

    // Fills the first three planes from a pixel function (k = row * columns + column).
    Psd& pixels(const std::function<Rgb(size_t)>& f) {
        const size_t n = size_t{rows} * columns;
        planes.assign(3 * n, '\0');
        for (size_t k = 0; k < n; ++k) {
            const Rgb c = f(k);
            planes[k] = static_cast<char>(c.r);
            planes[n + k] = static_cast<char>(c.g);
            planes[2 * n + k] = static_cast<char>(c.b);
        }
        return *this;
    }

    std::string bytes() const {
        std::string s = "8BPS" + version + std::string(6, '\0');
        auto le = [&s](uint32_t v, int n, const std::string& after = "") {
            for (int i = 0; i < n; ++i) s += static_cast<char>(v >> (8 * i));
            s += after;
        };
        for (auto [v, n] : {std::pair<uint32_t, int>{channels, 2}, {rows, 4}, {columns, 4}, {8, 2}, {mode, 2}, {colourModeLength, 4}}) le(v, n);
        le(uint32_t(resources.size()), 4, resources);
        le(uint32_t(layers.size()), 4, layers);
        le(compression, 2);
        return s + planes + tail;
    }
};

inline Psd uniform(uint32_t rows, uint32_t columns, Rgb c) {
    Psd p;
    p.rows = rows, p.columns = columns;
    return p.pixels([c](size_t) { return c; });
}

}  // namespace kvtest
