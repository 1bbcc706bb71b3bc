// Helpers of the hostile-input tests: a sandbox whose files outside the output folder must stay
// as they were, big-endian builders, and calls run in a child whose peak memory is measured.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "kelvane/Kelvane4.h"
#include "testutil.h"

namespace kvtest {

// A temporary tree: root/in (inputs), root/a/b/out (the chosen output folder), and a marker
// file in each level around the output folder, so that writes through "..", absolute names or
// a wrong folder show up as changes outside out/.
struct Sandbox {
    TempDir root;
    std::string in, out;
    Sandbox();
    std::string input(const std::string& name, const std::string& bytes) const;
    // Every file below root with its content ("<dir>" for folders), paths relative to root.
    std::map<std::string, std::string> tree() const;
    // The part of tree() outside out/.
    std::map<std::string, std::string> outside() const;
    // The names of the entries of out/, sorted.
    std::map<std::string, std::string> outputs() const;
    // Empties out/.
    void clearOut() const;
};

// What a call made in a child process gave: its result, and how far its resident memory grew
// above what it was before the call (KiB).
struct Measured {
    float result = 0;
    long growthKiB = 0;
    bool ok = false;  // the child ran the call and reported back
};

// Runs fn in a forked child and measures its peak resident memory growth (Linux VmHWM after
// resetting it). Side effects on files persist; module state of the child is lost.
Measured inChild(const std::function<float()>& fn);

// True when built with AddressSanitizer: its shadow memory and quarantine keep freed memory
// resident, so peak memory says nothing about what the library holds at once.
constexpr bool kUnderAsan =
#if defined(__SANITIZE_ADDRESS__)
    true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
    true;
#else
    false;
#endif
#else
    false;
#endif

// The allowance for one call on an input of inputBytes: a small multiple of the input plus a
// fixed amount for buffers of constant size.
inline long memoryAllowanceKiB(size_t inputBytes) { return long(4 * inputBytes / 1024) + 24 * 1024; }

}  // namespace kvtest
