# Cross build for 64-bit Windows with Debian's MinGW-w64 (the POSIX threads flavour, for
# std::thread). The C++, GCC and thread runtimes are linked in statically, so the plug-in and the
# programs need only Windows system DLLs. Programs built here run under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(KELVANE_MINGW_TRIPLET x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${KELVANE_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KELVANE_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${KELVANE_MINGW_TRIPLET}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${KELVANE_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
# CTest runs the test programs, and lists their tests, through Wine (its 64-bit loader itself:
# Debian's wrapper script would ask for a 32-bit Wine on every start).
find_program(KELVANE_WINE NAMES wine64 wine PATHS /usr/lib/wine REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${KELVANE_WINE})
