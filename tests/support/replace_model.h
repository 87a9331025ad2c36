// A naive replacer, and the words that it knows.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cwctype>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

namespace brimtest {

inline std::wstring mapped(std::wstring text, std::wint_t (*map)(std::wint_t)) {
    for (wchar_t& c : text) {
        c = static_cast<wchar_t>(map(static_cast<std::wint_t>(c)));
    }
    return text;
}

inline bool separates(wchar_t c) {
    constexpr std::pair<wchar_t, wchar_t> kRanges[] = {
        {0x21, 0x22}, {0x26, 0x2F}, {0x3A, 0x40}, {0x5B, 0x5E}, {0x7B, 0x7E}};
    return std::iswspace(static_cast<std::wint_t>(c)) != 0 ||
           std::any_of(std::begin(kRanges), std::end(kRanges),
                       [c](const auto& range) { return c >= range.first && c <= range.second; });
}

inline bool encloses(std::wstring_view text) {
    if (text.size() < 2) {
        return false;
    }
    const std::wstring ends = {text.front(), text.back()};
    return ends == L"\"\"" || ends == L"''" || ends == L"()" || ends == L"<>" || ends == L"[]" ||
           ends == L"{}";
}

struct Replaced {
    std::wstring text;
    bool any = false;
};

inline Replaced modelReplace(const std::wstring& text, const std::wstring& from, const std::wstring& to,
                             bool caseSensitive, bool wholeWord) {
    const bool same = caseSensitive ? from == to : mapped(from, std::towlower) == mapped(to, std::towlower);
    if (same || from.empty()) {
        return {text, false};
    }
    const std::wstring searched = caseSensitive ? text : mapped(text, std::towupper);
    const std::wstring sought = caseSensitive ? from : mapped(from, std::towupper);
    Replaced result;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t after = at + from.size();
        const bool hit = searched.compare(at, sought.size(), sought) == 0;
        const bool word =
            (at == 0 || separates(text[at - 1])) && (after >= text.size() || separates(text[after]));
        if (hit && (!wholeWord || encloses(from) || word)) {
            result.text += to;
            result.any = true;
            at = after;
        } else {
            result.text += text[at++];
        }
    }
    // The plain exact way tells by the texts.
    result.any = caseSensitive && !wholeWord ? result.text != text : result.any;
    return result;
}

} // namespace brimtest
