// Writes the seed corpora of the fuzz harnesses: kelvane_fuzz_seeds DIR makes DIR/<harness>/
// with sound files made by the library's own writers and a few hand-made hostile ones.
// A harness for another reader adds one function to the table at the bottom.
#include <cstdio>
#include <filesystem>
#include <string>

#include "kelvane/Kelvane4.h"
#include "util/bytes.h"
#include "util/fileio.h"

namespace {

namespace fs = std::filesystem;

float call(KelvaneFn fn, const char* text, double number = 0, const char* mem1 = nullptr) {
    char block[1024] = {};
    if (mem1) std::snprintf(block, sizeof block, "%s", mem1);
    char mem2[16] = {};
    return fn(text, number, mem1 ? block : nullptr, mem2);
}

void put(const fs::path& path, const std::vector<char>& bytes) {
    if (!kv::writeFile(path.c_str(), bytes.data(), bytes.size())) throw std::runtime_error("cannot write " + path.string());
}

std::vector<char> words(std::initializer_list<uint32_t> ws) {
    std::vector<char> out;
    for (uint32_t w : ws) kv::appendU32BE(out, w);
    return out;
}

void prjSeeds(const fs::path& dir) {
    const std::string scene = (dir / "scene.prj").string(), refs = (dir / "refs.prj").string();
    const std::string dat12 = (dir / "12.dat").string(), dat7 = (dir / "7.dat").string();
    call(ClearTPoseList, nullptr);
    call(SetPrjModfier, nullptr, 3);
    call(AddTPoseRef, "rest pose", 1, "12X.dat");
    call(AddTPoseRef, "arms up", 2, "7X.dat");
    call(WritePrjFile, refs.c_str());
    fs::copy_file(refs, scene);
    put(dat12, {'p', 'o', 's', 'e', ' ', 'd', 'a', 't', 'a', '\n'});
    put(dat7, {});
    call(AddDatFile, dat12.c_str(), 0, scene.c_str());
    call(AddDatFile, dat7.c_str(), 0, scene.c_str());
    call(ClearTPoseList, nullptr);
    fs::remove(dat12);
    fs::remove(dat7);

    put(dir / "header-only.prj", words({0, 0, 0, 0}));
    std::vector<char> chunks = words({0, 0, 0, 0});  // lengths 0, 15, a sound one, then 2^32-1
    for (uint32_t w : {5u, 0u, 0u, 0u, 6u, 15u, 0u, 0u, 7u, 19u, 0u, 0u}) kv::appendU32BE(chunks, w);
    for (char c : {'a', 'b', 'c', 'c'}) chunks.push_back(c);
    for (uint32_t w : {8u, 0xFFFFFFFFu, 0u, 0u}) kv::appendU32BE(chunks, w);
    put(dir / "lengths.prj", chunks);
    std::vector<char> huge = words({0, 0, 0xFFFFFFFFu, 1});  // a count far beyond the file
    huge.resize(16 + 516 + 100, 'n');
    put(dir / "huge-count.prj", huge);
}

struct Harness {
    const char* name;
    void (*seeds)(const fs::path& dir);
};
const Harness kHarnesses[] = {
    {"prj", prjSeeds},
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: kelvane_fuzz_seeds DIR\n");
        return 2;
    }
    try {
        for (const Harness& h : kHarnesses) {
            const fs::path dir = fs::path(argv[1]) / h.name;
            fs::remove_all(dir);
            fs::create_directories(dir);
            h.seeds(dir);
            std::printf("%s: %zu seeds\n", h.name,
                        static_cast<size_t>(std::distance(fs::directory_iterator(dir), fs::directory_iterator())));
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "kelvane_fuzz_seeds: %s\n", e.what());
        return 1;
    }
    return 0;
}
