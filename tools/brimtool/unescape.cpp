#include "unescape.h"

#include "Utf8Validator.h"
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "escape.h"
#include "locale_text.h"
#include "texts.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cwctype>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace brimtool {

namespace {

constexpr const char* kFooter =
    R"(Each TEXT gives a line. Without any, the lines of the input are the texts; for Base64 the input is one text,
and the output is its bytes, with nothing added.

URI: a + is a blank, %XX a byte of UTF-8, %uXXXX a UTF-16 unit. The text may begin with URI-ENCODED<, and
ends before the first >. XML: the entities of the five characters " ' & < > and numeric references.
Base64: white space between the characters does not matter.

What is no escape is told with its place and makes the exit status 1. URI: a % that begins none is dropped,
bytes that are no UTF-8 become U+FFFD or nothing. XML: it stays as it is. Base64: the text ends there.

Examples:
  brimtool unescape --uri 'a%20b+c' '%u20AC'
  brimtool unescape --xml '&lt;b&gt; &#8364;'
  brimtool unescape --base64 < picture.txt > picture.png

Exit status: 0; 1 for a text with something that is no escape, or whose characters the locale lacks; 2 for
wrong usage and for files that cannot be read or written.)";

// Something in a text that is no escape.
struct Fault {
    std::size_t at;
    std::string description;
};

struct Unescaped {
    std::string bytes;
    std::optional<Fault> fault; // the first
};

using WideView = std::wstring_view;

WideView viewOf(const BrimString& text) { return {text.begin(), text.length()}; }

bool isHex(WideView digits, std::size_t count) {
    return digits.size() >= count &&
           std::all_of(digits.begin(), digits.begin() + static_cast<std::ptrdiff_t>(count), [](wchar_t c) {
               return c < 0x80 && std::iswxdigit(static_cast<std::wint_t>(c)) != 0;
           });
}

// `digits` are so many hexadecimal ones.
unsigned int hexValue(WideView digits) {
    const std::string narrow(digits.begin(), digits.end());
    unsigned int value = 0;
    std::from_chars(narrow.data(), narrow.data() + narrow.size(), value, 16);
    return value;
}

// `at` counts units of the text; messages count its bytes.
std::optional<Fault> inBytes(std::optional<Fault> fault, const BrimString& text, LocaleText& locale) {
    if (fault) {
        fault->at = locale.narrow(BrimString(text.begin(), fault->at)).size();
    }
    return fault;
}

// ---- URI ----

// The library decodes every text, and drops or replaces what is no escape.
std::optional<Fault> uriFault(WideView text) {
    std::string run; // the bytes of escapes in a row
    std::size_t runStart = 0;
    const std::size_t end = std::min(text.find(L'>'), text.size());
    for (std::size_t i = 0; i <= end; ++i) {
        const WideView rest = text.substr(i, end - i);
        const bool isPercent = !rest.empty() && rest.front() == L'%';
        if (isPercent && isHex(rest.substr(1), 2)) {
            runStart = run.empty() ? i : runStart;
            run += static_cast<char>(hexValue(rest.substr(1, 2)));
            i += 2;
            continue;
        }
        if (sup::transcodeimpl::Utf8Validator::scan(run.data(), run.size()).rest != 0) {
            return Fault{runStart, "the escaped bytes are no UTF-8"};
        }
        run.clear();
        if (isPercent && !(rest.substr(1, 1) == L"u" && isHex(rest.substr(2), 4))) {
            return Fault{i, "a % that begins no escape"};
        }
    }
    return std::nullopt;
}

Unescaped uriDecoded(std::string_view bytes, LocaleText& locale) {
    const BrimString text = locale.wide(bytes);
    return {locale.narrow(BaseStringUtil::UriDecode(text, false)),
            inBytes(uriFault(viewOf(text)), text, locale)};
}

// ---- XML ----

// What may stand in an XML 1.0 document.
bool isXmlCharacter(unsigned int c) {
    return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) || (c >= 0xE000 && c <= 0xFFFD) ||
           (c >= 0x10000 && c <= 0x10FFFF);
}

constexpr std::size_t kLongestReference = 32; // leading zeros included

// The character that a reference stands for, by what is between its & and ; or nothing.
std::optional<unsigned int> referredBy(WideView name) {
    struct Entity {
        WideView name;
        char character;
    };
    static constexpr Entity kEntities[] = {
        {L"quot", '"'}, {L"apos", '\''}, {L"amp", '&'}, {L"lt", '<'}, {L"gt", '>'}};
    for (const Entity& entity : kEntities) {
        if (entity.name == name) {
            return static_cast<unsigned char>(entity.character);
        }
    }
    if (name.empty() || name.front() != L'#') {
        return std::nullopt;
    }
    const bool isHexadecimal = name.substr(1, 1) == L"x";
    std::string digits;
    for (const wchar_t c : name.substr(isHexadecimal ? 2 : 1)) {
        digits += c < 0x80 ? static_cast<char>(c) : '?';
    }
    unsigned int value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value, isHexadecimal ? 16 : 10);
    const bool isNumber = !digits.empty() && stop == end && error == std::errc();
    return isNumber && isXmlCharacter(value) ? std::optional(value) : std::nullopt;
}

void appendCharacter(BrimString& text, unsigned int c) {
    if (c > 0xFFFF) {
        text.push_back(static_cast<wchar_t>(0xD7C0U + (c >> 10)));
        c = 0xDC00U | (c & 0x3FFU);
    }
    text.push_back(static_cast<wchar_t>(c));
}

Unescaped xmlUnescaped(std::string_view bytes, LocaleText& locale) {
    const BrimString text = locale.wide(bytes);
    const WideView view = viewOf(text);
    BrimString out;
    std::optional<Fault> fault;
    for (std::size_t at = 0; at != view.size();) {
        if (view[at] != L'&') {
            const std::size_t next = std::min(view.find(L'&', at), view.size());
            out.append(view.data() + at, next - at);
            at = next;
            continue;
        }
        const WideView name = view.substr(at + 1, kLongestReference);
        const std::size_t length = name.find(L';');
        const std::optional<unsigned int> character =
            length == WideView::npos ? std::nullopt : referredBy(name.substr(0, length));
        if (character) {
            appendCharacter(out, *character);
            at += length + 2;
        } else {
            if (!fault) {
                fault = Fault{at, "an & that begins no reference known here"};
            }
            out.push_back(view[at++]);
        }
    }
    return {locale.narrow(out), inBytes(fault, text, locale)};
}

// ---- Base64 ----

bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

bool isBase64(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

// The library's decoder ends at the first thing that is no Base64, and says nothing.
std::optional<Fault> base64Fault(std::string_view text) {
    std::size_t characters = 0;
    std::size_t padding = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (isSpace(text[i])) {
            continue;
        }
        if (text[i] == '=') {
            ++padding;
        } else if (isBase64(text[i]) && padding == 0) {
            ++characters;
        } else {
            return Fault{i, padding == 0 ? "not a character of Base64" : "a character after the padding"};
        }
    }
    const bool isPadded = padding == 0 || (padding <= 2 && (characters + padding) % 4 == 0);
    return characters % 4 != 1 && isPadded
               ? std::nullopt
               : std::optional(Fault{text.size(), "the Base64 text has a wrong length"});
}

Unescaped base64Decoded(std::string_view text) {
    std::vector<unsigned char> characters;
    std::copy_if(text.begin(), text.end(), std::back_inserter(characters),
                 [](char c) { return !isSpace(c); });
    std::vector<unsigned char> decoded;
    BaseStringUtil::Base64Decode(characters.data(), static_cast<int>(characters.size()), decoded);
    return {std::string(decoded.begin(), decoded.end()), base64Fault(text)};
}

// ---- the subcommand ----

ExitStatus tellFault(const std::string& place, const std::optional<Fault>& fault) {
    if (fault) {
        std::fprintf(stderr, "brimtool: %s: byte %zu: %s\n", place.c_str(), fault->at,
                     fault->description.c_str());
    }
    return fault ? kNotConverted : kDone;
}

ExitStatus unescape(const EscapeOptions& options) {
    TextOutput output;
    if (options.base64 && options.texts.empty()) {
        const Unescaped result = base64Decoded(readWhole(options.input));
        output.put(result.bytes, false);
        output.finish();
        return tellFault(InputFile::displayNameOf(options.input), result.fault);
    }
    ExitStatus status = kDone;
    LocaleText locale;
    forEachText(options.texts, options.input, [&](const Text& text) {
        try {
            const Unescaped result = options.base64 ? base64Decoded(text.bytes)
                                     : options.uri  ? uriDecoded(text.bytes, locale)
                                                    : xmlUnescaped(text.bytes, locale);
            output.put(result.bytes, text.endsLine);
            status = std::max(status, tellFault(text.place(), result.fault));
            return true;
        } catch (const TextError& error) {
            std::fprintf(stderr, "brimtool: %s: %s\n", text.place().c_str(), error.what());
            status = kNotConverted;
            return false;
        }
    });
    output.finish();
    return status;
}

} // namespace

Subcommand addUnescape(CLI::App& app) {
    const auto options = std::make_shared<EscapeOptions>();
    CLI::App& command = *app.add_subcommand("unescape", "Undo the escapes of URIs or XML, or Base64.");
    addEscapeOptions(command, *options);
    command.footer(kFooter);
    return {&command, [options] { return unescape(*options); }};
}

} // namespace brimtool
