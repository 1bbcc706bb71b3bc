// The open-file dialog's selection list and the product page, with stand-in dialog programs
// and a stand-in xdg-open first on PATH. (The real dialog in a real window: gui_dialog.sh.)
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <thread>

#include "FrameState.h"
#include "kelvane/Kelvane4.h"
#include "testutil.h"

namespace {

// Sets (or, with nullopt, removes) an environment variable for the scope.
struct EnvSet {
    std::string name;
    std::optional<std::string> old;
    EnvSet(const char* n, const std::optional<std::string>& value) : name(n) {
        if (const char* v = std::getenv(n)) old = v;
        set(value);
    }
    ~EnvSet() { set(old); }
    void set(const std::optional<std::string>& v) const { v ? ::setenv(name.c_str(), v->c_str(), 1) : ::unsetenv(name.c_str()); }
};

void writeScript(const std::string& path, const std::string& body) {
    kvtest::writeAll(path, "#!/bin/sh\n" + body);
    ::chmod(path.c_str(), 0755);
}

float call(KelvaneFn fn, double number = 0, char* mem1 = nullptr) { return fn(nullptr, number, mem1, nullptr); }

}  // namespace

TEST(Dialog, GetFilePathCopiesAtMost256BytesAndChecksTheIndex) {
    const std::string p255(255, 'a'), p256(256, 'b'), p300 = "/" + std::string(299, 'c');
    const std::string utf8 = "/tmp/pi\xC3\xA8" "ce.obj";  // the file system's bytes, unchanged
    docList = {"/models/left arm.obj", p255, p256, p300, utf8, ""};  // "": a path with no text
    char block[400];
    // The item number is truncated; 256 bytes or more: exactly 256 bytes copied, no terminator.
    for (auto [number, code, copied] : std::vector<std::tuple<double, float, std::string>>{
             {0, -1719, "X"}, {-1, -1719, "X"}, {7, -1719, "X"}, {6, 1234, "X"}, {0.9, -1719, "X"}, {NAN, -1719, "X"}, {1e12, -1719, "X"},
             {1.7, 0, "/models/left arm.obj" + std::string(1, '\0')}, {5, 0, utf8 + '\0'}, {2, 0, p255 + '\0'},
             {3, 0, p256}, {4, 0, p300.substr(0, 256)}}) {
        std::memset(block, 'X', sizeof block);
        EXPECT_EQ(call(GetFilePath, number, block), code) << number;
        EXPECT_EQ(std::string(block, copied.size()), copied) << number;
        EXPECT_TRUE(copied.size() < 256 || block[256] == 'X') << number;
    }

    EXPECT_EQ(call(ClearFileList), 0.0f);
    EXPECT_EQ(call(GetFilePath, 1, block), -1719.0f);
    EXPECT_EQ(call(ClearFileList), 0.0f);
}

// The first dialog program on PATH is run; its answer gives the result and the new selection.
// A cancel or an empty answer keeps the earlier selection; a failure leaves `answer` alone.
TEST(Dialog, GetOpenDialogRunsTheFirstDialogProgramAndReadsItsAnswer) {
    kvtest::TempDir dir;
    EnvSet path("PATH", dir.path);  // the stand-ins only (the scripts use shell built-ins)
    EnvSet wayland("WAYLAND_DISPLAY", std::nullopt);
    const std::vector<std::string> earlier = {"/earlier/choice.obj"};
    const std::string record = "printf '%s\\n' \"$@\" \"LC_CTYPE=$LC_CTYPE\" > '" + dir.path + "/args'\n";
    const struct {
        const char* program;  // nullptr: none on PATH
        std::string answer;
        float result;
        std::vector<std::string> chosen;
        const char* args;  // as the program saw them, or nullptr when not checked
    } cases[] = {
        // zenity joins the paths with "//"; they are the file system's bytes (UTF-8 here).
        {"zenity", "printf '/w/a b.obj///w/.hidden///w/pi\\303\\250ce.obj\\n'\n", 3,
         {"/w/a b.obj", "/w/.hidden", "/w/pi\xC3\xA8" "ce.obj"},
         "--file-selection\n--multiple\n--title=Choose files to Gathermesh...\n--separator=//\nLC_CTYPE=C.UTF-8\n"},
        {"zenity", "exit 1\n", 0, earlier, nullptr},  // cancelled
        {"zenity", "echo\n", 0, earlier, nullptr},    // confirmed with nothing chosen
        {"zenity", "exit 5\n", -2, earlier, nullptr},
        {"zenity", "kill -9 $$\n", -2, earlier, nullptr},
        // Without zenity, kdialog: one path per line.
        {"kdialog", "printf '/k/one.obj\\n/k/two words.obj\\n'\n", 2, {"/k/one.obj", "/k/two words.obj"},
         "--title\nChoose files to Gathermesh...\n--multiple\n--separate-output\n--getopenfilename\nLC_CTYPE=C.UTF-8\n"},
        {nullptr, "", -1, earlier, nullptr},
    };
    for (bool display : {false, true}) {
        EnvSet x("DISPLAY", display ? std::optional<std::string>(":77") : std::nullopt);
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.program ? c.program : "none") + ": " + c.answer);
            ::unlink((dir / "zenity").c_str()), ::unlink((dir / "kdialog").c_str()), ::unlink((dir / "args").c_str());
            if (c.program) writeScript(dir / c.program, record + c.answer);
            docList = earlier;
            answer = 5;
            const float want = display ? c.result : -1;  // no display: nothing is run
            EXPECT_EQ(call(GetOpenDialog), want);
            EXPECT_EQ(docList, want > 0 ? c.chosen : earlier);
            EXPECT_EQ(answer, want >= 0 ? 0.0f : 5.0f);  // set to 0 by the dialog's end
            EXPECT_EQ(kvtest::exists(dir / "args"), display && c.program);
            if (display && c.args) {
                EXPECT_EQ(kvtest::readAll(dir / "args"), c.args);
            }
        }
    }
    answer = 0;
    EXPECT_EQ(call(ClearFileList), 0.0f);
}

TEST(Dialog, InPutFlushesStdoutAndHandsTheProductPageToXdgOpen) {
    kvtest::TempDir dir;
    writeScript(dir / "xdg-open", "printf '%s' \"$1\" > '" + dir / "url.part" + "' && mv '" + dir / "url.part" + "' '" + dir / "url" + "'\n");
    float result;
    std::string seen;
    {
        EnvSet path("PATH", dir.path + ":/usr/bin:/bin");
        std::fflush(stdout);
        const int saved = ::dup(1), fd = ::open((dir / "stdout").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ASSERT_GE(fd, 0);
        ::dup2(fd, 1), ::close(fd);
        std::printf("pending output");  // still in stdout's buffer
        result = call(inPut);
        seen = kvtest::readAll(dir / "stdout");
        std::fflush(stdout);
        ::dup2(saved, 1), ::close(saved);
    }
    EXPECT_EQ(seen, "pending output");
    EXPECT_EQ(result, 0.0f);
    for (int i = 0; i < 100 && !kvtest::exists(dir / "url"); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(kvtest::readAll(dir / "url"), KELVANE_PRODUCT_URL);
    int status;
    EXPECT_EQ(::waitpid(-1, &status, WNOHANG), -1);  // detached: no child left to reap

    EnvSet path("PATH", dir.path + "/none");
    EXPECT_EQ(call(inPut), -1.0f);
}
