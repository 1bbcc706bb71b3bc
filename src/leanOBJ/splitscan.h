// The split scan: reads a posed combined mesh once, on several threads, for its vertex lines (or
// their positions) and the vertex index set of each part, found by the file's "g" lines or by
// the polygroup list's face ranges. A large input is cut at line ends into chunks that the
// threads take in turn; each chunk is scanned on its own and the chunks are joined in file
// order, so that the sets are those a single pass gives.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "leanOBJ/indexset.h"
#include "leanOBJ/leanOBJ.h"
#include "platform/mapfile.h"
#include "util/text.h"

namespace obj {

// A run of consecutive face lines of a chunk read by the list (on several threads) and the
// indices they use. A block is closed once it holds the scan's blockFaces faces (at least) and its set is small
// beside them (a word per four faces at most), so that the blocks of faces spread over a
// large vertex range take little more room than the sets of the whole chunk.
struct FaceBlock {
    const char* start = nullptr;  // its first face line
    int64_t faces = 0;
    IndexSet set;

    bool full(int64_t blockFaces) const { return faces >= blockFaces && (set.sparse || int64_t(set.words.size()) * 4 <= faces); }
};

// What one chunk's scan finds.
struct ChunkScan {
    const char* begin = nullptr;
    const char* end = nullptr;
    std::vector<uint64_t> vertexLines;  // each "v " line: offset << 16 | length (0xFFFF: longer)
    std::vector<vertexS> positions;     // for vertex files, instead: each "v " line's position
    std::vector<IndexSet> sets;         // by group: the chunk's groups in order of first mention
    std::vector<std::string_view> names;  // by group: the names of sets
    IndexSet before;                    // by group: faces before the chunk's first group line
    int64_t lastGroup = -1;             // by group: the set open at the chunk's end, -1 none
    std::vector<FaceBlock> blocks;      // by list, on several threads: its faces in order
    uint64_t budget = 0;                // bytes its bit sets may take
};

// A whole split's scan: the mapped file, its chunks and, once joined, the parts' sets.
struct SplitScan {
    ScanOptions options;
    kv::MappedFile file;
    std::vector<ChunkScan> chunks;
    std::vector<uint64_t> vertexEnds;  // per chunk: the vertex lines up to its end
    std::vector<IndexSet> sets;        // per part, the 1-based OBJ indices its faces use
    uint64_t indexLimit = 0;           // no valid index can exceed this (one vertex per line)
    uint64_t bitBudget = 0;            // bytes the bit sets may still take
    bool readPositions = false;        // vertex files: positions read while the lines are at hand

    uint64_t vertexCount() const { return vertexEnds.empty() ? 0 : vertexEnds.back(); }
    // The chunk of vertex k (0-based) and its place among the chunk's vertices.
    std::pair<size_t, size_t> locate(uint64_t k) const {
        const size_t c = static_cast<size_t>(std::upper_bound(vertexEnds.begin(), vertexEnds.end(), k) - vertexEnds.begin());
        return {c, static_cast<size_t>(k - (c ? vertexEnds[c - 1] : 0))};
    }
    size_t threads() const;            // the threads the options give
    vertexS position(uint64_t k) const {
        const auto [c, i] = locate(k);
        return chunks[c].positions[i];
    }
    std::string_view vertexLine(uint64_t k) const {
        const auto [c, i] = locate(k);
        const uint64_t entry = chunks[c].vertexLines[i];
        const char* p = file.data() + (entry >> 16);
        size_t n = entry & 0xFFFF;
        if (n == 0xFFFF) n = static_cast<size_t>(kv::lineEnd(p, file.data() + file.size()) - p);
        return {p, n};
    }
    // The set of part k, created when first needed.
    IndexSet& set(size_t k) {
        if (k >= sets.size()) sets.resize(k + 1);
        return sets[k];
    }
    // Adds an OBJ index to a set, unless it can name no vertex line.
    inline __attribute__((always_inline)) void add(IndexSet& set, int32_t index, uint64_t& budget) const {
        if (index >= 0 && uint64_t(index) <= indexLimit) set.insert(uint64_t(index), budget);
    }
};

// Maps the file at path and cuts it into chunks. False when it cannot be read.
bool loadForSplit(const char* path, SplitScan& s);

// Scans by the file's groups: s.sets[k] is the part numbered k in names, which maps each group
// name to its number in order of first mention (faces before the first "g" line go to part 0).
void scanByGroups(SplitScan& s, std::map<std::string, int32_t, std::less<>>& names);

// Scans by groupsList: s.sets[k] holds the indices of the faces of record k.
void scanByList(SplitScan& s);

}  // namespace obj
