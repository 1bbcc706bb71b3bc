// Vyx mesh files. The conversion to OBJ maps the file (a mesh of millions of vertices) and
// formats its lines in batches on every core; every other reader loads the whole file with one
// read. All address the file by byte offset, and every count and length taken from it is
// checked against the bytes there before it is used.
#include "VyxOps.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "FileOps.h"
#include "util/exportdata.h"
#include "platform/blockwriter.h"
#include "util/bytes.h"
#include "util/convert.h"
#include "platform/fileio.h"
#include "platform/mapfile.h"
#include "util/numtext.h"
#include "util/parallel.h"

extern "C" {
KV_DATA std::vector<uint32_t> faceID;
KV_DATA std::vector<std::string> UVTileStr;
}

namespace {

constexpr size_t kHeaderSize = 32;  // the file header, never interpreted
constexpr size_t kHeadSize = 16;    // tag, length, count, a fourth word

VyxBlock headAt(std::span<const char> buf, size_t at) {
    const char* p = buf.data() + at;
    return VyxBlock{at, kv::getU32BE(p), kv::getU32BE(p + 4), kv::getU32BE(p + 8)};
}

// The distance to the next block: the length, or the head's 16 bytes when the length is 0.
size_t stepOf(const VyxBlock& block) { return block.length == 0 ? kHeadSize : block.length; }

bool headFits(std::span<const char> buf, size_t at) { return at <= buf.size() && buf.size() - at >= kHeadSize; }

}  // namespace

// ---- Byte readers ----------------------------------------------------------------------------

uint32_t readUnInt(char a, char b, char c, char d) {
    const char bytes[4] = {a, b, c, d};
    return kv::getU32BE(bytes);
}

int32_t readSignInt(char a, char b, char c, char d) {
    const char bytes[4] = {a, b, c, d};
    return kv::getS32BE(bytes);
}

float readaFloat(char a, char b, char c, char d) {
    const char bytes[4] = {a, b, c, d};
    return kv::getF32BE(bytes);
}

int32_t readanInt(char a) { return static_cast<int32_t>(readUnInt(a, 0, 0, 0)); }

// ---- Block walk ------------------------------------------------------------------------------

bool findVyxBlock(std::span<const char> buf, uint32_t tag, VyxBlock& out) {
    for (size_t at = kHeaderSize; at < buf.size();) {
        if (!headFits(buf, at)) {
            // A cut head: only its tag, when all four bytes of it are there, can be the one sought.
            if (buf.size() - at < 4 || kv::getU32BE(buf.data() + at) != tag) return false;
            out = VyxBlock{at, tag, 0, 0};
            return true;
        }
        const VyxBlock block = headAt(buf, at);
        if (block.tag == tag) {
            out = block;
            return true;
        }
        at += stepOf(block);  // at most 2^32 past an offset below the size: no wrap
    }
    return false;
}

bool vyxRecordsFit(std::span<const char> buf, const VyxBlock& block, size_t recordSize) {
    if (!headFits(buf, block.at)) return false;
    const size_t room = buf.size() - block.at - kHeadSize;
    return block.count <= room / recordSize;
}

// ---- OBJ text --------------------------------------------------------------------------------

namespace {

// Copies a short text to p and returns its end.
char* copyText(char* p, std::string_view s) { return std::copy(s.begin(), s.end(), p); }

// The text of one component of a colour entry: the byte moved to the top of a 32-bit value,
// printed as lower-case hexadecimal of at least two digits (so 0x20 gives 20000000, 0x0F gives
// f000000, 0 gives 00). Made once for all 256 values.
struct ComponentTexts {
    char text[256][8];
    uint8_t length[256];
    ComponentTexts() {
        for (int c = 0; c < 256; ++c) {
            const auto v = static_cast<uint32_t>(readanInt(static_cast<char>(c)));
            char* p = text[c];
            if (v < 0x10) *p++ = '0';
            p = std::to_chars(p, text[c] + 8, v, 16).ptr;
            length[c] = static_cast<uint8_t>(p - text[c]);
        }
    }
};

char* putComponent(char* p, char c) {
    static const ComponentTexts texts;
    const auto i = static_cast<unsigned char>(c);
    std::memcpy(p, texts.text[i], 8);
    return p + texts.length[i];
}

// Writes the text of items 0 to count - 1 in order, in batches of kBatchItems: format(out, from,
// to) writes the items from..to - 1 into out (a buffer of its own, sized by format) and returns
// the bytes written; the batch that ends at count also writes what follows the last item. Every
// core formats batches, taking the next one not taken yet, and writes each in its turn: while one
// thread's batch goes to the file, the others format theirs.
constexpr uint64_t kBatchItems = 1u << 15;

template <typename Format>
void putInBatches(kv::BlockWriter& w, uint64_t count, Format format) {
    const uint64_t batches = std::max<uint64_t>(1, (count + kBatchItems - 1) / kBatchItems);
    const size_t threads = static_cast<size_t>(std::min<uint64_t>(batches, kv::workerThreads()));
    std::vector<std::vector<char>> text(threads);
    kv::Turns turns;
    kv::runShared(static_cast<size_t>(batches), threads, [&](size_t b, size_t t) {
        const uint64_t from = b * kBatchItems;
        size_t used = 0;
        try {
            used = format(text[t], from, std::min(count, from + kBatchItems));
        } catch (...) {
            turns.stop();  // the batches after it are not written
            throw;
        }
        if (!turns.wait(b)) return;
        w.put({text[t].data(), used});
        turns.next();
    });
}

// The RGB block for n colour entries (blue, green, red, unused) starting at entries: 32 to a line.
void putRGBBlock(kv::BlockWriter& w, const char* entries, uint32_t n) {
    w.put("# The following RGB block contains Vandor Vertex Color (Chromelay) output as 3 hexadecimal values "
          "per vertex. The vertex color format is RRGGBB with up to 32 entries per RGB line.\n");
    putInBatches(w, n, [entries](std::vector<char>& text, uint64_t from, uint64_t to) {
        text.resize((to - from) * 40);  // the last component's copy writes 8 bytes
        char* p = text.data();
        for (uint64_t i = from; i < to; ++i) {
            const char* e = entries + 4 * i;
            if (i % 32 == 0) p = copyText(p, "#RGB ");
            *p++ = ' ';
            p = putComponent(p, e[2]);
            p = putComponent(p, e[1]);
            p = putComponent(p, e[0]);
            if (i % 32 == 31) *p++ = '\n';
        }
        return static_cast<size_t>(p - text.data());
    });
    w.put("\n# End of RGB block\n");
}

// The 1-based index of a face corner: the s32 value plus one, wrapping as 32-bit arithmetic.
int32_t oneBased(const char* p) { return static_cast<int32_t>(kv::getU32BE(p) + 1u); }

// Where a conversion finds its blocks: the vertex block at 32, the colour block after it and the
// face block after that, found by the lengths alone. The face count is read where the second
// block's length points, without a look at the tag (so an end block there gives 0).
struct MeshLayout {
    VyxBlock vertices, second, third;
    int32_t faceCount = 0;
    size_t faceEnd = 0;  // the end of the face block's records, when third is a face block
};

// Reads the layout and checks that everything the output will read lies in the file, before
// anything is written. False, with the conversion's result (kVyxUnreadable, or the first block's tag
// when it is not a vertex block: 0 for an end block), when nothing is to be written.
bool readLayout(std::span<const char> buf, MeshLayout& m, float& result) {
    result = kVyxUnreadable;
    if (!headFits(buf, kHeaderSize)) return false;
    m.vertices = headAt(buf, kHeaderSize);
    result = static_cast<float>(m.vertices.tag);
    if (m.vertices.tag != kVyxVertexTag) return false;
    result = kVyxUnreadable;
    if (!vyxRecordsFit(buf, m.vertices, 12)) return false;
    const size_t secondAt = m.vertices.at + stepOf(m.vertices);
    if (!headFits(buf, secondAt)) return false;
    m.second = headAt(buf, secondAt);
    const size_t countAt = secondAt + m.second.length;
    if (!headFits(buf, countAt)) return false;
    m.faceCount = static_cast<int32_t>(headAt(buf, countAt).count);
    if (m.second.tag != kVyxColourTag) return true;
    if (!vyxRecordsFit(buf, m.second, 4)) return false;
    const size_t thirdAt = secondAt + stepOf(m.second);
    if (!headFits(buf, thirdAt)) return false;
    m.third = headAt(buf, thirdAt);
    // A face block shorter than its head holds no records (its end is not before them).
    m.faceEnd = thirdAt + std::max(stepOf(m.third), kHeadSize);
    if (m.third.tag == kVyxFaceTag && m.faceEnd > buf.size()) return false;
    return true;
}

void putHeaderAndVertices(kv::BlockWriter& w, const char* d, const MeshLayout& m) {
    char* p = w.room(128);
    p = copyText(p, "# File exported by Vandor plugin\n#Vertex count ");
    p = kv::putUint(p, m.vertices.count);
    p = copyText(p, "\n#Face count ");
    p = kv::putInt(p, m.faceCount);
    *p++ = '\n';
    w.advance(p);
    const char* records = d + m.vertices.at + kHeadSize;
    putInBatches(w, m.vertices.count, [records](std::vector<char>& text, uint64_t from, uint64_t to) {
        text.resize((to - from) * 64);
        char* out = text.data();
        for (const char* v = records + 12 * from; v != records + 12 * to; v += 12) {
            *out++ = 'v';
            for (int c = 0; c < 3; ++c) {
                *out++ = ' ';
                out = kv::putG(out, kv::getF32BE(v + 4 * c));
            }
            *out++ = '\n';
        }
        return static_cast<size_t>(out - text.data());
    });
}

// One face line: three 1-based corners each followed by a blank, then the fourth when positive.
char* putFace(char* p, const char* f) {
    *p++ = 'f';
    *p++ = ' ';
    for (int c = 0; c < 3; ++c) {
        p = kv::putInt(p, oneBased(f + 4 * c));
        *p++ = ' ';
    }
    const int32_t fourth = oneBased(f + 12);
    if (fourth > 0) p = kv::putInt(p, fourth);
    *p++ = '\n';
    return p;
}

// Faces in the runs of faceID: a run starts only when a whole face record is left before the
// end of the block, and stops there. Each batch of faces carries the labels of the runs that
// start in it.
void putFaceRuns(kv::BlockWriter& w, const char* d, const MeshLayout& m) {
    const char* records = d + m.third.at + kHeadSize;
    const uint64_t faces = (m.faceEnd - (m.third.at + kHeadSize)) / 16;  // whole records (faceEnd is past the head)
    std::vector<uint64_t> start;  // the face each written run starts at
    for (uint64_t f = 0; start.size() < faceID.size() && f < faces; f = std::min(faces, f + faceID[start.size() - 1]))
        start.push_back(f);
    const uint64_t written = start.empty() ? 0 : std::min(faces, start.back() + faceID[start.size() - 1]);
    putInBatches(w, written, [&](std::vector<char>& text, uint64_t from, uint64_t to) {
        size_t run = size_t(std::lower_bound(start.begin(), start.end(), from) - start.begin());
        const size_t lastRun = to == written ? start.size() : size_t(std::lower_bound(start.begin(), start.end(), to) - start.begin());
        text.resize((to - from) * 64 + (lastRun - run) * 32);
        char* p = text.data();
        auto labels = [&](uint64_t f) {  // the runs that start at face f
            for (; run < lastRun && start[run] == f; ++run) {
                p = copyText(p, "#FaceID ");
                p = kv::putUint(p, static_cast<uint32_t>(run + 1));  // runs are no more than faces
                *p++ = '\n';
            }
        };
        for (uint64_t f = from; f < to; ++f) {
            labels(f);
            p = putFace(p, records + 16 * f);
        }
        labels(to);  // runs starting after the last face: only the last batch has them
        return static_cast<size_t>(p - text.data());
    });
}

// Writes the colour block and the face runs after the vertex lines, as far as the blocks are in
// their places. False, with the tag found out of place, when a block is not.
bool putColoursAndFaces(kv::BlockWriter& w, const char* d, const MeshLayout& m, uint32_t& misplaced) {
    misplaced = m.second.tag;
    if (m.second.tag != kVyxColourTag) return false;
    putRGBBlock(w, d + m.second.at + kHeadSize, m.second.count);
    misplaced = m.third.tag;
    if (m.third.tag != kVyxFaceTag) return false;
    putFaceRuns(w, d, m);
    return true;
}

}  // namespace

float writeOBJfromVyx(const char* vyxPath, char* objOutPath) {
    if (faceID.empty()) return kNoFaceRuns;
    kv::MappedFile file;  // a mesh of millions of vertices: mapped, not copied
    if (!file.open(vyxPath)) return kVyxUnreadable;
    const std::span<const char> buf(file.data(), file.size());
    MeshLayout m;
    if (float r = 0; !readLayout(buf, m, r)) return r;
    kv::BlockWriter w;
    if (!w.open(objOutPath)) return -2;
    putHeaderAndVertices(w, buf.data(), m);
    // A block out of place ends the output early; its tag is the result and the runs are kept.
    uint32_t misplaced = 0;
    const bool whole = putColoursAndFaces(w, buf.data(), m, misplaced);
    file.close();  // the output may replace the input itself
    if (!w.close()) return -2;  // a cut new file is removed, an old one left whole
    if (!whole) return static_cast<float>(misplaced);
    faceID.clear();
    return 0;
}

int ReadVertColorVyx(const char* vyxPath, char* rgbPath) {
    std::vector<char> buf;
    if (!kv::readFile(vyxPath, buf)) return kVyxUnreadable;
    VyxBlock colours;
    if (!findVyxBlock(buf, kVyxColourTag, colours)) return kVyxUnreadable;
    if (!vyxRecordsFit(buf, colours, 4)) return kVyxUnreadable;
    kv::BlockWriter w;
    if (!w.open(rgbPath)) return -2;
    putRGBBlock(w, buf.data() + colours.at + kHeadSize, colours.count);
    return w.close() ? 0 : -2;
}

float GetFaceIDsVyx(const char* vyxPath, double level) {
    const auto k = static_cast<uint32_t>(kv::toInt(std::pow(4.0, level - 1.0)));
    faceID.clear();
    std::vector<char> buf;
    if (!kv::readFile(vyxPath, buf)) return kVyxUnreadable;
    VyxBlock faces;
    if (!findVyxBlock(buf, kVyxFaceTag, faces)) return kVyxUnreadable;
    if (!vyxRecordsFit(buf, faces, 16)) return kVyxUnreadable;
    faceID.reserve(faces.count);
    const char* f = buf.data() + faces.at + kHeadSize;
    for (uint32_t i = 0; i < faces.count; ++i, f += 16)
        faceID.push_back(kv::getS32BE(f + 12) <= -1 ? 3u * k : 4u * k);
    return kv::fromUint(static_cast<uint32_t>(faceID.size()));
}

// ---- Vertex swap -----------------------------------------------------------------------------

int swapVerticesVyx(const char* vyxPath, const char* vertexPath) {
    std::vector<char> buf;
    if (!kv::readFile(vyxPath, buf)) return kVyxUnreadable;
    VyxBlock vertices;
    if (!findVyxBlock(buf, kVyxVertexTag, vertices)) return kNoVertexBlock;
    if (!vyxRecordsFit(buf, vertices, 12)) return kVyxUnreadable;
    // The vertex file is opened for update, as the host's own tools do; a read-only one is refused.
    std::vector<char> vt;
    if (!kv::canOpenForWriting(vertexPath, true) || !kv::readFile(vertexPath, vt)) return kVertexFileUnreadable;
    // Its head must match the block's length and count, and it must hold the records it declares.
    const size_t bytes = size_t(12) * vertices.count;
    if (vt.size() < kHeadSize || kv::getU32BE(vt.data() + 4) != vertices.length ||
        kv::getU32BE(vt.data() + 8) != vertices.count || vt.size() - kHeadSize < bytes)
        return kVertexFileMismatch;
    if (!kv::canOpenForWriting(vyxPath, false)) return kVyxNotWritable;
    std::memcpy(buf.data() + vertices.at + kHeadSize, vt.data() + kHeadSize, bytes);
    // The new content replaces the file in one step: a crash leaves the old file or the new one.
    return kv::storeFile(vyxPath, buf.data(), buf.size()) ? 0 : kVyxNotWritable;
}

// ---- UV tiles --------------------------------------------------------------------------------

namespace {

// The tiles of the faces' first corners, with the last face's tile. The UV block's records
// must have been checked against the buffer.
std::set<UV_tile> tilesOf(const char* records, uint32_t count, UV_tile* last) {
    std::set<UV_tile> tiles;
    for (uint32_t i = 0; i < count; ++i) {
        const char* r = records + size_t(32) * i;
        UV_tile tile = tileOfUV(kv::getF32BE(r), kv::getF32BE(r + 4));
        if (last && i + 1 == count) *last = tile;
        tiles.insert(std::move(tile));
    }
    return tiles;
}

// One coordinate reduced to a tile: its integer part (after 1 is subtracted from a negative
// value) and its fraction, moved into [0, 1) when negative; negative zero stays as it is.
float reduce(float c, int32_t& index) {
    if (c < 0) c -= 1.0f;
    // modf's parts, computed here: C libraries differ in the sign they give a zero fraction.
    const float whole = std::trunc(c);
    const float fraction = std::isinf(c) ? std::copysign(0.0f, c) : std::copysign(c - whole, c);
    index = kv::toInt(whole);
    return fraction < 0 ? fraction + 1.0f : fraction;
}

}  // namespace

UV_tile tileOfUV(float u, float v) {
    UV_tile tile;
    if (u < 0) u -= 1.0f;
    if (v < 0) v -= 1.0f;
    tile.u = kv::toInt(u);
    tile.v = kv::toInt(v);
    tile.name = kv::decimal(tile.u) + kv::decimal(tile.v);
    return tile;
}

float countUVTiles(const char* vyxPath, char* lastName) {
    std::vector<char> buf;
    if (!kv::readFile(vyxPath, buf)) return kTilesUnreadable;
    VyxBlock uvs;
    if (!findVyxBlock(buf, kVyxUVTag, uvs)) return 0;
    if (!vyxRecordsFit(buf, uvs, 32)) return kTilesUnreadable;
    UV_tile last;
    const std::set<UV_tile> tiles = tilesOf(buf.data() + uvs.at + kHeadSize, uvs.count, &last);
    if (uvs.count > 0 && lastName) std::strcpy(lastName, last.name.c_str());
    return kv::fromUint(static_cast<uint32_t>(tiles.size()));
}

float splitUVTiles(const char* vyxPath) {
    UVTileStr.clear();
    std::vector<char> buf;
    if (!kv::readFile(vyxPath, buf)) return kVyxUnreadable;
    VyxBlock uvs;
    if (!findVyxBlock(buf, kVyxUVTag, uvs)) return 0;
    if (!vyxRecordsFit(buf, uvs, 32)) return kVyxUnreadable;
    const char* records = buf.data() + uvs.at + kHeadSize;
    const std::set<UV_tile> tiles = tilesOf(records, uvs.count, nullptr);
    // Each tile file: the source up to the UV block's records, the reduced records, an end block.
    const size_t prefix = uvs.at + kHeadSize;
    const size_t recordBytes = size_t(32) * uvs.count;
    std::vector<char> out(prefix + recordBytes + kHeadSize, 0);
    std::memcpy(out.data(), buf.data(), prefix);
    // Every corner reduced once: its tile and its fractions.
    struct Corner {
        int32_t u, v;
        float fu, fv;
    };
    std::vector<Corner> corners(size_t(4) * uvs.count);
    for (size_t c = 0; c < corners.size(); ++c) {
        Corner& k = corners[c];
        k.fu = reduce(kv::getF32BE(records + 8 * c), k.u);
        k.fv = reduce(kv::getF32BE(records + 8 * c + 4), k.v);
    }
    const std::string base = FileNameExtract(vyxPath, kPathNoExtension);
    int32_t i = 0;
    for (const UV_tile& tile : tiles) {
        const std::string name = base + kv::decimal(i) + ".Vyx";
        char* o = out.data() + prefix;
        for (const Corner& k : corners) {
            const bool inside = k.u == tile.u && k.v == tile.v;  // else the corner lies outside this tile
            kv::putF32BE(o, inside ? k.fu : -1.0f);
            kv::putF32BE(o + 4, inside ? k.fv : -1.0f);
            o += 8;
        }
        if (!kv::storeFile(name.c_str(), out.data(), out.size())) return kv::fromInt(kTileFileFailed + i);
        UVTileStr.push_back(name);
        ++i;
    }
    return kv::fromInt(i);
}

void copyUVTileName(int32_t index, char* out) {
    if (!out || index < 0 || static_cast<size_t>(index) >= UVTileStr.size()) return;
    std::strcpy(out, UVTileStr[static_cast<size_t>(index)].c_str());
}

void clearUVTileNames() { UVTileStr.clear(); }
