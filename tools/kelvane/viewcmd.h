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

// The two subcommands on the emulator's command line.
struct ViewCommands {
    CLI::App* render = nullptr;
    CLI::App* image = nullptr;
    RenderArgs renderArgs;
    ImageArgs imageArgs;
};

void addViewCommands(CLI::App& app, ViewCommands& v);

// Runs the picture subcommand that was given, if any (false when neither was). Its status: 0,
// or 2 when a file cannot be read or written.
bool runViewCommand(const ViewCommands& v, int& status, std::ostream& out, std::ostream& err);

}  // namespace kvtool
