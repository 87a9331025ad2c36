// BaseStringUtil: URI, Base64, XML and quote escapes.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "LocaleCharacters.h"
#include "UnfilledString.h"
#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "kernels/base64.h"
#include "kernels/escape.h"
#include "kernels/kernels.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cwchar>
#include <cwctype>
#include <mutex>
#include <type_traits>
#include <utility>

namespace {

using String = BaseStringUtil::String;

constexpr unsigned int kUtf8 = 65001;
constexpr std::size_t kBase64Line = 76;
constexpr std::size_t kBase64Piece = 1024; // groups

// Also for a value that is no hexadecimal digit; the result then is no digit either.
wchar_t hexDigit(int value) { return static_cast<wchar_t>(value < 10 ? L'0' + value : L'A' + (value - 10)); }

// The value of each hexadecimal digit, -1 for other characters.
constexpr std::array<signed char, 128> hexValues() {
    std::array<signed char, 128> values{};
    for (signed char& value : values) {
        value = -1;
    }
    for (signed char i = 0; i < 10; ++i) {
        values[static_cast<std::size_t>('0' + i)] = i;
    }
    for (signed char i = 0; i < 6; ++i) {
        values[static_cast<std::size_t>('A' + i)] = values[static_cast<std::size_t>('a' + i)] =
            static_cast<signed char>(10 + i);
    }
    return values;
}
constexpr std::array<signed char, 128> kHexValues = hexValues();

// The value of two hexadecimal digits at `p`; negative when [p, end) does not begin with two.
inline int readHexPair(const wchar_t* p, const wchar_t* end) {
    if (end - p < 2) {
        return -1;
    }
    const auto high = static_cast<std::uint32_t>(p[0]);
    const auto low = static_cast<std::uint32_t>(p[1]);
    return (high | low) < kHexValues.size() ? kHexValues[high] * 16 | kHexValues[low] : -1;
}

// A string that is made by pieces: short ones become it at once, of longer ones many at a time.
class StagedString {
public:
    static constexpr std::size_t kRoom = 1024;

    /// `expected` characters, or rather more.
    explicit StagedString(std::size_t expected) : m_expected(expected) {}

    /// Where to write up to `n` characters, kRoom at most; wrote() tells how many it were.
    wchar_t* room(std::size_t n) {
        if (n > kRoom - m_count) {
            flush();
        }
        return m_held + m_count;
    }
    void wrote(std::size_t n) { m_count += n; }
    void add(wchar_t c) {
        *room(1) = c;
        wrote(1);
    }
    void add(const String& text) {
        flush();
        m_text.append(text);
    }
    String take() {
        m_text.append(m_held, m_count);
        return std::move(m_text);
    }

private:
    void flush() {
        if (m_text.capacity() == 0) {
            m_text.reserve(std::max(m_expected, m_count));
        }
        m_text.append(m_held, m_count);
        m_count = 0;
    }

    String m_text;
    std::size_t m_expected;
    std::size_t m_count = 0;
    wchar_t m_held[kRoom];
};

// The bytes of a run of percent escapes, UTF-8 in pieces of at most 2,048 bytes.
class EscapedBytes {
public:
    explicit EscapedBytes(StagedString& out) : m_out(out) {}
    bool empty() const { return m_count == 0; }
    void add(int byte) {
        if (byte == 0) {
            return;
        }
        if (byte < 0x80 && m_count == 0) {
            m_out.add(static_cast<wchar_t>(byte));
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
            m_out.add(decoded);
            m_count = 0;
        }
    }

private:
    StagedString& m_out;
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

// What stands for a character in a URI: up to three characters.
struct UriForm {
    wchar_t text[3];
    std::size_t length;
};
UriForm uriForm(wchar_t c, bool isAlphanumeric, bool isSpace) {
    if (isAlphanumeric || (c >= 0 && c < 0x80 && kUriMarks[static_cast<std::size_t>(c)])) {
        return {{c}, 1};
    }
    if (isSpace) {
        return {{L'+'}, 1};
    }
    return {{L'%', hexDigit(static_cast<signed char>(c >> 4)), hexDigit(c & 0xF)}, 3};
}
UriForm uriForm(wchar_t c) {
    const auto code = static_cast<std::wint_t>(c);
    return uriForm(c, std::iswalnum(code) != 0, std::iswspace(code) != 0);
}

// The forms of the characters below U+0100 in the current locale; null when it has no tables.
const sup::kernels::UriPieces* uriPieces() {
    static_assert(std::extent_v<sup::kernels::UriPieces> == sup::LocaleCharacters::kLowLimit);
    struct Known {
        std::once_flag isMade;
        sup::kernels::UriPieces pieces;
    };
    static Known known[sup::LocaleCharacters::kMostLocales];
    const sup::LocaleCharacters* const characters = sup::LocaleCharacters::current();
    if (characters == nullptr) {
        return nullptr;
    }
    Known& ofLocale = known[characters->number()];
    std::call_once(ofLocale.isMade, [&] {
        for (std::uint32_t c = 0; c < sup::LocaleCharacters::kLowLimit; ++c) {
            const UriForm form =
                uriForm(static_cast<wchar_t>(c), characters->isAlphanumeric(c), characters->isSpace(c));
            auto piece = static_cast<std::uint32_t>(form.length) << 24;
            for (std::size_t i = 0; i < std::size(form.text) && i < form.length; ++i) {
                piece |= static_cast<std::uint32_t>(form.text[i]) << (8 * i);
            }
            ofLocale.pieces[c] = piece;
        }
    });
    return &ofLocale.pieces;
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
    constexpr std::size_t kStep = 256;
    const sup::kernels::UriPieces* const pieces = uriPieces();
    StagedString out(text.length() + text.length() / 4);
    for (const wchar_t* p = text.begin(); p != text.end();) {
        const std::size_t n = std::min(static_cast<std::size_t>(text.end() - p), kStep);
        wchar_t* const room = out.room(3 * n + 4);
        if (pieces != nullptr) {
            const sup::kernels::EscapeProgress done = sup::kernels::encodeUri(*pieces, p, n, room);
            out.wrote(done.written);
            p += done.read;
            if (done.read == n) {
                continue;
            }
        }
        const UriForm form = uriForm(*p++);
        std::copy(form.text, form.text + form.length, out.room(form.length));
        out.wrote(form.length);
    }
    return out.take();
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
    constexpr std::size_t kStep = 512;
    StagedString out(static_cast<std::size_t>(end - p));
    EscapedBytes escaped(out);
    while (p != end) {
        if (*p != L'%') {
            escaped.flush();
        }
        if (escaped.empty()) {
            const std::size_t n = std::min(static_cast<std::size_t>(end - p), kStep);
            const sup::kernels::EscapeProgress done = sup::kernels::decodeUri(p, n, out.room(n + 64));
            out.wrote(done.written);
            p += done.read;
            if (p == end || *p != L'%') {
                continue;
            }
        }
        ++p;
        const int byte = readHexPair(p, end);
        if (byte >= 0) {
            escaped.add(byte);
            p += 2;
            continue;
        }
        escaped.flush();
        if (end - p >= 5 && *p == L'u') {
            const int unit = readHexPair(p + 1, end) * 0x100 | readHexPair(p + 3, end);
            if (unit >= 0) {
                out.add(static_cast<wchar_t>(unit));
                p += 5;
            }
        }
    }
    escaped.flush();
    return out.take();
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
    constexpr std::size_t kStep = 128;
    const std::size_t n = text.length();
    StagedString out(n + n / 8);
    for (std::size_t i = 0; i < n; i += kStep) {
        const std::size_t count = std::min(n - i, kStep);
        out.wrote(sup::kernels::escapeXml(text.begin() + i, count, out.room(6 * count + 3)));
    }
    return out.take();
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
