// The hexadecimal digits, and behind them the mark that ends truncated output.
#pragma once

#include <cstddef>

namespace sup {

inline constexpr wchar_t kDigitsAndTruncationMark[] = L"0123456789abcdef\n...";
inline constexpr std::size_t kTruncationMark = 16; ///< where the mark begins
inline constexpr std::size_t kTruncationMarkLength = 4;

} // namespace sup
