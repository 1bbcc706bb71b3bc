// Byte order: 32-bit words most significant byte first (the Vyx, vertex, group list and
// project files) and 16/32-bit numbers least significant byte first (image headers), read
// from, written into and appended to byte buffers.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace kv {

inline uint32_t getU32BE(const char* p) {
    const auto* b = reinterpret_cast<const unsigned char*>(p);
    return (uint32_t(b[0]) << 24) | (uint32_t(b[1]) << 16) | (uint32_t(b[2]) << 8) | uint32_t(b[3]);
}
inline int32_t getS32BE(const char* p) { return static_cast<int32_t>(getU32BE(p)); }
inline float getF32BE(const char* p) { return std::bit_cast<float>(getU32BE(p)); }

inline void putU32BE(char* p, uint32_t v) {
    p[0] = static_cast<char>(v >> 24);
    p[1] = static_cast<char>(v >> 16);
    p[2] = static_cast<char>(v >> 8);
    p[3] = static_cast<char>(v);
}
inline void putF32BE(char* p, float v) { putU32BE(p, std::bit_cast<uint32_t>(v)); }

// Appends a word to a growing output buffer.
inline void appendU32BE(std::vector<char>& out, uint32_t v) {
    size_t at = out.size();
    out.resize(at + 4);
    putU32BE(out.data() + at, v);
}
inline void appendF32BE(std::vector<char>& out, float v) { appendU32BE(out, std::bit_cast<uint32_t>(v)); }

// Little-endian (least significant byte first) words, for image headers.
inline uint32_t getU32LE(const char* p) {
    const auto* b = reinterpret_cast<const unsigned char*>(p);
    return (uint32_t(b[3]) << 24) | (uint32_t(b[2]) << 16) | (uint32_t(b[1]) << 8) | uint32_t(b[0]);
}
inline void putU32LE(char* p, uint32_t v) {
    p[0] = static_cast<char>(v);
    p[1] = static_cast<char>(v >> 8);
    p[2] = static_cast<char>(v >> 16);
    p[3] = static_cast<char>(v >> 24);
}
inline uint16_t getU16LE(const char* p) {
    const auto* b = reinterpret_cast<const unsigned char*>(p);
    return static_cast<uint16_t>((b[1] << 8) | b[0]);
}
inline void putU16LE(char* p, uint16_t v) {
    p[0] = static_cast<char>(v);
    p[1] = static_cast<char>(v >> 8);
}
inline void appendU16LE(std::vector<char>& out, uint16_t v) {
    out.resize(out.size() + 2);
    putU16LE(out.data() + out.size() - 2, v);
}
inline void appendU32LE(std::vector<char>& out, uint32_t v) {
    out.resize(out.size() + 4);
    putU32LE(out.data() + out.size() - 4, v);
}

}  // namespace kv
