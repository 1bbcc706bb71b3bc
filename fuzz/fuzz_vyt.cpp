// SwapVertices_Vyx on arbitrary bytes. Input: a 16-bit length, a vertex file of that length,
// then the Vyx file it is put into. The result is a documented code; on failure the Vyx file
// is unchanged, on success it keeps its size and every byte outside the vertex records.
#include <cstring>
#include <string>
#include <vector>

#include "harness.h"
#include "platform/fileio.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kvfuzz::Bytes in{data, size};
    const kvfuzz::Bytes vertices = in.take(in.u16());
    const char* vertexPath = kvfuzz::writeInput(vertices.p, vertices.n, "part.Vyt");
    const std::string vyx = kvfuzz::writeOutInput(in.p, in.n, "mesh.Vyx");

    float r = 0;
    kvfuzz::call(SwapVertices_Vyx, vertexPath, 0, vyx.c_str(), &r);
    KV_FUZZ_CHECK(r == 0 || r == -1760 || r == -201 || r == -301 || r == -401 || r == -18);
    std::vector<char> after;
    KV_FUZZ_CHECK(kv::readFile(vyx.c_str(), after) && after.size() == in.n);
    if (r != 0) {
        KV_FUZZ_CHECK(in.n == 0 || std::memcmp(after.data(), in.p, in.n) == 0);
    } else {  // the vertex records of the vertex file now lie somewhere in the Vyx file
        KV_FUZZ_CHECK(vertices.n >= 16 && in.n >= 48);
        size_t changed = 0;
        for (size_t i = 0; i < in.n; ++i) changed += after[i] != static_cast<char>(in.p[i]);
        KV_FUZZ_CHECK(changed <= vertices.n - 16);
    }
    kvfuzz::checkOutput([](const char* name) { return std::strcmp(name, "mesh.Vyx") == 0; });
    return 0;
}
