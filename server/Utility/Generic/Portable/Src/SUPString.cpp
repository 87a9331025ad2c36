#include "Utility/Generic/Portable/SUPString.h"

#include "Utility/Generic/Portable/SUPBString.h" // the members that take or give a byte string
#include "kernels/search.h"

#include <emmintrin.h>

namespace sup {

namespace {

// The first `c` or zero of a text that has `n` characters and a zero behind them. Reads blocks of four
// characters inside them, then single ones.
const wchar_t* findOrEnd(const wchar_t* text, std::size_t n, wchar_t c) noexcept {
    const wchar_t* const end = text + n;
    const __m128i wanted = _mm_set1_epi32(c);
    for (; end - text >= 4; text += 4) {
        const __m128i four = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
        const int bits = _mm_movemask_ps(_mm_castsi128_ps(
            _mm_or_si128(_mm_cmpeq_epi32(four, wanted), _mm_cmpeq_epi32(four, _mm_setzero_si128()))));
        if (bits != 0) {
            return text + __builtin_ctz(static_cast<unsigned int>(bits));
        }
    }
    while (*text != c && *text != L'\0') {
        ++text;
    }
    return text;
}

const wchar_t* findInShortText(const wchar_t* text, std::size_t n, const wchar_t* pattern,
                               std::size_t m) noexcept {
    const wchar_t* const end = text + n;
    for (;; ++text) {
        text = findOrEnd(text, static_cast<std::size_t>(end - text), *pattern);
        if (static_cast<std::size_t>(end - text) < m || *text == L'\0') {
            return nullptr;
        }
        if (text[m - 1] == pattern[m - 1] && std::wmemcmp(text, pattern, m) == 0) {
            return text;
        }
    }
}

// What the C library's searches find, or null. The text has `n` characters and a zero behind them.
const wchar_t* findInText(const wchar_t* text, std::size_t n, const wchar_t* pattern) noexcept {
    constexpr std::size_t kShort = 64;
    const std::size_t m = string_details::textLength(pattern);
    if (m == 0) {
        return text;
    }
    if (n <= kShort) {
        return findInShortText(text, n, pattern, m);
    }
    const std::size_t at = kernels::findTextBeforeZero(text, n, pattern, m);
    return at == n ? nullptr : text + at;
}
const char* findInText(const char* text, std::size_t /*n*/, const char* pattern) noexcept {
    return std::strstr(text, pattern);
}

} // namespace

template <class T>
auto String<T>::findText(const T* text, size_type pos) const noexcept -> size_type {
    if (pos >= length()) {
        return npos;
    }
    const T* const found = findInText(begin() + pos, length() - pos, text == nullptr ? emptyText() : text);
    return found == nullptr ? npos : static_cast<size_type>(found - begin());
}

template struct string_details::StringData<wchar_t>;
template struct string_details::StringData<char>;
template class String<wchar_t>;
template class String<char>;

} // namespace sup
