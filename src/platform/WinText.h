// Windows only: the host's texts and the wide system calls. Paths from the host are in the
// process's ANSI code page (CP_ACP, UTF-8 where the process opts in); the wide APIs take UTF-16.
#pragma once

#include <string>

namespace kv::platform {

// text in the ANSI code page as UTF-16; empty for an empty or unconvertible text.
std::wstring widen(const char* text);

// UTF-16 as a text in the ANSI code page. False when a character has no exact counterpart
// there (the text then holds the system's replacement).
bool narrow(const wchar_t* wide, std::string& out);

}  // namespace kv::platform
