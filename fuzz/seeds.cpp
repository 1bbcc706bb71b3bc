// Writes the seed corpora of the fuzz harnesses: kelvane_fuzz_seeds DIR makes DIR/<harness>/
// with sound files made by the library's own writers and a few hand-made hostile ones.
// A harness for another reader adds one function to the table at the bottom.
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "imagefiles.h"
#include "kelvane/Kelvane4.h"
#include "util/bytes.h"
#include "platform/fileio.h"

namespace {

namespace fs = std::filesystem;

float call(KelvaneFn fn, const char* text, double number = 0, const char* mem1 = nullptr) {
    char block[1024] = {};
    if (mem1) std::snprintf(block, sizeof block, "%s", mem1);
    char mem2[16] = {};
    return fn(text, number, mem1 ? block : nullptr, mem2);
}

void put(const fs::path& path, const std::vector<char>& bytes) {
    if (!kv::storeFile(path.c_str(), bytes.data(), bytes.size())) throw std::runtime_error("cannot write " + path.string());
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


using Bytes = std::vector<char>;

Bytes read(const fs::path& path) {
    Bytes b;
    if (!kv::readFile(path.c_str(), b)) throw std::runtime_error("cannot read " + path.string());
    return b;
}

Bytes text(const std::string& s) { return {s.begin(), s.end()}; }

// A seed of a harness that reads parameter bytes, then a 16-bit length, then two files.
Bytes seed(std::initializer_list<uint8_t> params, const Bytes& first, const Bytes& second) {
    Bytes out;
    for (uint8_t p : params) out.push_back(static_cast<char>(p));
    out.push_back(static_cast<char>(first.size() >> 8));
    out.push_back(static_cast<char>(first.size()));
    out.insert(out.end(), first.begin(), first.end());
    out.insert(out.end(), second.begin(), second.end());
    return out;
}

// A seed of a harness that reads parameter bytes, then one file.
Bytes seed(std::initializer_list<uint8_t> params, const Bytes& file) {
    Bytes out;
    for (uint8_t p : params) out.push_back(static_cast<char>(p));
    out.insert(out.end(), file.begin(), file.end());
    return out;
}

// Vyx files: a 32-byte header, blocks of tag, length, count, a fourth word and records.
struct Vyx {
    Bytes bytes = Bytes(32, 'H');
    Vyx& block(uint32_t tag, uint32_t count, std::initializer_list<uint32_t> words) {
        for (uint32_t w : {tag, static_cast<uint32_t>(16 + 4 * words.size()), count, 0u}) kv::appendU32BE(bytes, w);
        for (uint32_t w : words) kv::appendU32BE(bytes, w);
        return *this;
    }
    Vyx& floats(uint32_t tag, uint32_t count, std::initializer_list<float> fs) {
        for (uint32_t w : {tag, static_cast<uint32_t>(16 + 4 * fs.size()), count, 0u}) kv::appendU32BE(bytes, w);
        for (float f : fs) kv::appendF32BE(bytes, f);
        return *this;
    }
    Vyx& end() {
        bytes.resize(bytes.size() + 16, '\0');
        return *this;
    }
};
constexpr uint32_t kTri = 0xFFFFFFFFu;

Vyx quadAndTriangle() {  // four vertices, their colours, a quad, a triangle, UVs over two tiles
    Vyx v;
    v.floats(10001, 4, {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, -2.5f})
        .block(35001, 4, {0x0000FF00u, 0x00FF0000u, 0xFF000000u, 0x10203000u})
        .block(20001, 2, {0, 1, 2, 3, 2, 3, 0, kTri})
        .floats(25001, 2, {0.5f, 0.5f, 0.9f, 0.1f, 1.5f, 0.2f, 0.1f, 0.9f, 1.25f, 0.5f, -1.0f, 2.0f, 1.5f, 0.5f, 0, 0})
        .end();
    return v;
}

void vyxSeeds(const fs::path& dir) {
    const Bytes mesh = quadAndTriangle().bytes;
    Vyx base;  // getFaceIDs reads a file whose first block holds the faces
    base.block(20001, 3, {0, 1, 2, kTri, 0, 1, 2, 3, 1, 2, 3, kTri}).end();
    put(dir / "mesh-level1", seed({1}, base.bytes, mesh));
    put(dir / "mesh-level2", seed({2}, base.bytes, mesh));
    Vyx bare;  // no colours, no UVs
    bare.floats(10001, 1, {1, 2, 3}).block(20001, 1, {0, 0, 0, kTri}).end();
    put(dir / "bare", seed({1}, base.bytes, bare.bytes));
    Vyx lying;  // counts beyond the file, a zero length
    lying.block(10001, 0x7FFFFFFFu, {0, 0, 0}).block(35001, 0, {}).block(20001, 0xFFFFFFFFu, {0, 1, 2, 3});
    put(dir / "lying", seed({3}, lying.bytes, lying.bytes));
}

void vytSeeds(const fs::path& dir) {
    // The vertex file of a one-group mesh, written by the library's own split.
    const fs::path obj = dir / "one.obj", vyt = dir / "one.Vyt";
    put(obj, text("v 9 9 9\nv 8 8 8\nv 7 7 7\nv 6 6 6\ng one\nf 1 2 3 4\n"));
    call(SplitOBJtoVyx, obj.c_str(), 0, (dir / "x").c_str());  // named after the group
    const Bytes vertices = read(vyt);
    fs::remove(obj);
    fs::remove(vyt);
    put(dir / "swap", seed({}, vertices, quadAndTriangle().bytes));
    Vyx late;  // the vertex block after another block
    late.block(777, 1, {5}).floats(10001, 4, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}).end();
    put(dir / "late-block", seed({}, vertices, late.bytes));
    Bytes shortVertices(vertices.begin(), vertices.begin() + 20);
    put(dir / "cut-vertices", seed({}, shortVertices, quadAndTriangle().bytes));
}

const char* const kPart =
    "# a part\nmtllib part.mtl\nv 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0.5 0.5 1\nvt 0 0\nvn 0 0 1\n"
    "g left\nusemtl m\nf 1/1/1 2/1/1 3/1/1 4/1/1\ng right\nf 1//1 2//1 5//1\nf 2 3 5\ng left\nf 3 4 5\n";
const char* const kMesh = "v 0 0 0\nv 1 0 0\nv 1 1 0\n# comment\nf 1 2 3\n";

void objSeeds(const fs::path& dir) {
    put(dir / "part", seed({0, 0}, text(kPart), text(kMesh)));
    put(dir / "crlf", seed({8, 47}, text("v 1 2 3\r\nv 4 5 6\r\ng a\r\nf 1 2\r\n"), text("v 0 0 0\r\nf 1\r\n")));
    put(dir / "odd", seed({255, 200}, text("g\nf\nf -1 0 2147483648 4294967295\nv\ng ../up\nf 1\n"), text("v")));
    // The combined mesh the library builds from two parts.
    const fs::path a = dir / "arm.obj", b = dir / "leg.obj", combined = dir / "combined.obj";
    put(a, text(kPart));
    put(b, text(kMesh));
    call(GroupListClear, nullptr);
    call(AppendOBJ, a.c_str(), 0, combined.c_str());
    call(AppendOBJ, b.c_str(), 5, combined.c_str());
    call(GroupListClear, nullptr);
    put(dir / "combined", seed({5, 12}, read(combined), text(kMesh)));
    fs::remove(a);
    fs::remove(b);
    fs::remove(combined);
}

void grouplistSeeds(const fs::path& dir) {
    // A list and its combined mesh, both written by the library.
    const fs::path a = dir / "arm.obj", b = dir / "leg.obj", combined = dir / "combined.obj", list = dir / "groups.lst";
    put(a, text(kPart));
    put(b, text(kMesh));
    call(GroupListClear, nullptr);
    call(AppendOBJ, a.c_str(), 0, combined.c_str());
    call(AppendOBJ, b.c_str(), 5, combined.c_str());
    call(GroupListSave, list.c_str());
    put(dir / "appended", seed({0}, read(list), read(combined)));
    call(GroupListClear, nullptr);
    call(GroupListAdd, "same", 1);
    call(GroupListAdd, "same", 2);
    call(GroupListAdd, "../outside", 1);
    call(GroupListSave, list.c_str());
    call(GroupListClear, nullptr);
    Bytes tail = read(list);
    tail.resize(tail.size() + 40, 'x');  // a partial record at the end
    put(dir / "names", seed({100}, tail, text("v 1 1 1\nv 2 2 2\nf 1 2\nf 2 1\nf 1\nf 2\n")));
    Bytes wild(136, 'n');  // no terminator, faces from -2^31 to 2^31-1
    for (size_t i : {128u, 132u}) wild[i] = i == 128 ? '\x80' : '\x7F';
    std::fill(wild.begin() + 129, wild.begin() + 132, '\0');
    std::fill(wild.begin() + 133, wild.end(), '\xFF');
    put(dir / "wide-range", seed({255}, wild, text(kMesh)));
    for (const fs::path& p : {a, b, combined, list}) fs::remove(p);
}

Bytes bytesOf(const std::string& s) { return {s.begin(), s.end()}; }

void numbersSeeds(const fs::path& dir) {
    const char* const lines[] = {
        "v 1.5 -2.25 300", "v  -0.000123\t16777217 12345678.87654321\r", "v 0.1 1e-3 3.4028236e38",
        "v 123456789012345678901 0.12345678901234567890 -.5", "v +1 --2 3", "v 1.5x 2 3",
        "f 1/2/3 4//5 -6/1 +7", "f 12345678 2147483648 3", "f\t1 2\t3 4/\r", "f 99999999 -2147483648 0",
        "\xff\xff\xff\x7f\x01\x02\x80\x3f",
    };
    int k = 0;
    for (const char* line : lines) put(dir / ("line" + std::to_string(k++)), bytesOf(line));
}

void bmpSeeds(const fs::path& dir) {
    put(dir / "crop", seed({0, 1, 0, 2}, bytesOf(kvtest::makeBmp(6, 5))));  // column 1, width 2
    put(dir / "padded", seed({0, 0, 0, 5}, bytesOf(kvtest::makeBmp(5, 7))));
    std::string cut = kvtest::makeBmp(4, 4);
    cut.resize(70);
    put(dir / "cut", seed({0, 2, 0, 1}, bytesOf(cut)));
}

void psdSeeds(const fs::path& dir) {
    using kvtest::Rgb;
    kvtest::Psd p;
    p.rows = 5;
    p.columns = 7;
    p.pixels([](size_t k) { return k % 3 ? Rgb{0, 0, 0} : Rgb{255, 128, int(k)}; });
    put(dir / "rgb", seed({0, 0, 0, 255, 255, 255, 100, 3}, bytesOf(p.bytes())));  // black to white
    p.resources = "8BIMxx";
    p.layers = std::string(10, 'L');
    put(dir / "sections", seed({255, 128, 0, 0, 0, 1, 0, 16}, bytesOf(p.bytes())));
    kvtest::Psd gray = kvtest::uniform(3, 3, {9, 9, 9});
    gray.mode = 1;
    put(dir / "gray", seed({9, 9, 9, 1, 2, 3, 255, 1}, bytesOf(gray.bytes())));
}

void psdmergeSeeds(const fs::path& dir) {
    using kvtest::Rgb;
    kvtest::Psd big;  // large enough to be healed
    big.rows = big.columns = 100;
    big.pixels([](size_t k) { return Rgb{int(k % 256), int(k / 256 % 256), 7}; });
    const Bytes first = bytesOf(big.bytes());
    const Bytes second = bytesOf(kvtest::uniform(100, 100, {0, 0, 0}).bytes());
    put(dir / "heal-rows", seed({0, 0, 0, 0}, first, second));
    put(dir / "heal-columns", seed({0, 0, 0, 1}, first, second));
    const Bytes small = bytesOf(kvtest::uniform(4, 3, {1, 2, 3}).bytes());
    put(dir / "merge", seed({1, 2, 3, 0}, small, bytesOf(kvtest::uniform(4, 3, {9, 9, 9}).bytes())));
    put(dir / "sizes-differ", seed({1, 2, 3, 0}, small, bytesOf(kvtest::uniform(3, 4, {9, 9, 9}).bytes())));
}

struct Harness {
    const char* name;
    void (*seeds)(const fs::path& dir);
};
const Harness kHarnesses[] = {
    {"prj", prjSeeds},   {"vyx", vyxSeeds},           {"vyt", vytSeeds}, {"obj", objSeeds},
    {"grouplist", grouplistSeeds}, {"numbers", numbersSeeds}, {"bmp", bmpSeeds}, {"psd", psdSeeds}, {"psdmerge", psdmergeSeeds},
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
