// The desktop services on Windows: the system's open dialog (IFileOpenDialog) and the default
// handler of a web address (ShellExecuteW).
//
// The dialog needs a single-threaded COM apartment. When the calling thread has none yet, COM is
// initialised for the call and released after it; when the host already initialised it in that
// model, the call only adds a reference; when the host's thread is in the multi-threaded
// apartment, the dialog runs on a thread of its own in a single-threaded one while the caller
// waits.
#include <windows.h>
#include <shellapi.h>
#include <shobjidl.h>

#include <thread>

#include "platform/Dialog.h"
#include "platform/WinText.h"

namespace kv::platform {
namespace {

// The chosen files' paths, in the ANSI code page; a path that code page cannot hold exactly is
// kept as an empty text, so that GetFilePath reports it instead of handing out another path.
void collectPaths(IFileOpenDialog* dialog, std::vector<std::string>& paths) {
    IShellItemArray* items = nullptr;
    if (FAILED(dialog->GetResults(&items))) return;
    DWORD count = 0;
    items->GetCount(&count);
    for (DWORD i = 0; i < count; ++i) {
        IShellItem* item = nullptr;
        if (FAILED(items->GetItemAt(i, &item))) continue;
        wchar_t* wide = nullptr;
        if (SUCCEEDED(item->GetDisplayName(SIGDN_FILESYSPATH, &wide))) {
            std::string path;
            if (!narrow(wide, path)) path.clear();
            paths.push_back(std::move(path));
            CoTaskMemFree(wide);
        }
        item->Release();
    }
    items->Release();
}

// Shows the dialog; the calling thread is in a single-threaded apartment.
int runDialog(const std::wstring& title, std::vector<std::string>& paths) {
    IFileOpenDialog* dialog = nullptr;
    if (FAILED(CoCreateInstance(CLSID_FileOpenDialog, nullptr, CLSCTX_INPROC_SERVER, IID_IFileOpenDialog,
                                reinterpret_cast<void**>(&dialog))))
        return kDialogUnavailable;
    FILEOPENDIALOGOPTIONS options = 0;
    dialog->GetOptions(&options);
    // Several files, hidden files shown, links not resolved, only files of the file system.
    dialog->SetOptions(options | FOS_ALLOWMULTISELECT | FOS_FORCESHOWHIDDEN | FOS_NODEREFERENCELINKS |
                       FOS_FORCEFILESYSTEM | FOS_FILEMUSTEXIST);
    dialog->SetTitle(title.c_str());
    const HRESULT shown = dialog->Show(GetActiveWindow());
    int result = kUserActionCancel;
    if (SUCCEEDED(shown)) {
        collectPaths(dialog, paths);
        result = kUserActionOpen;
    } else if (shown != HRESULT_FROM_WIN32(ERROR_CANCELLED)) {
        result = kDialogFailed;
    }
    dialog->Release();
    return result;
}

}  // namespace

int showOpenDialog(const char* title, std::vector<std::string>& paths) {
    paths.clear();
    const std::wstring wideTitle = widen(title);
    constexpr DWORD kModel = COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE;
    const HRESULT init = CoInitializeEx(nullptr, kModel);
    if (init == RPC_E_CHANGED_MODE) {  // the host's thread is in the multi-threaded apartment
        int result = kDialogFailed;
        std::thread own([&] {
            if (FAILED(CoInitializeEx(nullptr, kModel))) return;
            result = runDialog(wideTitle, paths);
            CoUninitialize();
        });
        own.join();
        return result;
    }
    if (FAILED(init)) return kDialogFailed;
    const int result = runDialog(wideTitle, paths);
    CoUninitialize();  // balances this call's initialisation or reference alike
    return result;
}

int openURL(const char* url) {
    const HINSTANCE started = ShellExecuteW(nullptr, L"open", widen(url).c_str(), nullptr, nullptr, SW_SHOWNORMAL);
    return reinterpret_cast<INT_PTR>(started) > 32 ? 0 : -1;
}

}  // namespace kv::platform
