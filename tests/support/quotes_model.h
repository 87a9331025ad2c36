// Searches that look at backslashes, quotes and marks; each starts anew at every step.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace brimtest {

using Ranges = std::vector<std::pair<std::size_t, std::size_t>>;

inline std::size_t find(const std::wstring& text, const std::wstring& what, std::size_t start) {
    const std::size_t found = start < text.size() ? text.find(what, start) : std::wstring::npos;
    return found == std::wstring::npos ? text.size() : found;
}

inline std::size_t unescaped(const std::wstring& text, const std::wstring& what, std::size_t start) {
    for (std::size_t hit = find(text, what, start); hit < text.size(); hit = find(text, what, hit + 1)) {
        if (hit == 0 || text[hit - 1] != L'\\') {
            return hit;
        }
    }
    return text.size();
}

inline std::size_t unquoted(const std::wstring& text, const std::wstring& what, std::size_t start,
                            Ranges* ranges) {
    for (std::size_t pos = start;;) {
        const std::size_t hit = find(text, what, pos);
        if (hit == text.size()) {
            return hit;
        }
        const std::size_t apostrophe = unescaped(text, L"'", pos);
        const std::size_t quote = unescaped(text, L"\"", pos);
        if (hit < apostrophe && hit < quote) {
            return hit;
        }
        const std::size_t opening = quote <= apostrophe ? quote : apostrophe;
        const std::size_t closing = unescaped(text, std::wstring(1, text[opening]), opening + 1);
        if (closing == text.size()) {
            return closing;
        }
        if (ranges != nullptr) {
            ranges->emplace_back(opening, closing);
        }
        pos = closing + 1;
    }
}

inline std::size_t closingMark(const std::wstring& text, std::size_t start, const std::wstring& open,
                               const std::wstring& close) {
    long depth = 0;
    for (std::size_t pos = start;;) {
        const std::size_t c = unquoted(text, close, pos, nullptr);
        if (c == text.size()) {
            return c;
        }
        const std::size_t o = unquoted(text, open, pos, nullptr);
        if (c <= o) {
            if (++depth == 1) {
                return c;
            }
            pos = c + 1;
        } else {
            --depth;
            pos = o + 1;
        }
    }
}

// A value's end: the first apostrophe of a run of odd length, and the pairs before.
inline bool quotedValue(const std::wstring& text, std::size_t start, std::wstring& out, std::size_t& end) {
    out.clear();
    for (end = start; end < text.size();) {
        if (text[end] != L'\'') {
            out += text[end++];
        } else if (end + 1 < text.size() && text[end + 1] == L'\'') {
            out += L'\'';
            end += 2;
        } else {
            ++end;
            return true;
        }
    }
    out.clear();
    return false;
}

} // namespace brimtest
