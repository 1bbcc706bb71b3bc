// The loaded plug-in, as the emulator's subcommands share it.
#pragma once

#include <string>

#include "kelvane/Kelvane4.h"

namespace kvtool {

struct Plugin {
    void* handle = nullptr;
    std::string path;
    ~Plugin();
    bool open(const std::string& p, std::string& error);
    KelvaneFn find(const std::string& name) const;
};

// The result of export name, with the meaning of a failure code: "-1 (the input file cannot be opened)".
std::string withMeaning(const std::string& name, float r);

}  // namespace kvtool
