// Folder listing, one entry at a time, as the host's scripts walk a folder. FolderPosix.cpp and
// FolderWindows.cpp implement it.
#pragma once

namespace kv::platform {

// An open listing of one folder.
struct Folder;

// Opens the listing of the folder at path; null when it cannot be opened. The entries come in
// the system's order with "." and ".." among them: first, as a directory stream gives them on
// the usual file systems, and as the Windows listing always gives them (a drive root too).
Folder* openFolder(const char* path);

// The next entry's name, or null after the last one. The name stays valid until the next call.
const char* nextEntry(Folder* folder);

void closeFolder(Folder* folder);

}  // namespace kv::platform
