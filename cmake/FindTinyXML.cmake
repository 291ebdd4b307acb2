# The static library of TinyXML and its header, from pkg-config or the usual folders: TinyXML_STATIC_LIBRARY and
# TinyXML_INCLUDE_DIR.
find_package(PkgConfig QUIET)
if(PkgConfig_FOUND)
  pkg_check_modules(PC_TinyXML QUIET tinyxml)
endif()
find_path(TinyXML_INCLUDE_DIR tinyxml.h HINTS ${PC_TinyXML_INCLUDE_DIRS})
find_library(TinyXML_STATIC_LIBRARY libtinyxml.a HINTS ${PC_TinyXML_STATIC_LIBRARY_DIRS})
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(TinyXML REQUIRED_VARS TinyXML_STATIC_LIBRARY TinyXML_INCLUDE_DIR)
mark_as_advanced(TinyXML_INCLUDE_DIR TinyXML_STATIC_LIBRARY)
