// Whole-file input and output: one read to load a file, one write to store one.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <string>
#include <vector>

namespace kv {

// Loads the whole file into out (replacing its content). False when it cannot be opened or read.
bool readFile(const char* path, std::vector<char>& out);

// The two steps of readFile, for readers that may map the file instead: openForReading opens
// path read-only and fills st (-1 when it cannot be opened or is a folder); readOpened reads
// the opened file to its end into out (the caller closes fd).
int openForReading(const char* path, struct stat& st);
bool readOpened(int fd, const struct stat& st, std::vector<char>& out);

// Loads the whole file as readFile does, then appends a repeat of its last byte (a 0 for an empty
// file): the image loaders keep this one extra byte, and the rewrites write it back.
bool readFileRepeatLast(const char* path, std::vector<char>& out);

// Appends size bytes to path (created when missing). False on any failure; an append that fails
// part-way is cut off again, so the file keeps exactly its old content.
bool appendFile(const char* path, const void* data, size_t size);

// A whole file being written anew. A missing file is created (0666 less the umask) and written
// directly; a failed write removes it again, since a cut file is worse than none. An existing
// file is replaced: the bytes go to a temporary sibling of the file the path names (symbolic
// links followed, so a link stays a link and the file it names gets the new content), which
// closeOutput renames over it with that file's permission bits; either the old or the new
// content is on disk, never a mixture. Only when that folder cannot hold a sibling is the file
// rewritten in place, as the one way left. An existing file the process may not write (access
// W_OK fails) is refused, and so is a folder.
struct OutputFile {
    int fd = -1;
    std::string target;  // the file that receives the content
    std::string temp;    // the temporary sibling; empty when target itself is written
    bool created = false;  // target did not exist before
};
bool openOutput(const char* path, OutputFile& out);

// Writes size bytes at the output's current end. False on failure.
bool writeOutput(OutputFile& out, const void* data, size_t size);

// Ends the output: good tells whether every write succeeded. Syncs and puts the content in
// place; on failure removes the sibling or the new file (the old file stays as it was). The
// outcome: true when the new content is in place.
bool closeOutput(OutputFile& out, bool good);

// Stores a whole file through openOutput, writeOutput and closeOutput. False on any failure.
bool storeFile(const char* path, const void* data, size_t size);

// True when something exists at path.
bool fileExists(const char* path);

}  // namespace kv
