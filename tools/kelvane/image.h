// The plug-in's own image files as plain pixels: PSD in its dialect (RGB, or one gray plane)
// and 24-bit BMP.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kvtool {

struct Raster {
    int width = 0, height = 0, channels = 0;  // channels: 1 gray, 3 RGB
    std::vector<uint8_t> pixels;              // interleaved, rows top to bottom
};

// Decodes a PSD (header numbers low byte first, raw 8-bit planes, RGB or a single gray plane)
// or an uncompressed 24-bit BMP, told apart by their first bytes. False, with the reason in
// error, for anything else or a file shorter than its header says.
bool decodeImage(const std::vector<char>& bytes, Raster& out, std::string& error);

}  // namespace kvtool
