# Debian's cross compiler for arm64, the libraries that scripts/sysroot has put together, and an emulator for what was
# built: test programs are started through it, as CMake starts them and as ctest does.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

cmake_path(SET sysroot NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-arm64)
if(NOT EXISTS ${sysroot}/wanted)
    message(FATAL_ERROR "There is no ${sysroot}: make it with scripts/sysroot arm64")
endif()
set(CMAKE_SYSROOT ${sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER) # cmake's own helpers and python3 are this system's
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(KNX_EMULATOR_ARM64 NAMES qemu-aarch64 qemu-aarch64-static REQUIRED
    DOC "Runs arm64 programs; packages qemu-user and qemu-user-static")
set(CMAKE_CROSSCOMPILING_EMULATOR ${KNX_EMULATOR_ARM64} -L ${sysroot})
