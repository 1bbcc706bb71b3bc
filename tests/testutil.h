// Helpers shared by the tests: temporary folders and whole-file access.
#pragma once

#include <string>

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

// Runs a shell command and returns its standard output; status receives the exit status.
std::string run(const std::string& command, int* status = nullptr);

}  // namespace kvtest
