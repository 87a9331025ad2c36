// Searches for a wide text in a wide text, over pointers and lengths. Zeros are characters like others.
#pragma once

#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "Utility/Generic/Portable/SUPExport.h"

#include <cstddef>

namespace sup::kernels {

/// The index of the first (last) occurrence of the `m` characters at `pattern` in the `n` characters at
/// `text`; `n` when there is none. `m` is not 0. Time is linear in n + m whatever the texts are; nothing is
/// allocated.
BRIMPORTABLE_API std::size_t findText(const wchar_t* text, std::size_t n, const wchar_t* pattern,
                                      std::size_t m) noexcept;
BRIMPORTABLE_API std::size_t findLastText(const wchar_t* text, std::size_t n, const wchar_t* pattern,
                                          std::size_t m) noexcept;

/// The same by the way that no text defeats: the above change over to it when texts repeat themselves.
BRIMPORTABLE_API std::size_t findTextLinearly(const wchar_t* text, std::size_t n, const wchar_t* pattern,
                                              std::size_t m) noexcept;
BRIMPORTABLE_API std::size_t findLastTextLinearly(const wchar_t* text, std::size_t n, const wchar_t* pattern,
                                                  std::size_t m) noexcept;

/// The first occurrence before the first zero of the text; `n` when there is none. `m` may be 0: an empty
/// pattern is found at once in every text but the empty one. Looks no further than it has to, and allocates
/// nothing.
std::size_t findTextBeforeZero(const wchar_t* text, std::size_t n, const wchar_t* pattern,
                               std::size_t m) noexcept;

/// A matcher that looks at each character of a text once (Knuth, Morris and Pratt): it tells occurrences that
/// overlap. Its pattern has `m` characters, not 0.
class Borders {
public:
    Borders(const wchar_t* pattern, std::size_t m) noexcept : m_pattern(pattern), m_m(m) {}

    /// To be called before the other members, once or more. Memory for `m` numbers may be missing
    /// (std::bad_alloc).
    void make() {
        if (!m_isMade) {
            makeLengths();
        }
    }

    /// How many characters of the pattern have matched after `c`, if `matched` had before: less than m.
    std::size_t next(std::size_t matched, wchar_t c) const noexcept {
        while (matched != 0 && c != m_pattern[matched]) {
            matched = m_lengths.data()[matched - 1];
        }
        return c == m_pattern[matched] ? matched + 1 : 0;
    }
    /// How many have matched anew when all have.
    std::size_t afterMatch() const noexcept { return m_lengths.data()[m_m - 1]; }

private:
    void makeLengths();

    const wchar_t* m_pattern;
    std::size_t m_m;
    bool m_isMade = false;
    AutoBuffer<std::size_t, 32> m_lengths; // of the longest proper border of the first i + 1 characters
};

/// What comparisons in vain may cost, each of them in itself too. When it is used up, the texts are of the
/// repetitive kind that only a slower way gets through.
class Budget {
public:
    explicit Budget(std::size_t m) : m_left(16 * m + 4096) {}
    void earn(std::size_t charactersPassed) { m_left += 2 * charactersPassed; }
    /// False when it is used up.
    bool spend(std::size_t charactersCompared) {
        constexpr std::size_t kEach = 64;
        if (charactersCompared + kEach > m_left) {
            return false;
        }
        m_left -= charactersCompared + kEach;
        return true;
    }

private:
    std::size_t m_left;
};

} // namespace sup::kernels
