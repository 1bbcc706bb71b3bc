// Streams a large output file in big blocks: text is formatted straight into a block buffer,
// and each full block goes to the file with one write. For outputs too large to be built
// whole in memory first (mesh conversions of several hundred megabytes).
//
// An existing file is never truncated in place: the blocks go to a temporary sibling that
// close() renames over it (keeping its permission bits), so a run that dies or fails half-way
// leaves the old file whole. A new file is written directly; close() removes it when a write
// failed, since a cut file is worse than none.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
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
    std::string target;  // the path being written
    std::string temp;    // the temporary sibling when target existed, else empty

    ~BlockWriter() {
        if (file) {  // never closed: the output is abandoned
            std::fclose(file);
            ::unlink(temp.empty() ? target.c_str() : temp.c_str());
        }
    }
    BlockWriter(const BlockWriter&) = delete;
    BlockWriter& operator=(const BlockWriter&) = delete;

    // Starts writing path (created, or replaced on close). False when it cannot be created;
    // an existing file the process may not write counts as one that cannot be created.
    bool open(const char* path) {
        target = path;
        temp.clear();
        struct stat st {};
        if (::stat(path, &st) == 0 && !S_ISDIR(st.st_mode)) {
            if (::access(path, W_OK) != 0) return false;
            temp = target + ".kvtmpXXXXXX";
            const int fd = ::mkstemp(temp.data());
            if (fd < 0) return false;
            if (::fchmod(fd, st.st_mode & 07777) != 0 || !(file = ::fdopen(fd, "wb"))) {
                ::close(fd);
                ::unlink(temp.c_str());
                return false;
            }
        } else {
            file = std::fopen(path, "wb");
        }
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

    // Writes what is left, closes the file and puts it in place. False when any write failed:
    // an existing file is then left as it was, a new one removed.
    bool close() {
        flush();
        bool good = ok;
        if (!temp.empty() && good) good = ::fsync(::fileno(file)) == 0;
        good = std::fclose(file) == 0 && good;
        file = nullptr;
        if (temp.empty()) {
            if (!good) ::unlink(target.c_str());
        } else if (!good || ::rename(temp.c_str(), target.c_str()) != 0) {
            ::unlink(temp.c_str());
            good = false;
        }
        return good;
    }
};

}  // namespace kv
