# The one list of targets: levels of a processor that the kernels are compiled for, best first.
#
#   processor  name      what Highway calls it  flags
set(known_targets
  "x86_64      avx512vbmi HWY_AVX3              -march=x86-64-v4 -mavx512vbmi"
  "x86_64      avx512    HWY_AVX3               -march=x86-64-v4"
  "x86_64      avx2      HWY_AVX2               -march=x86-64-v3"
  "x86_64      sse4      HWY_SSE4               -march=x86-64-v2"
  # Highway 1.0.3 asks for the crypto instructions, which nothing here uses.
  "aarch64     neon      HWY_NEON               -march=armv8-a+crypto"
  # Highway has doubles for it from 1.1 on.
  "wasm32      wasm      HWY_WASM               -msimd128")
# A target more is a line above. Its kernels, its place among the choices of ORVANITE_TARGET and its
# runs of the sweeps follow; engine/orvanite.h names it, and a test holds that it does.

# Machines that have none, big-endian ones among them, run the definition.
set(processor ${CMAKE_SYSTEM_PROCESSOR})
string(REGEX REPLACE "^(AMD64|amd64)$" "x86_64" processor "${processor}")
string(REGEX REPLACE "^arm64$" "aarch64" processor "${processor}")
if(NOT CMAKE_SIZEOF_VOID_P EQUAL 8 AND NOT processor STREQUAL "wasm32")
  set(processor "32-bit")
endif()
set(available "")
foreach(line IN LISTS known_targets)
  string(REGEX REPLACE " +" ";" words "${line}")
  list(POP_FRONT words of name)
  if(of STREQUAL processor)
    list(APPEND available ${name})
    set(words_${name} ${words})
  endif()
endforeach()

set(ORVANITE_TARGETS "all" CACHE STRING
  "Targets to build kernels for: all of this processor, none (the definition alone), or a list")
set(targets ${ORVANITE_TARGETS})
if(targets STREQUAL "all")
  set(targets ${available})
elseif(targets STREQUAL "none")
  set(targets "")
endif()
set(list "")
foreach(target IN LISTS available)
  if(target IN_LIST targets)
    list(APPEND ORVANITE_SIMD_TARGETS ${target})
    list(POP_FRONT words_${target} ORVANITE_SIMD_HIGHWAY_${target})
    set(ORVANITE_SIMD_FLAGS_${target} ${words_${target}})
    string(APPEND list "ORVANITE_TARGET(${target})\n")
  endif()
endforeach()
foreach(target IN LISTS targets)
  if(NOT target IN_LIST available)
    list(JOIN available ", " names)
    message(FATAL_ERROR "ORVANITE_TARGETS: expected all, none or some of ${names}, found ${target}")
  endif()
endforeach()

set(ORVANITE_TARGETS_DIR ${CMAKE_CURRENT_BINARY_DIR})
file(CONFIGURE OUTPUT targets.inc CONTENT "${list}")
