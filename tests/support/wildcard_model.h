// A matcher of wildcard patterns by dynamic programming.
#pragma once

#include <cstddef>
#include <cwctype>
#include <string>
#include <string_view>
#include <vector>

namespace brimtest {

inline wchar_t lowered(wchar_t c) { return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c))); }

// reached[i]: the pattern so far matches the first i characters.
inline bool modelWildcardMatch(std::wstring_view text, std::wstring_view pattern) {
    std::vector<bool> reached(text.size() + 1, false);
    reached[0] = true;
    for (const wchar_t p : pattern) {
        std::vector<bool> next(text.size() + 1, false);
        for (std::size_t i = 0; i <= text.size(); ++i) {
            if (p == L'*') {
                next[i] = reached[i] || (i > 0 && next[i - 1]);
            } else if (i > 0) {
                next[i] = reached[i - 1] && (p == L'?' || lowered(p) == lowered(text[i - 1]));
            }
        }
        reached = next;
    }
    return reached[text.size()];
}

} // namespace brimtest
