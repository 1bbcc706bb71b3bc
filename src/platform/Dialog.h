// The desktop services the plug-in needs from the platform: a modal multi-file open dialog and
// opening a web address with the default handler. One implementation file per platform
// (DialogLinux.cpp, DialogWindows.cpp, DialogMac.cpp); the rest of the library sees only this
// interface.
#pragma once

#include <string>
#include <vector>

namespace kv::platform {

// How an open dialog ended (positive), as the dialog's event callback reports it.
constexpr int kUserActionCancel = 1;  // cancelled or closed
constexpr int kUserActionOpen = 2;    // confirmed a selection

// Why no dialog could be shown (negative; GetOpenDialog hands these to the host).
constexpr int kDialogUnavailable = -1;  // no display, or no dialog program to show one with
constexpr int kDialogFailed = -2;       // the dialog program could not be run or ended abnormally

// Shows a modal open dialog titled title that allows several files and hidden files, and waits
// until the user ends it. Returns kUserActionOpen with the chosen paths (as the file system's
// bytes; an empty text for a path that has no text in the host's encoding) in paths, kUserActionCancel with paths empty, or a negative code above. Never blocks
// when no dialog can be shown.
int showOpenDialog(const char* title, std::vector<std::string>& paths);

// Asks the desktop to open url with its default handler, without waiting for the handler.
// 0 when the handler was started (or the address handed to the system's launcher), -1 when it
// could not be, or the launcher's own negative status.
int openURL(const char* url);

}  // namespace kv::platform
