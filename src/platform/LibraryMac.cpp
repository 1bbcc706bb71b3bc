// The plug-in's place and the export reader on macOS: the program's own path from dyld, and the
// symbol table of a Mach-O dynamic library (of the first architecture of a universal file).
#include <libkern/OSByteOrder.h>
#include <mach-o/dyld.h>
#include <mach-o/fat.h>
#include <mach-o/loader.h>
#include <mach-o/nlist.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "platform/fileio.h"
#include "platform/library.h"

namespace kv::platform {

// The plug-in beside the program (a build folder), in the library folder of its installation
// (../lib, the configured library folder), else in the build folder.
std::string defaultPluginPath() {
    char self[PATH_MAX];
    uint32_t size = sizeof self;
    char real[PATH_MAX];
    if (_NSGetExecutablePath(self, &size) == 0 && ::realpath(self, real)) {
        std::string dir(real);
        dir = dir.substr(0, dir.find_last_of('/') + 1);
        for (std::string lib : {"", "../lib/", KELVANE_BIN_TO_LIB "/"})
            if (::access((dir + lib + "libKelvane4.dylib").c_str(), R_OK) == 0) return dir + lib + "libKelvane4.dylib";
    }
    return KELVANE_BUILD_DIR "/libKelvane4.dylib";
}

namespace {

// A record of type T at offset off of the file, when it lies wholly inside.
template <typename T>
bool readAt(const std::vector<char>& bytes, uint64_t off, T& out) {
    if (off > bytes.size() || sizeof(T) > bytes.size() - off) return false;
    std::memcpy(&out, bytes.data() + off, sizeof(T));
    return true;
}

// The offset of the first architecture's Mach-O image in a universal file, 0 for a thin one.
bool imageOffset(const std::vector<char>& bytes, uint64_t& offset) {
    offset = 0;
    fat_header fat;
    if (!readAt(bytes, 0, fat)) return false;
    if (OSSwapBigToHostInt32(fat.magic) == FAT_MAGIC) {
        fat_arch arch;
        if (OSSwapBigToHostInt32(fat.nfat_arch) == 0 || !readAt(bytes, sizeof fat, arch)) return false;
        offset = OSSwapBigToHostInt32(arch.offset);
    } else if (OSSwapBigToHostInt32(fat.magic) == FAT_MAGIC_64) {
        fat_arch_64 arch;
        if (OSSwapBigToHostInt32(fat.nfat_arch) == 0 || !readAt(bytes, sizeof fat, arch)) return false;
        offset = OSSwapBigToHostInt64(arch.offset);
    }
    return true;
}

}  // namespace

// The external symbols a Mach-O library defines, without the leading underscore; those in a
// section of instructions are functions, the rest data.
bool readExports(const std::string& path, std::vector<std::string>& functions, std::vector<std::string>& data) {
    std::vector<char> bytes;
    uint64_t base = 0;
    mach_header_64 header;
    if (!readFile(path.c_str(), bytes) || !imageOffset(bytes, base) || !readAt(bytes, base, header) ||
        header.magic != MH_MAGIC_64 || header.filetype != MH_DYLIB)
        return false;
    std::vector<uint32_t> sectionFlags(1);  // sections are numbered from 1
    symtab_command symtab{};
    uint64_t at = base + sizeof header;
    for (uint32_t i = 0; i < header.ncmds; ++i) {
        load_command command;
        if (!readAt(bytes, at, command) || command.cmdsize < sizeof command) return false;
        if (command.cmd == LC_SEGMENT_64) {
            segment_command_64 segment;
            if (!readAt(bytes, at, segment)) return false;
            for (uint32_t s = 0; s < segment.nsects; ++s) {
                section_64 section;
                if (!readAt(bytes, at + sizeof segment + uint64_t(s) * sizeof section, section)) return false;
                sectionFlags.push_back(section.flags);
            }
        } else if (command.cmd == LC_SYMTAB && !readAt(bytes, at, symtab)) {
            return false;
        }
        at += command.cmdsize;
    }
    const uint64_t strings = base + symtab.stroff;
    if (strings > bytes.size() || symtab.strsize > bytes.size() - strings) return false;
    for (uint32_t i = 0; i < symtab.nsyms; ++i) {
        nlist_64 symbol;
        if (!readAt(bytes, base + symtab.symoff + uint64_t(i) * sizeof symbol, symbol)) return false;
        if ((symbol.n_type & N_STAB) || !(symbol.n_type & N_EXT) || (symbol.n_type & N_PEXT) ||
            (symbol.n_type & N_TYPE) != N_SECT || symbol.n_sect >= sectionFlags.size() ||
            symbol.n_un.n_strx >= symtab.strsize)
            continue;
        const char* name = bytes.data() + strings + symbol.n_un.n_strx;
        const size_t length = strnlen(name, symtab.strsize - symbol.n_un.n_strx);
        if (length < 2 || name[0] != '_') continue;
        const bool code = sectionFlags[symbol.n_sect] & (S_ATTR_PURE_INSTRUCTIONS | S_ATTR_SOME_INSTRUCTIONS);
        (code ? functions : data).emplace_back(name + 1, length - 1);
    }
    std::sort(functions.begin(), functions.end());
    std::sort(data.begin(), data.end());
    return true;
}

}  // namespace kv::platform
