// The exports' failure codes and their meanings (the table is include/kelvane/codes.def).
#pragma once

#include <string_view>

namespace kvtool {

struct ResultCode {
    std::string_view exportName;
    int code;
    std::string_view meaning;
};

// The meaning of result r of export name; empty when r is no code of that export.
std::string_view codeMeaning(std::string_view name, float r);

}  // namespace kvtool
