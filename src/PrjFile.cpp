// The TPose project file: the reference list written whole with its data files attached, and
// reopened with the data files extracted beside the target path.
#include "PrjFile.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string>
#include <vector>

#include "FileOps.h"
#include "FrameState.h"
#include "util/bytes.h"
#include "platform/fileio.h"
#include "util/numtext.h"

int writePrjFile(const char* path) {
    std::vector<char> out;
    out.reserve(kPrjHeaderSize + tPoseList.size() * kPrjRecordSize);
    for (uint32_t word : thisPrjHdr) kv::appendU32BE(out, word);
    for (const TPoseRef& ref : tPoseList) {
        kv::appendU32BE(out, ref.value);
        out.insert(out.end(), ref.name, ref.name + sizeof ref.name);
        out.insert(out.end(), ref.data, ref.data + sizeof ref.data);
    }
    return kv::storeFile(path, out.data(), out.size()) ? 0 : -17;
}

uint32_t datFileNumber(const char* datPath) {
    const std::string name = FileNameExtract(datPath, kBareName);
    uint32_t number = 0;
    const auto parsed = std::from_chars(name.data(), name.data() + name.size(), number);
    return parsed.ec == std::errc{} ? number : 0;
}

int addDatFile(const char* datPath, const char* prjPath) {
    std::vector<char> data;
    if (!kv::readFile(datPath, data)) return -1;
    if (data.size() > UINT32_MAX - kPrjChunkHeaderSize) return -1;  // its length would not fit a word

    std::vector<char> chunk;
    chunk.reserve(kPrjChunkHeaderSize + data.size() + 1);
    kv::appendU32BE(chunk, datFileNumber(datPath));
    kv::appendU32BE(chunk, static_cast<uint32_t>(data.size() + kPrjChunkHeaderSize));
    kv::appendU32BE(chunk, 0);
    kv::appendU32BE(chunk, 0);
    chunk.insert(chunk.end(), data.begin(), data.end());
    chunk.push_back(data.empty() ? '\0' : data.back());  // the padding byte repeats the last byte
    return kv::appendFile(prjPath, chunk.data(), chunk.size()) ? 0 : -2;
}

int openPrjFile(const char* prjPath, const char* targetPath) {
    std::vector<char> file;
    if (!kv::readFile(prjPath, file)) return -17;
    const uint64_t size = file.size();
    const char* bytes = file.data();

    // A header cut short counts its missing bytes as zeros.
    char head[kPrjHeaderSize] = {};
    if (size > 0) std::memcpy(head, bytes, std::min<uint64_t>(size, kPrjHeaderSize));
    for (size_t i = 0; i < 4; ++i) thisPrjHdr[i] = kv::getU32BE(head + 4 * i);

    // The count comes from the file, but only records wholly inside it are taken.
    const uint64_t count = thisPrjHdr[2];
    const uint64_t present = size > kPrjHeaderSize ? (size - kPrjHeaderSize) / kPrjRecordSize : 0;
    tPoseList.clear();
    tPoseList.reserve(static_cast<size_t>(std::min(count, present)));
    for (uint64_t i = 0; i < std::min(count, present); ++i) {
        const char* p = bytes + kPrjHeaderSize + i * kPrjRecordSize;
        TPoseRef ref;
        ref.value = kv::getU32BE(p);
        std::memcpy(ref.name, p + 4, sizeof ref.name);
        std::memcpy(ref.data, p + 4 + sizeof ref.name, sizeof ref.data);
        // A foreign file may fill a field to the end; the lookups need the terminating NUL.
        ref.name[sizeof ref.name - 1] = '\0';
        ref.data[sizeof ref.data - 1] = '\0';
        tPoseList.push_back(ref);
    }

    // The chunks follow the counted records. Positions are 64-bit, so no length can wrap them,
    // and every step moves forward by at least one byte.
    const std::string targetFolder = FileNameExtract(targetPath, kFolderPart);
    std::string outPath;
    uint64_t pos = kPrjHeaderSize + count * kPrjRecordSize;
    while (pos + kPrjChunkHeaderSize < size) {
        const char* chunk = bytes + pos;
        const uint32_t number = kv::getU32BE(chunk);
        const uint64_t length = kv::getU32BE(chunk + 4);
        const uint64_t end = pos + length;
        if (length >= kPrjChunkHeaderSize && size > end) {
            outPath.assign(targetFolder);
            outPath.append(kv::decimal(number));
            outPath.append("X.dat");
            kv::storeFile(outPath.c_str(), chunk + kPrjChunkHeaderSize,
                          static_cast<size_t>(length - kPrjChunkHeaderSize));  // a failure skips the chunk
        }
        pos = end + 1;  // past the padding byte
    }
    return 0;
}
