// Searches for a wide text in a wide text, over pointers and lengths. Zeros are characters like others.
#pragma once

#include <cstddef>

namespace sup::kernels {

/// The index of the first (last) occurrence of the `m` characters at `pattern` in the `n` characters at
/// `text`; `n` when there is none. `m` is not 0. Time is linear in n + m whatever the texts are; memory for m
/// numbers is allocated only for texts that defeat the quick way, and may be missing (std::bad_alloc).
std::size_t findText(const wchar_t* text, std::size_t n, const wchar_t* pattern, std::size_t m);
std::size_t findLastText(const wchar_t* text, std::size_t n, const wchar_t* pattern, std::size_t m);

} // namespace sup::kernels
