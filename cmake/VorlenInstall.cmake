# Installed in addition to the targets: the files by which other builds find the library, and files that are only copied.
# Components: library (needed to run a host), development (needed to build one), tool (everything else).
include(CMakePackageConfigHelpers)

set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/VorlenSolver")
configure_package_config_file(cmake/VorlenSolverConfig.cmake.in VorlenSolverConfig.cmake
  INSTALL_DESTINATION "${package_folder}")
write_basic_package_version_file(VorlenSolverConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(EXPORT VorlenSolverTargets NAMESPACE VorlenSolver:: DESTINATION "${package_folder}" COMPONENT development)
install(FILES
  "${CMAKE_CURRENT_BINARY_DIR}/VorlenSolverConfig.cmake"
  "${CMAKE_CURRENT_BINARY_DIR}/VorlenSolverConfigVersion.cmake"
  DESTINATION "${package_folder}" COMPONENT development)

file(RELATIVE_PATH pc_to_prefix "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
configure_file(cmake/vorlensolver.pc.in vorlensolver.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/vorlensolver.pc"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)
