// Fragments of plain and marked-up texts, as they are described.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cwctype>
#include <string>
#include <vector>

namespace brimtest {

inline bool isBlank(wchar_t c) { return std::iswspace(static_cast<std::wint_t>(c)) != 0; }

inline std::wstring trimmedEnd(std::wstring text) {
    while (!text.empty() && isBlank(text.back())) {
        text.pop_back();
    }
    return text;
}

// A character that counts: where it begins and ends, and as how many it counts.
struct Visible {
    std::size_t first;
    std::size_t last;
    std::size_t count;
};

inline std::vector<Visible> visibleOf(const std::wstring& text, bool isMarkedUp) {
    std::vector<Visible> result;
    for (std::size_t i = 0; i < text.size();) {
        std::size_t length = 1;
        std::size_t count = 1;
        const bool isPair = i + 1 < text.size() && text[i] >= 0xD800 && text[i] < 0xDC00 &&
                            text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000;
        if (isPair) {
            length = count = 2;
        }
        if (isMarkedUp && text[i] == L'<') {
            const bool isComment = text.compare(i, 4, L"<!--") == 0;
            const std::size_t end = isComment ? text.find(L"-->", i + 4) : text.find(L'>', i);
            if (end != std::wstring::npos) {
                i = end + (isComment ? 3 : 1);
                continue;
            }
        }
        if (isMarkedUp && text[i] == L'&') {
            const std::size_t end = text.find_first_of(L"; \t\r\n<&", i + 1);
            if (end != std::wstring::npos && text[end] == L';' && end - i < 12) {
                length = end + 1 - i;
            }
        }
        result.push_back({i, i + length, count});
        i += length;
    }
    return result;
}

inline std::wstring modelFragment(const std::wstring& text, std::size_t n, bool isMarkedUp) {
    const std::vector<Visible> visible = visibleOf(text, isMarkedUp);
    std::size_t kept = 0;
    for (std::size_t counted = 0; kept < visible.size() && counted + visible[kept].count <= n; ++kept) {
        counted += visible[kept].count;
    }
    if (kept == visible.size()) {
        return text;
    }
    const auto blankAt = [&](std::size_t k) { return isBlank(text[visible[k].first]); };
    std::size_t cut = kept;
    if (!blankAt(kept)) { // not at the end of a word: go back to one
        while (cut > 0 && !(blankAt(cut) && !blankAt(cut - 1))) {
            --cut;
        }
        cut = cut == 0 ? kept : cut;
    }
    return trimmedEnd(text.substr(0, cut == 0 ? 0 : visible[cut - 1].last));
}

inline std::wstring modelEndTags(const std::wstring& text) {
    std::vector<std::wstring> open;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isComment = text.compare(i, 4, L"<!--") == 0;
        const std::size_t end = isComment ? text.find(L"-->", i + 4) : text.find(L'>', i);
        if (text[i] != L'<' || end == std::wstring::npos) {
            continue;
        }
        std::size_t at = i + 1;
        const bool isEnd = text[at] == L'/';
        at += isEnd ? 1 : 0;
        std::wstring name;
        for (; std::iswalnum(static_cast<std::wint_t>(text[at])) != 0 || text[at] == L'-'; ++at) {
            name += text[at];
        }
        if (!name.empty() && !isEnd && text[end - 1] != L'/') {
            open.push_back(name);
        }
        const auto element = std::find(open.rbegin(), open.rend(), name);
        if (!name.empty() && isEnd && element != open.rend()) {
            open.erase(element.base() - 1, open.end());
        }
        i = isComment ? end + 2 : end;
    }
    std::wstring tags;
    for (auto name = open.rbegin(); name != open.rend(); ++name) {
        tags += L"</" + *name + L">";
    }
    return tags;
}

/// The characters that `isKept` accepts, surrogate pairs as the characters that they are.
template <class IsKept>
std::wstring modelKept(const std::wstring& text, IsKept isKept) {
    std::wstring made;
    for (const Visible& character : visibleOf(text, false)) {
        const std::wstring units = text.substr(character.first, character.count);
        const auto code = static_cast<std::wint_t>(units[0]);
        const bool isPair = units.size() == 2;
        if (isKept(isPair ? 0x10000 + ((code & 0x3FFU) << 10U) + (static_cast<std::wint_t>(units[1]) & 0x3FFU)
                          : code)) {
            made += units;
        }
    }
    return made;
}

inline std::wstring modelLineFeeds(const std::wstring& text) {
    std::wstring made;
    for (const wchar_t c : text) {
        made += c == L'\n' && (made.empty() || made.back() != L'\r') ? L"\r\n" : std::wstring(1, c);
    }
    return made;
}

} // namespace brimtest
