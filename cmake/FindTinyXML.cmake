# TinyXML by pkg-config, or else by its header and library. Defines TinyXML::TinyXML.
find_package(PkgConfig QUIET)
if(PkgConfig_FOUND)
  pkg_check_modules(PC_TinyXML QUIET tinyxml)
endif()
find_path(TinyXML_INCLUDE_DIR tinyxml.h HINTS ${PC_TinyXML_INCLUDE_DIRS})
find_library(TinyXML_LIBRARY tinyxml HINTS ${PC_TinyXML_LIBRARY_DIRS})
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(TinyXML REQUIRED_VARS TinyXML_LIBRARY TinyXML_INCLUDE_DIR)
if(TinyXML_FOUND AND NOT TARGET TinyXML::TinyXML)
  add_library(TinyXML::TinyXML UNKNOWN IMPORTED)
  set_target_properties(TinyXML::TinyXML PROPERTIES
    IMPORTED_LOCATION "${TinyXML_LIBRARY}"
    INTERFACE_SYSTEM_INCLUDE_DIRECTORIES "${TinyXML_INCLUDE_DIR}")
endif()
mark_as_advanced(TinyXML_INCLUDE_DIR TinyXML_LIBRARY)
