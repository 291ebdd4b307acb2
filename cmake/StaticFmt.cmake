# fmt for a tool that runs where fmt is not installed: compiled with this build, because Debian has no static library of
# it. Its users are compiled as with the shared one, so that ccache finds their object files.
if(fmt_VERSION VERSION_LESS 10)
  add_library(vorlen_fmt STATIC "${PROJECT_SOURCE_DIR}/cmake/fmt.cpp")
  target_include_directories(vorlen_fmt PRIVATE $<TARGET_PROPERTY:fmt::fmt,INTERFACE_INCLUDE_DIRECTORIES>)
  target_compile_definitions(vorlen_fmt INTERFACE $<TARGET_PROPERTY:fmt::fmt,INTERFACE_COMPILE_DEFINITIONS>)
  set(fmt vorlen_fmt)
else()
  set(fmt fmt::fmt-header-only)
endif()
