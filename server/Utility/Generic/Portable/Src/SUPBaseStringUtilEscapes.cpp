// BaseStringUtil: URI, Base64, XML and quote escapes.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "Utility/Generic/Portable/SUPOS.h"

#include <algorithm>
#include <array>
#include <cwchar>
#include <cwctype>

namespace {

using String = BaseStringUtil::String;

constexpr unsigned int kUtf8 = 65001;
constexpr char base64tab[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t kBase64Line = 76;

// The 6-bit value of each character of the alphabet, -1 for all others.
constexpr std::array<signed char, 256> base64Values() {
    std::array<signed char, 256> values{};
    for (signed char& value : values) {
        value = -1;
    }
    for (signed char i = 0; i < 64; ++i) {
        values[static_cast<unsigned char>(base64tab[i])] = i;
    }
    return values;
}
constexpr std::array<signed char, 256> g_base64_chars = base64Values();

// Also for a value that is no hexadecimal digit; the result then is no digit either.
wchar_t hexDigit(int value) { return static_cast<wchar_t>(value < 10 ? L'0' + value : L'A' + (value - 10)); }

// -1 for a character that is none.
int hexValue(wchar_t c) {
    if (c >= L'0' && c <= L'9') {
        return c - L'0';
    }
    const wchar_t lower = c | 0x20;
    return lower >= L'a' && lower <= L'f' ? lower - L'a' + 10 : -1;
}

// The value of `n` hexadecimal digits at `p`; -1 when [p, end) does not begin with as many.
int readHex(const wchar_t* p, const wchar_t* end, int n) {
    int value = 0;
    for (int i = 0; i < n; ++i) {
        const int digit = p + i < end ? hexValue(p[i]) : -1;
        if (digit < 0) {
            return -1;
        }
        value = value * 16 + digit;
    }
    return value;
}

// The bytes of a run of percent escapes, UTF-8 in pieces of at most 2,048 bytes.
class EscapedBytes {
public:
    explicit EscapedBytes(String& out) : m_out(out) {}
    void add(int byte) {
        if (byte == 0) {
            return;
        }
        if (byte < 0x80 && m_count == 0) {
            m_out.push_back(static_cast<wchar_t>(byte));
            return;
        }
        m_bytes[m_count++] = static_cast<char>(byte);
        if (m_count == sizeof(m_bytes)) {
            flush();
        }
    }
    void flush() {
        if (m_count != 0) {
            String decoded;
            BaseStringUtil::StdStringToString(m_bytes, m_count, decoded, kUtf8);
            m_out.append(decoded);
            m_count = 0;
        }
    }

private:
    String& m_out;
    char m_bytes[2048];
    unsigned int m_count = 0;
};

// What an XML character is replaced by; null for others.
const wchar_t* xmlEntityOf(wchar_t c) {
    switch (c) {
    case L'"':
        return L"&quot;";
    case L'\'':
        return L"&apos;";
    case L'&':
        return L"&amp;";
    case L'<':
        return L"&lt;";
    case L'>':
        return L"&gt;";
    default:
        return nullptr;
    }
}

String encodeBase64(const unsigned char* data, std::size_t size, bool breakLines) {
    const std::size_t characters = (size + 2) / 3 * 4;
    const std::size_t breaks = breakLines && characters != 0 ? (characters - 1) / kBase64Line : 0;
    String out(characters + 2 * breaks, L'=');
    wchar_t* to = out.mutable_begin();
    std::size_t onLine = 0;
    for (std::size_t i = 0; i < size; i += 3) {
        if (breakLines && onLine == kBase64Line) {
            *to++ = L'\r';
            *to++ = L'\n';
            onLine = 0;
        }
        const std::size_t n = std::min<std::size_t>(size - i, 3);
        const unsigned int bits = static_cast<unsigned int>(data[i]) << 16 |
                                  (n > 1 ? static_cast<unsigned int>(data[i + 1]) << 8 : 0) |
                                  (n > 2 ? static_cast<unsigned int>(data[i + 2]) : 0);
        for (std::size_t k = 0; k <= n; ++k) { // what is left of the four stays "="
            to[k] = base64tab[bits >> (18 - 6 * k) & 0x3F];
        }
        to += 4;
        onLine += 4;
    }
    return out;
}

} // namespace

String BaseStringUtil::UriEncode(const String& text) {
    String out;
    out.reserve(text.length());
    for (const wchar_t c : text) {
        const auto code = static_cast<std::wint_t>(c);
        if (std::iswalnum(code) != 0 || (c != 0 && std::wcschr(L"-.!'()*_~", c) != nullptr)) {
            out.push_back(c);
        } else if (std::iswspace(code) != 0) {
            out.push_back(L'+');
        } else {
            out.push_back(L'%');
            out.push_back(hexDigit(static_cast<signed char>(c >> 4)));
            out.push_back(hexDigit(c & 0xF));
        }
    }
    return out;
}

String BaseStringUtil::UriDecode(const String& text, bool requireMarker) {
    static constexpr wchar_t kMarker[] = L"URI-ENCODED<";
    constexpr std::size_t kMarkerLength = 12;
    const bool isMarked =
        text.length() >= kMarkerLength && std::wmemcmp(text.begin(), kMarker, kMarkerLength) == 0;
    if (requireMarker && !isMarked) {
        return text;
    }
    const wchar_t* p = text.begin() + (isMarked ? kMarkerLength : 0);
    const wchar_t* const end = std::find(p, text.end(), L'>');
    String out;
    EscapedBytes escaped(out);
    while (p != end) {
        const wchar_t c = *p++;
        if (c == L'%') {
            const int byte = readHex(p, end, 2);
            if (byte >= 0) {
                escaped.add(byte);
                p += 2;
                continue;
            }
            escaped.flush();
            const int unit = p != end && *p == L'u' ? readHex(p + 1, end, 4) : -1;
            if (unit >= 0) {
                out.push_back(static_cast<wchar_t>(unit));
                p += 5;
            }
        } else {
            escaped.flush();
            out.push_back(c == L'+' ? L' ' : c);
        }
    }
    escaped.flush();
    return out;
}

void BaseStringUtil::Base64Decode(unsigned char* in, int length, std::vector<unsigned char>& out) {
    out.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    std::size_t n = 0;
    unsigned int bits = 0;
    int held = 0;
    for (int i = 0; i < length && g_base64_chars[in[i]] >= 0; ++i) {
        bits = bits << 6 | static_cast<unsigned int>(g_base64_chars[in[i]]);
        held += 6;
        if (held >= 8) {
            held -= 8;
            out[n++] = static_cast<unsigned char>(bits >> held);
        }
    }
    out.resize(n);
}

int BaseStringUtil::EncodeBase64(const String& text, String& out) {
    const NarrowString bytes = StringToStdString(text.c_str(), kUtf8);
    if (bytes.empty()) {
        return -1;
    }
    out = encodeBase64(reinterpret_cast<const unsigned char*>(bytes.begin()), bytes.length(), false);
    return static_cast<int>(out.length());
}

String BaseStringUtil::EncodeBase64(const std::vector<unsigned char>& data, bool breakLines) {
    return encodeBase64(data.data(), data.size(), breakLines);
}

String BaseStringUtil::EscapeXMLChars(const String& text) {
    String out;
    const wchar_t* run = text.begin();
    for (const wchar_t* p = run; p != text.end(); ++p) {
        if (const wchar_t* const entity = xmlEntityOf(*p)) {
            out.append(run, p).append(entity);
            run = p + 1;
        }
    }
    if (out.empty() && run == text.begin()) {
        return text;
    }
    return out.append(run, text.end());
}

String BaseStringUtil::EscapeCharacter(const String& text, wchar_t escape, wchar_t special) {
    String out;
    out.reserve(text.length());
    for (const wchar_t c : text) {
        if (c == escape || c == special) {
            out.push_back(escape);
        }
        out.push_back(c);
    }
    return out;
}

void BaseStringUtil::QuoteAround(String& text, const wchar_t* quote) {
    const String mark(quote);
    String doubled(mark);
    doubled.append(mark);
    String quoted(mark);
    quoted.append(ReplacePatternInString(text, mark, doubled)).append(mark);
    text = std::move(quoted);
}
