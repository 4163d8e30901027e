// fmt as one object: its package brings headers alone, and every file that formats would compile the whole of it.
#include <fmt/format-inl.h>

FMT_BEGIN_NAMESPACE
namespace detail {

// What fmt/format.h takes from elsewhere, for the types that are formatted here.
template FMT_API auto thousands_sep_impl(locale_ref) -> thousands_sep_result<char>;
template FMT_API auto thousands_sep_impl(locale_ref) -> thousands_sep_result<wchar_t>;
template FMT_API auto decimal_point_impl(locale_ref) -> char;
template FMT_API auto decimal_point_impl(locale_ref) -> wchar_t;
template FMT_API auto dragonbox::to_decimal(float) noexcept -> dragonbox::decimal_fp<float>;
template FMT_API auto dragonbox::to_decimal(double) noexcept -> dragonbox::decimal_fp<double>;

}  // namespace detail
FMT_END_NAMESPACE
