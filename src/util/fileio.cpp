#include "util/fileio.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

namespace kv {
namespace {

// Writes all of size bytes, retrying short writes and interrupted calls.
bool writeAll(int fd, const void* data, size_t size) {
    const char* p = static_cast<const char*>(data);
    while (size > 0) {
        ssize_t n = ::write(fd, p, size);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        p += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

int openForReading(const char* path, struct stat& st) {
    int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return -1;
    if (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
        ::close(fd);
        return -1;
    }
    return fd;
}

bool readOpened(int fd, const struct stat& st, std::vector<char>& out) {
    out.clear();
    // Regular files are read with one call into a buffer of their size; anything else
    // (a pipe, a file that grows meanwhile) is read on until end of file.
    size_t capacity = st.st_size > 0 ? static_cast<size_t>(st.st_size) : 0;
    size_t used = 0;
    out.reserve(capacity + 1);  // room for one more byte: readFileRepeatLast appends it without a copy
    out.resize(capacity > 0 ? capacity : 65536);
    for (;;) {
        if (used == out.size()) out.resize(out.size() * 2);
        ssize_t n = ::read(fd, out.data() + used, out.size() - used);
        if (n < 0) {
            if (errno == EINTR) continue;
            out.clear();
            return false;
        }
        if (n == 0) break;
        used += static_cast<size_t>(n);
        if (capacity > 0 && used == capacity) {
            // Probe for end of file without growing the buffer in the common case.
            char probe;
            ssize_t m = ::read(fd, &probe, 1);
            if (m <= 0) break;
            out.resize(out.size() * 2);
            out[used++] = probe;
        }
    }
    out.resize(used);
    return true;
}

bool readFile(const char* path, std::vector<char>& out) {
    struct stat st {};
    int fd = openForReading(path, st);
    if (fd < 0) return false;
    const bool ok = readOpened(fd, st, out);
    ::close(fd);
    return ok;
}

bool readFileRepeatLast(const char* path, std::vector<char>& out) {
    if (!readFile(path, out)) return false;
    out.push_back(out.empty() ? '\0' : out.back());
    return true;
}

bool writeFile(const char* path, const void* data, size_t size) {
    int fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return false;
    bool ok = writeAll(fd, data, size);
    ok = (::close(fd) == 0) && ok;
    if (!ok) ::unlink(path);
    return ok;
}

bool appendFile(const char* path, const void* data, size_t size) {
    int fd = ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (fd < 0) return false;
    struct stat st {};
    bool ok = ::fstat(fd, &st) == 0;
    ok = ok && writeAll(fd, data, size);
    // A failed append takes back what it wrote, so the old content stays as it was.
    if (!ok && st.st_size >= 0 && S_ISREG(st.st_mode)) (void)::ftruncate(fd, st.st_size);
    return (::close(fd) == 0) && ok;
}

// The mode a file created with 0666 gets under the process's file creation mask.
static mode_t newFileMode() {
    const mode_t mask = ::umask(0);  // the only way to read the mask; set back at once
    ::umask(mask);
    return 0666 & ~mask;
}

bool replaceFile(const char* path, const void* data, size_t size) {
    struct stat st {};
    const bool existed = ::stat(path, &st) == 0;
    // A file the caller may not write is not replaced behind its back (renaming over it would
    // succeed in a writable folder): it counts as a file that cannot be created.
    if (existed && ::access(path, W_OK) != 0) return false;
    std::string tmp = std::string(path) + ".kvtmpXXXXXX";
    int fd = ::mkstemp(tmp.data());  // created with mode 0600
    if (fd < 0) return false;
    bool ok = writeAll(fd, data, size);
    if (ok) ok = ::fchmod(fd, existed ? (st.st_mode & 07777) : newFileMode()) == 0;
    if (ok) ok = ::fsync(fd) == 0;
    ok = (::close(fd) == 0) && ok;
    if (ok) ok = ::rename(tmp.c_str(), path) == 0;
    if (!ok) ::unlink(tmp.c_str());
    return ok;
}

bool storeFile(const char* path, const void* data, size_t size) {
    return fileExists(path) ? replaceFile(path, data, size) : writeFile(path, data, size);
}

bool fileExists(const char* path) {
    struct stat st {};
    return ::stat(path, &st) == 0;
}

}  // namespace kv
