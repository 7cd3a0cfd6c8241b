# The browser as a machine: clang-19 of Debian 12 with its C and C++ libraries for WebAssembly
# (scripts/bootstrap --web installs them). Without threads; with exceptions, which web/Exceptions.cpp
# adds to a C++ library that has none.
set(CMAKE_SYSTEM_NAME Generic)
set(CMAKE_SYSTEM_PROCESSOR wasm32)
set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_AR llvm-ar CACHE FILEPATH "")
set(CMAKE_RANLIB llvm-ranlib CACHE FILEPATH "")
set(CMAKE_C_COMPILER_TARGET wasm32-wasi)
set(CMAKE_CXX_COMPILER_TARGET wasm32-wasi)
# A test program of CMake's would have to be linked with the exceptions.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_C_FLAGS_INIT "-msimd128 -mbulk-memory -mnontrapping-fptoint")
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT} -fwasm-exceptions")
# Our headers from the host are those of libraries that are headers alone.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
