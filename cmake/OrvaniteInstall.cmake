# What `cmake --install` gives a client of the libraries: headers, shared libraries, CMake package and
# pkg-config files. Applications and plug-ins install themselves where they are built.
include(CMakePackageConfigHelpers)

install(TARGETS orvanite EXPORT OrvaniteTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)
install(FILES engine/orvanite.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
if(TARGET orvanite-keyer)
  install(TARGETS orvanite-keyer EXPORT OrvaniteTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT keyer
    NAMELINK_COMPONENT development)
  install(FILES keyer/include/orvanite/keyer.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orvanite
    COMPONENT development)
endif()

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Orvanite)
install(EXPORT OrvaniteTargets NAMESPACE orvanite:: DESTINATION ${package_folder}
  COMPONENT development)
configure_package_config_file(cmake/OrvaniteConfig.cmake.in OrvaniteConfig.cmake
  INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(OrvaniteConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/OrvaniteConfig.cmake
  ${PROJECT_BINARY_DIR}/OrvaniteConfigVersion.cmake DESTINATION ${package_folder}
  COMPONENT development)

# The prefix is told from where the file lies, so that what was installed can be moved.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
  BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig OUTPUT_VARIABLE ORVANITE_PC_UP)
cmake_path(APPEND ORVANITE_PC_LIBDIR "\${prefix}" "${CMAKE_INSTALL_LIBDIR}")
cmake_path(APPEND ORVANITE_PC_INCLUDEDIR "\${prefix}" "${CMAKE_INSTALL_INCLUDEDIR}")
configure_file(cmake/orvanite.pc.in orvanite.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/orvanite.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)
if(TARGET orvanite-keyer)
  configure_file(cmake/orvanite-keyer.pc.in orvanite-keyer.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/orvanite-keyer.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endif()
