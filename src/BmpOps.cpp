// BMP crop. The source is loaded whole into bmpV, its header read, and the crop region copied
// row by row into a new pixel array behind the source's own header (patched with the new
// sizes), which is written to the destination in one go.
#include "BmpOps.h"

#include <cstring>

#include "util/exportdata.h"
#include "util/bytes.h"
#include "platform/fileio.h"

extern "C" {
KV_DATA std::vector<char> bmpV;
KV_DATA BMPHeader bmpHdr = {};
KV_DATA uint32_t offset = 0;
}

uint32_t readUnsigned(size_t at) { return kv::getU32LE(bmpV.data() + at); }
int32_t readSigned(size_t at) { return static_cast<int32_t>(kv::getU32LE(bmpV.data() + at)); }
uint16_t readShortInt(size_t at) { return kv::getU16LE(bmpV.data() + at); }
void writeUnsignedInt(size_t at, uint32_t value) { kv::putU32LE(bmpV.data() + at, value); }
void writeSignedInt(size_t at, int32_t value) { kv::putU32LE(bmpV.data() + at, static_cast<uint32_t>(value)); }

int getPadding(int width) {
    switch ((int64_t{width} * 3) % 4) {
        case 1: return 3;
        case 2: return 2;
        case 3: return 1;
        default: return 0;
    }
}

int readBMPHeader() {
    offset = 0;
    if (bmpV.size() < 38 || bmpV[0] != 'B' || bmpV[1] != 'M') return -7;
    bmpHdr.signature[0] = 'B';
    bmpHdr.signature[1] = 'M';
    bmpHdr.fileSize = readUnsigned(2);
    bmpHdr.dataOffset = readUnsigned(10);
    bmpHdr.width = readSigned(18);
    bmpHdr.height = readSigned(22);
    bmpHdr.bitsPerPixel = readShortInt(28);
    bmpHdr.dataSize = readUnsigned(34);
    // A row of more than 2^31 bytes cannot be stored; such a width is kept out of rowSize.
    const int64_t rowSize = int64_t{bmpHdr.width} * 3 + getPadding(bmpHdr.width);
    bmpHdr.rowSize = rowSize <= INT32_MAX ? static_cast<int32_t>(rowSize) : -1;
    return 0;
}

namespace {

// Frees bmpV when the crop ends, whichever way: a failed crop never feeds the next one.
struct EmptyBmpV {
    ~EmptyBmpV() { std::vector<char>().swap(bmpV); }
};

}  // namespace

namespace {

// The crop's region checks, every position in 64 bits. Refused (false): a start column or width
// whose byte position does not fit 32 bits, a header whose rows the file's bytes cannot hold, a
// region that reads outside the pixel bytes actually in the file, and an output of more than four
// times those bytes (rows of 0 bytes read the same bytes again for every row).
bool regionFits(int64_t startByte, int width, int64_t& start, int64_t& dataSize) {
    const int64_t fileLength = static_cast<int64_t>(bmpV.size()) - 1;  // without the repeated byte
    const int64_t dataOffset = bmpHdr.dataOffset;
    const int64_t rowSize = bmpHdr.rowSize;
    const int64_t rowBytes = int64_t{width} * 3;
    if (startByte < INT32_MIN || startByte > INT32_MAX || width < 0 || rowBytes > INT32_MAX) return false;
    if (dataOffset > fileLength || bmpHdr.width < 0 || rowSize < 0 || bmpHdr.height < 3) return false;
    const int64_t pixelBytes = fileLength - dataOffset;
    if (int64_t{bmpHdr.height} * rowSize > pixelBytes) return false;
    const int64_t newHeight = int64_t{bmpHdr.height} - 3;
    start = dataOffset + rowSize + startByte;  // the first stored row is skipped
    if (start < dataOffset || start + (newHeight - 1) * rowSize + rowBytes > fileLength) return false;
    dataSize = newHeight * (rowBytes + getPadding(width));
    return dataSize <= 4 * pixelBytes && dataOffset + dataSize <= int64_t{UINT32_MAX};
}

}  // namespace

float cropBMP(const char* source, const char* destination, int64_t startByte, int width) {
    EmptyBmpV emptied;
    if (!source || !kv::readFileRepeatLast(source, bmpV)) return -1760;
    if (readBMPHeader() != 0) return -7;
    int64_t start = 0, dataSize = 0;
    if (!regionFits(startByte, width, start, dataSize)) return -7;
    const int64_t dataOffset = bmpHdr.dataOffset;
    const int64_t rowSize = bmpHdr.rowSize;
    const int64_t newHeight = int64_t{bmpHdr.height} - 3;
    const int64_t rowBytes = int64_t{width} * 3;
    const int newPadding = getPadding(width);

    writeUnsignedInt(2, static_cast<uint32_t>(dataOffset + dataSize));
    writeSignedInt(18, width);
    writeSignedInt(22, static_cast<int32_t>(newHeight));
    writeUnsignedInt(34, static_cast<uint32_t>(dataSize));

    std::vector<char> out(static_cast<size_t>(dataOffset + dataSize), '\0');
    if (dataOffset > 0) std::memcpy(out.data(), bmpV.data(), static_cast<size_t>(dataOffset));
    if (rowBytes > 0) {  // rows of no bytes copy nothing, however many there are
        char* to = out.data() + dataOffset;
        for (int64_t row = 0, from = start; row < newHeight; ++row, from += rowSize) {
            std::memcpy(to, bmpV.data() + from, static_cast<size_t>(rowBytes));
            to += rowBytes + newPadding;  // the padding bytes are already zero
        }
    }
    offset = static_cast<uint32_t>(start + newHeight * rowSize);  // where the next row would start
    if (!destination || !kv::storeFile(destination, out.data(), out.size())) return -5;
    return 0;
}
