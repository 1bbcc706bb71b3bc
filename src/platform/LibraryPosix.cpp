// The plug-in loader on POSIX systems: dlopen and dlsym. Where the plug-in lies and the export
// reader differ by system: LibraryLinux.cpp (ELF), LibraryMac.cpp (Mach-O).
#include <dlfcn.h>

#include "platform/library.h"

namespace kv::platform {

void* loadLibrary(const std::string& path, std::string& error) {
    void* library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        const char* e = ::dlerror();
        error = e ? e : "cannot load " + path;
    }
    return library;
}

void* findSymbol(void* library, const char* name) { return ::dlsym(library, name); }

void unloadLibrary(void* library) { ::dlclose(library); }

}  // namespace kv::platform
