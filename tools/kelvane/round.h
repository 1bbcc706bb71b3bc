// The safe posing round: `kelvane combine` and `kelvane split-back`, through the plug-in's
// exports (AppendOBJ, the polygroup list, ListSplitOBJtoOBJ), with every part checked first.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "plugin.h"

namespace kvtool {

// One part of a round, as the round file keeps it.
struct RoundPart {
    int64_t offset = 0, vertices = 0, firstFace = 0, endFace = 0;
    std::string name, path;
};

// The round file: a line "kelvane-round 1", then one line per part in combining order,
// "part <vertex offset> <vertices> <first face> <end face> <group> <path>"; '#' lines are comments.
bool writeRoundFile(const std::string& file, const std::vector<RoundPart>& parts);
bool readRoundFile(const std::string& file, std::vector<RoundPart>& parts, std::string& error);

struct CombineArgs {
    std::vector<std::string> parts;
    std::string out;
};
struct SplitBackArgs {
    std::string posed, round, outDir;
};

void addCombineOptions(CLI::App& app, CombineArgs& a);
void addSplitBackOptions(CLI::App& app, SplitBackArgs& a);
// Both: 0 done; 1 refused (each reason on err as "PART: cause") or an export failed; 2 bad input.
int runCombine(const Plugin& plugin, const CombineArgs& a, std::ostream& out, std::ostream& err);
int runSplitBack(const Plugin& plugin, const SplitBackArgs& a, std::ostream& out, std::ostream& err);

}  // namespace kvtool
