// The polygroup list file and the list-driven splits on arbitrary bytes. Input: a scan-options
// byte, a 16-bit length, a group list file of that length, then the combined OBJ text to split.
// The list loads one record per started 136 bytes with terminated names, its names and face
// counts are looked up, it is split by (ListSplitOBJtoOBJ, ListSplitOBJtoVyx), once by the exports
// and once cut into tiny chunks with face blocks of a few faces (see splits.h), with the same
// results and files both ways, and it saves and reloads unchanged.
#include <cstring>
#include <string>
#include <vector>

#include "harness.h"
#include "splits.h"
#include "leanOBJ/leanOBJ.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kvfuzz::Bytes in{data, size};
    const obj::ScanOptions tiny = kvfuzz::tinyChunks(in.u8());
    const kvfuzz::Bytes list = in.take(in.u16());
    const char* listPath = kvfuzz::writeInput(list.p, list.n, "groups.lst");
    const std::string mesh = kvfuzz::writeOutInput(in.p, in.n, "mesh.obj");

    kvfuzz::call(GroupListAdd, "left over", 5, nullptr);  // a load replaces the list
    float r = 0;
    kvfuzz::call(GroupListLoad, listPath, 0, nullptr, &r);
    KV_FUZZ_CHECK(r == 0 && faceIndex == 0 && groupsList.size() == (list.n + 135) / 136);
    const size_t n = groupsList.size();
    kvfuzz::call(GroupListSize, nullptr, 0, nullptr, &r);
    KV_FUZZ_CHECK(r == (n == 0 ? -1.0f : static_cast<float>(n)));

    float made = 0;
    kvfuzz::call(CreateFacesList, nullptr, 0, nullptr, &made);
    KV_FUZZ_CHECK(made == (n == 0 ? -5 : 0));
    for (size_t i = 0; i < n && i < 8; ++i) {
        const groupID& g = groupsList[i];
        KV_FUZZ_CHECK(std::memchr(g.name, 0, sizeof g.name) != nullptr);
        KV_FUZZ_CHECK(std::strcmp(kvfuzz::call(GroupListGetName, nullptr, static_cast<double>(i), ""), g.name) == 0);
        kvfuzz::call(GetFaces, g.name, 0, nullptr);  // a count, or -1 (also a count: end - first)
    }
    KV_FUZZ_CHECK(std::strcmp(kvfuzz::call(GroupListGetName, nullptr, static_cast<double>(n), ""), "null") == 0);

    r = kvfuzz::splitBothWays(ListSplitOBJtoOBJ, ListSplitOBJ, mesh.c_str(), "x.obj", tiny, kvfuzz::anyName, {"mesh.obj"}, size % 2 == 0);
    KV_FUZZ_CHECK(n == 0 ? r == -5 : r == 0 || r == -3);
    r = kvfuzz::splitBothWays(ListSplitOBJtoVyx, ListSplitVyx, mesh.c_str(), "x.Vyt", tiny, kvfuzz::anyName, {"mesh.obj"}, size % 2 == 1);
    KV_FUZZ_CHECK(n == 0 ? r == -5 : r == 0 || r == -3);

    if (n > 0) {  // what is saved loads back record for record
        const std::vector<groupID> loaded = groupsList;
        const std::string saved = kvfuzz::outPath("saved.lst");
        kvfuzz::call(GroupListSave, saved.c_str(), 0, nullptr, &r);
        KV_FUZZ_CHECK(r == 0);
        kvfuzz::call(GroupListLoad, saved.c_str(), 0, nullptr, &r);
        KV_FUZZ_CHECK(r == 0 && groupsList.size() == n);
        KV_FUZZ_CHECK(std::memcmp(groupsList.data(), loaded.data(), n * sizeof(groupID)) == 0);
    }
    kvfuzz::call(GroupListClear, nullptr, 0, nullptr);
    kvfuzz::checkOutput(kvfuzz::anyName);
    return 0;
}
