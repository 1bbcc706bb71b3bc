#include "hostile.h"

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace kvtest {

namespace {

// A whole file with one read (the snapshots read inputs of 10 MB many times).
std::string readFast(const std::string& path) {
    std::string bytes;
    if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
        bytes.resize(fs::file_size(path));
        bytes.resize(std::fread(bytes.data(), 1, bytes.size(), f));
        std::fclose(f);
    }
    return bytes;
}

}  // namespace

Sandbox::Sandbox() {
    in = root / "in";
    out = root / "a/b/out";
    fs::create_directories(in);
    fs::create_directories(out);
    writeAll(root / "marker", "root");
    writeAll(root / "a/marker", "a");
    writeAll(root / "a/b/marker", "b");
}

std::string Sandbox::input(const std::string& name, const std::string& bytes) const {
    const std::string path = in + "/" + name;
    writeAll(path, bytes);
    return path;
}

std::map<std::string, std::string> Sandbox::tree() const {
    std::map<std::string, std::string> files;
    for (const auto& e : fs::recursive_directory_iterator(root.path)) {
        const std::string rel = fs::relative(e.path(), root.path).string();
        files[rel] = e.is_directory() ? "<dir>" : readFast(e.path().string());
    }
    return files;
}

std::map<std::string, std::string> Sandbox::outside() const {
    std::map<std::string, std::string> files = tree();
    std::erase_if(files, [](const auto& kv) { return kv.first.rfind("a/b/out/", 0) == 0; });
    return files;
}

std::map<std::string, std::string> Sandbox::outputs() const {
    std::map<std::string, std::string> files;
    for (const auto& e : fs::directory_iterator(out)) files[e.path().filename().string()] = e.is_directory() ? "<dir>" : readFast(e.path().string());
    return files;
}

void Sandbox::clearOut() const {
    for (const auto& e : fs::directory_iterator(out)) fs::remove_all(e.path());
}

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
        // Free heap memory inherited from the parent is still resident, and a call that reuses it
        // would not grow the resident size: hand it back first.
        ::malloc_trim(0);
        // Reset the peak to the present resident size, so that VmHWM afterwards is the call's peak.
        if (std::FILE* c = std::fopen("/proc/self/clear_refs", "w")) {
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
        if (std::getenv("KV_SHOW_MEMORY")) {
            const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
            std::printf("%s: peak growth %ld KiB\n", test ? test->name() : "?", m.growthKiB);
        }
        int status = 0;
        ::waitpid(pid, &status, 0);
    }
    ::close(fds[0]);
    return m;
}

}  // namespace kvtest
