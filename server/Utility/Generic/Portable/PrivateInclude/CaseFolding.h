// Case folding of wide characters in the current locale, without a call per ASCII character.
//
// ASCII letters fold among themselves in every locale but the Turkic ones, where capital I has another small
// letter. One look at the locale tells; it is taken anew for every text, since a host may change its locale.
#pragma once

#include <cwctype>

namespace sup {

class LowerCaseFold {
public:
    wchar_t operator()(wchar_t c) const noexcept {
        if (m_plainAscii && static_cast<unsigned int>(c) < 0x80) {
            return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c + (L'a' - L'A')) : c;
        }
        return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
    }

private:
    bool m_plainAscii = std::towlower(L'I') == L'i';
};

class UpperCaseFold {
public:
    wchar_t operator()(wchar_t c) const noexcept {
        if (m_plainAscii && static_cast<unsigned int>(c) < 0x80) {
            return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - (L'a' - L'A')) : c;
        }
        return static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(c)));
    }

private:
    bool m_plainAscii = std::towupper(L'i') == L'I';
};

} // namespace sup
