// The few formatting functions fmt keeps out of its headers, compiled into the agent itself, so
// that a start does not load libfmt (and, through it, the shared C++ library). This mirrors what
// fmt's own library holds; a release whose internals differ, and a sanitizer build (linked
// against the shared runtime anyway), keep using the shared library.

#include <fmt/core.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define BRIMSTELL_AGENT_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define BRIMSTELL_AGENT_SANITIZED 1
#endif

#if !defined(__APPLE__) && !defined(BRIMSTELL_AGENT_SANITIZED) && FMT_VERSION >= 90000 && FMT_VERSION < 100000
#include <fmt/format-inl.h>

FMT_BEGIN_NAMESPACE
namespace detail {
template FMT_API auto dragonbox::to_decimal(float x) noexcept -> dragonbox::decimal_fp<float>;
template FMT_API auto dragonbox::to_decimal(double x) noexcept -> dragonbox::decimal_fp<double>;
template FMT_API locale_ref::locale_ref(const std::locale& loc);
template FMT_API auto locale_ref::get<std::locale>() const -> std::locale;
template FMT_API auto thousands_sep_impl(locale_ref) -> thousands_sep_result<char>;
template FMT_API auto decimal_point_impl(locale_ref) -> char;
template FMT_API void buffer<char>::append(const char*, const char*);
}  // namespace detail
FMT_END_NAMESPACE
#endif
