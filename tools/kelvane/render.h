// The mesh viewer: orthographic pictures of meshes, filled and shaded with a depth buffer.
#pragma once

#include <string>
#include <vector>

#include "mesh.h"
#include "picture.h"

namespace kvtool {

enum class View { Front, Back, Left, Right, Top, Iso };

// front, back, left, right, top or iso. False for any other name.
bool parseView(const std::string& name, View& view);

// The colour of group i: a dozen clearly different colours, then hues a golden angle apart.
Rgb groupColour(size_t i);

// Draws the meshes side by side, one panel each, seen from the same side at one common scale
// and in one common frame (a point has the same place in every panel), with a legend of the
// groups under each panel. size is the longer side of a panel's drawing area in pixels. A mesh
// without faces is drawn as points.
Picture renderMeshes(const std::vector<Mesh>& meshes, View view, int size);

}  // namespace kvtool
