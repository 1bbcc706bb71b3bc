// The desktop services on Linux, without a GUI toolkit in the host's process: the open dialog
// is the desktop's file-chooser portal, reached over the session bus, or else a dialog program
// run as a child process (zenity, else kdialog) whose standard output carries the chosen paths;
// web addresses are handed to xdg-open, started detached.
//
// Order of the open dialog: no DISPLAY and no WAYLAND_DISPLAY -> kDialogUnavailable at once;
// else the portal when one is running on the session bus (it is never started for this);
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
#include "util/numtext.h"

#if KELVANE_WITH_PORTAL
#include <dbus/dbus.h>
#include <dlfcn.h>

#include <atomic>
#endif

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

#if KELVANE_WITH_PORTAL
// ---- The file-chooser portal ---------------------------------------------------------------
// libdbus is loaded when first needed (dlopen), so the plug-in loads on systems without it.
// One private connection per dialog: the request is made with a handle token, so the request
// object's path is known before the call and its Response signal cannot be missed.

struct DBusApi {
#define KV_DBUS_FUNCTIONS(X)                                                                             \
    X(dbus_error_init) X(dbus_error_free) X(dbus_error_is_set) X(dbus_connection_open_private)          \
    X(dbus_bus_register) X(dbus_connection_set_exit_on_disconnect) X(dbus_connection_close)             \
    X(dbus_connection_unref) X(dbus_bus_get_unique_name) X(dbus_bus_name_has_owner) X(dbus_bus_add_match) \
    X(dbus_message_new_method_call) X(dbus_message_unref) X(dbus_message_iter_init_append)              \
    X(dbus_message_iter_append_basic) X(dbus_message_iter_open_container)                                \
    X(dbus_message_iter_close_container) X(dbus_connection_send_with_reply_and_block)                   \
    X(dbus_connection_read_write) X(dbus_connection_pop_message) X(dbus_message_is_signal)              \
    X(dbus_message_get_path) X(dbus_message_iter_init) X(dbus_message_iter_get_arg_type)               \
    X(dbus_message_iter_get_basic) X(dbus_message_iter_next) X(dbus_message_iter_recurse)
#define KV_DBUS_POINTER(name) decltype(&::name) name = nullptr;
    KV_DBUS_FUNCTIONS(KV_DBUS_POINTER)
#undef KV_DBUS_POINTER
};

// The loaded library's functions, or null when libdbus is missing or incomplete.
const DBusApi* dbusApi() {
    static const DBusApi* api = []() -> const DBusApi* {
        void* lib = ::dlopen("libdbus-1.so.3", RTLD_NOW | RTLD_LOCAL);
        if (!lib) return nullptr;
        static DBusApi loaded;
        bool complete = true;
#define KV_DBUS_LOAD(name)                                                   \
    loaded.name = reinterpret_cast<decltype(&::name)>(::dlsym(lib, #name)); \
    complete = complete && loaded.name;
        KV_DBUS_FUNCTIONS(KV_DBUS_LOAD)
#undef KV_DBUS_LOAD
        return complete ? &loaded : nullptr;  // the library stays loaded: it keeps global state
    }();
    return api;
}

constexpr const char* kPortalName = "org.freedesktop.portal.Desktop";

// The session bus address, without letting libdbus launch a bus of its own.
std::string sessionBusAddress() {
    const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (address && *address) return address;
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (!runtime || !*runtime) return {};
    std::string socket = std::string(runtime) + "/bus";
    struct stat st {};
    if (::stat(socket.c_str(), &st) != 0 || !S_ISSOCK(st.st_mode)) return {};
    return "unix:path=" + socket;
}

// The path of a file: URI ("file:///a%20b" -> "/a b"), or "" for any other URI.
std::string pathFromFileURI(std::string_view uri) {
    constexpr std::string_view scheme = "file://";
    if (!uri.starts_with(scheme)) return {};
    uri.remove_prefix(scheme.size());
    size_t slash = uri.find('/');
    std::string_view host = uri.substr(0, slash);
    if (slash == std::string_view::npos || !(host.empty() || host == "localhost")) return {};
    uri.remove_prefix(slash);
    auto hex = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    std::string path;
    for (size_t i = 0; i < uri.size(); ++i) {
        int hi, lo;
        if (uri[i] == '%' && i + 2 < uri.size() && (hi = hex(uri[i + 1])) >= 0 && (lo = hex(uri[i + 2])) >= 0) {
            path += static_cast<char>(hi * 16 + lo);
            i += 2;
        } else {
            path += uri[i];
        }
    }
    return path;
}

// Appends the string entry {key: <value>} to an a{sv} dictionary being built.
void appendStringOption(const DBusApi& d, DBusMessageIter* dict, const char* key, const char* value) {
    DBusMessageIter entry, variant;
    d.dbus_message_iter_open_container(dict, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
    d.dbus_message_iter_append_basic(&entry, DBUS_TYPE_STRING, &key);
    d.dbus_message_iter_open_container(&entry, DBUS_TYPE_VARIANT, DBUS_TYPE_STRING_AS_STRING, &variant);
    d.dbus_message_iter_append_basic(&variant, DBUS_TYPE_STRING, &value);
    d.dbus_message_iter_close_container(&entry, &variant);
    d.dbus_message_iter_close_container(dict, &entry);
}

void appendBoolOption(const DBusApi& d, DBusMessageIter* dict, const char* key, bool value) {
    DBusMessageIter entry, variant;
    dbus_bool_t b = value ? TRUE : FALSE;
    d.dbus_message_iter_open_container(dict, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
    d.dbus_message_iter_append_basic(&entry, DBUS_TYPE_STRING, &key);
    d.dbus_message_iter_open_container(&entry, DBUS_TYPE_VARIANT, DBUS_TYPE_BOOLEAN_AS_STRING, &variant);
    d.dbus_message_iter_append_basic(&variant, DBUS_TYPE_BOOLEAN, &b);
    d.dbus_message_iter_close_container(&entry, &variant);
    d.dbus_message_iter_close_container(dict, &entry);
}

// Reads a Response signal's (u response, a{sv} results): the paths of results["uris"].
int readResponse(const DBusApi& d, DBusMessage* signal, std::vector<std::string>& paths) {
    DBusMessageIter args, dict;
    if (!d.dbus_message_iter_init(signal, &args) || d.dbus_message_iter_get_arg_type(&args) != DBUS_TYPE_UINT32)
        return kDialogFailed;
    dbus_uint32_t response = 0;
    d.dbus_message_iter_get_basic(&args, &response);
    if (response == 1) return kUserActionCancel;
    if (response != 0) return kDialogFailed;  // ended in some other way
    if (!d.dbus_message_iter_next(&args) || d.dbus_message_iter_get_arg_type(&args) != DBUS_TYPE_ARRAY)
        return kUserActionOpen;
    for (d.dbus_message_iter_recurse(&args, &dict); d.dbus_message_iter_get_arg_type(&dict) == DBUS_TYPE_DICT_ENTRY;
         d.dbus_message_iter_next(&dict)) {
        DBusMessageIter entry, variant, uris;
        d.dbus_message_iter_recurse(&dict, &entry);
        if (d.dbus_message_iter_get_arg_type(&entry) != DBUS_TYPE_STRING) continue;
        const char* key = nullptr;
        d.dbus_message_iter_get_basic(&entry, &key);
        if (std::string_view(key) != "uris" || !d.dbus_message_iter_next(&entry) ||
            d.dbus_message_iter_get_arg_type(&entry) != DBUS_TYPE_VARIANT)
            continue;
        d.dbus_message_iter_recurse(&entry, &variant);
        if (d.dbus_message_iter_get_arg_type(&variant) != DBUS_TYPE_ARRAY) continue;
        for (d.dbus_message_iter_recurse(&variant, &uris); d.dbus_message_iter_get_arg_type(&uris) == DBUS_TYPE_STRING;
             d.dbus_message_iter_next(&uris)) {
            const char* uri = nullptr;
            d.dbus_message_iter_get_basic(&uris, &uri);
            std::string path = pathFromFileURI(uri);
            if (!path.empty()) paths.push_back(std::move(path));
        }
    }
    return kUserActionOpen;
}

// The request object the portal answers on, from the connection's unique name and the token,
// with a match rule for its Response signal and one for the portal leaving the bus; empty when
// the bus refuses.
std::string subscribeToResponse(const DBusApi& d, DBusConnection* bus, const std::string& token, DBusError* error) {
    const char* unique = d.dbus_bus_get_unique_name(bus);
    if (!unique || *unique != ':') return {};
    std::string sender = unique + 1;  // ":1.42" -> "1_42"
    for (char& c : sender)
        if (c == '.') c = '_';
    std::string request = "/org/freedesktop/portal/desktop/request/" + sender + "/" + token;
    const std::string rule =
        "type='signal',interface='org.freedesktop.portal.Request',member='Response',path='" + request + "'";
    d.dbus_bus_add_match(bus, rule.c_str(), error);
    d.dbus_bus_add_match(bus,
                         "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
                         "member='NameOwnerChanged',arg0='org.freedesktop.portal.Desktop'",
                         error);
    return d.dbus_error_is_set(error) ? std::string() : request;
}

// Calls FileChooser.OpenFile (several files, modal) and returns the reply; null when there is
// no file chooser. An older portal may ignore the token: when the reply names another request
// object, request becomes that one and its Response signal is subscribed to.
DBusMessage* callOpenFile(const DBusApi& d, DBusConnection* bus, const char* title, const std::string& token,
                          std::string& request, DBusError* error) {
    DBusMessage* call = d.dbus_message_new_method_call(kPortalName, "/org/freedesktop/portal/desktop",
                                                       "org.freedesktop.portal.FileChooser", "OpenFile");
    if (!call) return nullptr;
    DBusMessageIter args, dict;
    const char* parent = "";
    d.dbus_message_iter_init_append(call, &args);
    d.dbus_message_iter_append_basic(&args, DBUS_TYPE_STRING, &parent);
    d.dbus_message_iter_append_basic(&args, DBUS_TYPE_STRING, &title);
    d.dbus_message_iter_open_container(&args, DBUS_TYPE_ARRAY, "{sv}", &dict);
    appendStringOption(d, &dict, "handle_token", token.c_str());
    appendBoolOption(d, &dict, "multiple", true);
    appendBoolOption(d, &dict, "modal", true);
    d.dbus_message_iter_close_container(&args, &dict);
    DBusMessage* reply = d.dbus_connection_send_with_reply_and_block(bus, call, DBUS_TIMEOUT_USE_DEFAULT, error);
    d.dbus_message_unref(call);
    DBusMessageIter out;
    if (reply && d.dbus_message_iter_init(reply, &out) && d.dbus_message_iter_get_arg_type(&out) == DBUS_TYPE_OBJECT_PATH) {
        const char* handle = nullptr;
        d.dbus_message_iter_get_basic(&out, &handle);
        if (request != handle) {
            request = handle;
            const std::string rule =
                "type='signal',interface='org.freedesktop.portal.Request',member='Response',path='" + request + "'";
            d.dbus_bus_add_match(bus, rule.c_str(), nullptr);
        }
    }
    return reply;
}

// Waits for the Response signal on request: its outcome (readResponse), or kDialogFailed when
// the portal leaves the bus or the connection ends first.
int waitForResponse(const DBusApi& d, DBusConnection* bus, const std::string& request,
                    std::vector<std::string>& paths) {
    int result = kDialogFailed;
    bool answered = false;
    while (!answered && d.dbus_connection_read_write(bus, -1)) {
        while (!answered) {
            DBusMessage* message = d.dbus_connection_pop_message(bus);
            if (!message) break;
            const char* path = d.dbus_message_get_path(message);
            if (d.dbus_message_is_signal(message, "org.freedesktop.portal.Request", "Response") && path &&
                request == path) {
                result = readResponse(d, message, paths);
                answered = true;
            } else if (d.dbus_message_is_signal(message, "org.freedesktop.DBus", "NameOwnerChanged")) {
                answered = true;  // the portal went away: failed
            }
            d.dbus_message_unref(message);
        }
    }
    return result;
}

// Asks the portal's FileChooser.OpenFile for several files and waits for its answer. Returns
// 0 when no portal is running (or it has no file chooser), so that the next way is tried.
int portalOpenDialog(const char* title, std::vector<std::string>& paths) {
    const DBusApi* api = dbusApi();
    std::string address = sessionBusAddress();
    if (!api || address.empty()) return 0;
    const DBusApi& d = *api;
    DBusError error;
    d.dbus_error_init(&error);
    DBusConnection* bus = d.dbus_connection_open_private(address.c_str(), &error);
    if (!bus) {
        d.dbus_error_free(&error);
        return 0;
    }
    d.dbus_connection_set_exit_on_disconnect(bus, FALSE);
    int result = 0;
    if (d.dbus_bus_register(bus, &error) && d.dbus_bus_name_has_owner(bus, kPortalName, &error)) {
        static std::atomic<unsigned> requests{0};
        const std::string token = "kelvane" + decimal(::getpid()) + "_" + decimal(++requests);
        std::string request = subscribeToResponse(d, bus, token, &error);
        DBusMessage* reply = request.empty() ? nullptr : callOpenFile(d, bus, title, token, request, &error);
        if (reply) {  // the portal is showing the dialog: wait for its answer
            result = waitForResponse(d, bus, request, paths);
            d.dbus_message_unref(reply);
        }
    }
    d.dbus_error_free(&error);
    d.dbus_connection_close(bus);
    d.dbus_connection_unref(bus);
    return result;
}
#endif

}  // namespace

int showOpenDialog(const char* title, std::vector<std::string>& paths) {
    paths.clear();
    if (!hasDisplay()) return kDialogUnavailable;
#if KELVANE_WITH_PORTAL
    if (int result = portalOpenDialog(title, paths); result != 0) return result;
#endif
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
