// The part files of a split: building each part's content and storing the files in order.
#include "leanOBJ/partfiles.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "FileOps.h"
#include "platform/fileio.h"
#include "util/bytes.h"
#include "util/numtext.h"
#include "util/parallel.h"
#include "util/vyxtags.h"

namespace obj {


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



double storeOutputs(size_t n, size_t threads, const NameFn& name, const BuildFn& build) {
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

double storePartFiles(const char* outPath, const PartList& parts, const char* ext, size_t threads, const BuildFn& build) {
    return storeOutputs(
        parts.size(), threads,
        [&](size_t k, std::string& path) {
            std::string base;
            if (!outputBase(outPath, parts[k].first, base)) return -3.0;
            path = freeName(base, ext);
            return 0.0;
        },
        build);
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
    base = FileNameExtract(outPath, kFolderPart);
    base.append(name);
    return true;
}

std::string freeName(const std::string& base, const char* ext) {
    std::string candidate = base + ext;
    for (unsigned n = 1; kv::fileExists(candidate.c_str()); ++n) candidate = base + "_copy" + kv::decimal(n) + ext;
    return candidate;
}

}  // namespace obj
