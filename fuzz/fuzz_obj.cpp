// The OBJ readers on arbitrary text. Input: an offset byte, a scan-options byte, a 16-bit length,
// a part of that length, then a mesh. The part is split by its groups (SplitOBJ, SplitOBJtoVyx),
// once by the exports and once cut into tiny chunks (see splits.h), with the same results and
// files both ways; its lines are
// put before the mesh's (SwapVertices) and it is appended to the mesh (AppendOBJ). Results are
// documented codes, the append records one group that ends where the face counter stands and
// only grows the mesh, and every file written is one of the names the splits and the transfer use.
#include <cstring>
#include <string>
#include <vector>

#include "harness.h"
#include "splits.h"
#include "leanOBJ/leanOBJ.h"
#include "platform/fileio.h"

// mesh.obj, verts.obj, <count>[_copy<k>].obj, and <group name>[_copy<k>].Vyt
static bool isObjOutput(const char* name) {
    if (!std::strcmp(name, "mesh.obj") || !std::strcmp(name, "verts.obj")) return true;
    const size_t n = std::strlen(name);
    if (n >= 4 && !std::strcmp(name + n - 4, ".Vyt")) return true;
    size_t at = std::strspn(name, "0123456789");
    if (at == 0) return false;
    if (!std::strncmp(name + at, "_copy", 5)) {
        const size_t k = std::strspn(name + at + 5, "0123456789");
        if (k == 0) return false;
        at += 5 + k;
    }
    return !std::strcmp(name + at, ".obj");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kvfuzz::Bytes in{data, size};
    const int offset = in.u8();
    const obj::ScanOptions tiny = kvfuzz::tinyChunks(in.u8());
    const kvfuzz::Bytes part = in.take(in.u16());
    const char* partPath = kvfuzz::writeInput(part.p, part.n, "part.obj");
    const std::string mesh = kvfuzz::writeOutInput(in.p, in.n, "mesh.obj");
    const std::string verts = kvfuzz::writeOutInput(part.p, part.n, "verts.obj");

    const std::initializer_list<const char*> inputs = {"mesh.obj", "verts.obj"};
    float r = kvfuzz::splitBothWays(SplitOBJ, LeanSplitOBJ, partPath, "x.obj", tiny, isObjOutput, inputs, size % 2 == 0);
    KV_FUZZ_CHECK(r == 0 || r == -2 || r == -3);
    r = kvfuzz::splitBothWays(SplitOBJtoVyx, LeanSplitVyx, partPath, "x.Vyt", tiny, isObjOutput, inputs, size % 2 == 1);
    KV_FUZZ_CHECK(r == 0 || r == -2 || r == -3);

    kvfuzz::call(SwapVertices, verts.c_str(), 0, mesh.c_str(), &r);
    KV_FUZZ_CHECK(r == 0 || r == -30);
    std::vector<char> before, after;
    KV_FUZZ_CHECK(kv::readFile(mesh.c_str(), before));

    kvfuzz::call(GroupListClear, nullptr, 0, nullptr);
    kvfuzz::call(AppendOBJ, partPath, offset, mesh.c_str(), &r);
    KV_FUZZ_CHECK(r >= 0 && r == static_cast<float>(static_cast<int64_t>(r)));
    KV_FUZZ_CHECK(groupsList.size() == 1 && groupsList[0].firstFace == 0 && groupsList[0].endFace == faceIndex);
    KV_FUZZ_CHECK(faceIndex >= 0 && std::memchr(groupsList[0].name, 0, sizeof groupsList[0].name));
    KV_FUZZ_CHECK(kv::readFile(mesh.c_str(), after) && after.size() >= before.size());
    KV_FUZZ_CHECK(std::memcmp(after.data(), before.data(), before.size()) == 0);
    kvfuzz::call(GroupListClear, nullptr, 0, nullptr);
    kvfuzz::checkOutput(isObjOutput);
    return 0;
}
