// Builders of small Vyx meshes, vertex files, polygroup lists and project files for the tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "testutil.h"
#include "util/vyxtags.h"

namespace kvtest {

constexpr uint32_t kTri = 0xFFFFFFFFu;  // the fourth index of a triangle

// A Vyx file: a 32-byte header, then blocks appended in order.
struct VyxBuilder {
    std::string bytes = std::string(32, '\x5A');

    // A block with any head: for malformed files.
    VyxBuilder& head(uint32_t tag, uint32_t length, uint32_t count, const std::string& records = "") {
        bytes += be32(tag) + be32(length) + be32(count) + be32(0xC0FFEE) + records;
        return *this;
    }
    // A block whose length covers its head and records.
    VyxBuilder& block(uint32_t tag, uint32_t count, const std::string& records) {
        return head(tag, static_cast<uint32_t>(16 + records.size()), count, records);
    }
    template <class T> VyxBuilder& words(uint32_t tag, const std::vector<T>& v, size_t perRecord) {
        std::string r;
        for (T x : v) r += word(x);
        return block(tag, static_cast<uint32_t>(v.size() / perRecord), r);
    }
    static std::string word(float f) { return f32(f); }
    static std::string word(uint32_t u) { return be32(u); }
    VyxBuilder& vertices(const std::vector<float>& xyz) { return words(kVyxVertexTag, xyz, 3); }
    // Entries given as (blue, green, red, unused) bytes.
    VyxBuilder& colours(const std::vector<uint32_t>& bgrx) { return words(kVyxColourTag, bgrx, 1); }
    // Four indices a face; kTri as the fourth makes a triangle.
    VyxBuilder& faces(const std::vector<uint32_t>& abcd) { return words(kVyxFaceTag, abcd, 4); }
    // Eight floats a face: four (u, v) corners.
    VyxBuilder& uvs(const std::vector<float>& uv) { return words(kVyxUVTag, uv, 8); }
    VyxBuilder& end() { return bytes += std::string(16, '\0'), *this; }
    std::string save(const std::string& path) const { return writeAll(path, bytes), path; }
};

// A vertex file: one vertex block of the given coordinates.
inline std::string vytFile(const std::vector<float>& xyz) {
    std::string s = be32(kVyxVertexTag) + be32(uint32_t(16 + 4 * xyz.size())) + be32(uint32_t(xyz.size() / 3)) + be32(0);
    for (float c : xyz) s += f32(c);
    return s;
}

// A polygroup list record: the name in 128 bytes, the first face and the end face.
inline std::string listRecord(const std::string& name, int32_t first, int32_t end) {
    std::string r = name.substr(0, 128);
    r.resize(128, '\0');
    return r + be32(uint32_t(first)) + be32(uint32_t(end));
}

// A project file's header, one of its 516-byte records, and a data chunk (the bytes, then the
// last byte again).
inline std::string prjHeader(uint32_t count, uint32_t modifier = 0) { return be32(0) + be32(0) + be32(count) + be32(modifier); }
inline std::string prjRecord(uint32_t value, const std::string& name, const std::string& data = "") {
    std::string r = be32(value) + name;
    r.resize(4 + 255, '\0');
    r += data;
    r.resize(516, '\0');
    return r;
}
inline std::string prjChunk(uint32_t number, const std::string& data) {
    return be32(number) + be32(uint32_t(data.size() + 16)) + be32(0) + be32(0) + data + (data.empty() ? '\0' : data.back());
}

}  // namespace kvtest
