# Installs the integrator: the static library vorlen_radau, its header, and the files by which CMake and pkg-config find
# it. Component: development.
include(CMakePackageConfigHelpers)

set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/vorlen_radau")
install(TARGETS vorlen_radau EXPORT vorlen_radau
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)
install(FILES "${PROJECT_SOURCE_DIR}/src/integrator/vorlen_radau.h"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT development)

# One target without dependencies: the exported file is the package configuration.
install(EXPORT vorlen_radau FILE vorlen_radauConfig.cmake NAMESPACE vorlen_radau::
  DESTINATION "${package_folder}" COMPONENT development)
write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/vorlen_radauConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/vorlen_radauConfigVersion.cmake"
  DESTINATION "${package_folder}" COMPONENT development)

file(RELATIVE_PATH pc_to_prefix "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
configure_file("${PROJECT_SOURCE_DIR}/cmake/vorlen_radau.pc.in" "${CMAKE_CURRENT_BINARY_DIR}/vorlen_radau.pc" @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/vorlen_radau.pc"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)
