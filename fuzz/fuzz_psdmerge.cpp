// The PSD merge and seam healing on arbitrary bytes. Input: a key colour (3 bytes), a
// rows/columns byte, a 16-bit length, the first PSD file of that length, then the second.
// Both operations write over the first file: on success the second file's bytes, one byte
// longer, with only the planes changed; on failure the first file is untouched.
#include <cstring>
#include <string>
#include <vector>

#include "PsdOps.h"
#include "harness.h"
#include "platform/fileio.h"

// On success every byte before the second file's planes (at offst, where the last parse put
// them) is the second file's own: only the planes change.
static float overFirst(KelvaneFn fn, const std::string& first, const char* second, const kvfuzz::Bytes& secondBytes,
                       double number) {
    std::vector<char> before, after;
    KV_FUZZ_CHECK(kv::readFile(first.c_str(), before));
    float r = 0;
    kvfuzz::call(fn, first.c_str(), number, second, &r);
    KV_FUZZ_CHECK(r == 0 || (r <= -1 && r >= -4) || r == -6 || r == -9);
    KV_FUZZ_CHECK(kv::readFile(first.c_str(), after));
    if (r == 0)
        KV_FUZZ_CHECK(after.size() == secondBytes.n + 1 && offst >= 0 && size_t(offst) <= secondBytes.n &&
                      std::memcmp(after.data(), secondBytes.p, size_t(offst)) == 0);
    else
        KV_FUZZ_CHECK(after == before);
    return r;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kvfuzz::Bytes in{data, size};
    double key = in.u8() * 65536.0;
    key += in.u8() * 256.0;
    key += in.u8();
    const double columns = in.u8() & 1;
    const kvfuzz::Bytes first = in.take(in.u16());
    const std::string a = kvfuzz::writeOutInput(first.p, first.n, "a.psd");
    const char* b = kvfuzz::writeInput(in.p, in.n, "b.psd");

    KV_FUZZ_CHECK(overFirst(MergePSDfiles, a, b, in, key) != -9);
    overFirst(HealPSDfiles, a, b, in, columns);  // the second file's parse is not checked
    kvfuzz::checkOutput([](const char* name) { return std::strcmp(name, "a.psd") == 0; });
    return 0;
}
