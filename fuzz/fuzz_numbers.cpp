// The number readers and writers of the mesh text, each against what the standard library does
// with the same text or value. Input: a line (up to the first line feed) and, from its first
// bytes, the values to write.
// - As a vertex line ("v " put before it unless it starts so: the reader is given only the lines
//   that classify as vertex lines): the three floats the reader gives, with the bytes after the line readable
//   (the fast reader of plain lines from masks of their bytes) and without (the reader of one
//   number at a time), are bit for bit those a standard input stream extracts after the first
//   word, 0 for a failed extraction and every one after it.
// - As a face line: the indices are those stream extraction into an int gives on the line's
//   text after its first two characters, each blank-separated token cut at its first '/'.
// - putUint, putInt and putG write what printf writes ("%u", "%lld", "%g" of the widened float)
//   for the values the bytes spell, for the integers at the edges of each digit count and for
//   the floats next to each power of ten from 1e-20 to 1e20.
#include <bit>
#include <cmath>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "harness.h"
#include "leanOBJ/objtext.h"
#include "util/numtext.h"

namespace {

void checkVertex(std::string_view line) {
    std::istringstream in{std::string(line)};
    std::string word;
    float want[3] = {0, 0, 0};
    in >> word >> want[0] >> want[1] >> want[2];
    std::string buffer(line);
    buffer += "\n v 9 9 9 0.5 -0.25 1e3 7 7 7 123456 0.000001 -8 8 8\n";  // what follows the line in a file
    for (const char* readable : {static_cast<const char*>(buffer.data() + buffer.size()), static_cast<const char*>(nullptr)}) {
        const vertexS v = obj::parseVertex(std::string_view(buffer).substr(0, line.size()), readable);
        const float got[3] = {v.x, v.y, v.z};
        for (int k = 0; k < 3; ++k)
            if (std::bit_cast<uint32_t>(got[k]) != std::bit_cast<uint32_t>(want[k])) {
                std::fprintf(stderr, "vertex line \"%s\": coordinate %d read as %a, a stream reads %a (%s)\n",
                             buffer.substr(0, line.size()).c_str(), k, double(got[k]), double(want[k]), readable ? "masks" : "one by one");
                std::abort();
            }
    }
}

void checkFace(std::string_view line) {
    const std::string_view text = obj::rest(line);
    std::string reduced(text);
    if (text.find('/') != std::string_view::npos) {
        reduced.clear();
        for (size_t at = 0;;) {
            const size_t blank = std::min(text.find(' ', at), text.size());
            const std::string_view token = text.substr(at, blank - at);
            reduced.append(token.substr(0, token.find('/'))).push_back(' ');
            if (blank == text.size()) break;
            at = blank + 1;
        }
    }
    std::vector<int32_t> want, got;
    std::istringstream in(reduced);
    for (int32_t i; in >> i;) want.push_back(i);
    std::string scratch;
    obj::forEachFaceIndex(line, scratch, [&](int32_t i) { got.push_back(i); });
    if (got != want) {
        std::fprintf(stderr, "face line \"%s\": %zu indices read, a stream reads %zu\n", std::string(line).c_str(), got.size(), want.size());
        for (size_t k = 0; k < std::max(got.size(), want.size()); ++k)
            std::fprintf(stderr, "  %s / %s\n", k < got.size() ? std::to_string(got[k]).c_str() : "-", k < want.size() ? std::to_string(want[k]).c_str() : "-");
        std::abort();
    }
}

void checkText(const char* what, const char* begin, const char* end, const char* want) {
    if (std::string_view(begin, size_t(end - begin)) != want) {
        std::fprintf(stderr, "%s: wrote \"%.*s\", printf writes \"%s\"\n", what, int(end - begin), begin, want);
        std::abort();
    }
}

void checkInt(int64_t v) {
    char got[32], want[32];
    std::snprintf(want, sizeof want, "%lld", static_cast<long long>(v));
    checkText("putInt", got, kv::putInt(got, v), want);
    if (v >= 0 && v <= int64_t(UINT32_MAX)) checkText("putUint", got, kv::putUint(got, uint32_t(v)), want);
}

void checkG(float f) {
    char got[32], want[32];
    std::snprintf(want, sizeof want, "%g", double(f));
    checkText("putG", got, kv::putG(got, f), want);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* text = reinterpret_cast<const char*>(data);
    const std::string_view line(text, std::find(text, text + size, '\n') - text);
    checkVertex(obj::classify(line) == obj::LineKind::Vertex ? std::string(line) : "v " + std::string(line));
    checkFace(line);

    uint8_t bytes[8] = {};
    std::memcpy(bytes, data, std::min<size_t>(size, 8));
    uint64_t u;
    std::memcpy(&u, bytes, 8);
    checkInt(int64_t(u));
    checkInt(int64_t(u >> 32));
    checkInt(int64_t(uint32_t(u)));
    const int64_t delta = int8_t(bytes[0]) % 4;  // the edges of each digit count, a few values either side
    for (int64_t power = 1;; power *= 10) {
        for (int64_t v : {power + delta, power - 1 - delta}) checkInt(v), checkInt(-v);
        if (power > INT64_MAX / 10) break;
    }
    checkInt(INT64_MAX - (bytes[1] & 3));
    checkInt(INT64_MIN + (bytes[1] & 3));

    checkG(std::bit_cast<float>(uint32_t(u)));
    checkG(std::bit_cast<float>(uint32_t(u >> 32)));
    const int32_t ulps = int8_t(bytes[2]) % 8;
    for (int k = -20; k <= 20; ++k) {  // the rounding to six digits at each decade's start and end
        const int32_t at = std::bit_cast<int32_t>(float(std::pow(10.0, k))) + ulps;
        checkG(std::bit_cast<float>(at));
        checkG(std::bit_cast<float>(at) * 0.9999995f);
    }
    return 0;
}
