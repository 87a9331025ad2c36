// Arithmetic that wraps on purpose.
#pragma once

/// Marks a function whose unsigned arithmetic is meant to wrap, for the sanitizer that looks for it.
#ifdef __clang__
#    define BRIM_WRAPS __attribute__((no_sanitize("unsigned-integer-overflow")))
#else
#    define BRIM_WRAPS
#endif
