# orvanite::stand_ins: libraries that stand in the place of those which OpenImageIO is linked against
# and nothing here needs: cameras and volumes. They bring 88 others, clients of databases and
# directories among them, and take most of a program's start. Each has the name of the one that it
# stands for and the functions and tables that OpenImageIO asks of that; none is ever called, as
# media/ refuses such files by name. A program that is linked against these has them loaded in the
# others' place, for a program's own come first. (The libraries of DICOM run code as they are loaded:
# they stay.)
set(unwanted opencv_videoio openvdb)

add_library(orvanite_stand_ins INTERFACE)
add_library(orvanite::stand_ins ALIAS orvanite_stand_ins)
find_library(ORVANITE_OIIO_LIBRARY OpenImageIO)
if(NOT CMAKE_SYSTEM_NAME STREQUAL Linux OR NOT ORVANITE_OIIO_LIBRARY OR CMAKE_CROSSCOMPILING)
  return()
endif()
execute_process(COMMAND ${CMAKE_READELF} -d ${ORVANITE_OIIO_LIBRARY} OUTPUT_VARIABLE needed)
execute_process(COMMAND ${CMAKE_NM} -D --undefined-only ${ORVANITE_OIIO_LIBRARY} OUTPUT_VARIABLE wanted)
string(REGEX MATCHALL "U [A-Za-z0-9_]+" wanted "${wanted}")

set(standIns "")
foreach(library IN LISTS unwanted)
  if(NOT needed MATCHES "\\[lib${library}\\.so\\.([0-9.]+)\\]")
    continue()
  endif()
  set(version ${CMAKE_MATCH_1})
  find_library(ORVANITE_UNWANTED_${library} lib${library}.so.${version})
  execute_process(COMMAND ${CMAKE_NM} -D --defined-only ${ORVANITE_UNWANTED_${library}}
    OUTPUT_VARIABLE defined)
  set(source "/* What OpenImageIO asks of lib${library}.so.${version}, and is never used. */\n")
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
    OUTPUT_NAME ${library} SOVERSION ${version} C_VISIBILITY_PRESET default)
  target_link_libraries(orvanite_${library} PRIVATE orvanite_hardened)
  install(TARGETS orvanite_${library} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/orvanite
    COMPONENT command NAMELINK_SKIP)
  list(APPEND standIns orvanite_${library})
endforeach()
# Nothing calls them, and they have to be loaded all the same.
target_link_libraries(orvanite_stand_ins INTERFACE
  -Wl,--push-state,--no-as-needed ${standIns} -Wl,--pop-state)
