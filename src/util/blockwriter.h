// Streams a large output file in big blocks: text is formatted straight into a block buffer,
// and each full block goes to the file with one write. For outputs too large to be built
// whole in memory first (mesh conversions of several hundred megabytes).
#pragma once

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <vector>

namespace kv {

struct BlockWriter {
    std::FILE* file = nullptr;
    std::vector<char> block;
    size_t used = 0;
    bool ok = true;  // false once a write has failed

    // Blocks of 256 KiB stay in the cache until the system copies them out.
    explicit BlockWriter(size_t blockSize = size_t(256) << 10) : block(blockSize) {}
    ~BlockWriter() {
        if (file) std::fclose(file);
    }
    BlockWriter(const BlockWriter&) = delete;
    BlockWriter& operator=(const BlockWriter&) = delete;

    // Creates or truncates path. False when it cannot be created.
    bool open(const char* path) {
        file = std::fopen(path, "wb");
        if (file) std::setvbuf(file, nullptr, _IONBF, 0);  // the blocks are buffer enough
        return file != nullptr;
    }

    // A write position with room for at least n bytes (n no larger than the block); hand the
    // end of what was written there to advance().
    char* room(size_t n) {
        if (block.size() - used < n) flush();
        return block.data() + used;
    }
    void advance(char* end) { used = static_cast<size_t>(end - block.data()); }

    // Appends text of any length.
    void put(std::string_view s) {
        while (!s.empty()) {
            if (used == block.size()) flush();
            size_t n = std::min(s.size(), block.size() - used);
            s.copy(block.data() + used, n);
            used += n;
            s.remove_prefix(n);
        }
    }

    void flush() {
        if (used > 0 && std::fwrite(block.data(), 1, used, file) != used) ok = false;
        used = 0;
    }

    // Writes what is left and closes the file. False when any write failed.
    bool close() {
        flush();
        bool good = std::fclose(file) == 0 && ok;
        file = nullptr;
        return good;
    }
};

}  // namespace kv
