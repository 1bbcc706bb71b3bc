#include "codes.h"

namespace kvtool {

namespace {
constexpr ResultCode kCodes[] = {
#define KV_CODE(name, code, meaning) {#name, code, meaning},
#include "kelvane/codes.def"
#undef KV_CODE
};
}  // namespace

std::string_view codeMeaning(std::string_view name, float r) {
    for (const ResultCode& c : kCodes)
        if (c.exportName == name && static_cast<float>(c.code) == r) return c.meaning;
    return {};
}

}  // namespace kvtool
