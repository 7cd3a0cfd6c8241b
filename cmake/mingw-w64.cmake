# Builds for 64-bit Windows on Debian: g++-mingw-w64-x86-64-posix. scripts/package --windows uses it.
# The headers that the plug-ins need are the host's own; they are taken from a folder of links that
# holds them and nothing else (ORVANITE_WINDOWS_HEADERS), because /usr/include would bring glibc.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 ${ORVANITE_WINDOWS_HEADERS})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ORVANITE_WINDOWS_HEADERS)
# A host has none of the compiler's runtimes: they go into each plug-in, that of guarded returns too.
foreach(kind MODULE SHARED EXE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-static -fstack-protector-strong")
endforeach()
set(CMAKE_CROSSCOMPILING_EMULATOR wine)
