// The block tags of Vyx meshes, shared by the Vyx reader and the writers of vertex files (a
// vertex file is a bare vertex block).
#pragma once

#include <cstdint>

constexpr uint32_t kVyxVertexTag = 10001;
constexpr uint32_t kVyxFaceTag = 20001;
constexpr uint32_t kVyxUVTag = 25001;
constexpr uint32_t kVyxColourTag = 35001;
