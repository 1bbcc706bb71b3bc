// Times the Vyx exports on a large generated mesh, as the host calls them:
//   vyxtoOBJ          against a straightforward std::ofstream << writer of the same OBJ text
//   SwapVertices_Vyx  rewriting the vertex positions of the same file
// Usage: kelvane_bench_vyx [vertex count, default 5000000] [folder, default a temporary one]
//        kelvane_bench_vyx --mesh FILE [vertex count]   (only writes the mesh)
// The mesh has as many faces as vertices (every fourth a triangle) and is removed afterwards.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <string>
#include <vector>

#include "kelvane/Kelvane4.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

// The process's CPU time so far (user + system, every thread): on a busy machine the steadier
// figure.
double cpuSeconds() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    auto s = [](const timeval& t) { return double(t.tv_sec) + double(t.tv_usec) / 1e6; };
    return s(u.ru_utime) + s(u.ru_stime);
}

void put32(std::vector<char>& out, uint32_t v) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<char>(v >> shift));
}

uint32_t get32(const char* p) {
    const auto* b = reinterpret_cast<const unsigned char*>(p);
    return (uint32_t(b[0]) << 24) | (uint32_t(b[1]) << 16) | (uint32_t(b[2]) << 8) | b[3];
}

// A small deterministic generator, so every run formats the same numbers.
struct Lcg {
    uint64_t s = 0x9E3779B97F4A7C15ull;
    uint32_t next() {
        s = s * 6364136223846793005ull + 1442695040888963407ull;
        return static_cast<uint32_t>(s >> 33);
    }
    float coordinate() { return static_cast<float>(next() % 2000001) / 20000.0f - 50.0f; }  // -50..50
};

void head(std::vector<char>& out, uint32_t tag, uint64_t length, uint32_t count) {
    put32(out, tag);
    put32(out, static_cast<uint32_t>(length));
    put32(out, count);
    put32(out, 0);
}

// Header, vertex, colour and face blocks, end block.
std::vector<char> makeMesh(uint32_t n) {
    std::vector<char> out(32, 'H');
    out.reserve(32 + 16 + 12ull * n + 16 + 4ull * n + 16 + 16ull * n + 16);
    Lcg rng;
    head(out, 10001, 16 + 12ull * n, n);
    for (uint32_t i = 0; i < 3 * n; ++i) put32(out, std::bit_cast<uint32_t>(rng.coordinate()));
    head(out, 35001, 16 + 4ull * n, n);
    for (uint32_t i = 0; i < n; ++i) put32(out, rng.next());
    head(out, 20001, 16 + 16ull * n, n);
    for (uint32_t i = 0; i < n; ++i) {
        for (int c = 0; c < 3; ++c) put32(out, rng.next() % n);
        put32(out, i % 4 == 3 ? 0xFFFFFFFFu : rng.next() % n);
    }
    head(out, 0, 0, 0);
    return out;
}

std::vector<char> readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    std::vector<char> data(static_cast<size_t>(in.tellg()));
    in.seekg(0);
    in.read(data.data(), static_cast<std::streamsize>(data.size()));
    return data;
}

// The same conversion written the plain way: the file read whole, every value through an
// output stream's operator<< with its default formatting.
void streamWriter(const std::string& vyx, const std::string& objPath) {
    const std::vector<char> d = readAll(vyx);
    std::ofstream obj(objPath);
    const uint32_t n = get32(&d[40]);
    const size_t second = 32 + get32(&d[36]);
    const size_t third = second + get32(&d[second + 4]);
    obj << "# File exported by Vandor plugin\n#Vertex count " << n << "\n#Face count "
        << static_cast<int32_t>(get32(&d[third + 8])) << "\n";
    for (uint32_t i = 0; i < n; ++i) {
        const char* v = &d[48 + 12 * size_t(i)];
        obj << "v " << double(std::bit_cast<float>(get32(v))) << " " << double(std::bit_cast<float>(get32(v + 4)))
            << " " << double(std::bit_cast<float>(get32(v + 8))) << "\n";
    }
    obj << "# The following RGB block contains Vandor Vertex Color (Chromelay) output as 3 hexadecimal values "
           "per vertex. The vertex color format is RRGGBB with up to 32 entries per RGB line.\n";
    const uint32_t colours = get32(&d[second + 8]);
    int column = 0;
    for (uint32_t i = 0; i < colours; ++i) {
        const auto* e = reinterpret_cast<const unsigned char*>(&d[second + 16 + 4 * size_t(i)]);
        if (column == 0) obj << "#RGB ";
        obj << " " << std::hex << std::setfill('0');
        for (int c : {2, 1, 0}) obj << std::setw(2) << (uint32_t(e[c]) << 24);
        obj << std::dec;
        if (++column == 32) {
            obj << "\n";
            column = 0;
        }
    }
    obj << "\n# End of RGB block\n";
    const size_t end = third + get32(&d[third + 4]);
    size_t at = third + 16;
    for (uint32_t i = 0; i < get32(&d[third + 8]) && at + 16 <= end; ++i) {
        const uint32_t run = static_cast<int32_t>(get32(&d[third + 16 + 16 * size_t(i) + 12])) < 0 ? 3 : 4;
        obj << "#FaceID " << i + 1 << "\n";
        for (uint32_t k = 0; k < run && at + 16 <= end; ++k, at += 16) {
            const char* f = &d[at];
            obj << "f " << int32_t(get32(f)) + 1 << " " << int32_t(get32(f + 4)) + 1 << " "
                << int32_t(get32(f + 8)) + 1 << " ";
            if (int32_t(get32(f + 12)) + 1 > 0) obj << int32_t(get32(f + 12)) + 1;
            obj << "\n";
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 2 && std::string(argv[1]) == "--mesh") {  // only write the mesh (for other benches)
        const uint32_t count = argc > 3 ? static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10)) : 5000000u;
        const std::vector<char> mesh = makeMesh(count);
        std::ofstream file(argv[2], std::ios::binary);
        return file.write(mesh.data(), static_cast<std::streamsize>(mesh.size())) ? 0 : 1;
    }
    const uint32_t n = argc > 1 ? static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 10)) : 5000000u;
    std::string dir;
    if (argc > 2) {
        dir = argv[2];
    } else {
        std::string tmpl = (std::filesystem::temp_directory_path() / "kelvane-bench-XXXXXX").string();
        if (!mkdtemp(tmpl.data())) {
            std::perror("mkdtemp");
            return 1;
        }
        dir = tmpl;
    }
    const std::string vyx = dir + "/mesh.Vyx", obj = dir + "/mesh.obj", plain = dir + "/plain.obj",
                      vyt = dir + "/posed.Vyt";
    {
        const std::vector<char> mesh = makeMesh(n);
        std::ofstream(vyx, std::ios::binary).write(mesh.data(), static_cast<std::streamsize>(mesh.size()));
    }
    const double vyxMB = static_cast<double>(std::filesystem::file_size(vyx)) / 1e6;
    std::printf("mesh: %u vertices, %u faces, %.1f MB Vyx file in %s\n", n, n, vyxMB, dir.c_str());

    char mem2[8] = {};
    std::vector<char> mem1(obj.begin(), obj.end());
    mem1.push_back('\0');
    double best = 1e30, bestCpu = 1e30;
    for (int rep = 0; rep < 3; ++rep) {
        if (getFaceIDs(vyx.c_str(), 1, nullptr, mem2) != float(n)) {
            std::fprintf(stderr, "getFaceIDs failed\n");
            return 1;
        }
        std::filesystem::remove(obj);  // every writer below starts a new file
        const auto t0 = Clock::now();
        const double c0 = cpuSeconds();
        const float r = vyxtoOBJ(vyx.c_str(), 0, mem1.data(), mem2);
        best = std::min(best, secondsSince(t0));
        bestCpu = std::min(bestCpu, cpuSeconds() - c0);
        if (r != 0) {
            std::fprintf(stderr, "vyxtoOBJ returned %g\n", double(r));
            return 1;
        }
    }
    const double objMB = static_cast<double>(std::filesystem::file_size(obj)) / 1e6;
    const auto t1 = Clock::now();
    streamWriter(vyx, plain);
    const double plainTime = secondsSince(t1);
    const bool same = readAll(obj) == readAll(plain);
    std::printf("vyxtoOBJ:          %.3f s (best of 3), %.1f MB of OBJ text, %.0f MB/s; CPU %.3f s, %.0f MB per CPU second\n",
                best, objMB, objMB / best, bestCpu, objMB / bestCpu);
    std::printf("ofstream << writer: %.3f s, %.0f MB/s, same text: %s\n", plainTime, objMB / plainTime,
                same ? "yes" : "NO");
    std::printf("ratio: %.1fx\n", plainTime / best);

    {
        std::vector<char> posed;
        head(posed, 10001, 16 + 12ull * n, n);
        Lcg rng;
        rng.s = 42;
        for (uint32_t i = 0; i < 3 * n; ++i) put32(posed, std::bit_cast<uint32_t>(rng.coordinate()));
        std::ofstream(vyt, std::ios::binary).write(posed.data(), static_cast<std::streamsize>(posed.size()));
    }
    std::vector<char> target(vyx.begin(), vyx.end());
    target.push_back('\0');
    const auto t2 = Clock::now();
    const float swapped = SwapVertices_Vyx(vyt.c_str(), 0, target.data(), mem2);
    const double swapTime = secondsSince(t2);
    std::printf("SwapVertices_Vyx:  %.3f s, result %g, %.0f MB/s of Vyx file rewritten\n", swapTime,
                double(swapped), vyxMB / swapTime);

    if (argc <= 2) std::filesystem::remove_all(dir);
    else for (const std::string& f : {vyx, obj, plain, vyt}) std::filesystem::remove(f);
    return same && swapped == 0 ? 0 : 1;
}
