// PSD images: the header reader and the operations on raw planar RGB data (colour swap and
// stencil, grayscale, merge with a key colour, seam healing, thumbnails).
//
// The accepted dialect: signature "8BPS", version 1, no colour-mode data, raw (uncompressed)
// planar image data, and every header number stored least significant byte first. Sample k of
// plane p (0 red, 1 green, 2 blue) lies at img[offst + p * rows * columns + k].
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// The fields of a parsed header, in file order.
struct PSDHeader {
    char signature[4];          // offset 0, "8BPS"
    int16_t version;            // offset 4, must be 1
    uint16_t channels;          // offset 12
    uint32_t rows;              // offset 14, image height
    uint32_t columns;           // offset 18, image width
    uint16_t depth;             // offset 22, bits per channel
    uint16_t mode;              // offset 24, colour mode (3 = RGB, 1 = grayscale)
    uint32_t colourModeLength;  // offset 26, must be 0
    uint32_t resourcesLength;   // offset 30
    uint32_t layerLength;       // after the resources section
    uint32_t compression;       // after the layer section, 16 bits in the file; must be 0
};

// Module state (exported data symbols).
extern "C" {
extern std::vector<char> img;  // the file being worked on, plus one repeated last byte
extern int32_t offst;          // offset of the first byte of image data in img
extern PSDHeader fHeader;      // the fields of the last parsed header
}

// Numbers in img at a byte offset, least significant byte first. The caller keeps them inside img.
uint16_t readShort(size_t at);
uint32_t readLong(size_t at);
void writeShort(size_t at, uint16_t value);

// Loads a file into img with one repeated last byte (so a rewrite of img is one byte longer
// than the file read). False when it cannot be opened.
bool loadPSD(const char* path);

// Parses the header of img into fHeader and sets offst to the image data. 0; -1 wrong signature
// or a file too short for its sections (offst is then -1: there is no data offset); -2 version
// not 1; -3 colour-mode data; -4 compressed data.
float readPSDHeader();

// True when the file in img holds the three planes fHeader declares, from offst on.
bool planesFit();

// Swap mode: pixels equal to oldColour (red * 65536 + green * 256 + blue) become newColour.
// Stencil mode: they are kept and every other pixel becomes newColour. Rewrites path.
// 0; -1 cannot be opened or too short; the parser's code; -5 cannot be rewritten.
float convertPSD(const char* path, float oldColour, float newColour, bool stencil);

// Writes a one-channel grayscale PSD of source to destination; gray values not above level
// become 0 and the others are spread over the range left. 0; -1; the parser's code; -3 not RGB;
// -5 destination cannot be created.
float GrayscalePSD(const char* source, const char* destination, int level);

// Lays the first image over the second, keyColour being transparent, and writes the result over
// the first file. 0; -1; the parser's codes; -6 sizes differ; -5 cannot be written.
float mergePSD(const char* first, const char* second, float keyColour);

// Patches the border rows (or columns) of the second image with interior strips of the first
// and writes the result over the first file. 0; -1; the first file's parser code; -9 the first
// image is below 100 pixels in either direction; -6 sizes differ; -5 cannot be written.
float mergeSeamlessPSD(const char* first, const char* second, bool columns);

// Scales an RGB image so that its longer side is size pixels (area-averaged when shrinking),
// centres it in a size x size square on black and writes it as a PSD of the same dialect to
// the path without its extension + "_thumb.psd". 0; -1; the parser's code; -3 not RGB;
// -9 size below 1 or above 4096; -5 cannot be created.
float createThumb(const char* path, int size);
