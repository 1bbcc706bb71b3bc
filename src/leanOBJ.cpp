// OBJ processing. Every function reads its input whole (kv::readFile), walks it line by line
// with kv::LineScanner, classifies lines with obj::classify and reads face indices with
// obj::forEachFaceIndex; every output file is built in one buffer and written with one call.
#include "leanOBJ.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <charconv>
#include <cstring>
#include <limits>

#include "FileOps.h"
#include "util/bytes.h"
#include "util/exportdata.h"
#include "platform/fileio.h"
#include "platform/mapfile.h"
#include "util/numtext.h"
#include "util/parallel.h"
#include "util/text.h"
#include "util/vyxtags.h"

// Module state (exported data symbols).
extern "C" {
KV_DATA std::vector<groupID> groupsList;
KV_DATA int32_t faceIndex = 0;
KV_DATA std::map<std::string, int32_t> groupFacesList;
KV_DATA std::set<std::string> nameSet;
}

namespace {

constexpr const char* kPlaceholder = "#start of vector";

// A set of vertex indices. Normally a bit set over the range the set has seen so far: the
// parts of a combined mesh use contiguous index ranges, so each set stays about one bit per
// vertex of its part. All sets of one split draw their bit sets from a shared byte budget;
// a set whose range would overdraw it (faces that jump across the whole mesh) turns into a
// sorted list instead, so that memory stays bounded by the input whatever it holds.
// finish() must be called before iteration, which is ascending.
struct IndexSet {
    uint64_t lo = 0;     // index of bit 0 of words[0], a multiple of 64
    uint64_t nbits = 0;  // words.size() * 64
    std::vector<uint64_t> words;
    bool sparse = false;
    std::vector<uint64_t> list;  // the sparse form: indices, sorted and unique up to `unique`
    size_t unique = 0;

    inline __attribute__((always_inline)) void insert(uint64_t i, uint64_t& budget) {
        uint64_t off = i - lo;  // wraps to a huge value below lo
        if (off >= nbits) [[unlikely]] {
            if (sparse || !grow(i, budget)) {
                listInsert(i);
                return;
            }
            off = i - lo;
        }
        words[static_cast<size_t>(off >> 6)] |= uint64_t(1) << (off & 63);
    }

    // Widens the bit set to cover i; false (and the set becomes a list) when over budget.
    bool grow(uint64_t i, uint64_t& budget) {
        uint64_t newLo = lo, newWords;
        if (words.empty()) {
            newLo = i & ~uint64_t(63);
            newWords = 1;
        } else if (i < lo) {
            // Grow downwards at least by the current size, so that descending inserts stay linear.
            newLo = std::min<uint64_t>(i & ~uint64_t(63), lo > nbits ? lo - nbits : 0);
            newWords = words.size() + (lo - newLo) / 64;
        } else {
            newWords = (i - lo) / 64 + 1;
        }
        const uint64_t cost = (newWords - words.size()) * 8;
        if (cost > budget) {
            toList();
            return false;
        }
        budget -= cost;
        if (newLo < lo) words.insert(words.begin(), static_cast<size_t>((lo - newLo) / 64), 0);
        else words.resize(static_cast<size_t>(newWords));
        lo = newLo;
        nbits = uint64_t(words.size()) * 64;
        return true;
    }

    void toList() {
        forEachBit([&](uint64_t i) { list.push_back(i); });
        unique = list.size();
        words = {};
        nbits = 0;
        lo = 0;
        sparse = true;
    }

    void listInsert(uint64_t i) {
        list.push_back(i);
        if (list.size() >= 2 * unique + 4096) compact();  // duplicates never more than double it
    }

    void compact() {
        std::sort(list.begin(), list.end());
        list.erase(std::unique(list.begin(), list.end()), list.end());
        unique = list.size();
    }

    void finish() {
        if (sparse) compact();
    }

    template <typename Fn>
    void forEachBit(Fn&& fn) const {
        for (size_t w = 0; w < words.size(); ++w)
            for (uint64_t bits = words[w]; bits; bits &= bits - 1)
                fn(lo + uint64_t(w) * 64 + uint64_t(std::countr_zero(bits)));
    }

    // Calls fn(index) for every index in [from, to], ascending.
    template <typename Fn>
    void forEach(uint64_t from, uint64_t to, Fn&& fn) const {
        if (sparse) {
            for (uint64_t i : list)
                if (i >= from && i <= to) fn(i);
            return;
        }
        for (size_t w = from > lo ? static_cast<size_t>((from - lo) / 64) : 0; w < words.size(); ++w)
            for (uint64_t bits = words[w]; bits; bits &= bits - 1) {
                const uint64_t i = lo + uint64_t(w) * 64 + uint64_t(std::countr_zero(bits));
                if (i > to) return;
                if (i >= from) fn(i);
            }
    }

    size_t count(uint64_t from, uint64_t to) const {
        size_t n = 0;
        forEach(from, to, [&](uint64_t) { ++n; });
        return n;
    }

    // Takes in the indices of other (which is left empty): words at a time where both are bit
    // sets, else one by one.
    // Widens this bit set to cover the range of other's words; false when this is (or becomes)
    // a list, or other holds no words.
    bool coversRange(const IndexSet& other, uint64_t& budget) {
        if (sparse || other.words.empty()) return false;
        if (other.lo < lo && !grow(other.lo, budget)) return false;
        const uint64_t top = other.lo + other.nbits - 1;
        return top < lo + nbits || grow(top, budget);
    }

    void absorb(IndexSet& other, uint64_t& budget) {
        if (words.empty() && !sparse) {
            std::swap(*this, other);
            return;
        }
        if (!other.sparse && coversRange(other, budget)) {
            const size_t at = static_cast<size_t>((other.lo - lo) / 64);
            for (size_t w = 0; w < other.words.size(); ++w) words[at + w] |= other.words[w];
        } else if (other.sparse) {
            for (uint64_t i : other.list) insert(i, budget);
        } else {
            other.forEachBit([&](uint64_t i) { insert(i, budget); });
        }
        other = IndexSet{};
    }
};

// The end of the line that starts at p (its line feed, or the end of the buffer).
const char* lineEnd(const char* p, const char* end) {
    const void* nl = std::memchr(p, '\n', static_cast<size_t>(end - p));
    return nl ? static_cast<const char*>(nl) : end;
}

// ---- The split scan: the vertex lines of a combined mesh and the vertex sets of its parts ----
//
// A large input is cut at line ends into one chunk per thread. Each thread scans its chunk on
// its own (its vertex lines, its faces' indices by group or by list record), and the chunks are
// joined in file order, so that the result is the one a single pass gives.

unsigned gScanThreads = 0;           // 0: as many as kv::workerThreads gives
size_t gMinChunk = size_t(8) << 20;  // no chunk smaller than this
int64_t gBlockFaces = 4096;          // no face block smaller than this (see FaceBlock)

size_t scanThreads() { return gScanThreads ? gScanThreads : kv::workerThreads(); }

// A run of consecutive face lines of a chunk read by the list (on several threads) and the
// indices they use. A block is closed once it holds gBlockFaces faces and its set is small
// beside them (a word per four faces at most), so that the blocks of faces spread over a
// large vertex range take little more room than the sets of the whole chunk.
struct FaceBlock {
    const char* start = nullptr;  // its first face line
    int64_t faces = 0;
    IndexSet set;

    bool full() const { return faces >= gBlockFaces && (set.sparse || int64_t(set.words.size()) * 4 <= faces); }
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

struct SplitScan {
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
    vertexS position(uint64_t k) const {
        const auto [c, i] = locate(k);
        return chunks[c].positions[i];
    }
    std::string_view vertexLine(uint64_t k) const {
        const auto [c, i] = locate(k);
        const uint64_t entry = chunks[c].vertexLines[i];
        const char* p = file.data() + (entry >> 16);
        size_t n = entry & 0xFFFF;
        if (n == 0xFFFF) n = static_cast<size_t>(lineEnd(p, file.data() + file.size()) - p);
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

// Cuts the file at line ends into chunks of at least gMinChunk bytes: with several threads,
// kChunksPerThread for each, so that a thread that finds its chunks slower to scan (or its core
// busier) than the others' takes fewer of them.
constexpr size_t kChunksPerThread = 8;
bool loadForSplit(const char* path, SplitScan& s) {
    if (!s.file.open(path)) return false;
    s.indexLimit = s.file.size() / 2 + 1;
    s.bitBudget = s.file.size() / 4 + (uint64_t(1) << 20);
    const char* data = s.file.data();
    const char* end = data + s.file.size();
    const size_t threads = scanThreads(), most = threads > 1 ? threads * kChunksPerThread : 1;
    const size_t n = std::max<size_t>(1, std::min<size_t>(most, s.file.size() / std::max<size_t>(gMinChunk, 1)));
    s.chunks.resize(n);
    const char* at = data;
    for (size_t c = 0; c < n; ++c) {
        s.chunks[c].begin = at;
        const char* cut = c + 1 == n ? end : std::max(at, data + s.file.size() / n * (c + 1));
        at = cut < end ? std::min(end, lineEnd(cut, end) + 1) : end;
        s.chunks[c].end = at;
        s.chunks[c].budget = s.bitBudget / n;
    }
    return true;
}

// Runs scan(chunk) for every chunk on the scan threads (see kv::runShared).
template <typename Fn>
void forEachChunk(SplitScan& s, Fn&& scan) {
    kv::runShared(s.chunks.size(), scanThreads(), [&](size_t c, size_t) { scan(s.chunks[c]); });
    s.vertexEnds.clear();
    for (const ChunkScan& c : s.chunks) s.vertexEnds.push_back(s.vertexCount() + c.vertexLines.size() + c.positions.size());
}

// The lines of a chunk, with room set aside for as many vertices as a mesh of that size usually
// holds (a vertex line about every 48 bytes), so that the vertex list seldom has to be moved.
kv::LineScanner chunkLines(const SplitScan& s, ChunkScan& c) {
    const size_t bytes = static_cast<size_t>(c.end - c.begin);
    s.readPositions ? c.positions.reserve(bytes / 48) : c.vertexLines.reserve(bytes / 48);
    return kv::LineScanner(c.begin, bytes);
}

void addVertexLine(const SplitScan& s, ChunkScan& c, std::string_view line) {
    if (s.readPositions) return c.positions.push_back(obj::parseVertex(line, s.file.data() + s.file.size()));
    const uint64_t offset = static_cast<uint64_t>(line.data() - s.file.data());
    c.vertexLines.push_back(offset << 16 | std::min<uint64_t>(line.size(), 0xFFFF));
}

// Group-driven scan of one chunk: the "g" lines name the parts; a name met again continues its
// part.
void scanChunkByGroups(const SplitScan& s, ChunkScan& c) {
    kv::LineScanner lines = chunkLines(s, c);
    std::map<std::string_view, int64_t> local;
    std::string scratch;
    std::string_view line;
    IndexSet* set = &c.before;
    while (lines.next(line)) {
        switch (obj::classify(line)) {
            case obj::LineKind::Vertex:
                addVertexLine(s, c, line);
                break;
            case obj::LineKind::Group: {
                const auto [it, added] = local.emplace(obj::rest(line), int64_t(c.names.size()));
                if (added) {
                    c.names.push_back(it->first);
                    c.sets.emplace_back();
                }
                c.lastGroup = it->second;
                set = &c.sets[size_t(c.lastGroup)];
                break;
            }
            case obj::LineKind::Face:
                obj::forEachFaceIndex(line, scratch, [&](int32_t i) { s.add(*set, i, c.budget); });
                break;
            default: break;
        }
    }
}

// Joins the chunks' groups in file order: faces before a chunk's first group line belong to the
// group open at the end of the chunks before it (part 0 at the start of the file, which is also
// the first group named); names maps each name to its part number, in order of first mention.
void scanByGroups(SplitScan& s, std::map<std::string, int32_t, std::less<>>& names) {
    forEachChunk(s, [&](ChunkScan& c) { scanChunkByGroups(s, c); });
    int32_t current = 0;
    for (ChunkScan& c : s.chunks) {
        s.set(size_t(current)).absorb(c.before, s.bitBudget);
        for (size_t j = 0; j < c.names.size(); ++j) {
            auto it = names.find(c.names[j]);
            if (it == names.end()) it = names.emplace(std::string(c.names[j]), static_cast<int32_t>(names.size())).first;
            s.set(size_t(it->second)).absorb(c.sets[j], s.bitBudget);
            if (int64_t(j) == c.lastGroup) current = it->second;
        }
    }
    for (IndexSet& set : s.sets) set.finish();
}

// The list record a face belongs to, as the single pass finds it: starting from record 0 before
// the first face, a record is left at the face its end names (and never when that face has
// passed). Returns the record for face `face` given the record at face `from`.
size_t recordAt(size_t record, int64_t from, int64_t face) {
    const size_t last = groupsList.size() - 1;
    while (record != last) {
        const int64_t e = groupsList[record].endFace;
        if (e < from || e > face) break;
        ++record;
        from = e + 1;
    }
    return record;
}

// Reads a block's face lines again and adds each face's indices to the set of its record,
// starting from the record at the face before it; returns the record at its last face.
size_t assignBlock(SplitScan& s, const FaceBlock& b, const char* end, size_t record, int64_t face) {
    kv::LineScanner lines(b.start, static_cast<size_t>(end - b.start));
    std::string scratch;
    int64_t left = b.faces;
    for (std::string_view line; left > 0 && lines.next(line);) {
        if (obj::classify(line) != obj::LineKind::Face) continue;
        record = recordAt(record, face, face);
        obj::forEachFaceIndex(line, scratch, [&](int32_t i) { s.add(s.sets[record], i, s.bitBudget); });
        ++face, --left;
    }
    return record;
}

// List-driven scan: faces are assigned to the records of groupsList by their face numbers. A
// single chunk assigns each face as it is read. Several chunks are read at once, before any of
// them knows the number of its first face: each keeps its faces in blocks, and the join, which
// knows the numbers, gives a block whole to its record, or reads it again when a record ends
// inside it.
void scanByList(SplitScan& s) {
    s.sets.resize(groupsList.size());
    const bool direct = s.chunks.size() == 1;
    forEachChunk(s, [&](ChunkScan& c) {
        kv::LineScanner lines = chunkLines(s, c);
        std::string scratch;
        size_t record = 0;
        int64_t face = -1;
        FaceBlock* block = nullptr;
        for (std::string_view line; lines.next(line);) {
            const obj::LineKind kind = obj::classify(line);
            if (kind == obj::LineKind::Vertex) {
                addVertexLine(s, c, line);
            } else if (kind == obj::LineKind::Face) {
                IndexSet* set;
                if (direct) {
                    ++face;
                    record = recordAt(record, face, face);
                    set = &s.sets[record];
                } else {
                    if (!block || block->full()) block = &c.blocks.emplace_back(FaceBlock{line.data(), 0, {}});
                    ++block->faces;
                    set = &block->set;
                }
                obj::forEachFaceIndex(line, scratch, [&](int32_t i) { s.add(*set, i, c.budget); });
            }
        }
    });
    size_t record = 0;
    int64_t face = 0;  // the number of the block's first face
    for (ChunkScan& c : s.chunks)
        for (FaceBlock& b : c.blocks) {
            const size_t first = recordAt(record, face, face);
            const int64_t e = groupsList[first].endFace;
            if (first + 1 < groupsList.size() && e > face && e < face + b.faces) {
                record = assignBlock(s, b, c.end, record, face);
                b.set = IndexSet{};
            } else {
                s.sets[first].absorb(b.set, s.bitBudget);
                record = first;
            }
            face += b.faces;
        }
    for (IndexSet& set : s.sets) set.finish();
}

// Builds a vertex file (head + big-endian positions) for the given 1-based indices.
void buildVertexFile(const SplitScan& s, const IndexSet* set, std::vector<char>& out) {
    const uint64_t nV = s.vertexCount();
    const size_t n = set ? set->count(1, nV) : 0;
    out.resize(16 + 12 * n);
    char* p = out.data();
    kv::putU32BE(p, kVyxVertexTag);
    kv::putU32BE(p + 4, static_cast<uint32_t>(16 + 12 * n));
    kv::putU32BE(p + 8, static_cast<uint32_t>(n));
    kv::putU32BE(p + 12, 0);
    p += 16;
    if (set) set->forEach(1, nV, [&](uint64_t i) {
        const vertexS v = s.position(i - 1);
        kv::putF32BE(p, v.x);
        kv::putF32BE(p + 4, v.y);
        kv::putF32BE(p + 8, v.z);
        p += 12;
    });
}

// Appends the verbatim vertex lines for the 1-based indices in [from, nV]; index 0 is the
// placeholder line.
void buildVertexLines(const SplitScan& s, const IndexSet& set, uint64_t from, std::vector<char>& out) {
    const uint64_t nV = s.vertexCount();
    size_t bytes = 0;
    set.forEach(from, nV, [&](uint64_t i) {
        bytes += (i == 0 ? std::strlen(kPlaceholder) : s.vertexLine(static_cast<size_t>(i - 1)).size()) + 1;
    });
    out.resize(bytes);
    char* p = out.data();
    set.forEach(from, nV, [&](uint64_t i) {
        std::string_view line = i == 0 ? std::string_view(kPlaceholder) : s.vertexLine(static_cast<size_t>(i - 1));
        std::memcpy(p, line.data(), line.size());
        p[line.size()] = '\n';
        p += line.size() + 1;
    });
}

// Writes the outputs 0 to n - 1 of a split on up to `threads` threads. The files are named and
// created one after another in output order, each when the one before it exists, so that the
// names and the files are those a one-at-a-time run gives; the outputs are built and written
// at the same time. name(k, path) sets output k's path, or returns the split's result for a
// failure; build(k, out) fills its content. An output whose file cannot be created or
// written gives -3. The first output that fails ends the split with its result: the outputs
// before it are written, those after it removed again.
template <typename Name, typename Build>
double storeOutputs(size_t n, size_t threads, Name name, Build build) {
    threads = std::max<size_t>(1, std::min(n, threads));
    kv::Turns turns;                  // the files are named and created in these, in output order
    std::atomic<size_t> failed{n};    // the first output that failed
    std::vector<double> results(n);   // each written by its own output's task
    std::vector<std::string> paths(n);  // those of the files created
    std::vector<std::vector<char>> buffers(threads);
    auto fail = [&](size_t k, double result) {
        results[k] = result;
        for (size_t f = failed.load(); k < f && !failed.compare_exchange_weak(f, k);) {
        }
    };
    auto store = [&](size_t k, std::vector<char>& out) {
        kv::OutputFile file;
        {
            turns.wait(k);
            const struct EndTurn {
                kv::Turns& turns;
                ~EndTurn() { turns.next(); }
            } endTurn{turns};
            if (failed.load() < k) return;
            std::string path;
            double result = name(k, path);
            if (result == 0 && !kv::openOutput(path.c_str(), file)) result = -3;
            if (result != 0) return fail(k, result);
            paths[k] = std::move(path);
        }
        try {
            build(k, out);
        } catch (...) {
            kv::closeOutput(file, false);
            throw;
        }
        if (!kv::closeOutput(file, kv::writeOutput(file, out.data(), out.size()))) fail(k, -3);
    };
    auto removeAfterFailure = [&] {
        for (size_t k = failed.load() + 1; k < n; ++k)
            if (!paths[k].empty() && results[k] == 0) kv::removeFile(paths[k].c_str());
    };
    try {
        kv::runShared(n, threads, [&](size_t k, size_t w) {
            try {
                store(k, buffers[w]);
            } catch (...) {
                fail(k, -3);
                throw;
            }
        });
    } catch (...) {
        removeAfterFailure();
        throw;
    }
    removeAfterFailure();
    return failed.load() < n ? results[failed.load()] : 0;
}

// The files of the named parts, in the order given: part k built by build(k, out) and
// stored as the first free name of its name + ext in the output folder. -3 when a name cannot
// be used or a file cannot be written (see storeOutputs).
template <typename Build>
double storePartFiles(const char* outPath, const std::vector<std::pair<std::string_view, const IndexSet*>>& parts,
                      const char* ext, Build build) {
    return storeOutputs(
        parts.size(), scanThreads(),
        [&](size_t k, std::string& path) {
            std::string base;
            if (!obj::outputBase(outPath, parts[k].first, base)) return -3.0;
            path = obj::freeName(base, ext);
            return 0.0;
        },
        build);
}

// Copies name into a record's field, cut to 127 bytes, the rest zeroed.
void setName(groupID& g, std::string_view name) {
    std::memset(g.name, 0, sizeof g.name);
    std::memcpy(g.name, name.data(), std::min(name.size(), sizeof g.name - 1));
}

}  // namespace

// ---- Shared OBJ rules --------------------------------------------------------------------

namespace obj {

void setScanThreads(unsigned threads, size_t minChunk, int64_t blockFaces) {
    gScanThreads = std::min(threads, 16u);
    gMinChunk = minChunk;
    gBlockFaces = std::max<int64_t>(1, blockFaces);
}

namespace {

constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                             1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr double kInvPow10[] = {1e-0,  1e-1,  1e-2,  1e-3,  1e-4,  1e-5,  1e-6,  1e-7,  1e-8,  1e-9,  1e-10, 1e-11,
                                1e-12, 1e-13, 1e-14, 1e-15, 1e-16, 1e-17, 1e-18, 1e-19, 1e-20, 1e-21, 1e-22};
constexpr uint64_t kTens[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000};

// The plain decimal m * 10^-k (m below 2^53, k at most 22) as the correctly rounded float. The
// product m * 10^-k in double (10^-k rounded once) lies within two units of the last place of the
// exact value, so rounding it to float gives the correctly rounded float unless it lies that
// close to a midpoint between two floats. Near a midpoint, m and 10^k are exact doubles and one
// division gives the correctly rounded double, which rounds to the right float unless it is the
// midpoint itself: then false, for the general parser.
inline bool roundDecimal(uint64_t m, int k, bool negative, float& out) {
    const double exact = static_cast<double>(static_cast<int64_t>(m));  // the signed conversion is one instruction
    double d = exact * kInvPow10[k];
    if ((std::bit_cast<uint64_t>(d) & 0x1FFFFFFF) - (0x10000000 - 4) <= 8) {  // near a midpoint
        d = exact / kPow10[k];
        if ((std::bit_cast<uint64_t>(d) & 0x1FFFFFFF) == 0x10000000) return false;  // on it
    }
    const float v = static_cast<float>(d);
    out = negative ? -v : v;
    return true;
}

// The common plain decimal ("-12.345678"): its digits form an integer m below 2^53 and it has at
// most 22 fraction digits (see roundDecimal). Any other form (an exponent, more digits) returns
// null for the general parser. The digits before and after the point are read eight bytes at a
// time when there are at most seven of each, in one word when eight at most.
const char* parseFastFloat(const char* p, const char* end, const char* readable, float& out) {
    const bool negative = p < end && *p == '-';
    if (negative) ++p;
    uint64_t m = 0;
    int digits = 0, fraction = -1;
    const uint64_t w = kv::loadWordUpTo(p, end, readable);
    const int whole = kv::leadingDigits(w);
    const bool point = whole < 8 && p + whole < end && p[whole] == '.';
    const uint64_t w2 = point ? kv::loadWordUpTo(p + whole + 1, end, readable) : 0;
    const int part = kv::leadingDigits(w2);
    if (whole < 8 && part < 8) {
        digits = whole + part;
        fraction = point ? part : -1;
        p += whole + (point ? 1 + part : 0);
        const auto keep = [](uint64_t word, int n) { return n ? word & (~uint64_t(0) >> (64 - 8 * n)) : 0; };
        if (digits == 0) {
        } else if (digits <= 8) {  // both runs in one word
            m = kv::digitsValue(keep(w, whole) | (whole < 8 ? keep(w2, part) << (8 * whole) : 0), digits);
        } else {
            m = kv::digitsValue(w, whole) * kTens[part] + kv::digitsValue(w2, part);
        }
    } else {
        for (; p < end; ++p) {
            if (*p >= '0' && *p <= '9') {
                if (++digits > 18) return nullptr;
                m = m * 10 + uint64_t(*p - '0');
                if (fraction >= 0) ++fraction;
            } else if (*p == '.' && fraction < 0) {
                fraction = 0;
            } else {
                break;
            }
        }
    }
    if (digits == 0 || m >= (uint64_t(1) << 53) || fraction > 22) return nullptr;
    if (p < end && !isSpace(*p)) return nullptr;  // an exponent or anything unusual
    return roundDecimal(m, fraction > 0 ? fraction : 0, negative, out) ? p : nullptr;
}

// A vertex line of at most 64 bytes, "v" and words that are all plain decimals between blanks:
// its words are found and checked with masks of the line's bytes, and each of the first three is
// read from one word with its point taken out, or from two, the digits before the point and
// after it, when it takes more than eight bytes (at most eight digits on either side, 16 bytes in
// all after the sign). False when the line has another form, or too few bytes can be read after
// it; the general reader then reads the line.
bool parsePlainVertex(std::string_view line, const char* readable, float (&xyz)[3]) {
    if (line.size() > 64 || readable - line.data() < 64 + 8) return false;
    const kv::ByteMasks m = kv::byteMasks(line.data(), line.size() <= 32 ? 2 : 4);
    const uint64_t inLine = line.size() == 64 ? ~uint64_t(0) : (uint64_t(1) << line.size()) - 1;
    const uint64_t text = ~m.blank & inLine;
    uint64_t starts = text & ~(text << 1), ends = text & ~(text >> 1);  // each word's first and last byte
    if ((text & ~(m.digit | m.point | m.minus) & ~uint64_t(1)) | (m.minus & inLine & ~starts) | (~ends & 1)) return false;
    starts &= starts - 1;  // the "v"
    ends &= ends - 1;
    for (float& c : xyz) {
        if (!starts) return false;
        const int first = std::countr_zero(starts), last = std::countr_zero(ends);
        const bool negative = (m.minus >> first) & 1;
        const int from = first + negative, length = last + 1 - from;
        const uint64_t point = m.point & (~uint64_t(0) << from) & (~uint64_t(0) >> (63 - last));
        if ((point & (point - 1)) || length > 16 || length == int(point != 0)) return false;
        const int whole = point ? std::countr_zero(point) - from : length;  // digits before the point
        const int fraction = point ? length - 1 - whole : 0;
        const uint64_t w = kv::loadWord(line.data() + from);
        uint64_t digits = 0;
        if (length <= 8) {
            const uint64_t low = whole == 8 ? ~uint64_t(0) : (uint64_t(1) << (8 * whole)) - 1;
            digits = kv::digitsValue((w & low) | ((w >> 8) & ~low), whole + fraction);
        } else {
            if (whole > 8 || fraction == 0 || fraction > 8) return false;
            const uint64_t after = kv::loadWord(line.data() + from + whole + 1);  // the digits after the point
            digits = (whole ? kv::digitsValue(w, whole) * kTens[fraction] : 0) + kv::digitsValue(after, fraction);
        }
        if (!roundDecimal(digits, fraction, negative, c)) return false;
        starts &= starts - 1;
        ends &= ends - 1;
    }
    return true;
}

// The text a stream's float extraction takes from p: an optional sign, digits with at most one
// decimal point, then, after at least one digit, 'e' or 'E' with an optional sign and digits.
const char* streamFloatText(const char* p, const char* end) {
    if (p < end && (*p == '+' || *p == '-')) ++p;
    bool digits = false, point = false;
    for (; p < end; ++p) {
        if (*p >= '0' && *p <= '9') {
            digits = true;
        } else if (*p == '.' && !point) {
            point = true;
        } else {
            break;
        }
    }
    if (!digits || p == end || (*p != 'e' && *p != 'E')) return p;
    if (++p < end && (*p == '+' || *p == '-')) ++p;
    while (p < end && *p >= '0' && *p <= '9') ++p;
    return p;
}

// The decimal magnitude of a number text (its value lies near 10^magnitude): enough to tell an
// overflow from an underflow when the value is out of the float range.
int64_t decimalMagnitude(const char* p, const char* end) {
    if (*p == '+' || *p == '-') ++p;
    int64_t magnitude = 0;
    bool point = false, nonzero = false;
    for (; p < end && ((*p >= '0' && *p <= '9') || *p == '.'); ++p) {
        if (*p == '.') point = true;
        else if (*p != '0') nonzero = true;
        if (!point && nonzero) ++magnitude;
        if (point && !nonzero && *p == '0') --magnitude;
    }
    if (p == end) return magnitude;
    const bool negative = ++p < end && *p == '-';
    if (p < end && (*p == '+' || *p == '-')) ++p;
    int64_t exponent = 0;
    for (; p < end && *p >= '0' && *p <= '9'; ++p) exponent = std::min<int64_t>(exponent * 10 + (*p - '0'), 1 << 30);
    return magnitude + (negative ? -exponent : exponent);
}

// A float as a standard input stream extracts it: the text taken by streamFloatText must be a
// whole number, else the extraction fails (null). A value beyond the float range reads as the
// largest float of its sign and fails the extraction too (out is set, null returned); one below
// it reads as 0 and the reading goes on.
const char* parseStreamFloat(const char* p, const char* end, float& out) {
    const char* stop = streamFloatText(p, end);
    const char* from = p < stop && *p == '+' ? p + 1 : p;  // readFloat takes no '+'
    float v = 0;
    const auto r = kv::readFloat(from, stop, v);
    if (r.ec == std::errc::invalid_argument || r.ptr != stop) return nullptr;
    if (r.ec == std::errc()) {
        out = v;
        return stop;
    }
    const bool negative = *p == '-';
    if (decimalMagnitude(p, stop) > 0) {
        out = negative ? -std::numeric_limits<float>::max() : std::numeric_limits<float>::max();
        return nullptr;
    }
    out = negative ? -0.0f : 0.0f;
    return stop;
}

}  // namespace

vertexS parseVertex(std::string_view line, const char* readable) {
    const char* p = line.data();
    const char* end = p + line.size();
    if (!readable || readable < end) readable = end;
    if (float xyz[3]; kv::kFastByteMasks && parsePlainVertex(line, readable, xyz)) return {xyz[0], xyz[1], xyz[2]};
    while (p < end && isSpace(*p)) ++p;  // the first word ("v")
    while (p < end && !isSpace(*p)) ++p;
    float xyz[3] = {0, 0, 0};
    for (float& c : xyz) {
        while (p < end && isSpace(*p)) ++p;
        const char* q = p < end && *p == '+' ? p + 1 : p;  // the fast path takes no '+'
        const bool oneSign = q < end && (q == p || (*q != '-' && *q != '+'));
        const char* stop = oneSign ? parseFastFloat(q, end, readable, c) : nullptr;
        if (!stop) stop = parseStreamFloat(p, end, c);
        if (!stop) break;  // a failed extraction: this coordinate and the rest stay 0
        p = stop;
    }
    return {xyz[0], xyz[1], xyz[2]};
}

bool outputBase(const char* outPath, std::string_view name, std::string& base) {
    const std::string_view seps = kv::kPathSeparators;
    if (!name.empty() && seps.find(name[0]) != std::string_view::npos) return false;
    // A NUL would end the path early: the file would get another name than the group's.
    if (name.find('\0') != std::string_view::npos) return false;
    // No component may lead out of the folder or be a name this system cannot create.
    for (size_t i = 0; i <= name.size();) {
        size_t slash = name.find_first_of(seps, i);
        if (slash == std::string_view::npos) slash = name.size();
        const std::string_view part = name.substr(i, slash - i);
        if (part == ".." || !kv::creatableName(part)) return false;
        i = slash + 1;
    }
    base = FileNameExtract(outPath, 1);
    base.append(name);
    return true;
}

std::string freeName(const std::string& base, const char* ext) {
    std::string candidate = base + ext;
    for (unsigned n = 1; kv::fileExists(candidate.c_str()); ++n) candidate = base + "_copy" + kv::decimal(n) + ext;
    return candidate;
}

}  // namespace obj

// ---- Polygroup list ----------------------------------------------------------------------

void addToGroupsList(const char* name, int32_t count) {
    groupID g;
    setName(g, name);
    g.firstFace = faceIndex;
    g.endFace = static_cast<int32_t>(static_cast<uint32_t>(faceIndex) + static_cast<uint32_t>(count));
    groupsList.push_back(g);
    faceIndex = g.endFace;
}

float getGroupsListSize() { return groupsList.empty() ? -1.0f : static_cast<float>(groupsList.size()); }

std::string getGroupName(int32_t index) {
    if (groupsList.empty() || index < 0 || size_t(index) >= groupsList.size()) return "null";
    return groupsList[size_t(index)].name;
}

void clearGroupsList() {
    groupsList.clear();
    faceIndex = 0;
    groupFacesList.clear();
}

int saveGroupsList(const char* path) {
    if (groupsList.empty()) return -1;
    std::vector<char> out(groupsList.size() * sizeof(groupID));
    char* p = out.data();
    for (const groupID& g : groupsList) {
        std::memcpy(p, g.name, sizeof g.name);
        kv::putU32BE(p + 128, static_cast<uint32_t>(g.firstFace));
        kv::putU32BE(p + 132, static_cast<uint32_t>(g.endFace));
        p += sizeof(groupID);
    }
    return kv::storeFile(path, out.data(), out.size()) ? 0 : -3;
}

int loadGroupsList(const char* path) {
    groupsList.clear();
    faceIndex = 0;  // stays 0: the loaded records carry their own face ranges
    std::vector<char> buf;
    if (!kv::readFile(path, buf)) return -3;
    groupsList.reserve((buf.size() + sizeof(groupID) - 1) / sizeof(groupID));  // one record per 136 bytes, no regrowth
    for (size_t at = 0; at < buf.size(); at += sizeof(groupID)) {
        char rec[sizeof(groupID)] = {};  // a short tail record reads as zeros past the file's end
        std::memcpy(rec, buf.data() + at, std::min(sizeof rec, buf.size() - at));
        groupID g;
        std::memcpy(g.name, rec, sizeof g.name);
        g.name[sizeof g.name - 1] = '\0';
        g.firstFace = kv::getS32BE(rec + 128);
        g.endFace = kv::getS32BE(rec + 132);
        groupsList.push_back(g);
    }
    return 0;
}

// ---- Lean splits by the file's groups ----------------------------------------------------

double LeanSplitOBJ(const char* objPath, char* outPath) {
    SplitScan s;
    if (!loadForSplit(objPath, s)) return -1;
    std::map<std::string, int32_t, std::less<>> names;
    scanByGroups(s, names);
    const std::string folder = FileNameExtract(outPath, 1);
    const IndexSet empty;
    std::vector<const IndexSet*> sets;  // in name order
    for (const auto& [name, number] : names) sets.push_back(size_t(number) < s.sets.size() ? &s.sets[size_t(number)] : &empty);
    return storeOutputs(
        sets.size(), scanThreads(),
        [&](size_t k, std::string& path) {
            const size_t count = sets[k]->count(0, s.vertexCount());
            if (count == 0) return -2.0;  // a group without a vertex line
            path = obj::freeName(folder + kv::decimal(static_cast<int64_t>(count)), ".obj");
            return 0.0;
        },
        [&](size_t k, std::vector<char>& out) { buildVertexLines(s, *sets[k], 0, out); });
}

double LeanSplitVyx(const char* objPath, char* outPath) {
    SplitScan s;
    s.readPositions = true;
    if (!loadForSplit(objPath, s)) return -1;
    std::map<std::string, int32_t, std::less<>> names;
    scanByGroups(s, names);
    std::vector<std::pair<std::string_view, const IndexSet*>> parts;  // in name order
    for (const auto& [name, number] : names) parts.emplace_back(name, size_t(number) < s.sets.size() ? &s.sets[size_t(number)] : nullptr);
    return storePartFiles(outPath, parts, ".Vyt", [&](size_t k, std::vector<char>& out) { buildVertexFile(s, parts[k].second, out); });
}

// ---- Append a part to the combined mesh --------------------------------------------------

double LeanAddGroupOBJ(const char* partPath, char* combinedPath, int vertexOffset) {
    groupID g;
    setName(g, FileNameExtract(partPath, 2));
    const std::string_view name(g.name);
    std::vector<char> in;
    if (!kv::readFile(partPath, in)) return -1;

    std::vector<char> out;
    out.reserve(in.size() + in.size() / 4);
    kv::LineScanner lines(in.data(), in.size());
    std::string scratch;
    std::string_view line;
    int32_t vertices = 0, faces = 0;
    while (lines.next(line)) {
        switch (obj::classify(line)) {
            case obj::LineKind::Vertex:
                kv::append(out, line);
                out.push_back('\n');
                ++vertices;
                break;
            case obj::LineKind::Group:
                kv::append(out, "g ");
                kv::append(out, name);
                out.push_back('\n');
                break;
            case obj::LineKind::Face:
                kv::append(out, "f ");
                obj::forEachFaceIndex(line, scratch, [&](int32_t i) {
                    kv::appendInt(out, int64_t(i) + vertexOffset);
                    out.push_back(' ');
                });
                out.push_back('\n');
                ++faces;
                break;
            default: break;
        }
    }
    if (!kv::appendFile(combinedPath, out.data(), out.size())) return -2;
    g.firstFace = faceIndex;
    faceIndex = static_cast<int32_t>(static_cast<uint32_t>(faceIndex) + static_cast<uint32_t>(faces));
    g.endFace = faceIndex;
    groupsList.push_back(g);
    return vertices;
}

// ---- Vertex transfer ---------------------------------------------------------------------

double LeanSwapVertsOBJ(const char* vertexPath, const char* meshPath) {
    if (!kv::appendFile(vertexPath, "", 0)) return -10;  // opened for appending, created when missing
    std::vector<char> in;
    if (!kv::readFile(meshPath, in)) return -20;
    std::vector<char> out;
    out.reserve(in.size());
    kv::LineScanner lines(in.data(), in.size());
    std::string_view line;
    size_t vertices = 0;
    while (lines.next(line)) {
        obj::LineKind kind = obj::classify(line);
        if (kind == obj::LineKind::Vertex) {
            ++vertices;
        } else if (kind != obj::LineKind::Comment) {
            kv::append(out, line);
            out.push_back('\n');
        }
    }
    if (!kv::appendFile(vertexPath, out.data(), out.size())) return -10;
    return vertices == 0 ? -30 : 0;
}

bool LeanSwapVerts(const char* vertexPath, const char* meshPath) {
    std::vector<char> vin, min;
    if (!kv::readFile(vertexPath, vin) || !kv::readFile(meshPath, min)) return false;
    std::vector<char> out;
    kv::append(out, "# written by Kelvane plugin for Vandor\n");
    std::string_view line;
    size_t newVertices = 0;
    for (kv::LineScanner lines(vin.data(), vin.size()); lines.next(line);) {
        if (obj::classify(line) != obj::LineKind::Vertex) continue;
        kv::append(out, line);
        out.push_back('\n');
        ++newVertices;
    }
    size_t meshVertices = 0, others = 0;
    for (kv::LineScanner lines(min.data(), min.size()); lines.next(line);) {
        obj::LineKind kind = obj::classify(line);
        if (kind == obj::LineKind::Vertex) {
            ++meshVertices;
        } else if (kind != obj::LineKind::Comment) {
            kv::append(out, line);
            out.push_back('\n');
            ++others;
        }
    }
    if (newVertices == 0 || meshVertices == 0 || newVertices != meshVertices || others == 0) return false;
    return kv::storeFile(meshPath, out.data(), out.size());
}

// ---- Splits by the polygroup list --------------------------------------------------------

// Scans the mesh by the polygroup list; parts: each name's first record's set (null when it has
// none), in ascending name order.
static bool scanForListSplit(const char* objPath, SplitScan& s, std::vector<std::pair<std::string_view, const IndexSet*>>& parts) {
    std::map<std::string_view, size_t> index;
    for (size_t k = 0; k < groupsList.size(); ++k) index.emplace(groupsList[k].name, k);
    if (!loadForSplit(objPath, s)) return false;
    scanByList(s);
    for (const auto& [name, k] : index) parts.emplace_back(name, k < s.sets.size() ? &s.sets[k] : nullptr);
    return true;
}

double ListSplitOBJ(const char* objPath, char* outPath) {
    if (groupsList.empty()) return -5;
    SplitScan s;
    std::vector<std::pair<std::string_view, const IndexSet*>> parts;
    if (!scanForListSplit(objPath, s, parts)) return -1;
    const IndexSet empty;
    return storePartFiles(outPath, parts, ".obj", [&](size_t k, std::vector<char>& out) {
        buildVertexLines(s, parts[k].second ? *parts[k].second : empty, 1, out);
    });
}

double ListSplitVyx(const char* objPath, char* outPath) {
    if (groupsList.empty()) return -5;
    SplitScan s;
    s.readPositions = true;
    std::vector<std::pair<std::string_view, const IndexSet*>> parts;
    if (!scanForListSplit(objPath, s, parts)) return -1;
    return storePartFiles(outPath, parts, ".Vyt", [&](size_t k, std::vector<char>& out) { buildVertexFile(s, parts[k].second, out); });
}

// ---- Face counts and unique names --------------------------------------------------------

float CreateGroupFacesList() {
    if (groupsList.empty()) return -5;
    groupFacesList.clear();
    for (const groupID& g : groupsList)
        groupFacesList.emplace(g.name, static_cast<int32_t>(static_cast<uint32_t>(g.endFace) -
                                                            static_cast<uint32_t>(g.firstFace)));
    return 0;
}

int32_t getGroupFaces(const char* name) {
    auto it = groupFacesList.find(name);
    return it == groupFacesList.end() ? -1 : it->second;
}

std::string NameCheck(const char* name) {
    if (nameSet.insert(name).second) return name;
    std::string working = name;
    for (unsigned counter = 1;; ++counter) {
        size_t copy = working.find("_copy");
        std::string base = copy == std::string::npos ? working + "_copy" : working.substr(0, copy + 5);
        working = base + kv::decimal(counter);
        if (nameSet.insert(working).second) return working;
    }
}

void NameSetClear() { nameSet.clear(); }
