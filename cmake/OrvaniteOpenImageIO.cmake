# OpenImageIO, found once for all folders. Debian's package names include folders of libraries that
# need not be installed, which CMake refuses: those that do not exist are taken off its target.
find_package(OpenImageIO REQUIRED GLOBAL)
get_target_property(orvanite_oiio_folders OpenImageIO::OpenImageIO INTERFACE_INCLUDE_DIRECTORIES)
set(orvanite_oiio_present "")
foreach(folder IN LISTS orvanite_oiio_folders)
  if(EXISTS ${folder})
    list(APPEND orvanite_oiio_present ${folder})
  endif()
endforeach()
set_target_properties(OpenImageIO::OpenImageIO PROPERTIES
  INTERFACE_INCLUDE_DIRECTORIES "${orvanite_oiio_present}")
