# Cross build for 64-bit Windows with Debian's MinGW-w64 toolchain, posix
# threads flavour (std::thread and std::mutex work), linked statically so the
# programs run on a plain Windows machine with no runtime DLL beside them.
#
#   cmake -S . -B build-windows -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mingw64.cmake
#
# Tests run through Wine: CMAKE_CROSSCOMPILING_EMULATOR makes ctest start
# each .exe with it (scripts/test-windows.sh sets WINEPREFIX and WINEDEBUG).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(NGI_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${NGI_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${NGI_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${NGI_MINGW_TRIPLE}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${NGI_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")

# Debian's wine64 package puts the loader here; the wine package adds a
# /usr/bin/wine wrapper. Either runs a 64-bit console program.
find_program(NGI_WINE NAMES wine64 wine PATHS /usr/lib/wine NO_CMAKE_FIND_ROOT_PATH)
if(NGI_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${NGI_WINE})
endif()
