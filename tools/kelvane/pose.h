// The host's side of a posing round: `pose` and `verify`, as subcommands and script lines.
#pragma once

#include <CLI/CLI.hpp>
#include <ostream>
#include <string>

namespace kvtool {

struct PoseArgs {
    std::string input, output, group, axis = "z", about = "0,0,0";
    double angle = 0;
};

struct VerifyArgs {
    std::string part, posedPart, combined, group, vyt, list;
};

void addPoseOptions(CLI::App& app, PoseArgs& a);
// Rotates the vertices used by the faces of one group about a pivot; 0, 1 no such group, 2 I/O.
int runPose(const PoseArgs& a, std::ostream& out, std::ostream& err);

void addVerifyOptions(CLI::App& app, VerifyArgs& a);
// Checks a posed part: its own non-vertex lines, the group's moved positions, the vertex file;
// 0 when all hold, 1 when a check fails, 2 when a file cannot be read.
int runVerify(const VerifyArgs& a, std::ostream& out, std::ostream& err);

}  // namespace kvtool
