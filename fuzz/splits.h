// The OBJ harnesses' second way through the splits: the splits' own functions with scan options
// that cut even a few bytes into many chunks, scanned on several threads, a list split's faces
// kept in blocks of a few faces and the part files written by several threads. What a split
// gives that way must be what the export gives, which scans an input this small as one chunk.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>

#include "harness.h"
#include "leanOBJ/leanOBJ.h"

namespace kvfuzz {

using Split = double (*)(const char*, char*, const obj::ScanOptions&);

// Scan options from a parameter byte: 2 or 3 threads, chunks of at least 1 to 61 bytes, face
// blocks of at least 1 to 8 faces.
inline obj::ScanOptions tinyChunks(uint8_t knobs) {
    return {2u + knobs % 2u, size_t(1) + size_t(knobs / 2 % 16) * 4, int64_t(1) + knobs / 32};
}

// The exports scan and write on one thread (KELVANE_THREADS), the second way on several: each
// way costs no more threads than it needs, and the other way checks it.
inline void exportsOnOneThread() {
    static const bool set = ::setenv("KELVANE_THREADS", "1", 1) == 0;
    (void)set;
}

// Runs the export, then (when twice) split with options on the same input into the same output
// folder, and checks that both give the same result and write the same files (names and bytes);
// the files are removed. Returns the export's result. A harness takes the second way for one of
// its two splits per input, chosen by the input: half the cost, and both splits still go both ways.
inline float splitBothWays(KelvaneFn exported, Split split, const char* input, const char* outName,
                           const obj::ScanOptions& options, bool (*allowed)(const char*),
                           std::initializer_list<const char*> keep, bool twice) {
    exportsOnOneThread();
    float r = 0;
    call(exported, input, 0, outPath(outName), &r);
    const std::map<std::string, std::string> once = takeOutputs(allowed, keep);
    if (!twice) return r;
    std::string out = outPath(outName);
    const double chunked = split(input, out.data(), options);
    const std::map<std::string, std::string> again = takeOutputs(allowed, keep);
    if (chunked != r || again != once) {
        std::fprintf(stderr, "the chunked split (%u threads, chunks of %zu bytes, blocks of %lld faces) gave %g and %zu files, "
                     "the single scan %g and %zu files\n", options.threads, options.minChunk,
                     static_cast<long long>(options.blockFaces), chunked, again.size(), static_cast<double>(r), once.size());
        std::abort();
    }
    return r;
}

}  // namespace kvfuzz
