// Whole-file input and output and the file primitives, the one place that talks to the file
// system: one read to load a file, one write to store one, files replaced through a temporary
// sibling, appends cut back on failure. FilesPosix.cpp and FilesWindows.cpp implement it; paths
// are the host's texts (on Windows in the process's ANSI code page) and always binary.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace kv {

// Loads the whole file into out (replacing its content). False when it cannot be opened or read.
bool readFile(const char* path, std::vector<char>& out);

// Loads the whole file as readFile does, then appends a repeat of its last byte (a 0 for an empty
// file): the image loaders keep this one extra byte, and the rewrites write it back.
inline bool readFileRepeatLast(const char* path, std::vector<char>& out) {
    if (!readFile(path, out)) return false;
    out.push_back(out.empty() ? '\0' : out.back());
    return true;
}

// Appends size bytes to path (created when missing). False on any failure; an append that fails
// part-way is cut off again, so the file keeps exactly its old content.
bool appendFile(const char* path, const void* data, size_t size);

// A whole file being written anew. A missing file is created and written directly; a failed
// write removes it again, since a cut file is worse than none. An existing file is replaced: the
// bytes go to a temporary sibling of the file the path names (symbolic links followed, so a link
// stays a link and the file it names gets the new content), which closeOutput moves over it with
// that file's permissions or attributes; either the old or the new content is on disk, never a
// mixture. Only when that folder cannot hold a sibling is the file rewritten in place, as the one
// way left. An existing file the process may not write is refused, and so is a folder.
struct OutputFile {
    intptr_t fd = -1;      // the open file (a descriptor, or a handle on Windows); -1 when none
    std::string target;    // the file that receives the content
    std::string temp;      // the temporary sibling; empty when target itself is written
    bool created = false;  // target did not exist before
    bool isOpen() const { return fd != -1; }
};
bool openOutput(const char* path, OutputFile& out);

// Writes size bytes at the output's current end. False on failure.
bool writeOutput(OutputFile& out, const void* data, size_t size);

// Ends the output: good tells whether every write succeeded. Syncs and puts the content in
// place; on failure removes the sibling or the new file (the old file stays as it was). The
// outcome: true when the new content is in place.
bool closeOutput(OutputFile& out, bool good);

// Stores a whole file through openOutput, writeOutput and closeOutput. False on any failure.
inline bool storeFile(const char* path, const void* data, size_t size) {
    OutputFile out;
    if (!openOutput(path, out)) return false;
    return closeOutput(out, writeOutput(out, data, size));
}

// True when something exists at path.
bool fileExists(const char* path);

// True when the file at path can be opened for reading and writing (update) or, with
// alsoRead false, for writing; the file is left as it is.
bool canOpenForWriting(const char* path, bool alsoRead);

// A binary stream on path, as fopen opens it with mode ("rb", "wb", ...); null on failure.
std::FILE* openStream(const char* path, const char* mode);

// Deletes the file at path. False when the system refuses.
bool removeFile(const char* path);

// Renames from to to; an existing file at to is replaced. False when the system refuses.
bool renameFile(const char* from, const char* to);

// The characters that separate folders in a path on this system.
extern const std::string_view kPathSeparators;

// True when name, one component of a path (no separator in it), can be a file of its own in a
// folder on this system: no reserved device name, no character the file system refuses.
bool creatableName(std::string_view name);

}  // namespace kv
