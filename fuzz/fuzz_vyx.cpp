// The Vyx readers on arbitrary bytes. Input: a level byte, a 16-bit length, a base mesh of that
// length for getFaceIDs, then the mesh that vyxtoOBJ, outMRGB, GetUVTile and GetUVsFromVyx read.
// Every result is one of the documented ones, the runs never outnumber the base file's face
// records, the tile count agrees between the two UV readers, and only the named outputs appear.
#include <cstring>
#include <string>

#include "VyxOps.h"
#include "harness.h"

static bool isVyxOutput(const char* name) {  // mesh.Vyx, its tile files mesh<i>.Vyx, x.obj, x.rgb
    if (!std::strcmp(name, "x.obj") || !std::strcmp(name, "x.rgb")) return true;
    if (std::strncmp(name, "mesh", 4) != 0) return false;
    const size_t digits = std::strspn(name + 4, "0123456789");
    return std::strcmp(name + 4 + digits, ".Vyx") == 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kvfuzz::Bytes in{data, size};
    const double level = in.u8() % 4;  // run lengths 0, 3|4, 12|16, 48|64
    const kvfuzz::Bytes base = in.take(in.u16());
    const char* basePath = kvfuzz::writeInput(base.p, base.n, "base.Vyx");
    const std::string mesh = kvfuzz::writeOutInput(in.p, in.n, "mesh.Vyx");

    float runs = 0;
    kvfuzz::call(getFaceIDs, basePath, level, nullptr, &runs);
    KV_FUZZ_CHECK(runs == -1760 || (runs >= 0 && runs == static_cast<float>(faceID.size())));
    KV_FUZZ_CHECK(base.n < 48 ? faceID.empty() : faceID.size() <= (base.n - 48) / 16);

    float r = 0;
    kvfuzz::call(vyxtoOBJ, mesh.c_str(), 0, kvfuzz::outPath("x.obj"), &r);
    KV_FUZZ_CHECK(r == 0 || r == -18 || r == -1760 || r == -2 || r > 0);  // r > 0: a tag out of place
    if (r == -18) KV_FUZZ_CHECK(runs <= 0);
    kvfuzz::call(outMRGB, mesh.c_str(), 0, kvfuzz::outPath("x.rgb"), &r);
    KV_FUZZ_CHECK(r == 0 || r == -1760 || r == -2);

    float tiles = 0, files = 0;
    kvfuzz::call(GetUVTile, mesh.c_str(), 0, "", &tiles);
    KV_FUZZ_CHECK(tiles >= 0 || tiles == -17);
    kvfuzz::call(clearUVTileString, nullptr, 0, nullptr);
    kvfuzz::call(GetUVsFromVyx, mesh.c_str(), 0, nullptr, &files);
    KV_FUZZ_CHECK(tiles == -17 ? files == -1760 && UVTileStr.empty()
                               : files == tiles && UVTileStr.size() == static_cast<size_t>(files));
    if (files > 0)  // the last tile file's name comes back through the host's block
        KV_FUZZ_CHECK(UVTileStr.back() == kvfuzz::call(getUVTileString, nullptr, files - 1, ""));
    kvfuzz::call(clearUVTileString, nullptr, 0, nullptr);
    kvfuzz::checkOutput(isVyxOutput);
    return 0;
}
