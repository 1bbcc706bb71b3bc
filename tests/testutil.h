// Helpers shared by the tests: temporary folders, whole files, big-endian words, calls made the
// way the host makes them and a sandbox that shows writes outside its output folder.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

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
// The names in a folder, sorted, separated by blanks.
std::string listing(const std::string& dir);

// Calls an export as the host does, with a scratch memBlock2.
float callFn(KelvaneFn fn, const char* text = nullptr, double number = 0, const char* mem1 = nullptr);
inline float callFn(KelvaneFn fn, const std::string& text, double number = 0, const std::string& mem1 = "") {
    return callFn(fn, text.c_str(), number, mem1.c_str());
}

// Big-endian words and floats, as the Vyx, vertex, list and project files store them.
std::string be32(uint32_t v);
std::string f32(float f);

// Runs a shell command and returns its standard output; status receives the exit status.
std::string run(const std::string& command, int* status = nullptr);

// A temporary tree: root/in (inputs), root/a/b/out (the output folder), and a marker file in
// each level around out/, so that writes through "..", absolute names or a wrong folder show
// up as changes outside out/.
struct Sandbox {
    TempDir root;
    std::string in, out;
    Sandbox();
    std::string input(const std::string& name, const std::string& bytes) const;
    std::map<std::string, std::string> tree() const;     // every file below root ("<dir>" for folders)
    std::map<std::string, std::string> outside() const;  // the part of tree() outside out/ and in/
    std::map<std::string, std::string> outputs() const;  // the entries of out/
    void clearOut() const;
};

inline bool oneOf(float r, const std::vector<float>& codes) { return std::find(codes.begin(), codes.end(), r) != codes.end(); }

}  // namespace kvtest
