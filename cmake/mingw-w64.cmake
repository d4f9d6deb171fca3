# Cross-builds for 64-bit Windows with Debian's MinGW-w64 (packages
# g++-mingw-w64-x86-64-posix, binutils-mingw-w64-x86-64) and runs what it
# builds under Wine:
#   cmake -S . -B build-windows -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(DATABASE_INTERFACE_MINGW_TRIPLET x86_64-w64-mingw32)

# The posix thread model: its libstdc++ has std::thread and std::mutex (the
# win32 model of GCC 12 has neither).
set(CMAKE_C_COMPILER ${DATABASE_INTERFACE_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${DATABASE_INTERFACE_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${DATABASE_INTERFACE_MINGW_TRIPLET}-windres)

# Headers and libraries of the target come from the MinGW tree only; programs
# (the build tools) from the build machine. A package built for Windows
# elsewhere is found through its <Package>_DIR or CMAKE_PREFIX_PATH.
set(CMAKE_FIND_ROOT_PATH /usr/${DATABASE_INTERFACE_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# GCC's runtime (libgcc, libstdc++, winpthread) is linked statically into
# every DLL and program: each needs only system DLLs, so nothing has to be
# copied beside a program, installed or shipped with the two libraries. Every
# module then has its own copy of the C++ runtime, which is safe here: the
# objects that cross a DLL boundary (std::string, std::vector,
# std::shared_ptr) allocate and free through the one msvcrt.dll heap, and
# exceptions unwind through each module's own SEH tables.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")

# CTest, gtest_discover_tests() and try_run() start the programs through Wine.
# Debian's `wine` picks the 64-bit loader (/usr/lib/wine/wine64) when there
# is no 32-bit Wine; it asks for one on standard error unless WINEDEBUG=-all.
find_program(DATABASE_INTERFACE_WINE NAMES wine wine64 PATHS /usr/lib/wine)
if(DATABASE_INTERFACE_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${DATABASE_INTERFACE_WINE})
endif()

# Test programs are listed when CTest runs, not after each link: building
# needs no Wine.
set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)
