// `kelvane render` and `kelvane image`: meshes and the plug-in's images as PNG pictures.
#pragma once

#include <CLI/CLI.hpp>
#include <ostream>
#include <string>
#include <vector>

namespace kvtool {

struct RenderArgs {
    std::vector<std::string> meshes;
    std::string out, view = "front";
    int size = 800;
};

struct ImageArgs {
    std::string input, output;
};

void addRenderOptions(CLI::App& app, RenderArgs& a);
// Draws the meshes side by side into a PNG; 0, or 2 when a mesh or the PNG cannot be read or written.
int runRender(const RenderArgs& a, std::ostream& out, std::ostream& err);

void addImageOptions(CLI::App& app, ImageArgs& a);
// Converts a PSD or BMP into a PNG pixel for pixel; 0, or 2 when it cannot.
int runImage(const ImageArgs& a, std::ostream& out, std::ostream& err);

}  // namespace kvtool
