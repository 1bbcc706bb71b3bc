// Meshes as the viewer draws them, read from OBJ text or Vyx files by the tool's own readers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kvtool {

struct Mesh {
    std::string name;                 // the file's name, for the legend
    std::vector<float> xyz;           // three coordinates per vertex
    std::vector<uint32_t> tris;       // three 0-based vertex indices per triangle (faces fanned)
    std::vector<uint32_t> triGroup;   // the group of each triangle, an index into groups
    std::vector<std::string> groups;  // group names in order of first use

    size_t vertexCount() const { return xyz.size() / 3; }
    size_t triangleCount() const { return triGroup.size(); }
};

// Reads a mesh: a Vyx file when the name ends in ".vyx" (any case), a vertex file (positions
// only) for ".vyt", else OBJ text. False, with a message naming the file and the fault, when
// the file cannot be read, has no vertices or makes no sense.
bool readMesh(const std::string& path, Mesh& mesh, std::string& error);

}  // namespace kvtool
