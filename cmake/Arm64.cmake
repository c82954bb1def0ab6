# Cross-builds for AArch64 with Debian's compiler. The libraries of the tools and tests come from
# build/arm64-root, which ./dev arm64 fills; programs run under user-mode emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-aarch64)

get_filename_component(ARM64_ROOT "${CMAKE_CURRENT_LIST_DIR}/../build/arm64-root" ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH "${ARM64_ROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(ENV{PKG_CONFIG_LIBDIR} "${ARM64_ROOT}/usr/lib/aarch64-linux-gnu/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${ARM64_ROOT}")
# Where the linker finds what those libraries need in turn.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${ARM64_ROOT}/usr/lib/aarch64-linux-gnu")
