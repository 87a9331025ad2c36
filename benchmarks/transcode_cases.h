// What the benchmarks of transcoders share: the peers, the cases, and their registration. Rates count the
// bytes of the narrow side.
//
// What the peers give: iconv whole code points in wchar_t, which spares it the surrogate pairs; ICU UTF-16,
// widened to (or narrowed from) wchar_t here, so that it ends where we end. Converters are opened before the
// clock starts.
//
// Names: BM_<what><peer>/<text>/<bytes a call>, with "+24" when the destination lies 24 bytes behind a
// 64-byte boundary, as the characters of a string do; without, it starts at one.
#pragma once

#include "corpus.h"

#include "Utility/Generic/Portable/transcodercache.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>
#include <utility>
#include <vector>

namespace bench {

constexpr std::size_t kFailed = static_cast<std::size_t>(-1);

// ---- Peers ------------------------------------------------------------------------------------------------

struct Encoding {
    const char* name;
    int codePage;
    const char* iconvName;
    const char* icuName;
};

/// UTF-8 has ICU functions of its own, which are faster than its converters.
constexpr int kUtf8CodePage = 65001;

class Brim {
public:
    static constexpr const char* kName = "Brim";
    static constexpr bool kWholeCodePoints = false;

    explicit Brim(const Encoding& encoding)
        : m_transcoder(*sup::transcodeimpl::TranscoderCache::getTranscoder(encoding.codePage)) {}
    std::size_t decode(std::string_view src, wchar_t* dst, std::size_t room) {
        return m_transcoder.multibyteToUnicode(src.data(), src.size(), dst, room, nullptr);
    }
    std::size_t encode(std::wstring_view src, char* dst, std::size_t room) {
        return m_transcoder.unicodeToMultibyte(src.data(), src.size(), dst, room, nullptr, nullptr, nullptr);
    }

private:
    const sup::transcodeimpl::TranscoderImplBase& m_transcoder;
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

class Icu {
public:
    static constexpr const char* kName = "Icu";
    static constexpr bool kWholeCodePoints = false;

    explicit Icu(const Encoding& encoding) : m_isUtf8(encoding.codePage == kUtf8CodePage) {
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

inline std::size_t wideRoom(const Case& c) { return c.shape.bytes; }
inline std::size_t narrowRoom(const Case& c) { return 3 * c.shape.bytes; }

inline void setRate(benchmark::State& state, const Case& c) {
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

// ---- Equal answers ----------------------------------------------------------------------------------------

inline void require(bool equal, const char* what, const char* peer, const std::string& name) {
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
    }
}

// ---- Registration -----------------------------------------------------------------------------------------

// The benchmarks refer to their cases until the end.
inline std::deque<Case>& cases() {
    static std::deque<Case> all;
    return all;
}

inline void addSlice(Case& c, Slice slice) {
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

} // namespace bench
