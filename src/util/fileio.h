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

// Creates or truncates path and writes size bytes in one call. False on any failure; a file that
// could not be written completely is removed.
bool writeFile(const char* path, const void* data, size_t size);

// Appends size bytes to path (created when missing). False on any failure; an append that fails
// part-way is cut off again, so the file keeps exactly its old content.
bool appendFile(const char* path, const void* data, size_t size);

// Replaces the file at path atomically: the bytes go to a temporary sibling which is then
// renamed over path, keeping path's permission bits (a new file gets 0666 less the umask, as
// writeFile's would). Either the old or the new content is on disk afterwards, never a mixture.
// An existing file the process may not write (access W_OK fails) is refused. False on any
// failure (path is then unchanged).
bool replaceFile(const char* path, const void* data, size_t size);

// Stores a whole file: an existing file is rewritten through replaceFile (atomically, keeping its
// permission bits; one the process may not write is refused), a missing one is created through
// writeFile. False on any failure.
bool storeFile(const char* path, const void* data, size_t size);

// True when something exists at path.
bool fileExists(const char* path);

}  // namespace kv
