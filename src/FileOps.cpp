// Path splitting, extension stripping, the name-based directory test and folder clearing.
#include "FileOps.h"

#include <cstring>

#include "platform/fileio.h"
#include "platform/folder.h"

bool IsDirectory(const char* path) {
    size_t n = std::strlen(path);
    // The character at index n is the terminating NUL, so this test never succeeds; it is
    // kept as the original check stands.
    if (path[n] == '.') return false;
    for (size_t i = n; i-- > 0;) {
        if (path[i] == '.') return false;
        if (path[i] == '/' || path[i] == '\\') return true;
    }
    return true;
}

bool ClearFolder(std::string path) {
    // A backslash, also where the separator is "/": folder paths from the host end in one.
    if (path.empty() || path.back() != '\\') path += '\\';
    kv::platform::Folder* dir = kv::platform::openFolder(path.c_str());
    if (!dir) return false;
    // The first two entries are taken to be "." and ".." and skipped unread.
    int skipped = 0;
    while (const char* name = kv::platform::nextEntry(dir)) {
        if (skipped < 2) {
            ++skipped;
            continue;
        }
        std::string full = path + name;
        if (!IsDirectory(full.c_str())) kv::removeFile(full.c_str());
    }
    kv::platform::closeFolder(dir);
    return true;
}

std::string stripExtension(const std::string& path, bool anyDot) {
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos) return path;
    const size_t sep = path.find_last_of("/\\");
    if (!anyDot && sep != std::string::npos && dot < sep) return path;
    return path.substr(0, dot);
}

std::string FileNameExtract(const std::string& path, int mode) {
    const size_t sep = path.find_last_of("/\\");
    switch (mode) {
        case kFolderPart:
            return sep == std::string::npos ? std::string() : path.substr(0, sep + 1);
        case kBareName:
            return stripExtension(sep == std::string::npos ? path : path.substr(sep + 1), false);
        case kPathNoExtension:
            return stripExtension(path, true);
        case kExtension:
            return path.substr(path.rfind('.'));  // no dot: npos is past the end and substr throws
        case kFileName:
            return sep == std::string::npos ? path : path.substr(sep + 1);
        default:
            return path;
    }
}
