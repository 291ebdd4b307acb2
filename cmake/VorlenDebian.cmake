# Three Debian packages, created by CPack with the preset `package`: library, development files, tool.
set(VORLEN_MAINTAINER "VorlenSolver maintainers <maintainers@vorlensolver.invalid>")
set(VORLEN_DEBIAN_REVISION 1)

set(library_package "libvorlensolver${VORLEN_SOVERSION}")
set(debian_version "${PROJECT_VERSION}-${VORLEN_DEBIAN_REVISION}")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vorlensolver)
set(CPACK_PACKAGE_VENDOR VorlenSolver)
set(CPACK_PACKAGE_CONTACT "${VORLEN_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library development tool)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${VORLEN_DEBIAN_REVISION})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The loader's cache is updated once, after all packages are installed.
file(WRITE "${CMAKE_CURRENT_BINARY_DIR}/debian/triggers" "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA "${CMAKE_CURRENT_BINARY_DIR}/debian/triggers")

# Debian's policy requires compressed manual pages; other installations do not compress them.
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/debian/compress_manual_pages.cmake")

# dpkg-shlibdeps finds the libraries that each package links; the library declares how hosts depend on it.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_TOOL_PACKAGE_SHLIBDEPS ON)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "growth of III-nitride layers in MOVPE, shared library
Simulates the growth of InGaN, AlGaN, AlInN and AlInGaN layers in metal-organic
vapour-phase epitaxy over a whole process recipe: surface chemistry, transport
of gases, composition and thickness, strain, dislocations and V-defects.
.
The library has one C function, which reads a recipe and writes a result file.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvorlensolver-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${library_package} (= ${debian_version})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "growth of III-nitride layers in MOVPE, development files
Simulates the growth of InGaN, AlGaN, AlInN and AlInGaN layers in metal-organic
vapour-phase epitaxy over a whole process recipe.
.
This package contains the C header, the stiff integrator vorlen_radau as a
static library with its C++ header, and the files by which pkg-config and CMake
find both.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME vorlen)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION science)
# The Python package calls the shared library.
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${library_package} (= ${debian_version})")
# Only the Python package, which is installed with the tool, needs these.
set(CPACK_DEBIAN_TOOL_PACKAGE_RECOMMENDS
  "python3, python3-jinja2, python3-matplotlib, python3-numpy, python3-pandas")
set(CPACK_DEBIAN_TOOL_PACKAGE_SUGGESTS "python3-contourpy, python3-lmfit, python3-scipy, python3-xarray, python3-xrayutilities, python3-yaml")
set(CPACK_COMPONENT_TOOL_DESCRIPTION "growth of III-nitride layers in MOVPE, command line
Simulates the growth of InGaN, AlGaN, AlInN and AlInGaN layers in metal-organic
vapour-phase epitaxy over a whole process recipe.
.
This package contains the program vorlen, which checks and runs recipes and
shows the results, the schema of recipes for editors, and the Python package vorlen.")

# Changelog, copyright, and the exceptions to Debian's policy, for each package.
configure_file(cmake/debian/changelog.in debian/changelog @ONLY)
configure_file(cmake/debian/copyright.in debian/copyright @ONLY)
find_program(GZIP_PROGRAM gzip)
if(GZIP_PROGRAM)
  execute_process(COMMAND "${GZIP_PROGRAM}" -9nkf "${CMAKE_CURRENT_BINARY_DIR}/debian/changelog"
    COMMAND_ERROR_IS_FATAL ANY)
endif()
foreach(part library:${library_package} development:libvorlensolver-dev tool:vorlen)
  string(REGEX MATCH "^[a-z]+" component "${part}")
  string(REGEX REPLACE "^[a-z]+:" "" package "${part}")
  install(FILES "${CMAKE_CURRENT_BINARY_DIR}/debian/changelog.gz" RENAME changelog.Debian.gz
    DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}" COMPONENT ${component})
  install(FILES "${CMAKE_CURRENT_BINARY_DIR}/debian/copyright"
    DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}" COMPONENT ${component})
  if(NOT component STREQUAL development)
    configure_file(cmake/debian/lintian-overrides.in debian/${package} @ONLY)
    install(FILES "${CMAKE_CURRENT_BINARY_DIR}/debian/${package}"
      DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides" COMPONENT ${component})
  endif()
endforeach()

include(CPack)
