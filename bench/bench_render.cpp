// Times `kelvane render` on a large generated mesh against merely reading that mesh, in the same
// run: a torus of N x N quads (default 1000 x 1000, one million faces) in four groups, written
// as OBJ text to a temporary file, read by the viewer's reader, then drawn at 1024 pixels.
// Usage: kelvane_bench_render [N] [pixels]
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <string>

#include "render.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

// A torus of n x n quads; the quads of each quarter of the ring form a group.
bool writeTorus(const std::string& path, int n) {
    std::FILE* f = std::fopen(path.c_str(), "w");
    if (!f) return false;
    const double step = 2 * std::numbers::pi / n;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
            const double a = i * step, b = j * step, r = 1 + 0.35 * std::cos(b);
            std::fprintf(f, "v %.6g %.6g %.6g\n", r * std::cos(a), 0.35 * std::sin(b), r * std::sin(a));
        }
    for (int i = 0; i < n; ++i) {
        if (i % (n / 4 > 0 ? n / 4 : 1) == 0) std::fprintf(f, "g quarter_%d\n", i / (n / 4 > 0 ? n / 4 : 1));
        for (int j = 0; j < n; ++j) {
            const int i1 = (i + 1) % n, j1 = (j + 1) % n;
            std::fprintf(f, "f %d %d %d %d\n", i * n + j + 1, i1 * n + j + 1, i1 * n + j1 + 1, i * n + j1 + 1);
        }
    }
    return std::fclose(f) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    const int n = argc > 1 ? std::atoi(argv[1]) : 1000, size = argc > 2 ? std::atoi(argv[2]) : 1024;
    if (n < 3 || size < 64) return std::fprintf(stderr, "usage: kelvane_bench_render [N >= 3] [pixels >= 64]\n"), 2;
    char dir[] = "/tmp/kelvane_bench_render_XXXXXX";
    if (!::mkdtemp(dir)) return 2;
    const std::string path = std::string(dir) + "/torus.obj";
    if (!writeTorus(path, n)) return std::fprintf(stderr, "cannot write %s\n", path.c_str()), 2;
    double read = 1e9, render = 1e9;
    kvtool::Mesh mesh;
    std::string error;
    for (int run = 0; run < 3; ++run) {
        auto t0 = Clock::now();
        if (!kvtool::readMesh(path, mesh, error)) return std::fprintf(stderr, "%s\n", error.c_str()), 2;
        read = std::min(read, secondsSince(t0));
        t0 = Clock::now();
        const kvtool::Picture pic = kvtool::renderMeshes({mesh}, kvtool::View::Iso, size);
        render = std::min(render, secondsSince(t0));
        if (run == 0) std::printf("%zu faces (%zu triangles), picture %d x %d\n", size_t(n) * size_t(n),
                                  mesh.triangleCount(), pic.width, pic.height);
    }
    std::printf("read the OBJ:    %.3f s (best of 3)\n", read);
    std::printf("render at %d:  %.3f s (best of 3), %.2f x the read\n", size, render, render / read);
    std::remove(path.c_str());
    ::rmdir(dir);
    return 0;
}
