# The archive for Windows, created by CPack with the preset `windows`: the component `windows`, one folder that needs no
# installation. README.txt lists its content.
if(NOT VORLEN_TOOLS)
  return()
endif()
set(documents /usr/share/doc)
set(licences
  "CLI11:libcli11-dev"
  "fast_float:libfast-float-dev"
  "fmt:libfmt-dev"
  "GCC runtime:gcc-mingw-w64-base"
  "MinGW-w64 runtime:mingw-w64-common"
  "nlohmann-json:nlohmann-json3-dev"
  "TinyXML:libtinyxml-dev")
foreach(licence ${licences})
  string(REGEX REPLACE ":.*" "" name "${licence}")
  string(REGEX REPLACE ".*:" "" package "${licence}")
  if(NOT EXISTS "${documents}/${package}/copyright")
    message(STATUS "No archive for Windows: the licence ${documents}/${package}/copyright is missing")
    return()
  endif()
  install(FILES "${documents}/${package}/copyright" DESTINATION licences RENAME "${name}.txt"
    COMPONENT windows EXCLUDE_FROM_ALL)
endforeach()

# The live page is the same on all systems: that of the preset `release`, if it has been built.
set(live_page "${PROJECT_SOURCE_DIR}/build/release/wasi/live/live.html")
install(FILES "${live_page}" DESTINATION . COMPONENT windows OPTIONAL EXCLUDE_FROM_ALL)
install(CODE "if(NOT EXISTS \"${live_page}\")
  message(WARNING \"No live.html in the archive: the target live of the preset release has not been built\")
endif()" COMPONENT windows EXCLUDE_FROM_ALL)
install(PROGRAMS "$<TARGET_FILE:vorlen>" DESTINATION . COMPONENT windows EXCLUDE_FROM_ALL)
install(FILES "${VORLEN_SCHEMA}" DESTINATION . COMPONENT windows EXCLUDE_FROM_ALL)
configure_file(cmake/windows/README.txt.in windows/README.txt @ONLY NEWLINE_STYLE DOS)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/windows/README.txt" DESTINATION . COMPONENT windows EXCLUDE_FROM_ALL)
install(FILES "$<TARGET_FILE:VorlenSolver>" DESTINATION . COMPONENT windows EXCLUDE_FROM_ALL)
install(FILES "$<TARGET_LINKER_FILE:VorlenSolver>" DESTINATION lib COMPONENT windows EXCLUDE_FROM_ALL)
if(LLD_LINK_PROGRAM)
  install(FILES "$<TARGET_FILE_DIR:VorlenSolver>/VorlenSolver.lib" DESTINATION lib COMPONENT windows EXCLUDE_FROM_ALL)
endif()
install(FILES src/api/vorlen_solver.h DESTINATION include COMPONENT windows EXCLUDE_FROM_ALL)
file(GLOB recipes CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/examples/*.xml")
install(FILES ${recipes} DESTINATION examples COMPONENT windows EXCLUDE_FROM_ALL)

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME VorlenSolver)
set(CPACK_PACKAGE_VENDOR VorlenSolver)
set(CPACK_PACKAGE_FILE_NAME "VorlenSolver-${PROJECT_VERSION}-windows-x86_64")
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
set(CPACK_COMPONENTS_ALL windows)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_STRIP_FILES ON)
include(CPack)
