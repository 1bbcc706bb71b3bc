// Shared pieces of the fuzz harnesses. A harness writes the fuzzer's bytes to an input file in a
// private scratch folder, calls one export on it exactly as the host does, checks what the call
// left behind, and empties the output folder for the next run:
//
//   extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
//       const char* in = kvfuzz::writeInput(data, size, "input.obj");
//       kvfuzz::call(SplitOBJ, in, 0, kvfuzz::outPath("x.obj"));
//       kvfuzz::checkOutput(kvfuzz::anyName);
//       return 0;
//   }
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <map>
#include <string>

#include "kelvane/Kelvane4.h"

// Stops the run with a message when a property does not hold; libFuzzer keeps the input.
#define KV_FUZZ_CHECK(cond)                                                          \
    do {                                                                             \
        if (!(cond)) {                                                               \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
            std::abort();                                                            \
        }                                                                            \
    } while (0)

namespace kvfuzz {

// Writes the input to <scratch>/name (replacing the last one) and returns its path. The scratch
// folder is made on first use under $KELVANE_FUZZ_TMP, /dev/shm or /tmp and removed at exit.
const char* writeInput(const uint8_t* data, size_t size, const char* name);

// <scratch>/out/name: a path inside the output folder, which exists and is empty before each call.
const char* outPath(const char* name);

// Calls an export with the host signature. memBlock1 is a private 64 KiB block holding mem1
// (or null when mem1 is null); what the call leaves there is returned.
const char* call(KelvaneFn fn, const char* text, double number, const char* mem1, float* result = nullptr);

// Checks that the call wrote nothing into the scratch folder outside the output folder and that
// every name in the output folder passes allowed (a plain file, never a folder), then empties the
// output folder. Aborts otherwise.
void checkOutput(bool (*allowed)(const char* name));

// Reads and removes the files the last calls left in the output folder, except those named in
// keep (the inputs placed there): name -> bytes. Every name taken must pass allowed. For
// comparing what two ways of doing the same thing write.
std::map<std::string, std::string> takeOutputs(bool (*allowed)(const char* name), std::initializer_list<const char*> keep);

// An allowed() that accepts every name.
bool anyName(const char* name);

// Writes bytes to <scratch>/out/name and returns the path: for inputs that an export rewrites in
// place or writes beside (they are removed with the rest of the output folder by checkOutput).
std::string writeOutInput(const uint8_t* data, size_t size, const char* name);

// Takes the fuzzer's bytes apart from the front: parameters first, then the file(s). Reads past
// the end give zeros, so every input is usable.
struct Bytes {
    const uint8_t* p;
    size_t n;
    uint8_t u8() {
        if (n == 0) return 0;
        --n;
        return *p++;
    }
    uint16_t u16() {
        const unsigned high = u8();
        return static_cast<uint16_t>(high << 8 | u8());
    }
    // The next up-to-count bytes, as a part of their own.
    Bytes take(size_t count) {
        if (count > n) count = n;
        Bytes part{p, count};
        p += count;
        n -= count;
        return part;
    }
};

}  // namespace kvfuzz
