// Loading the plug-in into a program, as the host does, and reading the export table of its
// file: used by the host emulator `kelvane` only. LibraryPosix.cpp and LibraryWindows.cpp
// implement it.
#pragma once

#include <string>
#include <vector>

namespace kv::platform {

// The plug-in beside the running program (a build folder), else in the library folder of its
// installation, else the one in the build folder the program was built in.
std::string defaultPluginPath();

// Loads the library at path with all its symbols resolved now. Null, with the system's reason
// in error, when it cannot be loaded.
void* loadLibrary(const std::string& path, std::string& error);

// The address of the exported symbol name, or null.
void* findSymbol(void* library, const char* name);

void unloadLibrary(void* library);

// The names the library file at path exports, functions and data apart, each list sorted.
// False when the file is no library of this system.
bool readExports(const std::string& path, std::vector<std::string>& functions, std::vector<std::string>& data);

}  // namespace kv::platform
