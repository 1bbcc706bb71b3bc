// Crash safety: a rewrite of an existing file that dies half-way leaves the old file whole.
// The child process gets a file-size limit below the size of the new content, so the kernel
// stops it with SIGXFSZ in the middle of writing (or, with the signal ignored, fails the write).
// And the OBJ line readers read nothing past a line that ends where readable memory ends.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "imagefiles.h"
#include "leanOBJ/objtext.h"
#include "meshfiles.h"
#include "platform/fileio.h"

using namespace kvtest;

namespace {

constexpr rlim_t kLimit = 256 * 1024;

// Runs body in a child whose files may not grow beyond kLimit; returns the wait status.
int runLimited(bool ignoreSignal, const std::function<int()>& body) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        const rlimit rl{kLimit, kLimit};
        if (::setrlimit(RLIMIT_FSIZE, &rl) != 0) ::_exit(100);
        if (ignoreSignal) ::signal(SIGXFSZ, SIG_IGN);
        ::_exit(body());
    }
    int status = -1;
    EXPECT_EQ(::waitpid(pid, &status, 0), pid);
    return status;
}

float writeProject(const std::string& path, int references) {
    callFn(ClearTPoseList);
    for (int i = 0; i < references; ++i) callFn(AddTPoseRef, ("pose " + std::to_string(i)).c_str(), i + 1, "data");
    return callFn(WritePrjFile, path);
}

std::string vertexBlock(uint32_t n, float fill) { return vytFile(std::vector<float>(3 * n, fill)); }

// One large rewrite of each kind: prepare() writes the old file (and any inputs) and returns its
// path; rewrite() makes the library replace it with more than kLimit bytes; refused is the
// export's code when the write fails.
const struct {
    const char* name;
    std::function<std::string(const TempDir&)> prepare;
    std::function<float(const TempDir&, const std::string&)> rewrite;
    float refused;
} kRewrites[] = {
    {"project file", [](const TempDir& d) { return writeProject(d / "scene.prj", 3), d / "scene.prj"; },
     [](const TempDir&, const std::string& target) { return writeProject(target, 4000); }, -17},
    {"Vyx vertex swap",
     [](const TempDir& d) {
         writeAll(d / "posed.Vyt", vertexBlock(40000, 1));
         writeAll(d / "mesh.Vyx", std::string(32, 'H') + vertexBlock(40000, 2) + std::string(16, '\0'));
         return d / "mesh.Vyx";
     },
     [](const TempDir& d, const std::string& target) { return callFn(SwapVertices_Vyx, d / "posed.Vyt", 0, target); }, -401},
    {"PSD colour swap", [](const TempDir& d) { return writeAll(d / "i.psd", uniform(400, 400, {0, 0, 0}).bytes()), d / "i.psd"; },
     [](const TempDir&, const std::string& target) { return callFn(SwapColorsPSD, target, 0xFFFFFF); }, -5},
    {"OBJ over an existing one (streamed)",
     [](const TempDir& d) {
         const std::string faces = be32(20001) + be32(32) + be32(1) + be32(0) + be32(0) + be32(1) + be32(2) + be32(0xFFFFFFFFu);
         writeAll(d / "mesh.Vyx", std::string(32, 'H') + vertexBlock(40000, 0.5f) + be32(35001) + be32(16) + be32(0) + be32(0) + faces);
         writeAll(d / "faces.Vyx", std::string(32, 'H') + faces);
         writeAll(d / "mesh.obj", "# the old conversion\n");
         return d / "mesh.obj";
     },
     [](const TempDir& d, const std::string& target) {
         callFn(getFaceIDs, d / "faces.Vyx", 1);
         return callFn(vyxtoOBJ, d / "mesh.Vyx", 0, target);
     },
     -2},
};

}  // namespace

TEST(CrashSafety, LargeRewritesOfEveryKindStoppedHalfWay) {
    for (const auto& r : kRewrites) {
        SCOPED_TRACE(r.name);
        TempDir dir;
        const std::string target = r.prepare(dir), old = readAll(target), before = listing(dir.path);
        const std::string tmpPrefix = std::filesystem::path(target).filename().string() + ".kvtmp";
        // Killed in the middle: the old file whole, at most a temporary sibling beside it.
        int status = runLimited(false, [&] { return int(-r.rewrite(dir, target)); });
        ASSERT_TRUE(WIFSIGNALED(status)) << status;
        EXPECT_EQ(WTERMSIG(status), SIGXFSZ);
        EXPECT_EQ(readAll(target), old);
        for (const auto& e : std::filesystem::directory_iterator(dir.path))
            if (before.find(e.path().filename().string() + " ") == std::string::npos) {
                EXPECT_EQ(e.path().filename().string().rfind(tmpPrefix, 0), 0u) << e.path();
                std::filesystem::remove(e.path());
            }
        // The write refused instead: the operation's code, the old file whole, nothing left over.
        status = runLimited(true, [&] { return int(-r.rewrite(dir, target)); });
        ASSERT_TRUE(WIFEXITED(status)) << status;
        EXPECT_EQ(WEXITSTATUS(status), int(-r.refused) & 0xFF);  // an exit status keeps 8 bits
        EXPECT_EQ(readAll(target), old);
        EXPECT_EQ(listing(dir.path), before);
        // Without a limit the rewrite goes through.
        EXPECT_EQ(r.rewrite(dir, target), 0);
        EXPECT_NE(readAll(target), old);
    }
}

// An append cannot be made atomic without copying the whole file; one that fails part-way is
// cut back, so the file keeps exactly its old content. A split stops at the first part it cannot
// write, even when later parts are written at the same time.
TEST(CrashSafety, FailedAppendAndSplitLeaveNoPartialFiles) {
    TempDir dir;
    std::string lines;
    while (lines.size() < 2 * kLimit) lines += "v 0.125 0.25 0.5\n";
    writeAll(dir / "part.obj", lines + "g p\nf 1 2 3\n");
    writeAll(dir / "all.obj", "v 1 2 3\ng first\nf 1 1 1 \n");
    callFn(GroupListClear);
    const int status = runLimited(true, [&] { return int(-callFn(AppendOBJ, dir / "part.obj", 1, dir / "all.obj")); });
    ASSERT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(WEXITSTATUS(status), 2);
    EXPECT_EQ(readAll(dir / "all.obj"), "v 1 2 3\ng first\nf 1 1 1 \n");
    // A split whose second part cannot be written: the first part stays, no part after it (the
    // third, far smaller, is written while the second is still being built).
    std::string big = "f", many;
    for (int i = 0; i < 16; ++i) many += lines;
    for (size_t i = 2; i <= many.size() / 17 + 1; ++i) big += " " + std::to_string(i);
    writeAll(dir / "mesh.obj", "v 1 1 1\n" + many + "v 2 2 2\nf 1\n" + big + "\nf " + std::to_string(many.size() / 17 + 2) + "\n");
    for (const char* name : {"A", "B", "C"}) callFn(GroupListAdd, name, 1);
    const int split = runLimited(true, [&] { return int(-callFn(ListSplitOBJtoOBJ, dir / "mesh.obj", 0, dir / "x")); });
    ASSERT_TRUE(WIFEXITED(split)) << split;
    EXPECT_EQ(WEXITSTATUS(split), 3);
    EXPECT_EQ(listing(dir.path), "A.obj all.obj mesh.obj part.obj ");
    EXPECT_EQ(readAll(dir / "A.obj"), "v 1 1 1\n");
    callFn(GroupListClear);
}

// New files get the usual mode (0666 less the umask), replaced files keep theirs, links stay
// links, and a file the process may not write is not replaced behind its back.
TEST(CrashSafety, ReplacementsKeepModesAndRespectUnwritableFiles) {
    TempDir dir;
    const std::string fresh = dir / "fresh", kept = dir / "kept", locked = dir / "locked";
    auto writeMode = [](const std::string& path, const std::string& bytes, mode_t mode) { writeAll(path, bytes), ::chmod(path.c_str(), mode); };
    const mode_t oldMask = ::umask(022);
    ASSERT_TRUE(kv::storeFile(fresh.c_str(), "new", 3));
    ::umask(077);
    ASSERT_TRUE(kv::storeFile((dir / "private").c_str(), "p", 1));
    ::umask(oldMask);
    writeMode(kept, "old", 0604);
    ASSERT_TRUE(kv::storeFile(kept.c_str(), "newer", 5));
    EXPECT_EQ(readAll(kept), "newer");
    for (auto [path, mode] : std::vector<std::pair<std::string, mode_t>>{{fresh, 0644}, {dir / "private", 0600}, {kept, 0604}}) {
        struct stat st {};
        ASSERT_EQ(::stat(path.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, mode) << path;
    }
    // A link stays a link whose file gets the content; a file in a folder that cannot hold a
    // sibling is rewritten in place.
    ASSERT_EQ(::mkdir((dir / "ro").c_str(), 0755), 0);
    ASSERT_EQ(::symlink("../kept", (dir / "ro/link").c_str()), 0);
    ASSERT_TRUE(kv::storeFile((dir / "ro/link").c_str(), "linked", 6));
    struct stat st {};
    ASSERT_EQ(::lstat((dir / "ro/link").c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    EXPECT_EQ(readAll(kept), "linked");
    writeMode(dir / "ro/inplace", "old content, longer", 0666);
    ::chmod((dir / "ro").c_str(), 0555);
    // A read-only file: refused for a user without the right to write it (root may write any
    // file, so the check runs as an unprivileged user in a child).
    const std::string mesh = std::string(32, 'H') + vytFile({1, 2, 3}) + std::string(16, '\0');
    writeMode(locked, "locked", 0444);
    writeMode(dir / "m.Vyx", mesh, 0444);
    writeMode(dir / "p.Vyt", vytFile({4, 5, 6}), 0666);
    ::chmod(dir.path.c_str(), 0777);  // the folder itself stays writable
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (::getuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) ::_exit(10);
        if (kv::storeFile(locked.c_str(), "x", 1)) ::_exit(1);
        if (callFn(SwapVertices_Vyx, dir / "p.Vyt", 0, dir / "m.Vyx") != -401) ::_exit(3);
        ::_exit(kv::storeFile((dir / "ro/inplace").c_str(), "in place", 8) ? 0 : 2);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(readAll(locked), "locked");
    EXPECT_EQ(readAll(dir / "m.Vyx"), mesh);
    EXPECT_EQ(readAll(dir / "ro/inplace"), "in place");
    ::chmod((dir / "ro").c_str(), 0755);
    EXPECT_EQ(listing(dir.path), "fresh kept locked m.Vyx p.Vyt private ro ");
    EXPECT_EQ(listing(dir / "ro"), "inplace link ");
}

// A mapped file whose size is a multiple of the page size ends where readable memory ends: a
// line there is read as in the middle of a file, without a byte past it (the unreadable page
// after it would stop the test).
TEST(CrashSafety, ObjReadersStopAtTheEndOfReadableMemory) {
    const size_t page = size_t(::sysconf(_SC_PAGESIZE));
    char* mem = static_cast<char*>(::mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(mem, MAP_FAILED);
    ASSERT_EQ(::mprotect(mem + page, page, PROT_NONE), 0);
    std::string scratch;
    const auto indices = [&](std::string_view line) {
        std::vector<int32_t> out;
        obj::forEachFaceIndex(line, scratch, [&](int32_t i) { out.push_back(i); });
        return out;
    };
    for (const std::string& line : std::initializer_list<std::string>{"", "  ", "v", "v 1", "v 1 2 ", "v 1.5 -2 3", "v 1e", "v 1 -", "v 1 +", "v 0.1e40",
                                   "v 12345678901234567890", "v .5\t", "v 1 2 345" + std::string(62, ' '), "f", "f 1", "f 1 2/", "f 12345678", "f 3/1 -", "f +"}) {
        char* at = mem + page - line.size();
        std::memcpy(at, line.data(), line.size());
        const std::string inFile = line + "\n7 8 9\nv 1 2 3\n" + std::string(64, ' ');
        const vertexS a = obj::parseVertex({at, line.size()}), b = obj::parseVertex({inFile.data(), line.size()}, &inFile.back());
        EXPECT_TRUE(a.x == b.x && a.y == b.y && a.z == b.z) << line;
        EXPECT_EQ(indices({at, line.size()}), indices({inFile.data(), line.size()})) << line;
    }
    ::munmap(mem, 2 * page);
}
