#include "testutil.h"

#include <gtest/gtest.h>
#ifndef _WIN32
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
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

bool oneOf(float r, const std::vector<float>& codes) { return std::find(codes.begin(), codes.end(), r) != codes.end(); }

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
    std::string bytes;
    if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
        char buf[65536];
        for (size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;) bytes.append(buf, n);
        std::fclose(f);
    }
    return bytes;
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

std::map<std::string, std::string> Sandbox::tree() const {
    std::map<std::string, std::string> files;
    for (const auto& e : fs::recursive_directory_iterator(root.path))
        files[fs::relative(e.path(), root.path).string()] = e.is_directory() ? "<dir>" : readAll(e.path().string());
    return files;
}

std::map<std::string, std::string> Sandbox::outside() const {
    std::map<std::string, std::string> files = tree();
    std::erase_if(files, [](const auto& kv) { return kv.first.rfind("a/b/out/", 0) == 0; });
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

#ifdef _WIN32
void expectBoundedInChild(size_t, const std::function<void()>& fn) {
    fn();
    GTEST_SKIP() << "the call's checks ran; its peak memory is measured in a forked child, on Linux";
}
#else
namespace {

// A field of /proc/self/status in KiB, or -1.
long statusKiB(const char* field) {
    std::FILE* f = std::fopen("/proc/self/status", "r");
    if (!f) return -1;
    char line[256];
    long value = -1;
    const size_t n = std::strlen(field);
    while (std::fgets(line, sizeof line, f))
        if (std::strncmp(line, field, n) == 0 && line[n] == ':') value = std::atol(line + n + 1);
    std::fclose(f);
    return value;
}

}  // namespace

Measured inChild(const std::function<float()>& fn) {
    int fds[2];
    Measured m;
    if (::pipe(fds) != 0) return m;
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(fds[0]);
        ::malloc_trim(0);  // free memory inherited from the parent would hide a call's growth
        if (std::FILE* c = std::fopen("/proc/self/clear_refs", "w")) {  // the peak := resident now
            std::fputs("5", c);
            std::fclose(c);
        }
        const long before = statusKiB("VmRSS");
        Measured r;
        r.result = fn();
        r.growthKiB = statusKiB("VmHWM") - before;
        r.ok = before >= 0;
        (void)!::write(fds[1], &r, sizeof r);
        ::_exit(0);
    }
    ::close(fds[1]);
    if (pid > 0) {
        if (::read(fds[0], &m, sizeof m) != ssize_t(sizeof m)) m.ok = false;
        int status = 0;
        ::waitpid(pid, &status, 0);
    }
    ::close(fds[0]);
    return m;
}

void expectBoundedInChild(size_t inputBytes, const std::function<void()>& fn) {
    const Measured m = inChild([&] {
        fn();
        return ::testing::Test::HasFailure() ? -1.f : 0.f;
    });
    ASSERT_TRUE(m.ok) << "no report from the child";
    EXPECT_EQ(m.result, 0) << "a check failed in the child";
    if (!kUnderAsan) {
        EXPECT_LE(m.growthKiB, long(4 * inputBytes / 1024) + 24 * 1024);
    }
}

#endif

}  // namespace kvtest
