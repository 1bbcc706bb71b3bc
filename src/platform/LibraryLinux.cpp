// The plug-in's place and the export reader on Linux: the program's own path from /proc, and
// the ELF dynamic symbol table.
#include <elf.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "platform/fileio.h"
#include "platform/library.h"

namespace kv::platform {

// The plug-in beside the program (a build folder), in the library folder of its installation
// (../lib, the configured library folder, the multiarch one), else in the build folder.
std::string defaultPluginPath() {
    char self[4096];
    ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
    if (n > 0) {
        self[n] = '\0';
        std::string dir(self);
        dir = dir.substr(0, dir.find_last_of('/') + 1);
        for (std::string lib : {"", "../lib/", KELVANE_BIN_TO_LIB "/", "../lib/" KELVANE_MULTIARCH "/"})
            for (const char* name : {"libKelvane4.so", "libKelvane4.so.4"})
                if (::access((dir + lib + name).c_str(), R_OK) == 0) return dir + lib + name;
    }
    return KELVANE_BUILD_DIR "/libKelvane4.so";
}

// The exported symbols of an ELF shared object, read from its dynamic symbol table.
bool readExports(const std::string& path, std::vector<std::string>& functions, std::vector<std::string>& data) {
    std::vector<char> bytes;
    if (!readFile(path.c_str(), bytes)) return false;
    const size_t fileSize = bytes.size();
    bytes.push_back('\0');  // a name at the very end still ends
    if (fileSize < sizeof(Elf64_Ehdr) || std::memcmp(bytes.data(), ELFMAG, SELFMAG) != 0 ||
        bytes[EI_CLASS] != ELFCLASS64)
        return false;
    auto at = [&](uint64_t off, uint64_t size) { return off <= fileSize && size <= fileSize - off; };
    Elf64_Ehdr eh;
    std::memcpy(&eh, bytes.data(), sizeof eh);
    if (!at(eh.e_shoff, uint64_t(eh.e_shnum) * sizeof(Elf64_Shdr))) return false;
    std::vector<Elf64_Shdr> sh(eh.e_shnum);
    std::memcpy(sh.data(), bytes.data() + eh.e_shoff, sh.size() * sizeof(Elf64_Shdr));
    for (const Elf64_Shdr& s : sh) {
        if (s.sh_type != SHT_DYNSYM || s.sh_link >= sh.size()) continue;
        const Elf64_Shdr& strs = sh[s.sh_link];
        if (!at(s.sh_offset, s.sh_size) || !at(strs.sh_offset, strs.sh_size)) return false;
        for (uint64_t off = 0; off + sizeof(Elf64_Sym) <= s.sh_size; off += sizeof(Elf64_Sym)) {
            Elf64_Sym sym;
            std::memcpy(&sym, bytes.data() + s.sh_offset + off, sizeof sym);
            if (sym.st_shndx == SHN_UNDEF || sym.st_shndx == SHN_ABS || sym.st_name >= strs.sh_size) continue;
            if (ELF64_ST_BIND(sym.st_info) == STB_LOCAL) continue;
            std::string name(bytes.data() + strs.sh_offset + sym.st_name);
            if (name.empty()) continue;
            if (ELF64_ST_TYPE(sym.st_info) == STT_FUNC) functions.push_back(name);
            else if (ELF64_ST_TYPE(sym.st_info) == STT_OBJECT) data.push_back(name);
        }
    }
    std::sort(functions.begin(), functions.end());
    std::sort(data.begin(), data.end());
    return true;
}

}  // namespace kv::platform
