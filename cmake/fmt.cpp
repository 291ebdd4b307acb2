// The compiled part of fmt 9: what its headers declare to be in a library. For builds for which Debian has no library
// of it. Without the host's locales: thousands have no separator in what is printed.
#define FMT_STATIC_THOUSANDS_SEPARATOR ','
#include <fmt/format-inl.h>

FMT_BEGIN_NAMESPACE
namespace detail {

template FMT_API dragonbox::decimal_fp<float> dragonbox::to_decimal(float) noexcept;
template FMT_API dragonbox::decimal_fp<double> dragonbox::to_decimal(double) noexcept;
template FMT_API thousands_sep_result<char> thousands_sep_impl(locale_ref);
template FMT_API char decimal_point_impl(locale_ref);
template FMT_API void buffer<char>::append(const char*, const char*);
template FMT_API void vformat_to(buffer<char>&, string_view, basic_format_args<FMT_BUFFER_CONTEXT(char)>, locale_ref);

}  // namespace detail
FMT_END_NAMESPACE
