// Conversions between the host's ANSI code page texts and the wide system calls' UTF-16.
#include "platform/WinText.h"

#include <windows.h>

#include <cwchar>

namespace kv::platform {

std::wstring widen(const char* text) {
    const int n = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
    if (n <= 1) return {};
    std::wstring out(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_ACP, 0, text, -1, out.data(), n);
    out.resize(static_cast<size_t>(n) - 1);
    return out;
}

bool narrow(const wchar_t* wide, std::string& out) {
    out.clear();
    const int n = WideCharToMultiByte(CP_ACP, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    if (n <= 1) return n == 1;
    out.resize(static_cast<size_t>(n));
    BOOL lossy = FALSE;
    // UTF-8 (CP_UTF8 as the ANSI code page) takes no replacement flag: it cannot lose anything.
    BOOL* lossyArg = GetACP() == CP_UTF8 ? nullptr : &lossy;
    WideCharToMultiByte(CP_ACP, 0, wide, -1, out.data(), n, nullptr, lossyArg);
    out.resize(static_cast<size_t>(n) - 1);
    return !lossy;
}

}  // namespace kv::platform
