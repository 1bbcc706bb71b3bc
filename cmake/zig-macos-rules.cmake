# Link rules of the macOS cross build (cmake/zig-macos.cmake): ld64.lld links the objects, the
# linked-in C++ runtime and libSystem; link options reach it without a compiler driver between.
set(kelvane_ld_common "-arch ${KELVANE_MACOS_ARCH} -platform_version macos ${KELVANE_MACOS_MIN} ${KELVANE_MACOS_MIN} -syslibroot ${KELVANE_MACOS_TOOLS}/sysroot -dead_strip")
string(JOIN " " kelvane_ld_runtime ${KELVANE_MACOS_RUNTIME})
set(CMAKE_CXX_CREATE_SHARED_LIBRARY
  "<CMAKE_LINKER> -dylib ${kelvane_ld_common} <LINK_FLAGS> -o <TARGET> <SONAME_FLAG> <TARGET_INSTALLNAME_DIR><TARGET_SONAME> <OBJECTS> <LINK_LIBRARIES> ${kelvane_ld_runtime} -lSystem")
set(CMAKE_CXX_LINK_EXECUTABLE
  "<CMAKE_LINKER> -execute ${kelvane_ld_common} <LINK_FLAGS> -o <TARGET> <OBJECTS> <LINK_LIBRARIES> ${kelvane_ld_runtime} -lSystem")
set(CMAKE_CXX_ARCHIVE_FINISH "<CMAKE_RANLIB> <TARGET>")
set(CMAKE_CXX_LINKER_WRAPPER_FLAG " ")
set(CMAKE_SHARED_LIBRARY_RUNTIME_CXX_FLAG "")
