// The search that no text can slow down, and that needs no memory: the two-way algorithm of Crochemore and
// Perrin, with skips by the last character as Horspool's.
#include "kernels/search.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cwchar>
#include <functional>

namespace sup::kernels {

namespace {

// A text that is read forwards, or backwards (kStep is -1) from its last character on.
template <std::ptrdiff_t kStep>
class Reading {
public:
    explicit Reading(const wchar_t* first) : m_first(first) {}
    wchar_t operator[](std::size_t i) const { return m_first[static_cast<std::ptrdiff_t>(i) * kStep]; }
    Reading from(std::size_t i) const { return Reading(m_first + static_cast<std::ptrdiff_t>(i) * kStep); }

private:
    const wchar_t* m_first;
};

// How many of `n` characters agree before the first that do not: mostly few.
template <class Text>
std::size_t commonLength(Text a, Text b, std::size_t n) {
    std::size_t i = 0;
    while (i < n && a[i] == b[i]) {
        ++i;
    }
    return i;
}

// The greatest suffix of a pattern in the order `isBefore`, and its period.
struct Suffix {
    std::size_t begin;
    std::size_t period;
};

template <class Text, class IsBefore>
Suffix greatestSuffix(Text pattern, std::size_t m, IsBefore isBefore) {
    Suffix best{0, 1};
    std::size_t other = 1; // a suffix that may be greater; it equals the best one as far as `same`
    for (std::size_t same = 0; other + same < m;) {
        const wchar_t a = pattern[other + same];
        const wchar_t b = pattern[best.begin + same];
        if (a == b) {
            if (++same == best.period) {
                other += best.period;
                same = 0;
            }
        } else if (isBefore(a, b)) {
            other += same + 1;
            same = 0;
            best.period = other - best.begin;
        } else {
            best = {other, 1};
            ++other;
            same = 0;
        }
    }
    return best;
}

// A place where the pattern repeats itself locally no sooner than as a whole.
template <class Text>
Suffix criticalPlace(Text pattern, std::size_t m) {
    const Suffix up = greatestSuffix(pattern, m, std::less<wchar_t>());
    const Suffix down = greatestSuffix(pattern, m, std::greater<wchar_t>());
    return up.begin > down.begin ? up : down;
}

// How far the pattern may be moved for the character under its last place. Characters that share an entry
// have the least of their distances.
template <class Text>
class Skips {
public:
    Skips(Text pattern, std::size_t m) {
        m_distances.fill(m);
        for (std::size_t i = 0; i < m; ++i) {
            m_distances[entryOf(pattern[i])] = m - 1 - i;
        }
    }
    std::size_t of(wchar_t c) const { return m_distances[entryOf(c)]; }

private:
    static constexpr std::size_t kEntries = 256;
    static std::size_t entryOf(wchar_t c) { return static_cast<std::uint32_t>(c) % kEntries; }

    std::array<std::size_t, kEntries> m_distances;
};

// The right part is compared first, forwards, then the left one. `known` characters at the start match
// already: after a shift by the period of the whole pattern they have been compared.
template <class Text>
std::size_t find(Text text, std::size_t n, Text pattern, std::size_t m) {
    const Suffix right = criticalPlace(pattern, m);
    const Skips<Text> skips(pattern, m);
    const bool isPeriodic = right.begin + right.period <= m &&
                            commonLength(pattern, pattern.from(right.period), right.begin) == right.begin;
    const std::size_t shift = isPeriodic ? right.period : std::max(right.begin, m - right.begin) + 1;
    std::size_t known = 0;
    for (std::size_t at = 0; at <= n - m;) {
        const Text here = text.from(at);
        if (const std::size_t skip = skips.of(here[m - 1])) {
            at += std::max(skip, known); // no shift inside what is known to match mends a last period
            known = 0;
            continue;
        }
        const std::size_t from = std::max(right.begin, known);
        const std::size_t i = from + commonLength(here.from(from), pattern.from(from), m - from);
        if (i < m) {
            at += i - right.begin + 1;
            known = 0;
            continue;
        }
        std::size_t left = right.begin;
        while (left > known && here[left - 1] == pattern[left - 1]) {
            --left;
        }
        if (left <= known) {
            return at;
        }
        at += shift;
        known = isPeriodic ? m - right.period : 0;
    }
    return n;
}

} // namespace

std::size_t findTextLinearly(const wchar_t* text, std::size_t n, const wchar_t* pattern,
                             std::size_t m) noexcept {
    return m > n ? n : find(Reading<1>(text), n, Reading<1>(pattern), m);
}

std::size_t findLastTextLinearly(const wchar_t* text, std::size_t n, const wchar_t* pattern,
                                 std::size_t m) noexcept {
    if (m > n) {
        return n;
    }
    const std::size_t behind =
        find(Reading<-1>(text + (n - 1)), n, Reading<-1>(pattern + (m - 1)), m); // from the end
    return behind == n ? n : n - m - behind;
}

} // namespace sup::kernels
