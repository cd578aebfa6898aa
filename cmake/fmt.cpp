// The part of {fmt} that is compiled: what its headers declare for `char` and leave to a library.
#include <fmt/format-inl.h>

FMT_BEGIN_NAMESPACE
namespace detail {

template auto dragonbox::to_decimal(float) noexcept -> dragonbox::decimal_fp<float>;
template auto dragonbox::to_decimal(double) noexcept -> dragonbox::decimal_fp<double>;
template locale_ref::locale_ref(const std::locale &);
template auto locale_ref::get<std::locale>() const -> std::locale;
template auto thousands_sep_impl(locale_ref) -> thousands_sep_result<char>;
template auto decimal_point_impl(locale_ref) -> char;
template void buffer<char>::append(const char *, const char *);
template void vformat_to(buffer<char> &, string_view, format_args, locale_ref);

}  // namespace detail
FMT_END_NAMESPACE
