// The plug-in loader and export reader on Windows: LoadLibraryW, GetProcAddress and the PE
// export directory. An export whose address lies in an executable section is a function, any
// other one module data.
#include <windows.h>

#include <algorithm>
#include <cstring>

#include "platform/WinText.h"
#include "platform/fileio.h"
#include "platform/library.h"

namespace kv::platform {

std::string defaultPluginPath() {
    wchar_t self[MAX_PATH * 4];
    const DWORD n = GetModuleFileNameW(nullptr, self, MAX_PATH * 4);
    std::string dir;
    if (n > 0 && n < MAX_PATH * 4 && narrow(self, dir)) {
        dir.resize(dir.find_last_of("/\\") + 1);
        for (const char* lib : {"", "..\\bin\\", "..\\lib\\"})
            if (fileExists((dir + lib + "Kelvane4.dll").c_str())) return dir + lib + "Kelvane4.dll";
    }
    return KELVANE_BUILD_DIR "/Kelvane4.dll";
}

void* loadLibrary(const std::string& path, std::string& error) {
    HMODULE library = LoadLibraryW(widen(path.c_str()).c_str());
    if (!library) error = "cannot load " + path + " (Windows error " + std::to_string(GetLastError()) + ")";
    return reinterpret_cast<void*>(library);
}

void* findSymbol(void* library, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

void unloadLibrary(void* library) { FreeLibrary(static_cast<HMODULE>(library)); }

namespace {

// A PE file's bytes, addressed by relative virtual address through its section table.
struct PeImage {
    std::vector<char> bytes;
    const IMAGE_SECTION_HEADER* sections = nullptr;
    unsigned sectionCount = 0;

    bool fits(size_t off, size_t size) const { return off <= bytes.size() && size <= bytes.size() - off; }
    const IMAGE_SECTION_HEADER* sectionOf(DWORD rva) const {
        for (unsigned i = 0; i < sectionCount; ++i) {
            const IMAGE_SECTION_HEADER& s = sections[i];
            if (rva >= s.VirtualAddress && rva - s.VirtualAddress < std::max(s.Misc.VirtualSize, s.SizeOfRawData)) return &s;
        }
        return nullptr;
    }
    // The bytes at rva, when size of them lie in the file; null otherwise.
    const char* at(DWORD rva, size_t size) const {
        const IMAGE_SECTION_HEADER* s = sectionOf(rva);
        if (!s) return nullptr;
        const size_t off = size_t(s->PointerToRawData) + (rva - s->VirtualAddress);
        return fits(off, size) ? bytes.data() + off : nullptr;
    }
    template <class T>
    bool read(DWORD rva, T& out) const {
        const char* p = at(rva, sizeof(T));
        if (p) std::memcpy(&out, p, sizeof(T));
        return p != nullptr;
    }
};

// Reads the headers; the export directory's place in dir. False when the file is no 64-bit PE.
bool readHeaders(PeImage& pe, IMAGE_DATA_DIRECTORY& dir) {
    IMAGE_DOS_HEADER dos;
    if (!pe.fits(0, sizeof dos)) return false;
    std::memcpy(&dos, pe.bytes.data(), sizeof dos);
    IMAGE_NT_HEADERS64 nt;
    const size_t ntAt = static_cast<size_t>(dos.e_lfanew);
    if (dos.e_magic != IMAGE_DOS_SIGNATURE || dos.e_lfanew < 0 || !pe.fits(ntAt, sizeof nt)) return false;
    std::memcpy(&nt, pe.bytes.data() + ntAt, sizeof nt);
    if (nt.Signature != IMAGE_NT_SIGNATURE || nt.OptionalHeader.Magic != IMAGE_NT_OPTIONAL_HDR64_MAGIC) return false;
    const size_t sectionsAt = ntAt + offsetof(IMAGE_NT_HEADERS64, OptionalHeader) + nt.FileHeader.SizeOfOptionalHeader;
    pe.sectionCount = nt.FileHeader.NumberOfSections;
    if (!pe.fits(sectionsAt, size_t(pe.sectionCount) * sizeof(IMAGE_SECTION_HEADER))) return false;
    pe.sections = reinterpret_cast<const IMAGE_SECTION_HEADER*>(pe.bytes.data() + sectionsAt);
    dir = nt.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    return true;
}

}  // namespace

bool readExports(const std::string& path, std::vector<std::string>& functions, std::vector<std::string>& data) {
    PeImage pe;
    if (!readFile(path.c_str(), pe.bytes)) return false;
    IMAGE_DATA_DIRECTORY dir;
    if (!readHeaders(pe, dir)) return false;
    IMAGE_EXPORT_DIRECTORY ex;
    if (dir.Size == 0) return true;  // exports nothing
    if (!pe.read(dir.VirtualAddress, ex)) return false;
    for (DWORD i = 0; i < ex.NumberOfNames; ++i) {
        DWORD nameRva = 0, rva = 0;
        WORD ordinal = 0;
        if (!pe.read(ex.AddressOfNames + 4 * i, nameRva) || !pe.read(ex.AddressOfNameOrdinals + 2 * i, ordinal) ||
            !pe.read(ex.AddressOfFunctions + 4 * DWORD(ordinal), rva))
            return false;
        const char* name = pe.at(nameRva, 1);
        const IMAGE_SECTION_HEADER* s = pe.sectionOf(rva);
        if (!name || !s) continue;
        const size_t room = static_cast<size_t>(pe.bytes.data() + pe.bytes.size() - name);
        (s->Characteristics & IMAGE_SCN_MEM_EXECUTE ? functions : data).emplace_back(name, strnlen(name, room));
    }
    std::sort(functions.begin(), functions.end());
    std::sort(data.begin(), data.end());
    return true;
}

}  // namespace kv::platform
