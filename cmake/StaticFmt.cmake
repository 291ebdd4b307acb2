# fmt for a tool that runs where fmt is not installed: compiled with this build, because Debian has no static library of
# it. Its users are compiled as with the shared one, so that ccache finds their object files.
if(fmt_VERSION VERSION_LESS 10)
  file(CONFIGURE OUTPUT "${CMAKE_CURRENT_BINARY_DIR}/fmt.cpp" CONTENT [[
// Defines what fmt/format.h declares.
#include <fmt/format-inl.h>

namespace fmt::detail {
template auto dragonbox::to_decimal(float) noexcept -> dragonbox::decimal_fp<float>;
template auto dragonbox::to_decimal(double) noexcept -> dragonbox::decimal_fp<double>;
template auto thousands_sep_impl(locale_ref) -> thousands_sep_result<char>;
template auto decimal_point_impl(locale_ref) -> char;
}  // namespace fmt::detail
]] @ONLY)
  add_library(vorlen_fmt STATIC "${CMAKE_CURRENT_BINARY_DIR}/fmt.cpp")
  target_include_directories(vorlen_fmt PRIVATE $<TARGET_PROPERTY:fmt::fmt,INTERFACE_INCLUDE_DIRECTORIES>)
  target_compile_definitions(vorlen_fmt INTERFACE $<TARGET_PROPERTY:fmt::fmt,INTERFACE_COMPILE_DEFINITIONS>)
  set(fmt vorlen_fmt)
else()
  set(fmt fmt::fmt-header-only)
endif()
