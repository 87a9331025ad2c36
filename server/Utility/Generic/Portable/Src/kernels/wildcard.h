// Searches for a segment of a wildcard pattern: wide text in which "?" stands for any one character.
#pragma once

#include <cstddef>

namespace sup::kernels {

/// True when the `m` characters of the segment fit at `text`, which is as long.
bool segmentFits(const wchar_t* text, const wchar_t* segment, std::size_t m);

/// The first place in the `n` characters at `text` where the segment fits; `n` when there is none. `m` is not
/// 0. Texts and segments that defeat the quick way take time for n * m / 64 steps, and memory for a few bits
/// for each of some 2 m characters, which may be missing (std::bad_alloc).
std::size_t findSegment(const wchar_t* text, std::size_t n, const wchar_t* segment, std::size_t m);

} // namespace sup::kernels
