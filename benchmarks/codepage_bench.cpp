// Single-byte code pages against iconv(3) and ICU; see transcode_cases.h. The texts are dictionaries that
// Debian still ships in these encodings, and where it has none, those lines of a text that the encoding can
// represent.
#include "transcode_cases.h"

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
    const Text text = singleByteText(encoding.iconvName);
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

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    for (const Encoding& encoding : kSingleByte) {
        addSingleByte(encoding);
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
