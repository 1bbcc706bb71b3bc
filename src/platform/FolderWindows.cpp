// Folder listing on Windows: FindFirstFileW and FindNextFileW on "folder\*". The listing gives
// "." and ".." first, as a directory stream does, also at a drive root where the system lists
// neither; the system's own "." and ".." are not given twice. Names go back in the ANSI code page.
#include <windows.h>

#include <string>

#include "platform/WinText.h"
#include "platform/folder.h"

namespace kv::platform {

struct Folder {
    HANDLE find = INVALID_HANDLE_VALUE;
    WIN32_FIND_DATAW data{};
    bool pending = false;  // data holds an entry not handed out yet
    int dots = 0;          // how many of "." and ".." were handed out
    std::string name;
};

Folder* openFolder(const char* path) {
    std::wstring pattern = widen(path);
    if (pattern.empty()) return nullptr;
    if (pattern.back() != L'\\' && pattern.back() != L'/') pattern += L'\\';
    pattern += L'*';
    Folder* folder = new Folder;
    folder->find = FindFirstFileExW(pattern.c_str(), FindExInfoBasic, &folder->data, FindExSearchNameMatch, nullptr, 0);
    if (folder->find == INVALID_HANDLE_VALUE) {
        // Nothing found is still a listing when the folder exists (an empty drive root).
        pattern.pop_back();
        const DWORD attrs = GetFileAttributesW(pattern.c_str());
        if (attrs == INVALID_FILE_ATTRIBUTES || !(attrs & FILE_ATTRIBUTE_DIRECTORY)) {
            delete folder;
            return nullptr;
        }
    }
    folder->pending = folder->find != INVALID_HANDLE_VALUE;
    return folder;
}

const char* nextEntry(Folder* folder) {
    if (folder->dots < 2) return ++folder->dots == 1 ? "." : "..";
    for (;;) {
        if (!folder->pending) {
            if (folder->find == INVALID_HANDLE_VALUE || !FindNextFileW(folder->find, &folder->data)) return nullptr;
        }
        folder->pending = false;
        const std::wstring_view name = folder->data.cFileName;
        if (name == L"." || name == L"..") continue;
        narrow(folder->data.cFileName, folder->name);
        return folder->name.c_str();
    }
}

void closeFolder(Folder* folder) {
    if (folder->find != INVALID_HANDLE_VALUE) FindClose(folder->find);
    delete folder;
}

}  // namespace kv::platform
