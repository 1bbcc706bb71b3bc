#include "harness.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/fileio.h"

namespace kvfuzz {
namespace {

struct Scratch {
    std::string dir, out, input, outName;
    char mem1[65536];

    Scratch() {
        const char* base = std::getenv("KELVANE_FUZZ_TMP");
        if (!base || !*base) base = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        std::string tmpl = std::string(base) + "/kelvane-fuzz-XXXXXX";
        KV_FUZZ_CHECK(::mkdtemp(tmpl.data()) != nullptr);
        dir = tmpl;
        out = dir + "/out";
        KV_FUZZ_CHECK(::mkdir(out.c_str(), 0700) == 0);
    }
    ~Scratch() {
        std::error_code ec;
        std::filesystem::remove_all(dir, ec);
    }
};

Scratch& scratch() {
    static Scratch s;  // removed with its content when the fuzzer exits
    return s;
}

}  // namespace

const char* writeInput(const uint8_t* data, size_t size, const char* name) {
    Scratch& s = scratch();
    s.input = s.dir + "/" + name;
    KV_FUZZ_CHECK(kv::storeFile(s.input.c_str(), data, size));
    return s.input.c_str();
}

const char* outPath(const char* name) {
    Scratch& s = scratch();
    s.outName = s.out + "/" + name;
    return s.outName.c_str();
}

const char* call(KelvaneFn fn, const char* text, double number, const char* mem1, float* result) {
    Scratch& s = scratch();
    char* block = nullptr;
    if (mem1) {
        const size_t n = std::min(std::strlen(mem1), sizeof s.mem1 - 1);
        std::memcpy(s.mem1, mem1, n);
        s.mem1[n] = '\0';
        block = s.mem1;
    }
    char mem2[16] = {};
    float r = fn(text, number, block, mem2);
    if (result) *result = r;
    return s.mem1;
}

void checkOutput(bool (*allowed)(const char* name)) {
    Scratch& s = scratch();
    const std::string inputName = s.input.substr(s.input.rfind('/') + 1);

    DIR* top = ::opendir(s.dir.c_str());
    KV_FUZZ_CHECK(top != nullptr);
    while (const dirent* e = ::readdir(top)) {
        const char* n = e->d_name;
        if (!std::strcmp(n, ".") || !std::strcmp(n, "..") || !std::strcmp(n, "out") || inputName == n) continue;
        std::fprintf(stderr, "written outside the output folder: %s\n", n);
        std::abort();
    }
    ::closedir(top);

    DIR* out = ::opendir(s.out.c_str());
    KV_FUZZ_CHECK(out != nullptr);
    while (const dirent* e = ::readdir(out)) {
        const char* n = e->d_name;
        if (!std::strcmp(n, ".") || !std::strcmp(n, "..")) continue;
        const std::string path = s.out + "/" + n;
        struct stat st {};
        KV_FUZZ_CHECK(::lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode));
        if (!allowed(n)) {
            std::fprintf(stderr, "unexpected output name: %s\n", n);
            std::abort();
        }
        KV_FUZZ_CHECK(::unlink(path.c_str()) == 0);
    }
    ::closedir(out);
}

std::map<std::string, std::string> takeOutputs(bool (*allowed)(const char* name), std::initializer_list<const char*> keep) {
    Scratch& s = scratch();
    std::map<std::string, std::string> files;
    DIR* out = ::opendir(s.out.c_str());
    KV_FUZZ_CHECK(out != nullptr);
    while (const dirent* e = ::readdir(out)) {
        const char* n = e->d_name;
        if (!std::strcmp(n, ".") || !std::strcmp(n, "..") ||
            std::any_of(keep.begin(), keep.end(), [&](const char* k) { return !std::strcmp(k, n); }))
            continue;
        if (!allowed(n)) {
            std::fprintf(stderr, "unexpected output name: %s\n", n);
            std::abort();
        }
        const std::string path = s.out + "/" + n;
        std::vector<char> bytes;
        KV_FUZZ_CHECK(kv::readFile(path.c_str(), bytes) && ::unlink(path.c_str()) == 0);
        files.emplace(n, std::string(bytes.begin(), bytes.end()));
    }
    ::closedir(out);
    return files;
}

bool anyName(const char*) { return true; }

std::string writeOutInput(const uint8_t* data, size_t size, const char* name) {
    std::string path = scratch().out + "/" + name;
    KV_FUZZ_CHECK(kv::storeFile(path.c_str(), data, size));
    return path;
}

}  // namespace kvfuzz
