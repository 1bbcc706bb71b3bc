#include "util/mapfile.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "util/fileio.h"

namespace kv {

MappedFile::~MappedFile() {
    if (map_) ::munmap(map_, size_);
}

bool MappedFile::open(const char* path) {
    struct stat st {};
    int fd = openForReading(path, st);
    if (fd < 0) return false;
    if (S_ISREG(st.st_mode) && st.st_size > 0) {
        void* m = ::mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
        if (m != MAP_FAILED) {
            ::close(fd);
            ::madvise(m, static_cast<size_t>(st.st_size), MADV_SEQUENTIAL);
            map_ = m;
            data_ = static_cast<const char*>(m);
            size_ = static_cast<size_t>(st.st_size);
            return true;
        }
    }
    // Not mappable (empty, a pipe, a special file): read it through the same descriptor.
    const bool ok = readOpened(fd, st, copy_);
    ::close(fd);
    if (!ok) return false;
    data_ = copy_.data();
    size_ = copy_.size();
    return true;
}

}  // namespace kv
