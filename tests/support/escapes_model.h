// URI, Base64 and XML escapes, each as its description reads.
#pragma once

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "wide_texts.h"

#include <cstddef>
#include <cstdint>
#include <cwctype>
#include <string>
#include <string_view>
#include <vector>

namespace brimtest {

using Bytes = std::vector<unsigned char>;

inline constexpr std::string_view kBase64 =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

inline wchar_t hexDigit(int value) {
    return static_cast<wchar_t>(value < 10 ? L'0' + value : L'A' + value - 10);
}

inline std::wstring modelUriEncode(const std::wstring& text) {
    std::wstring out;
    for (const wchar_t c : text) {
        const auto code = static_cast<std::wint_t>(c);
        if (std::iswalnum(code) != 0 ||
            (c != 0 && std::wstring(L"-.!'()*_~").find(c) != std::wstring::npos)) {
            out += c;
        } else if (std::iswspace(code) != 0) {
            out += L'+';
        } else {
            out +=
                {L'%', hexDigit(static_cast<std::int8_t>(code >> 4)), hexDigit(static_cast<int>(code % 16))};
        }
    }
    return out;
}

inline bool isHex(const std::wstring& text, std::size_t at, std::size_t n) {
    return text.size() >= at + n &&
           text.substr(at, n).find_first_not_of(L"0123456789abcdefABCDEF") == std::wstring::npos;
}

inline std::wstring modelUriDecode(std::wstring text, bool requireMarker) {
    const std::wstring marker = L"URI-ENCODED<";
    const bool isMarked = text.substr(0, marker.size()) == marker;
    if (requireMarker && !isMarked) {
        return text;
    }
    text = isMarked ? text.substr(marker.size()) : text;
    text = text.substr(0, text.find(L'>'));
    std::wstring out;
    std::string run;
    const auto convert = [&] {
        BrimString wide;
        if (!run.empty()) {
            BaseStringUtil::StdStringToString(run.data(), static_cast<unsigned int>(run.size()), wide, 65001);
        }
        out += plain(wide);
        run.clear();
    };
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] == L'%' && isHex(text, at + 1, 2)) {
            const int byte = std::stoi(text.substr(at + 1, 2), nullptr, 16);
            at += 3;
            if (byte != 0 && byte < 0x80 && run.empty()) {
                out += static_cast<wchar_t>(byte);
            } else if (byte != 0) {
                run += static_cast<char>(byte);
            }
            if (run.size() == 2048) {
                convert();
            }
            continue;
        }
        convert();
        if (text[at] == L'%' && text.substr(at + 1, 1) == L"u" && isHex(text, at + 2, 4)) {
            out += static_cast<wchar_t>(std::stoi(text.substr(at + 2, 4), nullptr, 16));
            at += 6;
        } else if (text[at] == L'%') {
            ++at;
        } else {
            out += text[at] == L'+' ? L' ' : text[at];
            ++at;
        }
    }
    convert();
    return out;
}

inline std::wstring modelBase64(const Bytes& bytes, bool breakLines) {
    std::string bits;
    for (const unsigned char byte : bytes) {
        for (int bit = 7; bit >= 0; --bit) {
            bits += (byte >> bit & 1) != 0 ? '1' : '0';
        }
    }
    bits.resize((bits.size() + 5) / 6 * 6, '0');
    std::wstring out;
    for (std::size_t at = 0; at < bits.size(); at += 6) {
        if (breakLines && at != 0 && at / 6 % 76 == 0) {
            out += L"\r\n";
        }
        out += static_cast<wchar_t>(
            kBase64[static_cast<std::size_t>(std::stoi(bits.substr(at, 6), nullptr, 2))]);
    }
    for (std::size_t quads = bits.size() / 6; quads % 4 != 0; ++quads) {
        out += L'=';
    }
    return out;
}

inline Bytes modelBase64Decode(const Bytes& text) {
    Bytes out;
    std::string bits;
    for (const unsigned char c : text) {
        const std::size_t value = kBase64.find(static_cast<char>(c));
        if (value == std::string_view::npos) {
            break;
        }
        for (int bit = 5; bit >= 0; --bit) {
            bits += (value >> bit & 1) != 0 ? '1' : '0';
        }
    }
    for (std::size_t at = 0; at + 8 <= bits.size(); at += 8) {
        out.push_back(static_cast<unsigned char>(std::stoi(bits.substr(at, 8), nullptr, 2)));
    }
    return out;
}

inline std::wstring modelEscapeXml(const std::wstring& text) {
    std::wstring escaped;
    for (const wchar_t c : text) {
        escaped += c == L'"'    ? L"&quot;"
                   : c == L'\'' ? L"&apos;"
                   : c == L'&'  ? L"&amp;"
                   : c == L'<'  ? L"&lt;"
                   : c == L'>'  ? L"&gt;"
                                : std::wstring(1, c);
    }
    return escaped;
}

} // namespace brimtest
