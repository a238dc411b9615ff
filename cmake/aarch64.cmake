# Cross build for AArch64: Debian's compiler, its tests under QEMU's user emulation. What is linked
# with and run on lies in a folder that scripts/make_arm64_sysroot.sh makes.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

get_filename_component(ARM64_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/arm64_sysroot ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH ${ARM64_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${ARM64_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${ARM64_SYSROOT}/usr/lib/aarch64-linux-gnu/pkgconfig)
set(CMAKE_SKIP_RPATH ON) # the libraries lie in the standard places, on a board and in the folder

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static -L ${ARM64_SYSROOT})
