// Path splitting, the name-based directory test and folder clearing.
#pragma once

#include <string>

// True when the last component of path contains no "." (decided by the name alone).
bool IsDirectory(const char* path);

// Opens path + "\\" (unless it already ends in a backslash) and deletes every entry after the
// first two whose full name is not taken for a directory by IsDirectory. True when it opened.
bool ClearFolder(std::string path);

// Splits a path at its last separator ("/" or "\\") and last dot:
//   1 folder part with its separator   2 bare name without extension   3 path without extension
//   4 extension with its dot (throws std::out_of_range when there is no dot)
//   6 file name with extension          0, 5, 7+ the path unchanged
std::string FileNameExtract(const std::string& path, int mode);
