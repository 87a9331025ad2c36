// BaseStringUtil: URI, Base64, XML and quote escapes.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "CharacterSet.h"
#include "LocaleCharacters.h"
#include "UnfilledString.h"
#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "kernels/base64.h"
#include "kernels/kernels.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cwchar>
#include <cwctype>
#include <iterator>

namespace {

using String = BaseStringUtil::String;

constexpr unsigned int kUtf8 = 65001;
constexpr std::size_t kBase64Line = 76;
constexpr std::size_t kBase64Piece = 1024; // groups

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

// Collects characters, and appends them to a string many at a time.
class Appender {
public:
    // A few characters, copied as a whole.
    struct Piece {
        wchar_t text[8];
        std::size_t length;
    };

    explicit Appender(String& out) : m_out(out) {}
    void add(wchar_t c) {
        makeRoom();
        m_held[m_count++] = c;
    }
    void add(const Piece& piece) {
        makeRoom();
        std::copy(std::begin(piece.text), std::end(piece.text), m_held + m_count);
        m_count += piece.length;
    }
    void add(const wchar_t* first, std::size_t n) {
        if (n > kShort) {
            flush();
            m_out.append(first, n);
            return;
        }
        for (; n != 0; --n) {
            add(*first++);
        }
    }
    void flush() {
        m_out.append(m_held, m_count);
        m_count = 0;
    }

private:
    static constexpr std::size_t kShort = 16;
    static constexpr std::size_t kRoom = 256;

    void makeRoom() {
        if (m_count > kRoom - std::size(Piece().text)) {
            flush();
        }
    }

    String& m_out;
    std::size_t m_count = 0;
    wchar_t m_held[kRoom];
};

// The bytes of a run of percent escapes, UTF-8 in pieces of at most 2,048 bytes.
class EscapedBytes {
public:
    EscapedBytes(String& out, Appender& appender) : m_out(out), m_appender(appender) {}
    void add(int byte) {
        if (byte == 0) {
            return;
        }
        if (byte < 0x80 && m_count == 0) {
            m_appender.add(static_cast<wchar_t>(byte));
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
            m_appender.flush();
            m_out.append(decoded);
            m_count = 0;
        }
    }

private:
    String& m_out;
    Appender& m_appender;
    char m_bytes[2048];
    unsigned int m_count = 0;
};

// The marks that stay as they are.
constexpr std::array<bool, 128> uriMarks() {
    std::array<bool, 128> marks{};
    for (const char c : {'-', '.', '!', '\'', '(', ')', '*', '_', '~'}) {
        marks[static_cast<unsigned char>(c)] = true;
    }
    return marks;
}
constexpr std::array<bool, 128> kUriMarks = uriMarks();

enum class UriForm { kept, blank, escaped };

// The forms of characters in the current locale.
class UriForms {
public:
    UriForm of(wchar_t c) const {
        const auto code = static_cast<std::uint32_t>(c);
        if (m_characters != nullptr && code < sup::LocaleCharacters::kLowLimit) {
            return form(c, m_characters->isAlphanumeric(code), m_characters->isSpace(code));
        }
        return form(c, std::iswalnum(code) != 0, std::iswspace(code) != 0);
    }

private:
    static UriForm form(wchar_t c, bool isAlphanumeric, bool isSpace) {
        if (isAlphanumeric || (c >= 0 && c < 0x80 && kUriMarks[static_cast<std::size_t>(c)])) {
            return UriForm::kept;
        }
        return isSpace ? UriForm::blank : UriForm::escaped;
    }

    const sup::LocaleCharacters* m_characters = sup::LocaleCharacters::current();
};

// What an XML character is replaced by.
using Entity = Appender::Piece;
const Entity& xmlEntityOf(wchar_t c) {
    static constexpr Entity kQuote{L"&quot;", 6};
    static constexpr Entity kApostrophe{L"&apos;", 6};
    static constexpr Entity kAmpersand{L"&amp;", 5};
    static constexpr Entity kLess{L"&lt;", 4};
    static constexpr Entity kGreater{L"&gt;", 4};
    switch (c) {
    case L'"':
        return kQuote;
    case L'\'':
        return kApostrophe;
    case L'&':
        return kAmpersand;
    case L'<':
        return kLess;
    default:
        return kGreater;
    }
}

// The Base64 form of `size` bytes; returns its end.
wchar_t* writeBase64(const unsigned char* data, std::size_t size, wchar_t* to) {
    char text[4 * kBase64Piece];
    while (size >= 3) {
        const std::size_t groups = std::min(size / 3, kBase64Piece);
        sup::kernels::encodeBase64(data, groups, text);
        sup::kernels::kernels().widen(text, 4 * groups, to);
        data += 3 * groups;
        size -= 3 * groups;
        to += 4 * groups;
    }
    if (size != 0) {
        const unsigned char last[] = {data[0], size > 1 ? data[1] : static_cast<unsigned char>(0), 0};
        sup::kernels::encodeBase64(last, 1, text);
        to = std::copy(text, text + size + 1, to);
        to = std::fill_n(to, 3 - size, L'=');
    }
    return to;
}

String encodeBase64(const unsigned char* data, std::size_t size, bool breakLines) {
    constexpr std::size_t kBytesOfLine = kBase64Line / 4 * 3;
    const std::size_t characters = (size + 2) / 3 * 4;
    const std::size_t breaks = breakLines && size != 0 ? (characters - 1) / kBase64Line : 0;
    sup::UnfilledString out(characters + 2 * breaks);
    wchar_t* to = out.begin();
    for (std::size_t line = 0; line < breaks; ++line, data += kBytesOfLine, size -= kBytesOfLine) {
        to = writeBase64(data, kBytesOfLine, to);
        *to++ = L'\r';
        *to++ = L'\n';
    }
    return out.takeTo(writeBase64(data, size, to));
}

} // namespace

String BaseStringUtil::UriEncode(const String& text) {
    String out;
    out.reserve(text.length());
    Appender appender(out);
    const UriForms forms;
    for (const wchar_t c : text) {
        const UriForm form = forms.of(c);
        if (form != UriForm::escaped) {
            appender.add(form == UriForm::blank ? L'+' : c);
            continue;
        }
        appender.add(L'%');
        appender.add(hexDigit(static_cast<signed char>(c >> 4)));
        appender.add(hexDigit(c & 0xF));
    }
    appender.flush();
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
    const auto left = static_cast<std::size_t>(text.end() - p);
    const wchar_t* const mark = left == 0 ? nullptr : std::wmemchr(p, L'>', left);
    const wchar_t* const end = mark == nullptr ? text.end() : mark;
    String out;
    Appender appender(out);
    EscapedBytes escaped(out, appender);
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
                appender.add(static_cast<wchar_t>(unit));
                p += 5;
            }
        } else {
            escaped.flush();
            appender.add(c == L'+' ? L' ' : c);
        }
    }
    escaped.flush();
    appender.flush();
    return out;
}

// By pieces that stay in the nearest cache: a vector would fill its memory before the bytes come.
void BaseStringUtil::Base64Decode(unsigned char* in, int length, std::vector<unsigned char>& out) {
    unsigned char bytes[3 * kBase64Piece];
    std::size_t left = length < 0 ? 0 : static_cast<std::size_t>(length);
    out.clear();
    out.reserve(left / 4 * 3 + 2);
    for (std::size_t groups = kBase64Piece; groups == kBase64Piece;) {
        groups = sup::kernels::decodeBase64(in, std::min(left / 4, kBase64Piece), bytes);
        out.insert(out.end(), bytes, bytes + 3 * groups);
        in += 4 * groups;
        left -= 4 * groups;
    }
    unsigned int bits = 0;
    int held = 0;
    for (; left != 0 && sup::kernels::g_base64_chars[*in] >= 0; --left, ++in) {
        bits = bits << 6 | static_cast<unsigned int>(sup::kernels::g_base64_chars[*in]);
        held += 6;
        if (held >= 8) {
            held -= 8;
            out.push_back(static_cast<unsigned char>(bits >> held));
        }
    }
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
    static constexpr wchar_t kSpecial[] = L"\"'&<>";
    const sup::CharacterSet special(std::begin(kSpecial), std::end(kSpecial) - 1);
    const wchar_t* const first = text.begin();
    const std::size_t n = text.length();
    sup::SetPlaces places(special, first, n);
    std::size_t at = places.next();
    if (at == n) {
        return text;
    }
    String out;
    out.reserve(n);
    Appender appender(out);
    std::size_t copied = 0;
    for (; at != n; at = places.next()) {
        appender.add(first + copied, at - copied);
        appender.add(xmlEntityOf(first[at]));
        copied = at + 1;
    }
    appender.flush();
    return out.append(first + copied, n - copied);
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
