#include "corpus.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <random>
#include <stdexcept>

namespace bench {

namespace {

// Where a text comes from. `encoding` is what the file is shipped in.
struct Source {
    const char* name;
    const char* package;
    const char* path;
    const char* encoding;
};

// Outside /usr/share/man and /usr/share/doc, which small systems leave out.
constexpr Source kSources[] = {
    {"german", "fortunes-de", "/usr/share/games/fortunes/de/zitate", "UTF-8"},
    {"polish", "hunspell-pl", "/usr/share/hunspell/pl_PL.dic", "ISO-8859-2"},
    {"russian", "hunspell-ru", "/usr/share/hunspell/ru_RU.dic", "UTF-8"},
    {"greek", "hunspell-el", "/usr/share/hunspell/el_GR.dic", "ISO-8859-7"},
    {"hebrew", "hunspell-he", "/usr/share/hunspell/he_IL.dic", "UTF-8"},
    {"arabic", "hunspell-ar", "/usr/share/hunspell/ar.dic", "UTF-8"},
    {"japanese", "skkdic", "/usr/share/skk/SKK-JISYO.L", "EUC-JP"},
    {"chinese", "fortunes-zh", "/usr/share/games/fortunes/chinese", "UTF-8"},
    {"korean", "hunspell-ko", "/usr/share/hunspell/ko.dic", "UTF-8"},
};

// Other encodings: what is shipped in one, and the UTF-8 text that is converted to another.
constexpr Source kOtherSources[] = {
    {"norwegian", "hunspell-no", "/usr/share/hunspell/nb_NO.dic", "ISO-8859-1"},
    {"esperanto", "myspell-eo", "/usr/share/hunspell/eo.dic", "ISO-8859-3"},
    {"estonian", "myspell-et", "/usr/share/hunspell/et_EE.dic", "ISO-8859-15"},
};
constexpr struct {
    const char* encoding;
    const char* text;
} kConvertedTexts[] = {{"ISO-8859-6", "arabic"},
                       {"ISO-8859-8", "hebrew"},
                       {"CP1252", "german"},
                       {"CP932", "japanese"},
                       {"GBK", "chinese"}};

constexpr const char* kLicenses = "/usr/share/common-licenses";
constexpr const char* kNames = "/usr/share/unicode/NamesList.txt";
constexpr const char* kEmoji = "/usr/share/unicode/emoji/emoji-test.txt";

std::optional<std::string> readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void reportMissing(const char* name, const char* package, const char* path) {
    std::fprintf(stderr, "%s left out: no %s (package %s)\n", name, path, package);
}

template <class Visit>
void forEachLine(std::string_view text, Visit visit) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
        visit(text.substr(0, end));
        text.remove_prefix(end);
    }
}

// Lines from the middle of the file on, where word lists have neither a preface nor a single first letter;
// the whole file over again when that is too short.
std::string excerpt(std::string_view text) {
    const std::size_t middle = text.size() > 2 * kTextBytes ? text.find('\n', text.size() / 3) + 1 : 0;
    std::string result(text.substr(middle, 2 * kTextBytes));
    result.resize(result.rfind('\n') + 1);
    while (!result.empty() && result.size() < kTextBytes) {
        result += result;
    }
    return result;
}

// Those lines that `converter` takes, converted.
std::string convertLines(std::string_view text, const Converter& converter) {
    std::string result;
    forEachLine(text, [&](std::string_view line) {
        std::string converted(4 * line.size(), '\0');
        const std::size_t n = converter.convert(line.data(), line.size(), converted.data(), converted.size());
        if (n != static_cast<std::size_t>(-1)) {
            result.append(converted, 0, n);
        }
    });
    return result;
}

std::string asciiText() {
    std::string all;
    std::vector<std::filesystem::path> paths;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(kLicenses, ignored)) {
        if (!entry.is_symlink()) {
            paths.push_back(entry.path());
        }
    }
    std::sort(paths.begin(), paths.end());
    paths.emplace_back(kNames);
    for (const std::filesystem::path& path : paths) {
        all += readFile(path).value_or("");
    }
    std::string ascii;
    forEachLine(all, [&ascii](std::string_view line) {
        if (std::all_of(line.begin(), line.end(),
                        [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
            ascii += line;
        }
    });
    return ascii;
}

// The emoji themselves: what stands between "# " and the version in a line such as
// 1F600 ; fully-qualified     # <emoji> E1.0 grinning face
std::string emojiOnly(std::string_view text) {
    std::string result;
    forEachLine(text, [&result](std::string_view line) {
        const std::size_t mark = line.find("# ");
        if (mark != std::string_view::npos && mark != 0) {
            line.remove_prefix(mark + 2);
            result += line.substr(0, line.find(' '));
        }
    });
    return result + '\n';
}

void addUtf8(std::vector<Text>& texts, const char* name, const std::string& text) {
    std::string enough = excerpt(text);
    if (!enough.empty()) {
        texts.push_back({name, std::move(enough)});
    }
}

std::vector<Text> readUtf8Texts() {
    std::vector<Text> texts;
    const std::string ascii = asciiText();
    if (ascii.empty()) {
        reportMissing("ascii", "unicode-data", kNames);
    }
    addUtf8(texts, "ascii", ascii);
    for (const Source& source : kSources) {
        const std::optional<std::string> file = readFile(source.path);
        if (!file) {
            reportMissing(source.name, source.package, source.path);
            continue;
        }
        addUtf8(texts, source.name, convertLines(excerpt(*file), Converter("UTF-8", source.encoding)));
    }
    if (const std::optional<std::string> emoji = readFile(kEmoji)) {
        addUtf8(texts, "emoji", emojiOnly(*emoji));
        addUtf8(texts, "emoji_in_text", *emoji);
    } else {
        reportMissing("emoji", "unicode-data", kEmoji);
    }
    return texts;
}

} // namespace

Converter::Converter(const char* to, const char* from) : m_conversion(iconv_open(to, from)) {
    if (m_conversion == reinterpret_cast<iconv_t>(-1)) {
        throw std::runtime_error(std::string("iconv knows no way from ") + from + " to " + to);
    }
}

Converter::~Converter() { iconv_close(m_conversion); }

std::size_t Converter::convert(const void* src, std::size_t bytes, void* dst, std::size_t room) const {
    char* in = const_cast<char*>(static_cast<const char*>(src)); // iconv only reads it
    char* out = static_cast<char*>(dst);
    if (iconv(m_conversion, &in, &bytes, &out, &room) == static_cast<std::size_t>(-1)) {
        iconv(m_conversion, nullptr, nullptr, nullptr, nullptr);
        return static_cast<std::size_t>(-1);
    }
    return static_cast<std::size_t>(out - static_cast<char*>(dst));
}

const std::vector<Text>& utf8Texts() {
    static const std::vector<Text> texts = readUtf8Texts();
    return texts;
}

const Text* findUtf8Text(std::string_view name) {
    for (const Text& text : utf8Texts()) {
        if (text.name == name) {
            return &text;
        }
    }
    return nullptr;
}

Text encodedText(const char* encoding) {
    const std::string_view wanted = encoding;
    const auto isWanted = [wanted](const Source& source) { return wanted == source.encoding; };
    const Source* source = std::find_if(std::begin(kSources), std::end(kSources), isWanted);
    if (source == std::end(kSources)) {
        source = std::find_if(std::begin(kOtherSources), std::end(kOtherSources), isWanted);
    }
    if (source != std::end(kOtherSources)) {
        const std::optional<std::string> file = readFile(source->path);
        if (!file) {
            reportMissing(source->name, source->package, source->path);
        }
        return {source->name, excerpt(file.value_or(""))};
    }
    for (const auto& converted : kConvertedTexts) {
        const Text* const text = wanted == converted.encoding ? findUtf8Text(converted.text) : nullptr;
        if (text != nullptr) {
            return {text->name, excerpt(convertLines(text->bytes, Converter(encoding, "UTF-8")))};
        }
    }
    return {};
}

std::string damaged(std::string text, std::size_t period) {
    std::minstd_rand random(1);
    for (std::size_t at = random() % period; at < text.size(); at += 1 + random() % (2 * period)) {
        text[at] = static_cast<char>(static_cast<unsigned char>(text[at]) ^ (0x80U | random() % 0x80U));
    }
    return text;
}

std::wstring toCodePoints(std::string_view utf8) {
    std::wstring wide(utf8.size(), L'\0');
    const std::size_t bytes =
        Converter("WCHAR_T", "UTF-8")
            .convert(utf8.data(), utf8.size(), wide.data(), wide.size() * sizeof(wchar_t));
    if (bytes == static_cast<std::size_t>(-1)) {
        throw std::runtime_error("malformed text");
    }
    wide.resize(bytes / sizeof(wchar_t));
    return wide;
}

std::wstring toUnits(std::string_view utf8) {
    std::wstring units;
    for (const wchar_t c : toCodePoints(utf8)) {
        const auto value = static_cast<char32_t>(c);
        if (value < 0x10000) {
            units += c;
        } else {
            units += static_cast<wchar_t>(0xD7C0 + (value >> 10));
            units += static_cast<wchar_t>(0xDC00 + (value & 0x3FFU));
        }
    }
    return units;
}

std::vector<std::string_view> slices(std::string_view utf8, std::size_t bytes, std::size_t count) {
    const auto isContinuation = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; };
    std::vector<std::string_view> result;
    while (!utf8.empty() && result.size() < count) {
        std::size_t end = std::min(bytes, utf8.size());
        while (end < utf8.size() && isContinuation(utf8[end])) {
            --end;
        }
        result.push_back(utf8.substr(0, end));
        utf8.remove_prefix(end);
    }
    return result;
}

} // namespace bench
