// UTF-8 and UTF-16 against iconv(3), ICU and Qt; and the functions on top of the conversions against the
// loops that do their work. See transcode_cases.h.
#include "transcode_cases.h"

#include "UnfilledString.h"
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "kernels/kernels.h"
#include "transcodingimplutf8.h"

#include <QString>
#include <iterator>

namespace {

using namespace bench;
using sup::transcodeimpl::TranscoderImplUTF8;

constexpr Encoding kUtf8 = {"Utf8", kUtf8CodePage, "UTF-8", "UTF-8"};
constexpr Encoding kUtf16[] = {
    {"Utf16BE", 1200, "UTF-16BE", "UTF-16BE"},
    {"Utf16LE", 1201, "UTF-16LE", "UTF-16LE"},
};

// Of 64 KiB as many calls as leave source and destination in the second-level cache.
constexpr Shape kShapes[] = {
    {"64K", 65536, 4, 0},      {"64K+24", 65536, 4, 24}, {"4K+24", 4096, 16, 24},
    {"1M+24", 1 << 20, 1, 24}, {"16+24", 16, 256, 24},
};
constexpr Shape kOneShape[] = {{"64K", 65536, 4, 0}, {"64K+24", 65536, 4, 24}};

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

// ---- Damaged text -----------------------------------------------------------------------------------------

// Replaces what is damaged, as we and ICU do; its units are widened here, as those of ICU.
class Qt {
public:
    static constexpr const char* kName = "Qt";

    explicit Qt(const Encoding&) {}
    std::size_t decode(std::string_view src, wchar_t* dst, std::size_t) {
        const QString text = QString::fromUtf8(src.data(), static_cast<int>(src.size()));
        std::transform(text.begin(), text.end(), dst,
                       [](QChar c) { return static_cast<wchar_t>(c.unicode()); });
        return static_cast<std::size_t>(text.size());
    }
};

// ---- The whole road ---------------------------------------------------------------------------------------

constexpr Shape kRoadShapes[] = {{"4K+24", 4096, 16, 24}, {"16+24", 16, 256, 24}};

// The loop alone; into a new string where there is one to be made.
class Kernel {
public:
    static constexpr const char* kName = "Kernel";

    static std::size_t widen(std::string_view src, wchar_t* dst, std::size_t) {
        return static_cast<std::size_t>(kernels().decodeUtf8(src.data(), src.data() + src.size(), dst).dst -
                                        dst);
    }
    static std::size_t narrow(std::wstring_view src, char* dst, std::size_t) {
        return static_cast<std::size_t>(kernels().encodeUtf8(src.data(), src.data() + src.size(), dst).dst -
                                        dst);
    }
    static BrimString build(const std::string& src) {
        sup::UnfilledString text(src.size());
        return text.take(widen(src, text.begin(), src.size()));
    }

private:
    static const sup::kernels::Kernels& kernels() {
        static const sup::kernels::Kernels& inUse = sup::kernels::kernelsInUse();
        return inUse;
    }
};

class Road {
public:
    static constexpr const char* kName = "Brim";

    static std::size_t widen(std::string_view src, wchar_t* dst, std::size_t room) {
        return static_cast<std::size_t>(SystemUtility::MultiByteToWideChar(
            src.data(), static_cast<int>(src.size()), dst, static_cast<int>(room), kUtf8CodePage));
    }
    static std::size_t narrow(std::wstring_view src, char* dst, std::size_t room) {
        return static_cast<std::size_t>(SystemUtility::WideCharToMultiByte(
            src.data(), static_cast<int>(src.size()), dst, static_cast<int>(room), kUtf8CodePage));
    }
    static BrimString build(const std::string& src) {
        BrimString text;
        BaseStringUtil::StdStringToString(src.data(), static_cast<unsigned int>(src.size()), text,
                                          kUtf8CodePage);
        return text;
    }
};

template <class Peer>
void BM_MultiByteToWideChar(benchmark::State& state, const Case& c) {
    const Destination<wchar_t> dst(wideRoom(c), c.shape);
    for (auto _ : state) {
        for (const Slice& slice : c.slices) {
            benchmark::DoNotOptimize(Peer::widen(slice.narrow, dst.get(), wideRoom(c)));
            benchmark::ClobberMemory();
        }
    }
    setRate(state, c);
}

template <class Peer>
void BM_WideCharToMultiByte(benchmark::State& state, const Case& c) {
    const Destination<char> dst(narrowRoom(c), c.shape);
    for (auto _ : state) {
        for (const Slice& slice : c.slices) {
            benchmark::DoNotOptimize(Peer::narrow(slice.units, dst.get(), narrowRoom(c)));
            benchmark::ClobberMemory();
        }
    }
    setRate(state, c);
}

template <class Peer>
void BM_BuildString(benchmark::State& state, const Case& c) {
    for (auto _ : state) {
        for (const Slice& slice : c.slices) {
            const BrimString text = Peer::build(slice.narrow);
            benchmark::DoNotOptimize(text.begin());
        }
    }
    setRate(state, c);
}

template <class Peer>
void addRoadOf(const Case& c, const std::string& name) {
    const std::string suffix = "/" + name + "/" + c.shape.name;
    const Destination<wchar_t> wide(wideRoom(c), c.shape);
    const Destination<char> narrow(narrowRoom(c), c.shape);
    for (const Slice& slice : c.slices) {
        const std::wstring_view units(wide.get(), Peer::widen(slice.narrow, wide.get(), wideRoom(c)));
        require(units == slice.units, "widening", Peer::kName, name);
        const std::string_view bytes(narrow.get(), Peer::narrow(slice.units, narrow.get(), narrowRoom(c)));
        require(bytes == slice.narrow, "narrowing", Peer::kName, name);
        const BrimString built = Peer::build(slice.narrow);
        require(std::wstring_view(built.begin(), built.length()) == slice.units, "building", Peer::kName,
                name);
    }
    add<Peer>("BM_MultiByteToWideChar", c, suffix, &BM_MultiByteToWideChar<Peer>);
    add<Peer>("BM_WideCharToMultiByte", c, suffix, &BM_WideCharToMultiByte<Peer>);
    add<Peer>("BM_BuildString", c, suffix, &BM_BuildString<Peer>);
}

void addRoad(const Text& text) {
    for (const Shape& shape : kRoadShapes) {
        Case& c = cases().emplace_back(Case{kUtf8, shape, {}});
        for (const std::string_view slice : slices(text.bytes, shape.bytes, shape.calls)) {
            addSlice(c, {std::string(slice), toUnits(slice), {}});
        }
        addRoadOf<Road>(c, text.name);
        addRoadOf<Kernel>(c, text.name);
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
    add<Qt>("BM_DecodeDamagedUtf8", c, suffix, &BM_Decode<Qt>);
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
            addRoad(*text);
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
