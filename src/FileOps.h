// Path splitting, extension stripping, the name-based directory test and folder clearing.
#pragma once

#include <string>

// True when the last component of path contains no "." (decided by the name alone).
bool IsDirectory(const char* path);

// Opens path + "\\" (unless it already ends in a backslash) and deletes every entry after the
// first two whose full name is not taken for a directory by IsDirectory. True when it opened.
bool ClearFolder(std::string path);

// The parts of a path that FileNameExtract returns, by the host's mode numbers.
enum PathPart : int {
    kFolderPart = 1,         // the folder part with its separator ("" when there is none)
    kBareName = 2,           // the file name without its extension
    kPathNoExtension = 3,    // the path before its last dot, even a dot in a folder name
    kExtension = 4,          // the extension with its dot (throws std::out_of_range when there is no dot)
    kFileName = 6,           // the file name with its extension
};

// Splits a path at its last separator ("/" or "\\") and last dot; any other mode (0, 5, 7 and
// above) gives the path unchanged.
std::string FileNameExtract(const std::string& path, int mode);

// The path without the extension of its file name: the text before its last dot. With
// anyDot, the last dot counts wherever it stands (the path splitter's kPathNoExtension); else a
// dot in a folder name is no extension, and such a path is returned whole.
std::string stripExtension(const std::string& path, bool anyDot);
