#pragma once

namespace xpon::test {

/// Whether a sanitizer watches the programs: they are slow then, and keep what was freed for a while.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif

/// Whether it is the one for threads, whose runtime has a thread of its own that wakes up by itself.
#if defined(__SANITIZE_THREAD__)
inline constexpr bool thread_sanitized = true;
#else
inline constexpr bool thread_sanitized = false;
#endif

} // namespace xpon::test
