// UTF-8 and UTF-16 against iconv(3) and ICU; see transcode_cases.h.
#include "transcode_cases.h"

#include "transcodingimplutf8.h"

#include <iterator>

namespace {

using namespace bench;
using sup::transcodeimpl::TranscoderImplUTF8;

constexpr Encoding kUtf8 = {"Utf8", kUtf8CodePage, "UTF-8", "UTF-8"};
constexpr Encoding kUtf16[] = {
    {"Utf16BE", 1200, "UTF-16BE", "UTF-16BE"},
    {"Utf16LE", 1201, "UTF-16LE", "UTF-16LE"},
};

constexpr Shape kShapes[] = {
    {"64K", 65536, 8, 0},      {"64K+24", 65536, 8, 24}, {"4K+24", 4096, 16, 24},
    {"1M+24", 1 << 20, 1, 24}, {"16+24", 16, 256, 24},
};
constexpr Shape kOneShape[] = {{"64K", 65536, 8, 0}, {"64K+24", 65536, 8, 24}};

std::size_t utf8Size(Brim&, std::wstring_view units) {
    return TranscoderImplUTF8::S_unicodeToMultibyteCalculateExactSize(units.data(), units.size());
}
std::size_t utf8Size(Icu& icu, std::wstring_view units) { return icu.utf8Size(units); }

template <class Peer>
void BM_ExactUtf8Size(benchmark::State& state, const Case& c) {
    Peer peer(c.encoding);
    for (auto _ : state) {
        for (const Slice& slice : c.slices) {
            benchmark::DoNotOptimize(utf8Size(peer, slice.units));
        }
    }
    setRate(state, c);
}

template <class Peer>
void checkUtf8Sizes(const Case& c, const std::string& name) {
    Peer peer(c.encoding);
    for (const Slice& slice : c.slices) {
        require(utf8Size(peer, slice.units) == slice.narrow.size(), "size", Peer::kName, name);
    }
}

// ---- Texts ------------------------------------------------------------------------------------------------

void addUtf8(const Text& text) {
    for (const Shape& shape : kShapes) {
        Case& c = cases().emplace_back(Case{kUtf8, shape, {}});
        for (const std::string_view slice : slices(text.bytes, shape.bytes, shape.calls)) {
            addSlice(c, {std::string(slice), toUnits(slice), toCodePoints(slice)});
        }
        addBothWays<Brim, Iconv, Icu>(c, text.name);
        checkUtf8Sizes<Brim>(c, text.name);
        checkUtf8Sizes<Icu>(c, text.name);
    }
    const Case& c = cases()[cases().size() - std::size(kShapes)];
    add<Brim>("BM_ExactUtf8Size", c, "/" + text.name + "/64K", &BM_ExactUtf8Size<Brim>);
    add<Icu>("BM_ExactUtf8Size", c, "/" + text.name + "/64K", &BM_ExactUtf8Size<Icu>);
}

// Here the answers differ by rule, and iconv stops; ICU replaces, as we do.
void addDamagedUtf8(const Text& text, std::size_t period) {
    const Shape& shape = kOneShape[1];
    const std::string bytes = damaged(text.bytes, period);
    Case& c = cases().emplace_back(Case{kUtf8, shape, {}});
    for (const std::string_view slice : slices(bytes, shape.bytes, shape.calls)) {
        addSlice(c, {std::string(slice), {}, {}});
    }
    const std::string suffix = "/" + text.name + "_1_in_" + std::to_string(period) + "/" + shape.name;
    add<Brim>("BM_DecodeDamagedUtf8", c, suffix, &BM_Decode<Brim>);
    add<Icu>("BM_DecodeDamagedUtf8", c, suffix, &BM_Decode<Icu>);
}

void addUtf16(const Text& text, const Encoding& encoding) {
    for (const Shape& shape : kOneShape) {
        Case& c = cases().emplace_back(Case{encoding, shape, {}});
        const Converter converter(encoding.iconvName, "UTF-8");
        for (const std::string_view slice : slices(text.bytes, shape.bytes / 2, shape.calls)) {
            std::string bytes(2 * slice.size(), '\0');
            bytes.resize(converter.convert(slice.data(), slice.size(), bytes.data(), bytes.size()));
            addSlice(c, {std::move(bytes), toUnits(slice), toCodePoints(slice)});
        }
        addBothWays<Brim, Iconv>(c, text.name);
    }
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    for (const Text& text : utf8Texts()) {
        addUtf8(text);
    }
    for (const char* const name : {"ascii", "russian", "japanese"}) {
        if (const Text* const text = findUtf8Text(name)) {
            addDamagedUtf8(*text, 1000);
            addDamagedUtf8(*text, 50);
            for (const Encoding& encoding : kUtf16) {
                addUtf16(*text, encoding);
            }
        }
    }
    if (const Text* const emoji = findUtf8Text("emoji")) {
        for (const Encoding& encoding : kUtf16) {
            addUtf16(*emoji, encoding);
        }
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
