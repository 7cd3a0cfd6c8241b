# engine_hashes: seeded tiles as numbers, the same on every machine. It carries those that are kept
# (hashes.txt) itself, so that nothing but the program goes to another machine.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/hashes.txt)
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/hashes.txt hashes)
list(TRANSFORM hashes REPLACE "^(.+) (.+)$" "{\"\\1\", \"\\2\"},\n")
list(JOIN hashes "" hashes)
file(CONFIGURE OUTPUT hashes.inc CONTENT "${hashes}")
add_executable(engine_hashes ${CMAKE_CURRENT_LIST_DIR}/Hashes.cpp)
target_link_libraries(engine_hashes PRIVATE orvanite::engine orvanite_build)
target_include_directories(engine_hashes PRIVATE ${CMAKE_CURRENT_BINARY_DIR})
