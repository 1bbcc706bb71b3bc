// The picture subcommands of the host emulator.
#include "viewcmd.h"

#include "image.h"
#include "render.h"
#include "platform/fileio.h"

namespace kvtool {
namespace {

void addRenderOptions(CLI::App& app, RenderArgs& a) {
    app.add_option("meshes", a.meshes, "OBJ or Vyx meshes, drawn side by side")->required();
    app.add_option("--out", a.out, "PNG to write")->required();
    app.add_option("--view", a.view, "Seen from: front, back, left, right, top or iso")
        ->check(CLI::IsMember({"front", "back", "left", "right", "top", "iso"}));
    app.add_option("--size", a.size, "Longer side of one panel in pixels")->check(CLI::Range(64, 8192));
}

int runRender(const RenderArgs& a, std::ostream& out, std::ostream& err) {
    View view = View::Front;
    if (!parseView(a.view, view)) {
        err << "kelvane: no view named " << a.view << "\n";
        return 2;
    }
    std::vector<Mesh> meshes(a.meshes.size());
    std::string error;
    size_t triangles = 0;
    for (size_t i = 0; i < meshes.size(); ++i) {
        if (!readMesh(a.meshes[i], meshes[i], error)) {
            err << "kelvane: " << error << "\n";
            return 2;
        }
        triangles += meshes[i].triangleCount();
    }
    const Picture pic = renderMeshes(meshes, view, a.size);
    if (!writePng(a.out, pic.width, pic.height, 3, pic.rgb.data())) {
        err << "kelvane: cannot write " << a.out << "\n";
        return 2;
    }
    out << a.out << ": " << pic.width << " x " << pic.height << ", " << meshes.size() << " mesh"
        << (meshes.size() == 1 ? "" : "es") << ", " << triangles << " triangles, " << a.view << " view\n";
    return 0;
}

void addImageOptions(CLI::App& app, ImageArgs& a) {
    app.add_option("input", a.input, "PSD (the plug-in's dialect) or 24-bit BMP")->required();
    app.add_option("output", a.output, "PNG to write")->required();
}

int runImage(const ImageArgs& a, std::ostream& out, std::ostream& err) {
    std::vector<char> bytes;
    Raster r;
    std::string error;
    if (!kv::readFile(a.input.c_str(), bytes)) error = "cannot read the file";
    else if (decodeImage(bytes, r, error) && !writePng(a.output, r.width, r.height, r.channels, r.pixels.data()))
        return err << "kelvane: cannot write " << a.output << "\n", 2;
    if (!error.empty()) {
        err << "kelvane: " << a.input << ": " << error << "\n";
        return 2;
    }
    out << a.output << ": " << r.width << " x " << r.height << (r.channels == 1 ? " gray" : " RGB") << "\n";
    return 0;
}

}  // namespace

void addViewCommands(CLI::App& app, ViewCommands& v) {
    v.render = app.add_subcommand("render", "Draw OBJ and Vyx meshes side by side into a PNG");
    addRenderOptions(*v.render, v.renderArgs);
    v.image = app.add_subcommand("image", "Convert a PSD or BMP into a PNG, pixel for pixel");
    addImageOptions(*v.image, v.imageArgs);
}

bool runViewCommand(const ViewCommands& v, int& status, std::ostream& out, std::ostream& err) {
    if (*v.render) status = runRender(v.renderArgs, out, err);
    else if (*v.image) status = runImage(v.imageArgs, out, err);
    return *v.render || *v.image;
}

}  // namespace kvtool
