// The split scan: chunking, the scans of a chunk by groups or by list, and the joins.
#include "leanOBJ/splitscan.h"

#include <algorithm>

#include "leanOBJ/objtext.h"
#include "util/parallel.h"

namespace obj {

size_t SplitScan::threads() const { return options.threads ? std::min(options.threads, 16u) : kv::workerThreads(); }

// Cuts the file at line ends into chunks of at least minChunk bytes: with several threads,
// kChunksPerThread for each, so that a thread that finds its chunks slower to scan (or its core
// busier) than the others' takes fewer of them.
constexpr size_t kChunksPerThread = 8;
bool loadForSplit(const char* path, SplitScan& s) {
    if (!s.file.open(path)) return false;
    s.indexLimit = s.file.size() / 2 + 1;
    s.bitBudget = s.file.size() / 4 + (uint64_t(1) << 20);
    const char* data = s.file.data();
    const char* end = data + s.file.size();
    const size_t threads = s.threads(), most = threads > 1 ? threads * kChunksPerThread : 1;
    const size_t n = std::max<size_t>(1, std::min<size_t>(most, s.file.size() / std::max<size_t>(s.options.minChunk, 1)));
    s.chunks.resize(n);
    const char* at = data;
    for (size_t c = 0; c < n; ++c) {
        s.chunks[c].begin = at;
        const char* cut = c + 1 == n ? end : std::max(at, data + s.file.size() / n * (c + 1));
        at = cut < end ? std::min(end, kv::lineEnd(cut, end) + 1) : end;
        s.chunks[c].end = at;
        s.chunks[c].budget = s.bitBudget / n;
    }
    return true;
}

namespace {

// Runs scan(chunk) for every chunk on the scan threads (see kv::runShared).
template <typename Fn>
void forEachChunk(SplitScan& s, Fn&& scan) {
    kv::runShared(s.chunks.size(), s.threads(), [&](size_t c, size_t) { scan(s.chunks[c]); });
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

}  // namespace

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

namespace {

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

}  // namespace

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
                    if (!block || block->full(s.options.blockFaces)) block = &c.blocks.emplace_back(FaceBlock{line.data(), 0, {}});
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

}  // namespace obj
