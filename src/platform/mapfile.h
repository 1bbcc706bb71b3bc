// Read-only view of a whole file: memory-mapped when it is a regular file (no copy, no
// zero-filled buffer; the pages come straight from the page cache), read into a buffer
// otherwise (pipes, special files). Used by the readers of large meshes. Implemented with the
// file primitives in FilesPosix.cpp and FilesWindows.cpp.
#pragma once

#include <cstddef>
#include <vector>

namespace kv {

class MappedFile {
public:
    MappedFile() = default;
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;
    ~MappedFile() { close(); }

    // Opens path. False when it cannot be opened or read (the view is then empty).
    bool open(const char* path);

    // Lets the file go (the view becomes empty): a mapped file cannot be replaced everywhere,
    // so a writer that replaces its own input closes the view first.
    void close() {
        if (map_) unmap(map_, size_);
        map_ = nullptr;
        std::vector<char>().swap(copy_);
        data_ = nullptr;
        size_ = 0;
    }

    const char* data() const { return data_; }
    size_t size() const { return size_; }

private:
    static void unmap(void* map, size_t size);  // the system's half of close()

    const char* data_ = nullptr;
    size_t size_ = 0;
    void* map_ = nullptr;      // the mapping, when the file is mapped
    std::vector<char> copy_;  // the bytes, when it is not
};

}  // namespace kv
