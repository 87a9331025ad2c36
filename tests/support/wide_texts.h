// Wide texts of tests: between the library's string and the standard one, and at random from an alphabet.
#pragma once

#include "Utility/Generic/Portable/SUPString.h"

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace brimtest {

/// With all its zeros.
inline BrimString brim(std::wstring_view text) { return BrimString(text.data(), text.size()); }
inline std::wstring plain(const BrimString& text) { return std::wstring(text.begin(), text.length()); }
inline std::vector<std::wstring> plain(const BrimStringVector& texts) {
    std::vector<std::wstring> result;
    for (const BrimString& text : texts) {
        result.push_back(plain(text));
    }
    return result;
}

/// A fixed sequence of numbers and texts for each seed; show the seed when a test fails.
class RandomTexts {
public:
    explicit RandomTexts(std::uint64_t seed) : m_engine(seed) {}

    /// 0 to `limit` - 1.
    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(m_engine() % limit); }
    bool flip() { return below(2) == 1; }
    std::uint64_t bits() { return m_engine(); }
    /// Characters of `alphabet`, 0 to `longest` of them.
    std::wstring text(std::wstring_view alphabet, std::size_t longest) {
        return textOf(alphabet, below(longest + 1));
    }
    std::wstring textOf(std::wstring_view alphabet, std::size_t length) {
        std::wstring made;
        while (made.size() < length) {
            made += alphabet[below(alphabet.size())];
        }
        return made;
    }

private:
    std::mt19937_64 m_engine;
};

} // namespace brimtest
