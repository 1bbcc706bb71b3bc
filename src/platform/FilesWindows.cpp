// The file primitives on Windows: wide calls on handles, files replaced with MoveFileExW over
// the old one (its attributes kept), views mapped with MapViewOfFile. Every open shares read,
// write and delete access, so that a file being read can still be replaced or deleted.
#include <windows.h>

#include <algorithm>
#include <cwchar>
#include <string>

#include "platform/WinText.h"
#include "platform/fileio.h"
#include "platform/mapfile.h"

namespace kv {
namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr size_t kMaxChunk = size_t(1) << 30;  // one ReadFile or WriteFile moves at most this
// The attributes a replacement takes over from the file it replaces.
constexpr DWORD kKeptAttributes =
    FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;

HANDLE openHandle(const std::wstring& path, DWORD access, DWORD disposition, DWORD flags = FILE_ATTRIBUTE_NORMAL) {
    return CreateFileW(path.c_str(), access, kShareAll, nullptr, disposition, flags, nullptr);
}

HANDLE handleOf(const OutputFile& out) { return reinterpret_cast<HANDLE>(out.fd); }

bool writeAll(HANDLE h, const void* data, size_t size) {
    const char* p = static_cast<const char*>(data);
    while (size > 0) {
        DWORD done = 0;
        if (!WriteFile(h, p, static_cast<DWORD>(std::min(size, kMaxChunk)), &done, nullptr) || done == 0) return false;
        p += done;
        size -= done;
    }
    return true;
}

// Reads the opened file to its end into out: one read of its size, then on until end of file.
bool readAll(HANDLE h, std::vector<char>& out) {
    out.clear();
    LARGE_INTEGER size{};
    const size_t capacity = GetFileSizeEx(h, &size) && size.QuadPart > 0 ? static_cast<size_t>(size.QuadPart) : 0;
    out.reserve(capacity + 1);  // room for the byte readFileRepeatLast appends
    out.resize(capacity > 0 ? capacity + 1 : 65536);  // one byte more probes for the end
    size_t used = 0;
    for (;;) {
        if (used == out.size()) out.resize(out.size() * 2);
        DWORD got = 0;
        if (!ReadFile(h, out.data() + used, static_cast<DWORD>(std::min(out.size() - used, kMaxChunk)), &got, nullptr)) {
            out.clear();
            return false;
        }
        if (got == 0) break;
        used += got;
    }
    out.resize(used);
    return true;
}

// A name for a sibling of target that does not exist yet.
std::wstring siblingName(const std::wstring& target, unsigned attempt) {
    wchar_t suffix[48];
    std::swprintf(suffix, 48, L".kvtmp%lx%x", GetCurrentProcessId(), GetTickCount() + attempt * 7919u);
    return target + suffix;
}

bool isReservedDevice(std::string_view name) {
    std::string stem(name.substr(0, name.find('.')));
    while (!stem.empty() && stem.back() == ' ') stem.pop_back();
    for (char& c : stem) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    if (stem == "CON" || stem == "PRN" || stem == "AUX" || stem == "NUL") return true;
    return stem.size() == 4 && (stem.starts_with("COM") || stem.starts_with("LPT")) && stem[3] >= '1' && stem[3] <= '9';
}

}  // namespace

bool readFile(const char* path, std::vector<char>& out) {
    HANDLE h = openHandle(platform::widen(path), GENERIC_READ, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN);
    if (h == INVALID_HANDLE_VALUE) return false;  // folders included: they open only for backup
    const bool ok = readAll(h, out);
    CloseHandle(h);
    return ok;
}

bool appendFile(const char* path, const void* data, size_t size) {
    HANDLE h = openHandle(platform::widen(path), GENERIC_WRITE, OPEN_ALWAYS);
    if (h == INVALID_HANDLE_VALUE) return false;
    LARGE_INTEGER old{};
    bool ok = GetFileSizeEx(h, &old) && SetFilePointerEx(h, old, nullptr, FILE_BEGIN);
    ok = ok && writeAll(h, data, size);
    // A failed append takes back what it wrote, so the old content stays as it was.
    if (!ok && SetFilePointerEx(h, old, nullptr, FILE_BEGIN)) SetEndOfFile(h);
    return CloseHandle(h) && ok;
}

bool openOutput(const char* path, OutputFile& out) {
    out = OutputFile{};
    const std::wstring wide = platform::widen(path);
    const DWORD attrs = GetFileAttributesW(wide.c_str());
    HANDLE h = INVALID_HANDLE_VALUE;
    out.target = path;
    if (attrs == INVALID_FILE_ATTRIBUTES) {
        out.created = true;
        h = openHandle(wide, GENERIC_WRITE, CREATE_ALWAYS);
    } else {
        // A read-only file is not replaced behind its owner's back, and a folder is no file.
        if (attrs & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY)) return false;
        for (unsigned attempt = 0; attempt < 16 && h == INVALID_HANDLE_VALUE; ++attempt) {
            const std::wstring temp = siblingName(wide, attempt);
            const DWORD kept = attrs & kKeptAttributes;
            h = openHandle(temp, GENERIC_WRITE, CREATE_NEW, kept ? kept : FILE_ATTRIBUTE_NORMAL);
            if (h != INVALID_HANDLE_VALUE) platform::narrow(temp.c_str(), out.temp);
            if (h == INVALID_HANDLE_VALUE && GetLastError() != ERROR_FILE_EXISTS) break;
        }
        // No sibling possible: the file itself, rewritten in place.
        if (h == INVALID_HANDLE_VALUE) h = openHandle(wide, GENERIC_WRITE, OPEN_EXISTING);
    }
    if (h == INVALID_HANDLE_VALUE) return false;
    out.fd = reinterpret_cast<intptr_t>(h);
    return true;
}

bool writeOutput(OutputFile& out, const void* data, size_t size) { return writeAll(handleOf(out), data, size); }

bool closeOutput(OutputFile& out, bool good) {
    if (!out.isOpen()) return false;
    HANDLE h = handleOf(out);
    if (good && !out.created && out.temp.empty()) good = SetEndOfFile(h);  // in place: cut the rest
    if (good && !out.created) good = FlushFileBuffers(h);
    good = CloseHandle(h) && good;
    out.fd = -1;
    if (!out.temp.empty()) {
        const std::wstring temp = platform::widen(out.temp.c_str());
        if (good)
            good = MoveFileExW(temp.c_str(), platform::widen(out.target.c_str()).c_str(),
                               MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
        if (!good) DeleteFileW(temp.c_str());
    } else if (!good && out.created) {
        DeleteFileW(platform::widen(out.target.c_str()).c_str());
    }
    return good;
}

bool fileExists(const char* path) { return GetFileAttributesW(platform::widen(path).c_str()) != INVALID_FILE_ATTRIBUTES; }

bool canOpenForWriting(const char* path, bool alsoRead) {
    HANDLE h = openHandle(platform::widen(path), GENERIC_WRITE | (alsoRead ? GENERIC_READ : 0), OPEN_EXISTING);
    if (h == INVALID_HANDLE_VALUE) return false;
    CloseHandle(h);
    return true;
}

std::FILE* openStream(const char* path, const char* mode) {
    return _wfopen(platform::widen(path).c_str(), platform::widen(mode).c_str());
}

bool removeFile(const char* path) { return DeleteFileW(platform::widen(path).c_str()); }

bool renameFile(const char* from, const char* to) {
    return MoveFileExW(platform::widen(from).c_str(), platform::widen(to).c_str(),
                       MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
}

const std::string_view kPathSeparators = "/\\";

bool creatableName(std::string_view name) {
    if (name.empty()) return true;
    if (name.back() == '.' || name.back() == ' ') return false;  // Windows would drop it
    for (char c : name)  // ':' would open an alternate data stream, or name a drive
        if (static_cast<unsigned char>(c) < 32 || std::string_view("<>:\"|?*").find(c) != std::string_view::npos)
            return false;
    return !isReservedDevice(name);
}

// ---- Mapped files ----------------------------------------------------------------------------

void MappedFile::unmap(void* map, size_t) { UnmapViewOfFile(map); }

bool MappedFile::open(const char* path) {
    close();
    HANDLE h = openHandle(platform::widen(path), GENERIC_READ, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN);
    if (h == INVALID_HANDLE_VALUE) return false;
    LARGE_INTEGER size{};
    if (GetFileType(h) == FILE_TYPE_DISK && GetFileSizeEx(h, &size) && size.QuadPart > 0) {
        HANDLE section = CreateFileMappingW(h, nullptr, PAGE_READONLY, 0, 0, nullptr);
        void* view = section ? MapViewOfFile(section, FILE_MAP_READ, 0, 0, 0) : nullptr;
        if (section) CloseHandle(section);  // the view keeps the section and the file
        if (view) {
            CloseHandle(h);
            map_ = view;
            data_ = static_cast<const char*>(view);
            size_ = static_cast<size_t>(size.QuadPart);
            return true;
        }
    }
    // Not mappable (empty, a pipe, a device): read it through the same handle.
    const bool ok = readAll(h, copy_);
    CloseHandle(h);
    if (!ok) return false;
    data_ = copy_.data();
    size_ = copy_.size();
    return true;
}

}  // namespace kv
