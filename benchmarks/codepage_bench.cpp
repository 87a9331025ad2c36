// Code pages against iconv(3) and ICU; see transcode_cases.h. The texts are dictionaries that Debian still
// ships in these encodings, and where it has none, those lines of a text that the encoding can represent. The
// tables of the multi-byte pages are built from what iconv knows.
#include "transcode_cases.h"

#include "platform_page.h"

#include <map>

namespace {

using namespace bench;

constexpr Encoding kSingleByte[] = {
    {"Iso8859_1", 28591, "ISO-8859-1", "ISO-8859-1"},     {"Iso8859_2", 28592, "ISO-8859-2", "ISO-8859-2"},
    {"Iso8859_3", 28593, "ISO-8859-3", "ISO-8859-3"},     {"Iso8859_6", 28596, "ISO-8859-6", "ISO-8859-6"},
    {"Iso8859_7", 28597, "ISO-8859-7", "ISO-8859-7"},     {"Iso8859_8", 38598, "ISO-8859-8", "ISO-8859-8"},
    {"Iso8859_15", 285915, "ISO-8859-15", "ISO-8859-15"}, {"Cp1252", 1252, "CP1252", "windows-1252"},
};

constexpr Shape kShapes[] = {
    {"64K", 65536, 8, 0},   {"64K+24", 65536, 8, 24}, {"4K+24", 4096, 16, 24},
    {"64+24", 64, 256, 24}, {"16+24", 16, 256, 24},   {"8+24", 8, 256, 24},
};

void addSingleByte(const Encoding& encoding) {
    const Text text = encodedText(encoding.iconvName);
    if (text.bytes.empty()) {
        return;
    }
    const Converter toUtf8("UTF-8", encoding.iconvName);
    for (const Shape& shape : kShapes) {
        Case& c = cases().emplace_back(Case{encoding, shape, {}});
        for (std::size_t i = 0; i < shape.calls; ++i) {
            const std::string bytes = text.bytes.substr(i * shape.bytes, shape.bytes);
            std::string utf8(4 * bytes.size(), '\0');
            utf8.resize(toUtf8.convert(bytes.data(), bytes.size(), utf8.data(), utf8.size()));
            addSlice(c, {bytes, toUnits(utf8), toCodePoints(utf8)});
        }
        addBothWays<Brim, Iconv, Icu>(c, text.name);
    }
}

// ---- Multi-byte pages -------------------------------------------------------------------------------------

// The code page stands for none of the built-in ones.
constexpr Encoding kMultibyte[] = {
    {"Multibyte", 0, "EUC-JP", "EUC-JP"},
    {"Multibyte", 0, "CP932", "windows-932"},
    {"Multibyte", 0, "GBK", "GBK"},
};

constexpr Shape kLongShapes[] = {{"64K", 65536, 8, 0}, {"64K+24", 65536, 8, 24}, {"4K+24", 4096, 16, 24}};

constexpr std::size_t kLongestLine = 4096;

class BrimTable {
public:
    static constexpr const char* kName = Brim::kName;
    static constexpr bool kWholeCodePoints = false;

    explicit BrimTable(const Encoding& encoding) : m_transcoder(transcoderOf(encoding.iconvName)) {}
    std::size_t decode(std::string_view src, wchar_t* dst, std::size_t room) {
        return m_transcoder.multibyteToUnicode(src.data(), src.size(), dst, room, nullptr);
    }
    std::size_t encode(std::wstring_view src, char* dst, std::size_t room) {
        return m_transcoder.unicodeToMultibyte(src.data(), src.size(), dst, room, nullptr, nullptr, nullptr);
    }

private:
    using Transcoder = sup::transcodeimpl::TranscoderImplBase;

    static const Transcoder& transcoderOf(const std::string& name) {
        static std::map<std::string, std::unique_ptr<Transcoder>> made;
        std::unique_ptr<Transcoder>& transcoder = made[name];
        if (transcoder == nullptr) {
            transcoder = brimtest::transcoderOf(brimtest::PlatformPage(name.c_str()).rows(), 128);
        }
        return *transcoder;
    }

    const Transcoder& m_transcoder;
};

template <class Peer>
bool isItselfThereAndBack(Peer& peer, const Slice& line) {
    const std::wstring& expected = wideOf<Peer>(line);
    std::wstring wide(line.narrow.size(), L'\0');
    std::string narrow(3 * line.narrow.size(), '\0');
    const std::size_t units = peer.decode(line.narrow, wide.data(), wide.size());
    const std::size_t bytes = peer.encode(expected, narrow.data(), narrow.size());
    return units != kFailed && bytes != kFailed && std::wstring_view(wide.data(), units) == expected &&
           std::string_view(narrow.data(), bytes) == line.narrow;
}

// The lines of a text on which the peers agree, and which fit into every shape.
std::vector<Slice> agreedLines(const Encoding& encoding, const std::string& text) {
    const Converter toUtf8("UTF-8", encoding.iconvName);
    Iconv iconv(encoding);
    Icu icu(encoding);
    std::vector<Slice> lines;
    for (std::size_t at = 0, end = 0; at != text.size(); at = end) {
        end = std::min(text.find('\n', at), text.size() - 1) + 1;
        const std::string bytes = text.substr(at, end - at);
        std::string utf8(4 * bytes.size(), '\0');
        const std::size_t length = toUtf8.convert(bytes.data(), bytes.size(), utf8.data(), utf8.size());
        if (length == kFailed) {
            continue;
        }
        utf8.resize(length);
        Slice line{bytes, toUnits(utf8), toCodePoints(utf8)};
        if (bytes.size() <= kLongestLine && isItselfThereAndBack(iconv, line) &&
            isItselfThereAndBack(icu, line)) {
            lines.push_back(std::move(line));
        }
    }
    return lines;
}

void addMultibyte(const Encoding& encoding) {
    const Text text = encodedText(encoding.iconvName);
    const std::vector<Slice> lines = agreedLines(encoding, text.bytes);
    if (lines.empty()) {
        return;
    }
    for (const Shape& shape : kLongShapes) {
        Case& c = cases().emplace_back(Case{encoding, shape, {}});
        auto line = lines.begin();
        while (c.slices.size() < shape.calls && line != lines.end()) {
            Slice slice;
            for (; line != lines.end() && slice.narrow.size() + line->narrow.size() <= shape.bytes; ++line) {
                slice.narrow += line->narrow;
                slice.units += line->units;
                slice.codePoints += line->codePoints;
            }
            addSlice(c, std::move(slice));
        }
        addBothWays<BrimTable, Iconv, Icu>(c, text.name + "_" + encoding.iconvName);
    }
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    for (const Encoding& encoding : kSingleByte) {
        addSingleByte(encoding);
    }
    for (const Encoding& encoding : kMultibyte) {
        addMultibyte(encoding);
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
