// Helpers shared by the tests: temporary folders and whole-file access.
#pragma once

#include <cstdint>
#include <string>

#include "kelvane/Kelvane4.h"

namespace kvtest {

// A fresh folder under the system's temporary folder, removed with its content on destruction.
struct TempDir {
    std::string path;  // without a trailing separator
    TempDir();
    ~TempDir();
    std::string operator/(const std::string& name) const { return path + "/" + name; }
};

std::string readAll(const std::string& path);
void writeAll(const std::string& path, const std::string& bytes);
bool exists(const std::string& path);

// Calls an export as the host does, with a scratch memBlock2.
float callFn(KelvaneFn fn, const char* text = nullptr, double number = 0, const char* mem1 = nullptr);

// Big-endian words and floats, as the Vyx, vertex, list and project files store them.
std::string be32(uint32_t v);
std::string f32(float f);

// Runs a shell command and returns its standard output; status receives the exit status.
std::string run(const std::string& command, int* status = nullptr);

}  // namespace kvtest
