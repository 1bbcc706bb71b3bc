// The file primitives on POSIX systems: descriptors, rename over the old file, mmap.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/fileio.h"
#include "platform/mapfile.h"

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

// Opens path read-only and fills st; -1 when it cannot be opened or is a folder.
int openForReading(const char* path, struct stat& st) {
    int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return -1;
    if (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// Reads the opened file to its end into out (the caller closes fd).
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

}  // namespace

bool readFile(const char* path, std::vector<char>& out) {
    struct stat st {};
    int fd = openForReading(path, st);
    if (fd < 0) return false;
    const bool ok = readOpened(fd, st, out);
    ::close(fd);
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

// The file an existing path names, symbolic links resolved (the path itself when it cannot be
// resolved).
static std::string resolved(const char* path) {
    char* real = ::realpath(path, nullptr);
    if (!real) return path;
    std::string r = real;
    std::free(real);
    return r;
}

bool openOutput(const char* path, OutputFile& out) {
    out = OutputFile{};
    struct stat st {};
    if (::stat(path, &st) != 0) {
        out.target = path;
        out.created = true;
        out.fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        return out.isOpen();
    }
    // A file the caller may not write is not replaced behind its back (renaming over it would
    // succeed in a writable folder): it counts as a file that cannot be created.
    if (S_ISDIR(st.st_mode) || ::access(path, W_OK) != 0) return false;
    out.target = resolved(path);
    out.temp = out.target + ".kvtmpXXXXXX";
    const int fd = ::mkstemp(out.temp.data());  // created with mode 0600
    if (fd >= 0 && ::fchmod(fd, st.st_mode & 07777) == 0) {
        out.fd = fd;
        return true;
    }
    if (fd >= 0) {
        ::close(fd);
        ::unlink(out.temp.c_str());
    }
    out.temp.clear();  // no sibling possible: the file itself, rewritten in place
    out.fd = ::open(out.target.c_str(), O_WRONLY | O_CLOEXEC);
    return out.isOpen();
}

bool writeOutput(OutputFile& out, const void* data, size_t size) {
    return writeAll(static_cast<int>(out.fd), data, size);
}

bool closeOutput(OutputFile& out, bool good) {
    if (!out.isOpen()) return false;
    const int fd = static_cast<int>(out.fd);
    if (good && !out.created && out.temp.empty()) {  // in place: cut off the old content's rest
        const off_t end = ::lseek(fd, 0, SEEK_CUR);
        good = end >= 0 && ::ftruncate(fd, end) == 0;
    }
    if (good && !out.created) good = ::fsync(fd) == 0;
    good = ::close(fd) == 0 && good;
    out.fd = -1;
    if (!out.temp.empty()) {
        if (good) good = ::rename(out.temp.c_str(), out.target.c_str()) == 0;
        if (!good) ::unlink(out.temp.c_str());
    } else if (!good && out.created) {
        ::unlink(out.target.c_str());
    }
    return good;
}

bool fileExists(const char* path) {
    struct stat st {};
    return ::stat(path, &st) == 0;
}

bool canOpenForWriting(const char* path, bool alsoRead) {
    const int fd = ::open(path, (alsoRead ? O_RDWR : O_WRONLY) | O_CLOEXEC);
    if (fd < 0) return false;
    ::close(fd);
    return true;
}

std::FILE* openStream(const char* path, const char* mode) { return std::fopen(path, mode); }

bool removeFile(const char* path) { return std::remove(path) == 0; }

bool renameFile(const char* from, const char* to) { return std::rename(from, to) == 0; }

const std::string_view kPathSeparators = "/";

bool creatableName(std::string_view) { return true; }  // any byte but '/' and NUL

// ---- Mapped files ----------------------------------------------------------------------------

void MappedFile::unmap(void* map, size_t size) { ::munmap(map, size); }

bool MappedFile::open(const char* path) {
    close();
    struct stat st {};
    int fd = openForReading(path, st);
    if (fd < 0) return false;
    if (S_ISREG(st.st_mode) && st.st_size > 0) {
#ifdef MAP_POPULATE
        constexpr int kFlags = MAP_PRIVATE | MAP_POPULATE;  // read ahead at once (Linux)
#else
        constexpr int kFlags = MAP_PRIVATE;
#endif
        void* m = ::mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ, kFlags, fd, 0);
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
