// An RGB picture in memory, the text drawn on it with a small bitmap font, and PNG output.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kvtool {

struct Rgb {
    uint8_t r, g, b;
};

struct Picture {
    int width = 0, height = 0;
    std::vector<uint8_t> rgb;  // three bytes per pixel, rows top to bottom

    Picture(int w, int h, Rgb fill);
    void set(int x, int y, Rgb c) {
        if (x < 0 || y < 0 || x >= width || y >= height) return;
        uint8_t* p = &rgb[(size_t(y) * size_t(width) + size_t(x)) * 3];
        p[0] = c.r, p[1] = c.g, p[2] = c.b;
    }
    void fill(int x, int y, int w, int h, Rgb c);
};

// Glyph cells of the font: 5 x 7 dots, one column and one row of spacing.
constexpr int kGlyphWidth = 6, kGlyphHeight = 8;

// Draws text with its top left corner at x, y, each dot a scale x scale square; characters the
// font lacks (it has letters, digits and a little punctuation) as '?'. Returns the width drawn.
int drawText(Picture& pic, int x, int y, const std::string& text, int scale, Rgb colour);

// Writes pixels (channels 1 = gray or 3 = RGB per pixel) as a PNG. False when it cannot be written.
bool writePng(const std::string& path, int width, int height, int channels, const uint8_t* pixels);

}  // namespace kvtool
