// Transcoders against iconv(3) and ICU. Rates count the bytes of the narrow side.
//
// What the peers give: iconv whole code points in wchar_t, which spares it the surrogate pairs; ICU UTF-16,
// widened to (or narrowed from) wchar_t here, so that it ends where we end. Converters are opened before the
// clock starts.
//
// Names: BM_<what><peer>/<text>/<bytes a call>, with "+24" when the destination lies 24 bytes behind a
// 64-byte boundary, as the characters of a string do; without, it starts at one.
#include "corpus.h"

#include "Utility/Generic/Portable/transcodercache.h"
#include "transcodingimplutf8.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>

namespace {

using bench::Converter;
using sup::transcodeimpl::TranscoderCache;
using sup::transcodeimpl::TranscoderImplBase;
using sup::transcodeimpl::TranscoderImplUTF8;

constexpr std::size_t kFailed = static_cast<std::size_t>(-1);

// ---- Peers ------------------------------------------------------------------------------------------------

struct Encoding {
    const char* name;
    int codePage;
    const char* iconvName;
    const char* icuName;
};

constexpr Encoding kUtf8 = {"Utf8", 65001, "UTF-8", "UTF-8"};
constexpr Encoding kUtf16[] = {
    {"Utf16BE", 1200, "UTF-16BE", "UTF-16BE"},
    {"Utf16LE", 1201, "UTF-16LE", "UTF-16LE"},
};
constexpr Encoding kSingleByte[] = {
    {"Iso8859_1", 28591, "ISO-8859-1", "ISO-8859-1"},
    {"Iso8859_2", 28592, "ISO-8859-2", "ISO-8859-2"},
    {"Iso8859_7", 28597, "ISO-8859-7", "ISO-8859-7"},
    {"Cp1252", 1252, "CP1252", "windows-1252"},
};

class Brim {
public:
    static constexpr const char* kName = "Brim";
    static constexpr bool kWholeCodePoints = false;

    explicit Brim(const Encoding& encoding)
        : m_transcoder(*TranscoderCache::getTranscoder(encoding.codePage)) {}
    std::size_t decode(std::string_view src, wchar_t* dst, std::size_t room) {
        return m_transcoder.multibyteToUnicode(src.data(), src.size(), dst, room, nullptr);
    }
    std::size_t encode(std::wstring_view src, char* dst, std::size_t room) {
        return m_transcoder.unicodeToMultibyte(src.data(), src.size(), dst, room, nullptr, nullptr, nullptr);
    }

private:
    const TranscoderImplBase& m_transcoder;
};

class Iconv {
public:
    static constexpr const char* kName = "Iconv";
    static constexpr bool kWholeCodePoints = true;

    explicit Iconv(const Encoding& encoding)
        : m_decoder("WCHAR_T", encoding.iconvName), m_encoder(encoding.iconvName, "WCHAR_T") {}
    std::size_t decode(std::string_view src, wchar_t* dst, std::size_t room) {
        const std::size_t bytes = m_decoder.convert(src.data(), src.size(), dst, room * sizeof(wchar_t));
        return bytes == kFailed ? kFailed : bytes / sizeof(wchar_t);
    }
    std::size_t encode(std::wstring_view src, char* dst, std::size_t room) {
        return m_encoder.convert(src.data(), src.size() * sizeof(wchar_t), dst, room);
    }

private:
    Converter m_decoder;
    Converter m_encoder;
};

// UTF-8 has functions of its own, which are faster than the converters.
class Icu {
public:
    static constexpr const char* kName = "Icu";
    static constexpr bool kWholeCodePoints = false;

    explicit Icu(const Encoding& encoding) : m_isUtf8(encoding.codePage == kUtf8.codePage) {
        UErrorCode error = U_ZERO_ERROR;
        m_converter.reset(ucnv_open(encoding.icuName, &error));
        if (U_FAILURE(error)) {
            std::fprintf(stderr, "ICU has no %s: %s\n", encoding.icuName, u_errorName(error));
            std::exit(1);
        }
    }
    std::size_t decode(std::string_view src, wchar_t* dst, std::size_t room) {
        UErrorCode error = U_ZERO_ERROR;
        const auto srcLength = static_cast<std::int32_t>(src.size());
        const auto unitRoom = static_cast<std::int32_t>(room);
        std::int32_t units = 0;
        reserveUnits(room);
        if (m_isUtf8) {
            u_strFromUTF8WithSub(m_units.get(), unitRoom, &units, src.data(), srcLength, 0xFFFD, nullptr,
                                 &error);
        } else {
            units = ucnv_toUChars(m_converter.get(), m_units.get(), unitRoom, src.data(), srcLength, &error);
        }
        if (U_FAILURE(error)) {
            return kFailed;
        }
        std::copy_n(m_units.get(), units, dst);
        return static_cast<std::size_t>(units);
    }
    std::size_t encode(std::wstring_view src, char* dst, std::size_t room) {
        UErrorCode error = U_ZERO_ERROR;
        narrowUnits(src);
        const auto unitCount = static_cast<std::int32_t>(src.size());
        const auto byteRoom = static_cast<std::int32_t>(room);
        std::int32_t bytes = 0;
        if (m_isUtf8) {
            u_strToUTF8(dst, byteRoom, &bytes, m_units.get(), unitCount, &error);
        } else {
            bytes = ucnv_fromUChars(m_converter.get(), dst, byteRoom, m_units.get(), unitCount, &error);
        }
        return U_FAILURE(error) ? kFailed : static_cast<std::size_t>(bytes);
    }
    std::size_t utf8Size(std::wstring_view src) {
        UErrorCode error = U_ZERO_ERROR;
        std::int32_t bytes = 0;
        narrowUnits(src);
        u_strToUTF8(nullptr, 0, &bytes, m_units.get(), static_cast<std::int32_t>(src.size()), &error);
        return static_cast<std::size_t>(bytes);
    }

private:
    struct Close {
        void operator()(UConverter* converter) const { ucnv_close(converter); }
    };

    void reserveUnits(std::size_t room) {
        if (m_room < room) {
            m_units.reset(new UChar[room]);
            m_room = room;
        }
    }
    void narrowUnits(std::wstring_view src) {
        reserveUnits(src.size());
        std::transform(src.begin(), src.end(), m_units.get(),
                       [](wchar_t c) { return static_cast<UChar>(c); });
    }

    bool m_isUtf8;
    std::unique_ptr<UConverter, Close> m_converter;
    std::unique_ptr<UChar[]> m_units;
    std::size_t m_room = 0;
};

// ---- Cases ------------------------------------------------------------------------------------------------

// One pass converts `calls` consecutive slices of the text, all to the same destination.
struct Shape {
    const char* name;
    std::size_t bytes;
    std::size_t calls;
    std::size_t offset;
};

constexpr Shape kShapes[] = {
    {"64K", 65536, 8, 0},      {"64K+24", 65536, 8, 24}, {"4K+24", 4096, 16, 24},
    {"1M+24", 1 << 20, 1, 24}, {"16+24", 16, 256, 24},
};
constexpr Shape kOneShape[] = {{"64K", 65536, 8, 0}, {"64K+24", 65536, 8, 24}};

struct Slice {
    std::string narrow;
    std::wstring units;      // UTF-16 code units
    std::wstring codePoints; // whole ones
};

struct Case {
    Encoding encoding;
    Shape shape;
    std::vector<Slice> slices;
    std::size_t narrowBytes = 0;
};

template <class Peer>
const std::wstring& wideOf(const Slice& slice) {
    return Peer::kWholeCodePoints ? slice.codePoints : slice.units;
}

// A destination for `elements` elements, at the offset that the shape asks for.
template <class T>
class Destination {
public:
    Destination(std::size_t elements, const Shape& shape)
        : m_block(static_cast<char*>(
              std::aligned_alloc(64, (elements * sizeof(T) + shape.offset + 63) / 64 * 64))),
          m_elements(reinterpret_cast<T*>(m_block.get() + shape.offset)) {}
    T* get() const { return m_elements; }

private:
    struct Free {
        void operator()(char* block) const { std::free(block); }
    };
    std::unique_ptr<char, Free> m_block;
    T* m_elements;
};

std::size_t wideRoom(const Case& c) { return c.shape.bytes; }
std::size_t narrowRoom(const Case& c) { return 3 * c.shape.bytes; }

void setRate(benchmark::State& state, const Case& c) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(c.narrowBytes));
}

template <class Peer>
void BM_Decode(benchmark::State& state, const Case& c) {
    Peer peer(c.encoding);
    const Destination<wchar_t> dst(wideRoom(c), c.shape);
    for (auto _ : state) {
        for (const Slice& slice : c.slices) {
            benchmark::DoNotOptimize(peer.decode(slice.narrow, dst.get(), wideRoom(c)));
            benchmark::ClobberMemory();
        }
    }
    setRate(state, c);
}

template <class Peer>
void BM_Encode(benchmark::State& state, const Case& c) {
    Peer peer(c.encoding);
    const Destination<char> dst(narrowRoom(c), c.shape);
    for (auto _ : state) {
        for (const Slice& slice : c.slices) {
            benchmark::DoNotOptimize(peer.encode(wideOf<Peer>(slice), dst.get(), narrowRoom(c)));
            benchmark::ClobberMemory();
        }
    }
    setRate(state, c);
}

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

// ---- Equal answers ----------------------------------------------------------------------------------------

void require(bool equal, const char* what, const char* peer, const std::string& name) {
    if (!equal) {
        std::fprintf(stderr, "%s %s gives another answer: %s\n", peer, what, name.c_str());
        std::exit(1);
    }
}

template <class Peer>
void checkAnswers(const Case& c, const std::string& name) {
    Peer peer(c.encoding);
    const Destination<wchar_t> wide(wideRoom(c), c.shape);
    const Destination<char> narrow(narrowRoom(c), c.shape);
    for (const Slice& slice : c.slices) {
        const std::wstring& expected = wideOf<Peer>(slice);
        const std::size_t units = peer.decode(slice.narrow, wide.get(), wideRoom(c));
        require(units != kFailed && std::wstring_view(wide.get(), units) == expected, "decoding", Peer::kName,
                name);
        const std::size_t bytes = peer.encode(expected, narrow.get(), narrowRoom(c));
        require(bytes != kFailed && std::string_view(narrow.get(), bytes) == slice.narrow, "encoding",
                Peer::kName, name);
        if constexpr (!Peer::kWholeCodePoints) {
            if (c.encoding.codePage == kUtf8.codePage) {
                require(utf8Size(peer, slice.units) == slice.narrow.size(), "size", Peer::kName, name);
            }
        }
    }
}

// ---- Registration -----------------------------------------------------------------------------------------

// The benchmarks refer to their cases until the end.
std::deque<Case>& cases() {
    static std::deque<Case> all;
    return all;
}

void addSlice(Case& c, Slice slice) {
    c.narrowBytes += slice.narrow.size();
    c.slices.push_back(std::move(slice));
}

template <class Peer>
void add(const std::string& function, const Case& c, const std::string& suffix,
         void (*run)(benchmark::State&, const Case&)) {
    const std::string name = function + "<" + Peer::kName + ">" + suffix;
    benchmark::RegisterBenchmark(name.c_str(), [run, &c](benchmark::State& state) { run(state, c); });
}

template <class... Peers>
void addBothWays(const Case& c, const std::string& text) {
    const std::string suffix = "/" + text + "/" + c.shape.name;
    (checkAnswers<Peers>(c, c.encoding.name + suffix), ...);
    (add<Peers>(std::string("BM_Decode") + c.encoding.name, c, suffix, &BM_Decode<Peers>), ...);
    (add<Peers>(std::string("BM_Encode") + c.encoding.name, c, suffix, &BM_Encode<Peers>), ...);
}

void addUtf8(const bench::Text& text) {
    for (const Shape& shape : kShapes) {
        Case& c = cases().emplace_back(Case{kUtf8, shape, {}});
        for (const std::string_view slice : bench::slices(text.bytes, shape.bytes, shape.calls)) {
            addSlice(c, {std::string(slice), bench::toUnits(slice), bench::toCodePoints(slice)});
        }
        addBothWays<Brim, Iconv, Icu>(c, text.name);
    }
    const Case& c = cases()[cases().size() - std::size(kShapes)];
    add<Brim>("BM_ExactUtf8Size", c, "/" + text.name + "/64K", &BM_ExactUtf8Size<Brim>);
    add<Icu>("BM_ExactUtf8Size", c, "/" + text.name + "/64K", &BM_ExactUtf8Size<Icu>);
}

// Here the answers differ by rule, and iconv stops; ICU replaces, as we do.
void addDamagedUtf8(const bench::Text& text, std::size_t period) {
    const Shape& shape = kOneShape[1];
    const std::string bytes = bench::damaged(text.bytes, period);
    Case& c = cases().emplace_back(Case{kUtf8, shape, {}});
    for (const std::string_view slice : bench::slices(bytes, shape.bytes, shape.calls)) {
        addSlice(c, {std::string(slice), {}, {}});
    }
    const std::string suffix = "/" + text.name + "_1_in_" + std::to_string(period) + "/" + shape.name;
    add<Brim>("BM_DecodeDamagedUtf8", c, suffix, &BM_Decode<Brim>);
    add<Icu>("BM_DecodeDamagedUtf8", c, suffix, &BM_Decode<Icu>);
}

void addUtf16(const bench::Text& text, const Encoding& encoding) {
    for (const Shape& shape : kOneShape) {
        Case& c = cases().emplace_back(Case{encoding, shape, {}});
        const Converter converter(encoding.iconvName, "UTF-8");
        for (const std::string_view slice : bench::slices(text.bytes, shape.bytes / 2, shape.calls)) {
            std::string bytes(2 * slice.size(), '\0');
            bytes.resize(converter.convert(slice.data(), slice.size(), bytes.data(), bytes.size()));
            addSlice(c, {std::move(bytes), bench::toUnits(slice), bench::toCodePoints(slice)});
        }
        addBothWays<Brim, Iconv>(c, text.name);
    }
}

void addSingleByte(const Encoding& encoding) {
    const bench::Text text = bench::singleByteText(encoding.iconvName);
    if (text.bytes.empty()) {
        return;
    }
    const Converter toUtf8("UTF-8", encoding.iconvName);
    for (const Shape& shape : kOneShape) {
        Case& c = cases().emplace_back(Case{encoding, shape, {}});
        for (std::size_t i = 0; i < shape.calls; ++i) {
            const std::string bytes = text.bytes.substr(i * shape.bytes, shape.bytes);
            std::string utf8(4 * bytes.size(), '\0');
            utf8.resize(toUtf8.convert(bytes.data(), bytes.size(), utf8.data(), utf8.size()));
            addSlice(c, {bytes, bench::toUnits(utf8), bench::toCodePoints(utf8)});
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
    for (const bench::Text& text : bench::utf8Texts()) {
        addUtf8(text);
    }
    for (const char* const name : {"ascii", "russian", "japanese"}) {
        if (const bench::Text* const text = bench::findUtf8Text(name)) {
            addDamagedUtf8(*text, 1000);
            addDamagedUtf8(*text, 50);
            for (const Encoding& encoding : kUtf16) {
                addUtf16(*text, encoding);
            }
        }
    }
    if (const bench::Text* const emoji = bench::findUtf8Text("emoji")) {
        for (const Encoding& encoding : kUtf16) {
            addUtf16(*emoji, encoding);
        }
    }
    for (const Encoding& encoding : kSingleByte) {
        addSingleByte(encoding);
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
