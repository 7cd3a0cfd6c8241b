# What every target of ours is built with, in one private interface target.
#
# -ffp-contract=off  keeps a multiply and an add two operations: fused ones are written as fma

add_library(orvanite_build INTERFACE)
target_compile_options(orvanite_build INTERFACE
  -ffp-contract=off -Wall -Wextra -Wconversion
  # g++ 12 takes adding two strings for an overlap; it was mended in 13.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
target_include_directories(orvanite_build INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_definitions(orvanite_build INTERFACE ORVANITE_VERSION="${PROJECT_VERSION}")

# What a write out of bounds would need is taken from it: return addresses are guarded, calls of the
# C library know the room that they write to, and indirect jumps end where one was meant to.
# tests/install/binaries.sh reads it from what was built.
include(CheckCXXCompilerFlag)
check_cxx_compiler_flag(-fcf-protection=full ORVANITE_HAS_CF_PROTECTION)  # x86 alone
add_library(orvanite_hardened INTERFACE)
target_link_libraries(orvanite_build INTERFACE orvanite_hardened)
if(NOT ORVANITE_BUILD_WEB)  # WebAssembly keeps return addresses out of a program's reach
  target_compile_options(orvanite_hardened INTERFACE -fstack-protector-strong
    $<$<BOOL:${ORVANITE_HAS_CF_PROTECTION}>:-fcf-protection=full>)
endif()
if(NOT ORVANITE_SANITIZE AND NOT ORVANITE_BUILD_WEB)  # sanitizers watch these calls themselves
  target_compile_options(orvanite_hardened INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
endif()

# Everything is bound when a program starts, and the tables of bindings are read-only from then on.
if(CMAKE_SYSTEM_NAME STREQUAL Linux)
  target_link_options(orvanite_hardened INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)
endif()

# $<LINK_LIBRARY:loaded,LIBRARY>: loaded with the program, although nothing in it calls the library.
set(CMAKE_LINK_LIBRARY_USING_loaded
  "-Wl,--push-state,--no-as-needed" "<LINK_ITEM>" "-Wl,--pop-state")
set(CMAKE_LINK_LIBRARY_USING_loaded_SUPPORTED TRUE)

if(ORVANITE_SANITIZE)
  target_compile_options(orvanite_build INTERFACE
    -fsanitize=${ORVANITE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all
    # Two binaries that show each other nothing but C functions share no descriptions of their types.
    $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-fno-sanitize=function>)
  target_link_options(orvanite_build INTERFACE -fsanitize=${ORVANITE_SANITIZE})
else()  # sanitizers compile files together, where names of one shadow another's
  target_compile_options(orvanite_build INTERFACE -Wshadow)
endif()

# orvanite_finds(TARGET FOLDER...): where a binary that is installed looks for our libraries; the same
# in the tree and installed. CMake pads a path that it would change on installation with empty entries,
# and those mean the current folder. Sanitized builds are not installed, and look for libraries of
# their own.
function(orvanite_finds target)
  if(NOT ORVANITE_SANITIZE)
    set_target_properties(${target} PROPERTIES
      BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "${ARGN}")
  endif()
endfunction()

# orvanite_test(NAME SOURCES ... LIBRARIES ... [LABELS ...] [ENVIRONMENT VARIABLE=VALUE])
# One GoogleTest binary, each of its cases a ctest entry.
function(orvanite_test name)
  cmake_parse_arguments(ARG "" "ENVIRONMENT" "SOURCES;LIBRARIES;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} orvanite_build GTest::gtest_main)
  set(properties LABELS "${ARG_LABELS}")
  if(ARG_ENVIRONMENT)
    list(APPEND properties ENVIRONMENT "${ARG_ENVIRONMENT}")
  endif()
  # Listing the cases takes milliseconds; the default of five seconds has failed on a machine that was
  # still writing what it had just built.
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120
    PROPERTIES ${properties})
endfunction()

# `cmake --build --preset dev --target format` puts every source into the house's shape.
find_program(CLANG_FORMAT NAMES clang-format-14 clang-format)
if(CLANG_FORMAT AND PROJECT_IS_TOP_LEVEL)
  add_custom_target(format
    COMMAND git ls-files -z "*.h" "*.c" "*.cpp" | xargs -0 ${CLANG_FORMAT} -i
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} VERBATIM)
endif()

# `cmake --build --preset release --target docs`: pages of the public headers, in build/release/docs.
find_program(DOXYGEN doxygen)
if(DOXYGEN AND PROJECT_IS_TOP_LEVEL)
  configure_file(cmake/Doxyfile.in Doxyfile @ONLY)
  add_custom_target(docs COMMAND ${DOXYGEN} ${PROJECT_BINARY_DIR}/Doxyfile VERBATIM)
endif()
