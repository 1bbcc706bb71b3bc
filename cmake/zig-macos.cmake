# Cross build for macOS 11 or newer, one architecture per build folder (KELVANE_MACOS_ARCH arm64
# or x86_64; scripts/build-macos.sh joins the two into universal files). The compiler is Zig's
# clang with its macOS C library headers and libc++, through the wrappers and runtime lists that
# scripts/build-macos.sh puts into build-macos/toolchain; the linker is LLVM's ld64.lld, given
# Zig's libSystem stub as the system root, so that no macOS SDK is needed.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 20)
if(NOT KELVANE_MACOS_ARCH)
  set(KELVANE_MACOS_ARCH arm64)
endif()
set(CMAKE_SYSTEM_PROCESSOR ${KELVANE_MACOS_ARCH})
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KELVANE_MACOS_ARCH)
set(KELVANE_MACOS_MIN 11.0)
set(CMAKE_OSX_DEPLOYMENT_TARGET "" CACHE STRING "" FORCE)  # the compiler's target names it
set(CMAKE_OSX_ARCHITECTURES "" CACHE STRING "" FORCE)
set(CMAKE_OSX_SYSROOT "" CACHE PATH "" FORCE)

set(KELVANE_MACOS_TOOLS ${CMAKE_CURRENT_LIST_DIR}/../build-macos/toolchain)
get_filename_component(KELVANE_MACOS_TOOLS ${KELVANE_MACOS_TOOLS} ABSOLUTE)
if(NOT EXISTS ${KELVANE_MACOS_TOOLS}/${KELVANE_MACOS_ARCH}-runtime.cmake)
  message(FATAL_ERROR "No macOS toolchain in ${KELVANE_MACOS_TOOLS}: run scripts/build-macos.sh")
endif()
include(${KELVANE_MACOS_TOOLS}/${KELVANE_MACOS_ARCH}-runtime.cmake)  # KELVANE_MACOS_RUNTIME
set(CMAKE_CXX_COMPILER ${KELVANE_MACOS_TOOLS}/bin/${KELVANE_MACOS_ARCH}-macos-c++)
find_program(CMAKE_LINKER NAMES ld64.lld-14 ld64.lld REQUIRED)
find_program(CMAKE_AR NAMES llvm-ar-14 llvm-ar REQUIRED)
find_program(CMAKE_RANLIB NAMES llvm-ranlib-14 llvm-ranlib REQUIRED)
set(CMAKE_INSTALL_NAME_TOOL "" CACHE FILEPATH "" FORCE)
# The link rules for ld64.lld.
set(CMAKE_USER_MAKE_RULES_OVERRIDE_CXX ${CMAKE_CURRENT_LIST_DIR}/zig-macos-rules.cmake)
# The compiler checks compile only: a test program would need the runtime list above.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_FIND_ROOT_PATH ${KELVANE_MACOS_TOOLS}/sysroot)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
