// Case folding of wide characters in the current locale: blocks of ASCII in vectors, other characters by the
// locale's tables. The results are those of towlower and towupper.
//
// A fold belongs to the locale that was current when it was made; make one for every text.
#pragma once

#include "LocaleCharacters.h"

#include <cstddef>
#include <cstdint>

namespace sup {

class BRIMPORTABLE_API LowerCaseFold {
public:
    LowerCaseFold() noexcept : m_characters(LocaleCharacters::current()) {
        if (m_characters != nullptr) {
            m_alphabets = m_characters->lowerAlphabets();
            m_limit = LocaleCharacters::kAlphabetsLimit;
            m_plainAscii = m_characters->lowersPlainAscii();
        }
    }

    wchar_t operator()(wchar_t c) const noexcept {
        const auto code = static_cast<std::uint32_t>(c);
        return code < m_limit ? m_alphabets[code] : foldOther(code);
    }

    /// Folds `n` characters into `dst`, which may be `src`; returns the end of them.
    wchar_t* fold(const wchar_t* src, std::size_t n, wchar_t* dst) const noexcept;

    /// The first of `n` places where the texts differ after the fold; `n` when there is none.
    std::size_t firstDifference(const wchar_t* a, const wchar_t* b, std::size_t n) const noexcept;

private:
    wchar_t foldOther(std::uint32_t code) const noexcept;
    std::size_t firstDifferencePlain(const wchar_t* a, const wchar_t* b, std::size_t n) const noexcept;
    std::size_t firstDifferenceAvx512(const wchar_t* a, const wchar_t* b, std::size_t n) const noexcept;

    const LocaleCharacters* m_characters;
    const wchar_t* m_alphabets = nullptr;
    std::uint32_t m_limit = 0;
    bool m_plainAscii = false;
};

class BRIMPORTABLE_API UpperCaseFold {
public:
    UpperCaseFold() noexcept : m_characters(LocaleCharacters::current()) {
        if (m_characters != nullptr) {
            m_alphabets = m_characters->upperAlphabets();
            m_limit = LocaleCharacters::kAlphabetsLimit;
            m_plainAscii = m_characters->raisesPlainAscii();
        }
    }

    wchar_t operator()(wchar_t c) const noexcept {
        const auto code = static_cast<std::uint32_t>(c);
        return code < m_limit ? m_alphabets[code] : foldOther(code);
    }

    /// As LowerCaseFold's.
    wchar_t* fold(const wchar_t* src, std::size_t n, wchar_t* dst) const noexcept;

private:
    wchar_t foldOther(std::uint32_t code) const noexcept;

    const LocaleCharacters* m_characters;
    const wchar_t* m_alphabets = nullptr;
    std::uint32_t m_limit = 0;
    bool m_plainAscii = false;
};

} // namespace sup
