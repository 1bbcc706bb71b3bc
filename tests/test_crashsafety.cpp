// Crash safety: a rewrite of an existing file that dies half-way leaves the old file whole.
// The child process gets a file-size limit below the size of the new content, so the kernel
// stops it with SIGXFSZ in the middle of writing (or, with the signal ignored, fails the write).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
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
