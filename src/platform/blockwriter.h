// Streams a large output file in big blocks: text is formatted straight into a block buffer,
// and each full block goes to the file with one write. For outputs too large to be built whole
// in memory first (mesh conversions of several hundred megabytes). The file is written as
// kv::openOutput writes it: an existing file is replaced only when close() succeeds, a new one
// removed again when a write failed.
#pragma once

#include <string_view>
#include <vector>

#include "platform/fileio.h"

namespace kv {

class BlockWriter {
public:
    // Blocks of 256 KiB stay in the cache until the system copies them out.
    explicit BlockWriter(size_t blockSize = size_t(256) << 10) : block_(blockSize) {}
    ~BlockWriter();  // an output never closed is abandoned: the old file stays, a new one goes
    BlockWriter(const BlockWriter&) = delete;
    BlockWriter& operator=(const BlockWriter&) = delete;

    // Starts writing path. False when it cannot be created (see kv::openOutput).
    bool open(const char* path) { return openOutput(path, out_); }

    // A write position with room for at least n bytes (n no larger than the block); hand the
    // end of what was written there to advance().
    char* room(size_t n) {
        if (block_.size() - used_ < n) flush();
        return block_.data() + used_;
    }
    void advance(char* end) { used_ = static_cast<size_t>(end - block_.data()); }

    void put(std::string_view s);  // appends text of any length (a block or more: written at once)

    // Writes what is left and puts the file in place. False when any write failed.
    bool close();

private:
    void flush();

    OutputFile out_;
    std::vector<char> block_;
    size_t used_ = 0;
    bool ok_ = true;  // false once a write has failed
};

}  // namespace kv
