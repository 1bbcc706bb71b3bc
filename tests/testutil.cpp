#include "testutil.h"

#ifndef _WIN32
#include <sys/wait.h>
#endif

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>

namespace fs = std::filesystem;

namespace kvtest {

float callFn(KelvaneFn fn, const char* text, double number, const char* mem1) {
    char mem2[8] = {};
    return fn(text, number, const_cast<char*>(mem1), mem2);
}

std::string be32(uint32_t v) {
    return {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8), static_cast<char>(v)};
}
std::string f32(float f) { return be32(std::bit_cast<uint32_t>(f)); }

TempDir::TempDir() {
    std::random_device random;
    for (int attempt = 0; attempt < 100 && path.empty(); ++attempt) {
        const fs::path dir = fs::temp_directory_path() / ("kelvane-test-" + std::to_string(random()));
        if (fs::create_directory(dir)) path = dir.generic_string();
    }
    if (path.empty()) throw std::runtime_error("cannot create a temporary folder");
}

TempDir::~TempDir() {
    std::error_code ec;
    fs::remove_all(path, ec);
}

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeAll(const std::string& path, const std::string& bytes) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    const bool ok = f && std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    if (!f || std::fclose(f) != 0 || !ok) throw std::runtime_error("cannot write " + path);
}

bool exists(const std::string& path) {
    std::error_code ec;
    return fs::exists(path, ec);
}

std::string listing(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(dir)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    std::string s;
    for (const std::string& n : names) s += n + " ";
    return s;
}

std::string run(const std::string& command, int* status) {
    std::string out;
    FILE* p = popen(command.c_str(), "r");
    if (!p) throw std::runtime_error("popen failed");
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
    const int rc = pclose(p);
#ifdef _WIN32
    if (status) *status = rc;
#else
    if (status) *status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
#endif
    return out;
}

Sandbox::Sandbox() : in(root / "in"), out(root / "a/b/out") {
    fs::create_directories(in);
    fs::create_directories(out);
    writeAll(root / "marker", "root");
    writeAll(root / "a/marker", "a");
    writeAll(root / "a/b/marker", "b");
}

std::string Sandbox::input(const std::string& name, const std::string& bytes) const {
    writeAll(in + "/" + name, bytes);
    return in + "/" + name;
}

std::map<std::string, std::string> Sandbox::tree() const {  // relative paths with "/" everywhere
    std::map<std::string, std::string> files;
    for (const auto& e : fs::recursive_directory_iterator(root.path))
        files[fs::relative(e.path(), root.path).generic_string()] = e.is_directory() ? "<dir>" : readAll(e.path().string());
    return files;
}

std::map<std::string, std::string> Sandbox::outside() const {
    std::map<std::string, std::string> files = tree();
    std::erase_if(files, [](const auto& kv) { return kv.first.starts_with("a/b/out/") || kv.first.starts_with("in/"); });
    return files;
}

std::map<std::string, std::string> Sandbox::outputs() const {
    std::map<std::string, std::string> files;
    for (const auto& e : fs::directory_iterator(out))
        files[e.path().filename().string()] = e.is_directory() ? "<dir>" : readAll(e.path().string());
    return files;
}

void Sandbox::clearOut() const {
    for (const auto& e : fs::directory_iterator(out)) fs::remove_all(e.path());
}

}  // namespace kvtest
