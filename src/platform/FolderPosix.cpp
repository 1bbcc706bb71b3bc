// Folder listing on POSIX systems: a directory stream, which yields "." and ".." itself.
#include <dirent.h>

#include "platform/folder.h"

namespace kv::platform {

struct Folder {
    DIR* dir;
};

Folder* openFolder(const char* path) {
    DIR* dir = opendir(path);
    return dir ? new Folder{dir} : nullptr;
}

const char* nextEntry(Folder* folder) {
    const dirent* entry = readdir(folder->dir);
    return entry ? entry->d_name : nullptr;
}

void closeFolder(Folder* folder) {
    closedir(folder->dir);
    delete folder;
}

}  // namespace kv::platform
