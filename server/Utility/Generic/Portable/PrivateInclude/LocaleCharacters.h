// Case and classes of characters in a locale, from tables that the C library's own functions fill.
//
// Tables belong to the character data of one locale, wherever it is in use. They hold a duplicate of the
// locale, so that its data stays loaded: an address in the data then tells the locale for good, and no change
// of the current locale makes a table wrong. (The pointer of __ctype_tolower_loc would not do: after a
// setlocale it stays the old one in every other thread.)
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <langinfo.h>
#include <locale.h>

namespace sup {

class BRIMPORTABLE_API LocaleCharacters {
public:
    static constexpr std::uint32_t kLimit = 0x10000; ///< the tables' characters lie below
    static constexpr std::uint32_t kAlphabetsLimit = 0x2500;
    static constexpr std::uint32_t kLowLimit = 0x100;
    static constexpr std::size_t kMostLocales = 4;

    /// Frees the locale that it holds.
    ~LocaleCharacters();

    /// The tables of the calling thread's current locale. Null when kMostLocales others have theirs, or
    /// memory is short: ask the C library then.
    static const LocaleCharacters* current() noexcept {
        const char* const key = ::nl_langinfo(CODESET);
        for (const LocaleCharacters& known : s_known) {
            const char* const knownKey = known.m_key.load(std::memory_order_acquire);
            if (knownKey == key) {
                return &known;
            }
            if (knownKey == nullptr) {
                return addCurrent();
            }
        }
        return nullptr;
    }

    /// Its number: below kMostLocales, for what else is made once for a locale.
    std::size_t number() const noexcept { return static_cast<std::size_t>(this - s_known); }

    /// towlower and towupper of each character below kAlphabetsLimit, where nearly all letters with case are.
    const wchar_t* lowerAlphabets() const noexcept { return m_lower; }
    const wchar_t* upperAlphabets() const noexcept { return m_upper; }

    /// The same of a character below kLimit.
    wchar_t lower(std::uint32_t c) const noexcept {
        fillPageOf(c);
        return m_lower[c];
    }
    wchar_t upper(std::uint32_t c) const noexcept {
        fillPageOf(c);
        return m_upper[c];
    }
    /// True when ASCII characters map as in the "C" locale.
    bool lowersPlainAscii() const noexcept { return m_lowersPlainAscii; }
    bool raisesPlainAscii() const noexcept { return m_raisesPlainAscii; }

    /// iswalnum and iswspace of a character below kLowLimit.
    bool isAlphanumeric(std::uint32_t c) const noexcept { return (m_lowClasses[c] & kAlphanumeric) != 0; }
    bool isSpace(std::uint32_t c) const noexcept { return (m_lowClasses[c] & kSpace) != 0; }

private:
    static constexpr std::uint32_t kPage = 0x100;
    static constexpr std::uint8_t kAlphanumeric = 1;
    static constexpr std::uint8_t kSpace = 2;

    static const LocaleCharacters* addCurrent() noexcept;
    void setUp(locale_t locale) noexcept;
    void fillPageOf(std::uint32_t c) const noexcept {
        if (!m_isFilled[c / kPage].load(std::memory_order_acquire)) {
            fillPage(c / kPage);
        }
    }
    void fillPage(std::uint32_t page) const noexcept;
    void fillPageLocked(std::uint32_t page) const noexcept;

    static LocaleCharacters s_known[kMostLocales]; // in the order of their first use

    std::atomic<const char*> m_key{nullptr}; // set last
    locale_t m_locale = nullptr;
    bool m_lowersPlainAscii = false;
    bool m_raisesPlainAscii = false;
    std::uint8_t m_lowClasses[kLowLimit] = {};
    mutable std::atomic<bool> m_isFilled[kLimit / kPage] = {};
    mutable wchar_t m_lower[kLimit] = {};
    mutable wchar_t m_upper[kLimit] = {};
};

} // namespace sup
