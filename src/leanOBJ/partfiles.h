// The part files of a split: each part's vertex-only OBJ text or vertex file built from the
// scan, and the files stored on every core while they are named one after another, as a
// one-at-a-time run names them.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "leanOBJ/splitscan.h"

namespace obj {

// The line a vertex-only OBJ file holds for index 0 (the placeholder before vertex 1).
inline constexpr const char* kPlaceholder = "#start of vector";

// Builds a vertex file (head + big-endian positions) for the 1-based indices of set (none when
// set is null).
void buildVertexFile(const SplitScan& s, const IndexSet* set, std::vector<char>& out);

// Builds the verbatim vertex lines for the 1-based indices of set in [from, vertex count]; index
// 0 is the placeholder line.
void buildVertexLines(const SplitScan& s, const IndexSet& set, uint64_t from, std::vector<char>& out);

// name(k, path) sets output k's path, or returns the split's result for a failure; build(k, out)
// fills its content.
using NameFn = std::function<double(size_t, std::string&)>;
using BuildFn = std::function<void(size_t, std::vector<char>&)>;

// Writes the outputs 0 to n - 1 of a split on up to `threads` threads. The files are named and
// created one after another in output order, each when the one before it exists, so that the
// names and the files are those a one-at-a-time run gives; the outputs are built and written at
// the same time. An output whose file cannot be created or written gives -3. The first output
// that fails ends the split with its result: the outputs before it are written, those after it
// removed again.
double storeOutputs(size_t n, size_t threads, const NameFn& name, const BuildFn& build);

// The named parts of a split, in the order their files are stored.
using PartList = std::vector<std::pair<std::string_view, const IndexSet*>>;

// Stores part k, built by build(k, out), as the first free name of its name + ext in the output
// folder. -3 when a name cannot be used or a file cannot be written (see storeOutputs).
double storePartFiles(const char* outPath, const PartList& parts, const char* ext, size_t threads, const BuildFn& build);

// Output path base: the folder part of outPath + name. False when name would leave that
// folder (an absolute name, or a ".." component) or holds a NUL byte, which no file name can.
bool outputBase(const char* outPath, std::string_view name, std::string& base);

// The first free name among base + ext, base + "_copy1" + ext, base + "_copy2" + ext, ...
std::string freeName(const std::string& base, const char* ext);

}  // namespace obj
