# `cpack --preset release` makes Debian packages of a finished build: liborvanite1,
# liborvanite-keyer1, liborvanite-dev,
# orvanite (the command, its node, manual and completions), orvanite-plugins (OpenFX, frei0r),
# obs-orvanite and python3-orvanite.
# Each is a component of what `cmake --install` installs. scripts/package builds and tries them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME orvanite)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_VENDOR "The Orvanite authors")
set(CPACK_PACKAGE_CONTACT "The Orvanite authors <orvanite@localhost>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})

# What every package's changelog says: Debian asks for one in its own form.
set(ORVANITE_DEBIAN_VERSION ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
string(TIMESTAMP ORVANITE_DEBIAN_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(cmake/debian-changelog.in debian/changelog @ONLY)
find_program(GZIP gzip REQUIRED)
file(REMOVE ${PROJECT_BINARY_DIR}/debian/changelog.gz)
execute_process(COMMAND ${GZIP} -9n ${PROJECT_BINARY_DIR}/debian/changelog
  COMMAND_ERROR_IS_FATAL ANY)

# Which package a program needs that was linked to the library, and that the loader hears of it.
set(soname liborvanite${PROJECT_VERSION_MAJOR})
file(WRITE ${PROJECT_BINARY_DIR}/debian/shlibs
  "liborvanite ${PROJECT_VERSION_MAJOR} ${soname} (>= ${PROJECT_VERSION})\n")
file(WRITE ${PROJECT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA
  ${PROJECT_BINARY_DIR}/debian/shlibs ${PROJECT_BINARY_DIR}/debian/triggers)
set(keyer_soname liborvanite-keyer${PROJECT_VERSION_MAJOR})
file(WRITE ${PROJECT_BINARY_DIR}/debian/keyer/shlibs
  "liborvanite-keyer ${PROJECT_VERSION_MAJOR} ${keyer_soname} (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_KEYER_PACKAGE_CONTROL_EXTRA
  ${PROJECT_BINARY_DIR}/debian/keyer/shlibs ${PROJECT_BINARY_DIR}/debian/triggers)

# orvanite_package(COMPONENT PACKAGE SECTION SUMMARY DESCRIPTION)
macro(orvanite_package component package section summary description)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${description}")
  install(FILES LICENSE RENAME copyright DESTINATION share/doc/${package}
    COMPONENT ${component} EXCLUDE_FROM_ALL)
  install(FILES ${PROJECT_BINARY_DIR}/debian/changelog.gz RENAME changelog.Debian.gz
    DESTINATION share/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
  install(FILES cmake/lintian/${component} RENAME ${package} DESTINATION share/lintian/overrides
    COMPONENT ${component} EXCLUDE_FROM_ALL)
endmacro()

set(CPACK_COMPONENTS_ALL "")
set(about "Orvanite is a colour-difference keyer: it takes the blue or green screen out of
pictures and leaves the subject, hair, glass and motion blur included.")
orvanite_package(library ${soname} libs
  "colour-difference keyer, shared library" "${about}
.
This is the keying engine behind its flat C interface.")
if(ORVANITE_BUILD_KEYER)
  orvanite_package(keyer ${keyer_soname} libs
    "colour-difference keyer for whole pictures, shared library" "${about}
.
This finds screens and keys whole pictures of any layout on threads, behind a
C interface.")
endif()
orvanite_package(development liborvanite-dev libdevel
  "colour-difference keyer, development files" "${about}
.
The headers, CMake package, pkg-config files and example programs of the engine
and the keyer.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${soname} (= ${ORVANITE_DEBIAN_VERSION})")
if(ORVANITE_BUILD_KEYER)
  string(APPEND CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    ", ${keyer_soname} (= ${ORVANITE_DEBIAN_VERSION})")
endif()
install(DIRECTORY examples/client/ DESTINATION share/doc/liborvanite-dev/examples
  COMPONENT development EXCLUDE_FROM_ALL)
if(ORVANITE_BUILD_APPS)
  orvanite_package(command orvanite graphics
    "colour-difference keyer for pictures and shots" "${about}
.
The command keys pictures and numbered sequences, renders scripts and shows
the key in a browser while its parameters move.")
  set(CPACK_DEBIAN_COMMAND_PACKAGE_SUGGESTS orvanite-plugins)
  # Loaded by its name when it is needed: no tool sees that.
  string(REGEX MATCH "^[0-9]+" avfilter_major "${AVFILTER_VERSION}")
  set(CPACK_DEBIAN_COMMAND_PACKAGE_RECOMMENDS "libavfilter${avfilter_major}")
endif()
if(ORVANITE_BUILD_PLUGINS)
  orvanite_package(plugins orvanite-plugins graphics
    "colour-difference keyer for OpenFX and frei0r hosts" "${about}
.
An OpenFX plug-in for compositors and editors, a frei0r filter and a mixer.")
endif()
if(TARGET orvanite_obs)
  orvanite_package(obs obs-orvanite video
    "colour-difference keyer for OBS Studio" "${about}
.
A filter for cameras and media sources of OBS Studio.")
  set(CPACK_DEBIAN_OBS_PACKAGE_ENHANCES obs-studio)
endif()
if(TARGET orvanite_python)
  orvanite_package(python python3-orvanite python
    "colour-difference keyer for numpy arrays" "${about}
.
A module for Python 3: finds screens and keys pictures that are numpy arrays.")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "${ORVANITE_PYTHON_VERSIONS}, python3-numpy")
  install(DIRECTORY examples/python/ DESTINATION share/doc/python3-orvanite/examples
    COMPONENT python EXCLUDE_FROM_ALL)
endif()
include(CPack)
