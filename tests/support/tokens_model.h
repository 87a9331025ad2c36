// What the tokenisers give, next to naive ones.
#pragma once

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "wide_texts.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace brimtest {

using Texts = std::vector<std::wstring>;

// What a vector holds that a function leaves untouched.
inline const BrimStringVector& marked() {
    static const BrimStringVector vector = {BrimString(L"before")};
    return vector;
}

inline Texts tokenized(std::wstring_view text, std::wstring_view delimiters, bool returnDelimiters,
                       bool keepEmptyTokens) {
    BrimStringVector out = marked();
    BaseStringUtil::Tokenize(brim(text), brim(delimiters), out, returnDelimiters, keepEmptyTokens);
    return plain(out);
}

inline Texts tokenizedWithEscape(std::wstring_view text, wchar_t delimiter, wchar_t escape, bool keepEscape) {
    BrimStringVector out = marked();
    BaseStringUtil::TokenizeWithEscapeExt(brim(text), delimiter, escape, keepEscape, out);
    return plain(out);
}

inline Texts modelTokens(const std::wstring& text, const std::wstring& delimiters, bool returnDelimiters,
                         bool keepEmptyTokens) {
    if (text.empty() || delimiters.empty()) {
        return {L"before"};
    }
    Texts out;
    long last = -1;
    const auto token = [&](std::size_t end) {
        const auto first = static_cast<std::size_t>(last + 1);
        return text.substr(first, end - first);
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (delimiters.find(text[i]) == std::wstring::npos) {
            continue;
        }
        if (!token(i).empty()) {
            out.push_back(token(i));
        } else if (keepEmptyTokens) {
            out.emplace_back();
        }
        if (returnDelimiters) {
            out.emplace_back(1, text[i]);
        }
        last = static_cast<long>(i);
    }
    if (!token(text.size()).empty()) {
        out.push_back(token(text.size()));
    }
    return out;
}

inline Texts modelEscapedTokens(const std::wstring& text, wchar_t delimiter, wchar_t escape,
                                bool keepEscape) {
    if (text.empty()) {
        return {L"before"};
    }
    Texts out;
    std::wstring token;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == escape) {
            if (++i < text.size()) {
                token += keepEscape && text[i] != delimiter ? std::wstring(1, escape) : std::wstring();
                token += text[i];
            }
        } else if (text[i] == delimiter) {
            out.push_back(token);
            token.clear();
        } else {
            token += text[i];
        }
    }
    if (!token.empty()) {
        out.push_back(token);
    }
    return out;
}

} // namespace brimtest
