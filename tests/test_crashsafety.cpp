// Crash safety: a rewrite of an existing file that dies half-way leaves the old file whole.
// The child process gets a file-size limit below the size of the new content, so the kernel
// stops it with SIGXFSZ in the middle of writing (or, with the signal ignored, fails the write).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "imagefiles.h"
#include "kelvane/Kelvane4.h"
#include "testutil.h"
#include "util/fileio.h"

using kvtest::be32;
using kvtest::callFn;
using kvtest::TempDir;

namespace {

constexpr rlim_t kLimit = 256 * 1024;

// Runs body in a child whose files may not grow beyond kLimit; the child exits with body's
// result. Returns the wait status.
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

// Fills the TPose list with n references (about n * 516 bytes once written) and writes it to path.
float writeProject(const std::string& path, int n) {
    callFn(ClearTPoseList);
    for (int i = 0; i < n; ++i) callFn(AddTPoseRef, ("pose " + std::to_string(i)).c_str(), i + 1, "data");
    return callFn(WritePrjFile, path.c_str());
}

std::vector<std::string> entries(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

namespace {

// One large rewrite of each kind: prepare() writes the old file (and any inputs) and
// returns its path; rewrite() makes the library replace it with more than kLimit bytes and
// returns the export's result; refused is that result when the write fails instead.
struct Rewrite {
    const char* name;
    std::function<std::string(const TempDir&)> prepare;
    std::function<float(const TempDir&, const std::string&)> rewrite;
    float refused;
};

// n vertices (12 bytes each) in a vertex block of tag 10001.
std::string vertexBlock(uint32_t n, char fill) { return be32(10001) + be32(16 + 12 * n) + be32(n) + be32(0) + std::string(12 * size_t(n), fill); }

const uint32_t kVertices = 40000;  // 480 000 bytes of positions, beyond kLimit

const std::vector<Rewrite> kRewrites = {
    {"project file (2 MB over 1.5 KB)",
     [](const TempDir& d) {
         writeProject(d / "scene.prj", 3);
         return d / "scene.prj";
     },
     [](const TempDir&, const std::string& target) { return writeProject(target, 4000); },
     -17},
    {"Vyx vertex swap",
     [](const TempDir& d) {
         kvtest::writeAll(d / "posed.Vyt", vertexBlock(kVertices, 'n'));
         kvtest::writeAll(d / "mesh.Vyx", std::string(32, 'H') + vertexBlock(kVertices, 'o') + std::string(16, '\0'));
         return d / "mesh.Vyx";
     },
     [](const TempDir& d, const std::string& target) { return callFn(SwapVertices_Vyx, (d / "posed.Vyt").c_str(), 0, target.c_str()); },
     -401},
    {"PSD colour swap",
     [](const TempDir& d) {
         kvtest::writeAll(d / "image.psd", kvtest::uniform(400, 400, {0, 0, 0}).bytes());
         return d / "image.psd";
     },
     [](const TempDir&, const std::string& target) { return callFn(SwapColorsPSD, target.c_str(), 0xFFFFFF); },
     -5},
    {"OBJ over an existing one (streamed)",
     [](const TempDir& d) {
         std::string faces = be32(20001) + be32(16 + 16) + be32(1) + be32(0) + be32(0) + be32(1) + be32(2) + be32(0xFFFFFFFFu);
         kvtest::writeAll(d / "mesh.Vyx", std::string(32, 'H') + vertexBlock(kVertices, '\x3f') + be32(35001) + be32(16) + be32(0) + be32(0) + faces);
         kvtest::writeAll(d / "faces.Vyx", std::string(32, 'H') + faces);
         kvtest::writeAll(d / "mesh.obj", "# the old conversion\n");
         return d / "mesh.obj";
     },
     [](const TempDir& d, const std::string& target) {
         callFn(getFaceIDs, (d / "faces.Vyx").c_str(), 1);
         return callFn(vyxtoOBJ, (d / "mesh.Vyx").c_str(), 0, target.c_str());
     },
     -2},
};

}  // namespace

TEST(CrashSafety, LargeRewritesOfEveryKindStoppedHalfWay) {
    for (const Rewrite& r : kRewrites) {
        SCOPED_TRACE(r.name);
        TempDir dir;
        const std::string target = r.prepare(dir);
        const std::string old = kvtest::readAll(target);
        const std::vector<std::string> before = entries(dir.path);

        // Killed in the middle: the old file whole, only a temporary sibling beside it.
        int status = runLimited(false, [&] { return int(-r.rewrite(dir, target)); });
        ASSERT_TRUE(WIFSIGNALED(status)) << status;
        EXPECT_EQ(WTERMSIG(status), SIGXFSZ);
        EXPECT_EQ(kvtest::readAll(target), old);
        for (const std::string& name : entries(dir.path))
            if (!std::binary_search(before.begin(), before.end(), name)) {
                EXPECT_EQ(name.rfind(std::filesystem::path(target).filename().string() + ".kvtmp", 0), 0u) << name;
                std::filesystem::remove(dir / name);
            }

        // The write refused instead: the operation's code, the old file whole, nothing left over.
        status = runLimited(true, [&] { return int(-r.rewrite(dir, target)); });
        ASSERT_TRUE(WIFEXITED(status)) << status;
        EXPECT_EQ(WEXITSTATUS(status), int(-r.refused) & 0xFF);  // an exit status keeps 8 bits
        EXPECT_EQ(kvtest::readAll(target), old);
        EXPECT_EQ(entries(dir.path), before);

        // Without a limit the rewrite goes through.
        EXPECT_EQ(r.rewrite(dir, target), 0);
        EXPECT_NE(kvtest::readAll(target), old);
    }
}

// An append cannot be made atomic without copying the whole file; one that fails part-way is
// cut back, so the file keeps exactly its old content.
TEST(CrashSafety, FailedAppendLeavesTheOldContent) {
    TempDir dir;
    const std::string combined = dir / "all.obj", part = dir / "part.obj";
    std::string lines;
    while (lines.size() < 2 * kLimit) lines += "v 0.125 0.25 0.5\n";
    kvtest::writeAll(part, lines + "g p\nf 1 2 3\n");
    kvtest::writeAll(combined, "v 1 2 3\ng first\nf 1 1 1 \n");
    const std::string old = kvtest::readAll(combined);
    callFn(GroupListClear);
    const int status = runLimited(true, [&] { return int(-callFn(AppendOBJ, part.c_str(), 1, combined.c_str())); });
    ASSERT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(WEXITSTATUS(status), 2);
    EXPECT_EQ(kvtest::readAll(combined), old);
}

// New files get the usual mode (0666 less the umask), replaced files keep theirs, a link stays a
// link whose file gets the content, a file in a folder that cannot hold a sibling is rewritten
// in place, and a file the process may not write is not replaced behind its back.
TEST(CrashSafety, ReplacementsKeepModesLinksAndRespectUnwritableFiles) {
    TempDir dir;
    const std::string fresh = dir / "fresh", kept = dir / "kept", locked = dir / "locked";
    const mode_t oldMask = ::umask(022);
    ASSERT_TRUE(kv::storeFile(fresh.c_str(), "new", 3));
    ::umask(077);
    ASSERT_TRUE(kv::storeFile((dir / "private").c_str(), "p", 1));
    ::umask(oldMask);
    struct stat st {};
    ASSERT_EQ(::stat(fresh.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0644u);
    ASSERT_EQ(::stat((dir / "private").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    kvtest::writeAll(kept, "old");
    ::chmod(kept.c_str(), 0604);
    ASSERT_TRUE(kv::storeFile(kept.c_str(), "newer", 5));
    ASSERT_EQ(::stat(kept.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0604u);
    EXPECT_EQ(kvtest::readAll(kept), "newer");
    ASSERT_EQ(::mkdir((dir / "ro").c_str(), 0755), 0);
    ASSERT_EQ(::symlink("../kept", (dir / "ro/link").c_str()), 0);
    ASSERT_TRUE(kv::storeFile((dir / "ro/link").c_str(), "linked", 6));
    ASSERT_EQ(::lstat((dir / "ro/link").c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    EXPECT_EQ(kvtest::readAll(kept), "linked");
    ASSERT_EQ(::stat(kept.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0604u);
    kvtest::writeAll(dir / "ro/inplace", "old content, longer");
    ::chmod((dir / "ro/inplace").c_str(), 0666);
    ::chmod((dir / "ro").c_str(), 0555);

    // A read-only file: refused for a user without the right to write it (root may write any
    // file, so the check runs as an unprivileged user in a child).
    kvtest::writeAll(locked, "locked");
    ::chmod(locked.c_str(), 0444);
    ::chmod(dir.path.c_str(), 0777);  // the folder itself stays writable
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (::getuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) ::_exit(10);
        if (kv::storeFile(locked.c_str(), "x", 1)) ::_exit(1);
        ::_exit(kv::storeFile((dir / "ro/inplace").c_str(), "in place", 8) ? 0 : 2);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(kvtest::readAll(locked), "locked");
    EXPECT_EQ(kvtest::readAll(dir / "ro/inplace"), "in place");
    ::chmod((dir / "ro").c_str(), 0755);
    EXPECT_EQ(entries(dir.path), (std::vector<std::string>{"fresh", "kept", "locked", "private", "ro"}));
    EXPECT_EQ(entries(dir / "ro"), (std::vector<std::string>{"inplace", "link"}));
}
