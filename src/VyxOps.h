// Vyx mesh files: the big-endian byte readers, the block walk, conversion to OBJ text with face
// runs and vertex colours, the colour block and face runs on their own, the vertex swap and the
// UV-tile split.
#pragma once

#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "util/vyxtags.h"

// Module state (exported data symbols).
extern "C" {
extern std::vector<uint32_t> faceID;        // run lengths: faces of the subdivided mesh per base face
extern std::vector<std::string> UVTileStr;  // file names written by the last UV-tile split, in tile order
}


// The Vyx operations' failure codes (beside -2, an output file not written).
inline constexpr int kVyxUnreadable = -1760;      // the Vyx file cannot be read, or its blocks do not fit in it
inline constexpr int kNoFaceRuns = -18;           // the conversion: faceID is empty
inline constexpr int kNoVertexBlock = -18;        // the vertex swap: the Vyx file has no vertex block
inline constexpr int kVertexFileUnreadable = -201;  // the vertex file cannot be opened for update
inline constexpr int kVertexFileMismatch = -301;  // its length or count differs from the vertex block's
inline constexpr int kVyxNotWritable = -401;      // the Vyx file cannot be opened for update, or rewritten
inline constexpr int kTilesUnreadable = -17;      // the tile count: the Vyx file cannot be read
inline constexpr int kTileFileFailed = 1501;      // the tile split: + i when the file of tile i cannot be written

// Big-endian readers; each argument contributes its low 8 bits, a first.
uint32_t readUnInt(char a, char b, char c, char d);
int32_t readSignInt(char a, char b, char c, char d);
float readaFloat(char a, char b, char c, char d);  // the four bytes are the float's bit pattern
int32_t readanInt(char a);                          // a moved into the top byte: a * 2^24

// One block head found by a walk.
struct VyxBlock {
    size_t at = 0;  // offset of the tag
    uint32_t tag = 0;
    uint32_t length = 0;
    uint32_t count = 0;
};

// Walks the block chain from offset 32 to the first block tagged tag. A zero length steps over
// 16 bytes (the head). The walk runs while its offset is below the buffer's size: a buffer no
// longer than the file header, an unwanted head cut by the end or a length stepping past the
// end all end it without the block (false). A wanted tag whose head is cut is found; its
// records then do not fit.
bool findVyxBlock(std::span<const char> buf, uint32_t tag, VyxBlock& out);

// True when the block's head and its count records of recordSize bytes lie within the buffer.
bool vyxRecordsFit(std::span<const char> buf, const VyxBlock& block, size_t recordSize);

// Writes the OBJ text of a Vyx mesh (vertices, RGB block, faces in the runs of faceID).
// 0; -18 faceID empty, -1760 Vyx file unreadable or malformed, -2 OBJ file not written; a block
// of the wrong kind returns its tag (positive).
float writeOBJfromVyx(const char* vyxPath, char* objOutPath);

// Writes the RGB block of the first colour block of vyxPath to rgbPath. 0, -1760, -2.
int ReadVertColorVyx(const char* vyxPath, char* rgbPath);

// Fills faceID from the first face block: 3·k per triangle, 4·k per quad, k = 4^(level-1)
// truncated. The number of runs; -1760 (faceID then empty).
float GetFaceIDsVyx(const char* vyxPath, double level);

// Puts the positions of the vertex file into the first vertex block of vyxPath; every other byte
// stays. 0; -1760, -201, -301, -401, -18. The Vyx file is unchanged on every failure.
int swapVerticesVyx(const char* vyxPath, const char* vertexPath);

// A UV tile, ordered by its name text only: tiles with equal names are the same tile.
struct UV_tile {
    std::string name;  // u then v in decimal, no separator
    int32_t u = 0;
    int32_t v = 0;
};
inline bool operator<(const UV_tile& a, const UV_tile& b) { return a.name < b.name; }

// The tile of a point: a negative coordinate has 1 subtracted, then both are truncated.
UV_tile tileOfUV(float u, float v);

// The tiles used by the faces of vyxPath (by each face's first corner); the name of the last
// face's tile goes to lastName when there are faces. The number of tiles; -17 unreadable.
float countUVTiles(const char* vyxPath, char* lastName);

// Writes one Vyx file per tile, named from the path without extension, the tile's position and
// ".Vyx", and lists their names in UVTileStr. The number written; -1760; 1501 + i when file i
// cannot be written.
float splitUVTiles(const char* vyxPath);

// Copies entry index of UVTileStr to out; nothing when there is no such entry.
void copyUVTileName(int32_t index, char* out);
void clearUVTileNames();
