// The desktop services on macOS, without linking any framework: AppKit's open panel driven
// through the Objective-C runtime, CoreFoundation for the chosen paths' text and Launch Services
// for web addresses, each library opened with dlopen when a dialog or page is first asked for.
// The plug-in itself needs only libSystem to load.
//
// The open panel runs modally on the calling thread, which must be the process's main thread
// (AppKit's rule); from another thread, or with no window server session (a remote shell), the
// dialog is unavailable at once.
#include <dlfcn.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstring>

#include "platform/Dialog.h"

extern char** environ;

namespace kv::platform {
namespace {

// The few CoreFoundation and Objective-C types used here, as the C interfaces see them.
using Object = void*;
using Selector = void*;
using CFIndex = long;
#if defined(__aarch64__) || defined(__arm64__)
using ObjcBool = bool;
#else
using ObjcBool = signed char;
#endif
constexpr uint32_t kCFStringEncodingMacRoman = 0;
constexpr uint32_t kCFStringEncodingUTF8 = 0x08000100;
constexpr long kCFURLPOSIXPathStyle = 0;
constexpr long kModalResponseOK = 1;
constexpr long kActivationPolicyAccessory = 1;

void* openLibrary(const char* path) { return ::dlopen(path, RTLD_LAZY | RTLD_LOCAL); }

template <typename F>
bool bind(void* library, const char* name, F& function) {
    function = library ? reinterpret_cast<F>(::dlsym(library, name)) : nullptr;
    return function != nullptr;
}

// CoreFoundation's functions that the dialog and the page use.
struct CoreFoundation {
    Object (*copyFileSystemPath)(Object url, long style) = nullptr;
    CFIndex (*getLength)(Object string) = nullptr;
    unsigned char (*getCString)(Object string, char* buffer, CFIndex size, uint32_t encoding) = nullptr;
    Object (*createURL)(Object allocator, const unsigned char* bytes, CFIndex length, uint32_t encoding,
                        Object base) = nullptr;
    void (*release)(Object) = nullptr;

    bool load() {
        void* cf = openLibrary("/System/Library/Frameworks/CoreFoundation.framework/CoreFoundation");
        return bind(cf, "CFURLCopyFileSystemPath", copyFileSystemPath) && bind(cf, "CFStringGetLength", getLength) &&
               bind(cf, "CFStringGetCString", getCString) && bind(cf, "CFURLCreateWithBytes", createURL) &&
               bind(cf, "CFRelease", release);
    }
};

// The POSIX path of a file address as 8-bit text: Mac Roman when it can hold the path, else
// UTF-8, in a buffer of twice the path's length plus one; empty when neither fits.
std::string pathText(const CoreFoundation& cf, Object url) {
    Object path = cf.copyFileSystemPath(url, kCFURLPOSIXPathStyle);
    if (!path) return {};
    std::string text(static_cast<size_t>(cf.getLength(path)) * 2 + 1, '\0');
    const CFIndex size = static_cast<CFIndex>(text.size());
    if (!cf.getCString(path, text.data(), size, kCFStringEncodingMacRoman) &&
        !cf.getCString(path, text.data(), size, kCFStringEncodingUTF8))
        text.clear();
    cf.release(path);
    text.resize(std::strlen(text.c_str()));
    return text;
}

// A session with a window server: the user's desktop, not a remote shell.
bool hasWindowServer(const CoreFoundation& cf) {
    void* graphics = openLibrary("/System/Library/Frameworks/CoreGraphics.framework/CoreGraphics");
    Object (*copySession)() = nullptr;
    if (!bind(graphics, "CGSessionCopyCurrentDictionary", copySession)) return false;
    Object session = copySession();
    if (!session) return false;
    cf.release(session);
    return true;
}

// Messages to Objective-C objects through the runtime's C interface.
struct Objc {
    Object (*getClass)(const char*) = nullptr;
    Selector (*selector)(const char*) = nullptr;
    void (*send)() = nullptr;  // objc_msgSend, cast to each message's own type

    bool load() {
        void* runtime = openLibrary("/usr/lib/libobjc.A.dylib");
        return bind(runtime, "objc_getClass", getClass) && bind(runtime, "sel_registerName", selector) &&
               bind(runtime, "objc_msgSend", send);
    }
    template <typename R = Object, typename... A>
    R call(Object receiver, const char* name, A... args) const {
        return reinterpret_cast<R (*)(Object, Selector, A...)>(send)(receiver, selector(name), args...);
    }
    Object call(const char* className, const char* name) const { return call(getClass(className), name); }
};

// Runs the open panel; the caller holds an autorelease pool.
int runPanel(const Objc& objc, const CoreFoundation& cf, const char* title, std::vector<std::string>& paths) {
    Object app = objc.call("NSApplication", "sharedApplication");
    Object panel = objc.call("NSOpenPanel", "openPanel");
    if (!app || !panel) return kDialogUnavailable;
    if (!objc.call<ObjcBool>(app, "isRunning")) {  // a program without a running application
        objc.call<ObjcBool>(app, "setActivationPolicy:", kActivationPolicyAccessory);
        objc.call<void>(app, "activateIgnoringOtherApps:", ObjcBool(true));
    }
    Object text = objc.call(objc.getClass("NSString"), "stringWithUTF8String:", title);
    objc.call<void>(panel, "setTitle:", text);
    objc.call<void>(panel, "setMessage:", text);  // panels show the message; the title only in some styles
    // Several files, hidden files shown, aliases not resolved, packages opened as folders.
    objc.call<void>(panel, "setAllowsMultipleSelection:", ObjcBool(true));
    objc.call<void>(panel, "setCanChooseFiles:", ObjcBool(true));
    objc.call<void>(panel, "setCanChooseDirectories:", ObjcBool(false));
    objc.call<void>(panel, "setShowsHiddenFiles:", ObjcBool(true));
    objc.call<void>(panel, "setResolvesAliases:", ObjcBool(false));
    objc.call<void>(panel, "setTreatsFilePackagesAsDirectories:", ObjcBool(true));
    if (objc.call<long>(panel, "runModal") != kModalResponseOK) return kUserActionCancel;
    Object urls = objc.call(panel, "URLs");
    const unsigned long count = urls ? objc.call<unsigned long>(urls, "count") : 0;
    for (unsigned long i = 0; i < count; ++i) paths.push_back(pathText(cf, objc.call(urls, "objectAtIndex:", i)));
    return kUserActionOpen;
}

}  // namespace

int showOpenDialog(const char* title, std::vector<std::string>& paths) {
    paths.clear();
    static Objc objc;
    static CoreFoundation cf;
    static const bool loaded = objc.load() && cf.load() &&
                               openLibrary("/System/Library/Frameworks/AppKit.framework/AppKit") != nullptr;
    if (!loaded || !pthread_main_np() || !hasWindowServer(cf)) return kDialogUnavailable;
    Object pool = objc.call(objc.call("NSAutoreleasePool", "alloc"), "init");
    const int result = runPanel(objc, cf, title, paths);
    objc.call<void>(pool, "drain");
    return result;
}

int openURL(const char* url) {
    static CoreFoundation cf;
    static const bool loaded = cf.load();
    if (!url) return -1;
    int (*open)(Object url, Object* launched) = nullptr;
    void* services = openLibrary("/System/Library/Frameworks/CoreServices.framework/CoreServices");
    if (loaded && bind(services, "LSOpenCFURLRef", open)) {
        Object address = cf.createURL(nullptr, reinterpret_cast<const unsigned char*>(url),
                                      static_cast<CFIndex>(std::strlen(url)), kCFStringEncodingUTF8, nullptr);
        if (!address) return -1;
        const int status = open(address, nullptr);
        cf.release(address);
        return static_cast<int16_t>(status);
    }
    // Without Launch Services: the open program, not waited for (reaped on a later call).
    static pid_t previous = 0;
    if (previous > 0 && ::waitpid(previous, nullptr, WNOHANG) != 0) previous = 0;
    char program[] = "/usr/bin/open";
    std::string address = url;
    char* argv[] = {program, address.data(), nullptr};
    pid_t pid = 0;
    if (::posix_spawn(&pid, program, nullptr, nullptr, argv, environ) != 0) return -1;
    previous = pid;
    return 0;
}

}  // namespace kv::platform
