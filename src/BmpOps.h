// BMP crop: cuts a fixed-width strip, three rows shorter, out of a 24-bit uncompressed BMP.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// The header fields the crop reads, in file order.
struct BMPHeader {
    char signature[2];      // "BM"
    uint32_t fileSize;      // offset 2
    uint32_t dataOffset;    // offset 10: first byte of pixel data
    int32_t width;          // offset 18, pixels
    int32_t height;         // offset 22, pixels
    uint16_t bitsPerPixel;  // offset 28, read but not checked
    uint32_t dataSize;      // offset 34
    int32_t rowSize;        // width * 3 + row padding, bytes
};

// Module state (exported data symbols).
extern "C" {
extern std::vector<char> bmpV;  // the source file while a crop runs (plus one repeated last byte)
extern BMPHeader bmpHdr;        // the fields of the last header read
extern uint32_t offset;         // read position in bmpV
}

// Header fields in bmpV at a byte offset, least significant byte first (the BMP order).
// The caller keeps the field inside bmpV.
uint32_t readUnsigned(size_t at);
int32_t readSigned(size_t at);
uint16_t readShortInt(size_t at);
void writeUnsignedInt(size_t at, uint32_t value);
void writeSignedInt(size_t at, int32_t value);

// Zero bytes that end each pixel row of the given width so that a row fills a multiple of 4.
int getPadding(int width);

// Fills bmpHdr from bmpV; 0, or -7 when bmpV does not start with "BM" or cannot hold the fields.
int readBMPHeader();

// Copies width pixels from byte startByte of every row but the first stored one and the last
// two into a new BMP at destination; a region wider than a stored row reads on into the next
// rows. 0; -1760 source cannot be opened; -7 (nothing written): not a BMP, height below 3, a
// start byte or width whose byte position does not fit 32 bits, rows the file's bytes cannot
// hold, a region reading outside the pixel bytes in the file, or an output of more than four
// times those bytes; -5 destination cannot be created. bmpV is empty afterwards on every path.
float cropBMP(const char* source, const char* destination, int64_t startByte, int width);
