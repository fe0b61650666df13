#pragma once

namespace xpon::test {

/// Whether a sanitizer watches the programs: they are slow then, and keep what was freed for a while.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif

} // namespace xpon::test
