#include "escape.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "locale_text.h"
#include "texts.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cwctype>
#include <memory>
#include <string_view>

namespace brimtool {

namespace {

constexpr const char* kFooter =
    R"(Each TEXT gives a line. Without any, the lines of the input are the texts; for Base64 the input is one text,
of any bytes, and nothing is added to its code.

URI: letters and digits, of the locale's whole alphabet, and - . ! ' ( ) * _ ~ stay, white space becomes +,
other characters a % and two hexadecimal digits. There is no such escape for characters above U+00FF.
XML: the characters " ' & < and > become entities.

Examples:
  brimtool escape --uri 'b&c' '50%'          # b%26c and 50%25
  brimtool escape --xml < notes.txt > notes.xml.txt
  brimtool escape --base64 --input picture.png

Exit status: 0; 1 when a text is malformed or has no escape, which ends the work; 2 for wrong usage and for
files that cannot be read or written.)";

struct Options : EscapeOptions {
    bool wrap = false;
};

std::string uriEncoded(std::string_view bytes, LocaleText& locale) {
    constexpr wchar_t kLastEscapable = 0xFF;
    const BrimString text = locale.wide(bytes);
    for (const wchar_t& c : text) {
        const auto code = static_cast<std::wint_t>(c);
        if (c > kLastEscapable && std::iswalnum(code) == 0 && std::iswspace(code) == 0) {
            const bool isPair = (code & ~0x3FFU) == 0xD800U; // with its other half: the text is well formed
            throw TextError(codePointText(&c, isPair ? 2 : 1) + " has no URI escape");
        }
    }
    return locale.narrow(BaseStringUtil::UriEncode(text));
}

std::string xmlEscaped(std::string_view bytes, LocaleText& locale) {
    return locale.narrow(BaseStringUtil::EscapeXMLChars(locale.wide(bytes)));
}

std::string base64Encoded(std::string_view bytes, bool wrap) {
    const BrimString code =
        BaseStringUtil::EncodeBase64(std::vector<unsigned char>(bytes.begin(), bytes.end()), wrap);
    return std::string(code.begin(), code.end());
}

ExitStatus escape(const Options& options) {
    TextOutput output;
    if (options.base64 && options.texts.empty()) {
        output.put(base64Encoded(readWhole(options.input), options.wrap), false);
        output.finish();
        return kDone;
    }
    ExitStatus status = kDone;
    LocaleText locale;
    forEachText(options.texts, options.input, [&](const Text& text) {
        try {
            output.put(options.base64 ? base64Encoded(text.bytes, options.wrap)
                       : options.uri  ? uriEncoded(text.bytes, locale)
                                      : xmlEscaped(text.bytes, locale),
                       text.endsLine);
        } catch (const TextError& error) {
            std::fprintf(stderr, "brimtool: %s: %s\n", text.place().c_str(), error.what());
            status = kNotConverted;
        }
        return status == kDone;
    });
    output.finish();
    return status;
}

} // namespace

void addEscapeOptions(CLI::App& command, EscapeOptions& options) {
    CLI::App& kinds = *command.add_option_group("Escape");
    kinds.add_flag("--uri", options.uri, "Percent escapes of URIs");
    kinds.add_flag("--xml", options.xml, "Entities of XML");
    kinds.add_flag("--base64", options.base64, "Base64 (RFC 4648)");
    kinds.require_option(1);
    CLI::Option* const texts =
        addTexts(command, "TEXT", options.texts, "Texts; without any, the input")->type_name("");
    addText(command, "-i,--input", options.input, "The input; - is standard input, the default")
        ->type_name("FILE")
        ->excludes(texts);
}

Subcommand addEscape(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App& command = *app.add_subcommand("escape", "Escape texts for URIs or XML, or as Base64.");
    addEscapeOptions(command, *options);
    command.add_flag("-w,--wrap", options->wrap, "Lines of 76 characters, with CR LF between them")
        ->needs(command.get_option("--base64"));
    command.footer(kFooter);
    return {&command, [options] { return escape(*options); }};
}

} // namespace brimtool
