// The desktop services on Linux, without a GUI toolkit in the host's process: the open dialog
// is shown by a dialog program run as a child process (zenity, else kdialog) whose standard
// output carries the chosen paths; web addresses are handed to xdg-open, started detached.
//
// Order of the open dialog: no DISPLAY and no WAYLAND_DISPLAY -> kDialogUnavailable at once;
// else the first of zenity, kdialog found on PATH; none -> kDialogUnavailable.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "platform/Dialog.h"

extern char** environ;

namespace kv::platform {
namespace {

bool hasDisplay() {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY"}) {
        const char* value = std::getenv(name);
        if (value && *value) return true;
    }
    return false;
}

// The path of the executable regular file name in a folder of PATH, or "" when there is none.
std::string findProgram(const char* name) {
    const char* searchPath = std::getenv("PATH");
    std::string_view rest = searchPath && *searchPath ? searchPath : "/usr/local/bin:/usr/bin:/bin";
    for (;;) {
        size_t colon = rest.find(':');
        std::string_view dir = rest.substr(0, colon);
        std::string candidate = dir.empty() ? std::string(".") : std::string(dir);
        candidate += '/';
        candidate += name;
        struct stat st {};
        if (::stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode) && ::access(candidate.c_str(), X_OK) == 0)
            return candidate;
        if (colon == std::string_view::npos) return {};
        rest.remove_prefix(colon + 1);
    }
}

// A NULL-terminated pointer array over strings, for exec and spawn calls.
std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> out;
    out.reserve(strings.size() + 1);
    for (std::string& s : strings) out.push_back(s.data());
    out.push_back(nullptr);
    return out;
}

// The host's environment with the character type set to UTF-8, so that a dialog program writes
// the chosen paths as the file system's bytes whatever the host's locale (the other locale
// categories, the dialog's language among them, keep their effective values).
std::vector<std::string> utf8Environment() {
    const char* all = std::getenv("LC_ALL");
    const bool hasAll = all && *all;
    std::vector<std::string> env;
    for (char** e = environ; e && *e; ++e) {
        std::string_view entry(*e);
        if (entry.starts_with("LC_CTYPE=") || entry.starts_with("LC_ALL=")) continue;
        if (hasAll && (entry.starts_with("LC_") || entry.starts_with("LANG="))) continue;
        env.emplace_back(entry);
    }
    if (hasAll) env.push_back(std::string("LANG=") + all);
    env.emplace_back("LC_CTYPE=C.UTF-8");
    return env;
}

// Runs program (args[0] is its name) with standard input and error on /dev/null and signals
// at their defaults, collects its standard output and waits for it. False when it could not be
// started; otherwise status is its wait status, or -1 when that could not be collected.
bool runAndCapture(const std::string& program, std::vector<std::string> args, std::vector<std::string> env,
                   std::string& out, int& status) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return false;
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attr;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_init(&attr);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setsigdefault(&attr, &all);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    std::vector<char*> argv = pointers(args), envp = pointers(env);
    pid_t pid = -1;
    int rc = ::posix_spawn(&pid, program.c_str(), &actions, &attr, argv.data(), envp.data());
    posix_spawnattr_destroy(&attr);
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    if (rc != 0) {
        ::close(fds[0]);
        return false;
    }
    char buf[4096];
    for (;;) {
        ssize_t n = ::read(fds[0], buf, sizeof buf);
        if (n > 0) out.append(buf, static_cast<size_t>(n));
        else if (n == 0 || errno != EINTR) break;
    }
    ::close(fds[0]);
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            status = -1;  // the host reaps its children itself
            break;
        }
    }
    return true;
}

// A dialog program: how to ask it for an open dialog and how it separates the chosen paths.
struct DialogProgram {
    const char* name;
    std::vector<std::string> (*arguments)(const char* title);
    std::string_view separator;
};

// zenity joins the paths with the separator it is given; "//" never occurs inside the
// absolute, normalised paths of a file chooser. Hidden files are shown with ctrl+H.
std::vector<std::string> zenityArguments(const char* title) {
    return {"zenity", "--file-selection", "--multiple", std::string("--title=") + title, "--separator=//"};
}

// kdialog writes one path per line; it starts in the current folder.
std::vector<std::string> kdialogArguments(const char* title) {
    return {"kdialog", "--title", title, "--multiple", "--separate-output", "--getopenfilename"};
}

constexpr DialogProgram kDialogPrograms[] = {
    {"zenity", zenityArguments, "//"},
    {"kdialog", kdialogArguments, "\n"},
};

// Both programs exit with 0 after a selection and with 1 when cancelled or closed.
int runDialogProgram(const DialogProgram& dialog, const std::string& program, const char* title,
                     std::vector<std::string>& paths) {
    std::string out;
    int status = 0;
    if (!runAndCapture(program, dialog.arguments(title), utf8Environment(), out, status)) return kDialogFailed;
    if (status == -1) {  // exit status unknown: judge by the output
        status = out.empty() ? 256 : 0;
    }
    if (!WIFEXITED(status)) return kDialogFailed;
    if (WEXITSTATUS(status) == 1) return kUserActionCancel;
    if (WEXITSTATUS(status) != 0) return kDialogFailed;
    if (!out.empty() && out.back() == '\n') out.pop_back();  // the line end after the list
    std::string_view rest(out);
    while (!rest.empty()) {
        size_t cut = rest.find(dialog.separator);
        if (cut != 0) paths.emplace_back(rest.substr(0, cut));
        if (cut == std::string_view::npos) break;
        rest.remove_prefix(cut + dialog.separator.size());
    }
    return kUserActionOpen;
}

}  // namespace

int showOpenDialog(const char* title, std::vector<std::string>& paths) {
    paths.clear();
    if (!hasDisplay()) return kDialogUnavailable;
    for (const DialogProgram& dialog : kDialogPrograms) {
        std::string program = findProgram(dialog.name);
        if (!program.empty()) return runDialogProgram(dialog, program, title, paths);
    }
    return kDialogUnavailable;
}

// xdg-open is started from a short-lived intermediate child in a new session, so that it is
// adopted by init (never left as the host's zombie) and outlives nothing of the host. A pipe
// that closes on exec tells whether it started: it reads end-of-file when the exec succeeded
// and an errno value when it did not. Between fork and exec only async-signal-safe calls run.
int openURL(const char* url) {
    std::string program = findProgram("xdg-open");
    if (program.empty() || !url) return -1;
    std::vector<std::string> args{"xdg-open", url};
    std::vector<char*> argv = pointers(args);
    struct sigaction defaults {};
    defaults.sa_handler = SIG_DFL;
    sigset_t none;
    sigemptyset(&none);

    int devnull = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (devnull < 0) return -1;
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        ::close(devnull);
        return -1;
    }
    pid_t pid = ::fork();
    if (pid == 0) {
        ::setsid();
        pid_t handler = ::fork();
        if (handler == 0) {
            ::dup2(devnull, 0);
            ::dup2(devnull, 1);
            ::dup2(devnull, 2);
            ::sigaction(SIGPIPE, &defaults, nullptr);
            ::sigprocmask(SIG_SETMASK, &none, nullptr);
            ::execve(program.c_str(), argv.data(), environ);
        }
        if (handler <= 0) {
            int error = errno;
            [[maybe_unused]] ssize_t ignored = ::write(fds[1], &error, sizeof error);
            ::_exit(127);
        }
        ::_exit(0);
    }
    ::close(fds[1]);
    ::close(devnull);
    if (pid < 0) {
        ::close(fds[0]);
        return -1;
    }
    int error = 0;
    ssize_t n;
    do n = ::read(fds[0], &error, sizeof error);
    while (n < 0 && errno == EINTR);
    ::close(fds[0]);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return n == 0 ? 0 : -1;
}

}  // namespace kv::platform
