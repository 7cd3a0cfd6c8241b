# The libraries of headers alone that the browser's build shares with every other. Debian's packages
# of Imath and of the JSON library name the machine that they are installed on; their headers do not.
# Highway is newer than Debian's, which has no doubles for WebAssembly.
include(FetchContent)
FetchContent_Declare(highway
  GIT_REPOSITORY https://github.com/google/highway.git
  GIT_TAG 2607d3b5b0113992fe84d3848859eae13b3b52c1)  # 1.4.0; FETCHCONTENT_SOURCE_DIR_HIGHWAY: a copy
FetchContent_GetProperties(highway)
if(NOT highway_POPULATED)
  FetchContent_Populate(highway)
endif()
include_directories(BEFORE SYSTEM ${highway_SOURCE_DIR})

foreach(library IN ITEMS Imath nlohmann_json)
  set(${library}_DIR ${PROJECT_SOURCE_DIR}/web/libraries)
endforeach()
