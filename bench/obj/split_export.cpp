// Calls one splitting export of the built plug-in, as the host does, on a combined mesh.
//   obj_bench_split EXPORT IN.obj OUTDIR/ [GROUPLIST]
// With GROUPLIST the polygroup list is loaded first (for the list-driven splits).
#include <dlfcn.h>

#include <cstdio>
#include <string>

#include "kelvane/Kelvane4.h"

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: %s EXPORT IN.obj OUTDIR/ [GROUPLIST]\n", argv[0]);
        return 2;
    }
    void* lib = dlopen(KELVANE_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    if (!lib) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 2;
    }
    auto fn = reinterpret_cast<KelvaneFn>(dlsym(lib, argv[1]));
    auto load = reinterpret_cast<KelvaneFn>(dlsym(lib, "GroupListLoad"));
    if (!fn || !load) return 2;
    char mem2[8] = {};
    std::string out = argv[3];
    if (argc > 4 && load(argv[4], 0, nullptr, mem2) != 0) return 1;
    float r = fn(argv[2], 0, out.data(), mem2);
    if (r != 0) {
        std::fprintf(stderr, "%s returned %g\n", argv[1], double(r));
        return 1;
    }
    return 0;
}
