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

#include "kelvane/Kelvane4.h"
#include "testutil.h"
#include "util/fileio.h"

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

float call(KelvaneFn fn, const char* text, double number = 0, const char* mem1 = nullptr) {
    char mem2[8] = {};
    return fn(text, number, const_cast<char*>(mem1), mem2);
}

// Fills the TPose list with n references (about n * 516 bytes once written) and writes it to path.
int writeProject(const std::string& path, int n) {
    call(ClearTPoseList, nullptr);
    for (int i = 0; i < n; ++i) {
        const std::string name = "pose " + std::to_string(i);
        call(AddTPoseRef, name.c_str(), i + 1, "data");
    }
    return static_cast<int>(-call(WritePrjFile, path.c_str()));
}

std::vector<std::string> entries(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

TEST(CrashSafety, ProjectRewriteStoppedHalfWayLeavesTheOldFileWhole) {
    TempDir dir;
    const std::string prj = dir / "scene.prj";
    ASSERT_EQ(writeProject(prj, 3), 0);
    const std::string old = kvtest::readAll(prj);
    ASSERT_EQ(old.size(), 16u + 3 * 516u);

    // Killed by the signal in the middle of writing 2 MB: the old project is untouched; only the
    // temporary sibling holds the part that was written.
    int status = runLimited(false, [&] { return writeProject(prj, 4000); });
    ASSERT_TRUE(WIFSIGNALED(status)) << status;
    EXPECT_EQ(WTERMSIG(status), SIGXFSZ);
    EXPECT_EQ(kvtest::readAll(prj), old);
    std::vector<std::string> names = entries(dir.path);
    ASSERT_EQ(names.size(), 2u);
    EXPECT_EQ(names[1].rfind("scene.prj.kvtmp", 0), 0u) << names[1];
    EXPECT_EQ(std::filesystem::file_size(dir / names[1]), kLimit);
    std::filesystem::remove(dir / names[1]);

    // With the signal ignored the write fails instead: -17, the old project whole, nothing left over.
    status = runLimited(true, [&] { return writeProject(prj, 4000); });
    ASSERT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(WEXITSTATUS(status), 17);
    EXPECT_EQ(kvtest::readAll(prj), old);
    EXPECT_EQ(entries(dir.path), std::vector<std::string>{"scene.prj"});

    // The same stop during a plain truncating write destroys the file: the case the rewrite avoids.
    const std::string big(2 * kLimit, 'x');
    status = runLimited(false, [&] { return kv::writeFile(prj.c_str(), big.data(), big.size()) ? 0 : 1; });
    ASSERT_TRUE(WIFSIGNALED(status)) << status;
    EXPECT_EQ(kvtest::readAll(prj), std::string(kLimit, 'x'));
}

namespace {

// One large rewrite of each other kind: prepare() writes the old file (and any inputs) and
// returns its path; rewrite() makes the library replace it with more than kLimit bytes and
// returns the export's result; refused is that result when the write fails instead.
struct Rewrite {
    const char* name;
    std::function<std::string(const TempDir&)> prepare;
    std::function<float(const TempDir&, const std::string&)> rewrite;
    float refused;
};

std::string be(uint32_t v) { return {char(v >> 24), char(v >> 16), char(v >> 8), char(v)}; }

// n vertices (12 bytes each) in a vertex block of tag 10001.
std::string vertexBlock(uint32_t n, char fill) { return be(10001) + be(16 + 12 * n) + be(n) + be(0) + std::string(12 * size_t(n), fill); }

// A PSD of the library's dialect (header numbers least significant byte first), side x side RGB.
std::string psd(uint32_t side) {
    std::string s = "8BPS" + std::string("\x01\x00", 2) + std::string(6, '\0');
    auto le = [&s](uint32_t v, int n) {
        for (int i = 0; i < n; ++i) s += char(v >> (8 * i));
    };
    le(3, 2), le(side, 4), le(side, 4), le(8, 2), le(3, 2), le(0, 4), le(0, 4), le(0, 4), le(0, 2);
    for (uint32_t i = 0; i < 3 * side * side; ++i) s += char(i % 251);
    return s;
}

const uint32_t kVertices = 40000;  // 480 000 bytes of positions, beyond kLimit

const std::vector<Rewrite> kRewrites = {
    {"Vyx vertex swap",
     [](const TempDir& d) {
         kvtest::writeAll(d / "posed.Vyt", vertexBlock(kVertices, 'n'));
         kvtest::writeAll(d / "mesh.Vyx", std::string(32, 'H') + vertexBlock(kVertices, 'o') + std::string(16, '\0'));
         return d / "mesh.Vyx";
     },
     [](const TempDir& d, const std::string& target) { return call(SwapVertices_Vyx, (d / "posed.Vyt").c_str(), 0, target.c_str()); },
     -401},
    {"PSD colour swap",
     [](const TempDir& d) {
         kvtest::writeAll(d / "image.psd", psd(400));
         return d / "image.psd";
     },
     [](const TempDir&, const std::string& target) { return call(SwapColorsPSD, target.c_str(), 0xFFFFFF); },
     -5},
    {"OBJ over an existing one (streamed)",
     [](const TempDir& d) {
         std::string faces = be(20001) + be(16 + 16) + be(1) + be(0) + be(0) + be(1) + be(2) + be(0xFFFFFFFFu);
         kvtest::writeAll(d / "mesh.Vyx", std::string(32, 'H') + vertexBlock(kVertices, '\x3f') + be(35001) + be(16) + be(0) + be(0) + faces);
         kvtest::writeAll(d / "faces.Vyx", std::string(32, 'H') + faces);
         kvtest::writeAll(d / "mesh.obj", "# the old conversion\n");
         return d / "mesh.obj";
     },
     [](const TempDir& d, const std::string& target) {
         call(getFaceIDs, (d / "faces.Vyx").c_str(), 1);
         return call(vyxtoOBJ, (d / "mesh.Vyx").c_str(), 0, target.c_str());
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
    call(GroupListClear, nullptr);
    const int status = runLimited(true, [&] { return int(-call(AppendOBJ, part.c_str(), 1, combined.c_str())); });
    ASSERT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(WEXITSTATUS(status), 2);
    EXPECT_EQ(kvtest::readAll(combined), old);
}

// New files get the usual mode (0666 less the umask), replaced files keep theirs, and a file
// the process may not write is not replaced behind its back.
TEST(CrashSafety, ReplacementsKeepModesAndRespectUnwritableFiles) {
    TempDir dir;
    const std::string fresh = dir / "fresh", kept = dir / "kept", locked = dir / "locked";
    const mode_t oldMask = ::umask(022);
    ASSERT_TRUE(kv::replaceFile(fresh.c_str(), "new", 3));
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

    // A read-only file: refused for a user without the right to write it (root may write any
    // file, so the check runs as an unprivileged user in a child).
    kvtest::writeAll(locked, "locked");
    ::chmod(locked.c_str(), 0444);
    ::chmod(dir.path.c_str(), 0777);  // the folder itself stays writable
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (::getuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) ::_exit(10);
        const bool stored = kv::storeFile(locked.c_str(), "x", 1) || kv::replaceFile(locked.c_str(), "x", 1);
        ::_exit(stored ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(kvtest::readAll(locked), "locked");
    EXPECT_EQ(entries(dir.path), (std::vector<std::string>{"fresh", "kept", "locked", "private"}));
}
