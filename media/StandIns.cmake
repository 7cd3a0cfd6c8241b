# Libraries that stand in the place of those which OpenImageIO is linked against and a program can do
# without. Each has the name of the one that it stands for and the functions and tables that
# OpenImageIO asks of that; none is ever called, as media/ refuses such files by name. A program or
# library that is linked against these has them loaded in the others' place, for its own come first.
#
# orvanite::stand_ins        cameras, volumes, GIF: nothing here needs them, and they bring 94 others,
#                            clients of databases and directories among them. (The libraries of DICOM
#                            and of raw files are called as OpenImageIO begins: they stay.)
# orvanite::movie_stand_ins  FFmpeg, which brings 107 others, in a folder of their own: for a library
#                            that is opened for itself alone, so that nobody else meets them.
#                            MovieModule.cpp opens the real ones for the first movie. Not in
#                            sanitized builds, whose programs are linked as usual.
add_library(orvanite_stand_ins INTERFACE)
add_library(orvanite::stand_ins ALIAS orvanite_stand_ins)
add_library(orvanite_movie_stand_ins INTERFACE)
add_library(orvanite::movie_stand_ins ALIAS orvanite_movie_stand_ins)

set(movieLibraries avutil swscale avcodec avformat)  # as they need one another
set(movieNames "")
foreach(library IN LISTS movieLibraries)
  find_library(ORVANITE_FFMPEG_${library} ${library})
  execute_process(COMMAND ${CMAKE_READELF} -d ${ORVANITE_FFMPEG_${library}} OUTPUT_VARIABLE own)
  string(REGEX MATCH "SONAME.*\\[(lib${library}\\.so\\.[0-9]+)\\]" own "${own}")
  list(APPEND movieNames "\"${CMAKE_MATCH_1}\"")
endforeach()
list(JOIN movieNames "," movieNames)
target_compile_definitions(orvanite_media PRIVATE "ORVANITE_FFMPEG_LIBRARIES=${movieNames}"
  "ORVANITE_MOVIES_LIBRARY=\"$<TARGET_FILE_NAME:orvanite_movies>\"")

find_library(ORVANITE_OIIO_LIBRARY OpenImageIO)
if(NOT CMAKE_SYSTEM_NAME STREQUAL Linux OR NOT ORVANITE_OIIO_LIBRARY OR CMAKE_CROSSCOMPILING)
  return()
endif()
execute_process(COMMAND ${CMAKE_READELF} -d ${ORVANITE_OIIO_LIBRARY} OUTPUT_VARIABLE needed)
execute_process(COMMAND ${CMAKE_NM} -D --undefined-only ${ORVANITE_OIIO_LIBRARY} OUTPUT_VARIABLE wanted)
string(REGEX MATCHALL "U [A-Za-z0-9_]+" wanted "${wanted}")

# orvanite_stand_in(GROUP LIBRARY FOLDER): one for LIBRARY, in FOLDER below lib/, loaded by whoever is
# linked against GROUP; where OpenImageIO needs it.
function(orvanite_stand_in group library folder)
  if(NOT needed MATCHES "\\[lib${library}\\.so\\.([0-9.]+)\\]")
    return()
  endif()
  set(version ${CMAKE_MATCH_1})
  find_library(ORVANITE_UNWANTED_${library} lib${library}.so.${version})
  execute_process(COMMAND ${CMAKE_NM} -D --defined-only ${ORVANITE_UNWANTED_${library}}
    OUTPUT_VARIABLE defined)
  set(source "/* What OpenImageIO asks of lib${library}.so.${version}, and is never used. */\n")
  string(APPEND source "const char orvaniteStandIn = 1;\n")
  foreach(symbol IN LISTS wanted)
    string(SUBSTRING ${symbol} 2 -1 symbol)
    if(defined MATCHES " [TWi] ${symbol}[@\n]")
      string(APPEND source "void ${symbol}(void) { __builtin_trap(); }\n")
    elseif(defined MATCHES " [A-Z] ${symbol}[@\n]")
      string(APPEND source "const char ${symbol}[256] = {0};\n")
    endif()
  endforeach()
  set(file ${CMAKE_CURRENT_BINARY_DIR}/standins/${library}.c)
  file(CONFIGURE OUTPUT ${file} CONTENT "${source}" @ONLY)
  add_library(orvanite_${library} SHARED ${file})
  set_target_properties(orvanite_${library} PROPERTIES
    OUTPUT_NAME ${library} SOVERSION ${version} C_VISIBILITY_PRESET default
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/${folder})
  target_link_libraries(orvanite_${library} PRIVATE orvanite_hardened)
  # All its names have the library's version where that has one: the loader looks for it.
  if(defined MATCHES "@@?(LIB[A-Z]+_[0-9]+)")
    set(map ${CMAKE_CURRENT_BINARY_DIR}/standins/${library}.map)
    file(CONFIGURE OUTPUT ${map} CONTENT "${CMAKE_MATCH_1} { global: *; };\n" @ONLY)
    target_link_options(orvanite_${library} PRIVATE -Wl,--version-script=${map})
  endif()
  install(TARGETS orvanite_${library}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/orvanite/${folder} COMPONENT command NAMELINK_SKIP)
  target_link_libraries(${group} INTERFACE $<LINK_LIBRARY:loaded,orvanite_${library}>)
endfunction()

foreach(library IN ITEMS opencv_videoio opencv_imgproc opencv_core openvdb gif)
  orvanite_stand_in(orvanite_stand_ins ${library} .)
endforeach()
if(NOT ORVANITE_SANITIZE)
  foreach(library IN LISTS movieLibraries)
    orvanite_stand_in(orvanite_movie_stand_ins ${library} stand-ins)
  endforeach()
endif()
