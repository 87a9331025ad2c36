#include "judge.h"

#include "EncodingUTF8.h"
#include "Utf8Validator.h"
#include "Utility/Generic/Portable/transcodercache.h"

#include <algorithm>
#include <array>
#include <emmintrin.h>
#include <numeric>

namespace brimtool {

namespace {

constexpr int kUtf8 = 65001;
constexpr int kUtf16BigEndian = 1200;
constexpr int kUtf16LittleEndian = 1201;

class Utf8Judge : public Judge {
public:
    Verdict judge(const char* text, std::size_t length) const override {
        const auto found = sup::transcodeimpl::Utf8Validator::scan(text, length);
        return {found.wellFormed, found.rest, found.cut};
    }
    std::size_t bytesOf(const wchar_t* units, std::size_t count) const override {
        // Exact for text without lone surrogates, and well-formed text has none.
        return sup::transcodeimpl::T2NEncodingUTF8<wchar_t, unsigned short>::calculateExactSize(units, count);
    }
};

// Surrogates must come in pairs, bytes too.
template <bool bBigEndian>
class Utf16Judge : public Judge {
public:
    Verdict judge(const char* text, std::size_t length) const override {
        const std::size_t whole = length & ~std::size_t{1};
        std::size_t at = 0;
        while (at != whole) {
            if (whole - at >= kBlock && !hasSurrogates(text + at)) {
                at += kBlock;
                continue;
            }
            const std::size_t careful = std::min(whole, at + kBlock);
            while (at < careful) {
                if (!isSurrogate(text + at)) {
                    at += kUnit;
                    continue;
                }
                if (isLowSurrogate(text + at)) {
                    return {at, kUnit, false};
                }
                if (whole - at == kUnit) {
                    return {at, kUnit, true};
                }
                if (!isLowSurrogate(text + at + kUnit)) {
                    return {at, kUnit, false};
                }
                at += 2 * kUnit;
            }
        }
        return {whole, length - whole, length != whole};
    }
    std::size_t bytesOf(const wchar_t* /*units*/, std::size_t count) const override { return kUnit * count; }

private:
    static constexpr std::size_t kUnit = 2;
    static constexpr std::size_t kBlock = 16;

    static unsigned char upperByte(const char* unit) {
        return static_cast<unsigned char>(bBigEndian ? unit[0] : unit[1]);
    }
    static bool isSurrogate(const char* unit) { return (upperByte(unit) & 0xF8U) == 0xD8U; }
    static bool isLowSurrogate(const char* unit) { return (upperByte(unit) & 0xFCU) == 0xDCU; }

    static bool hasSurrogates(const char* block) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block));
        const __m128i upperBits = _mm_and_si128(bytes, _mm_set1_epi8(static_cast<char>(0xF8)));
        const __m128i equal = _mm_cmpeq_epi8(upperBits, _mm_set1_epi8(static_cast<char>(0xD8)));
        constexpr int kUpperBytes = bBigEndian ? 0x5555 : 0xAAAA;
        return (_mm_movemask_epi8(equal) & kUpperBytes) != 0;
    }
};

// Every byte is a character, but some pages leave bytes without one.
class SingleByteJudge : public Judge {
public:
    explicit SingleByteJudge(int codePage) {
        std::array<char, 256> bytes{};
        std::array<wchar_t, 256> characters{};
        std::iota(bytes.begin(), bytes.end(), '\0');
        sup::transcodeimpl::GetTranscoderCache()->Find(codePage)->multibyteToUnicode(
            bytes.data(), bytes.size(), characters.data(), characters.size(), nullptr);
        std::transform(characters.begin(), characters.end(), m_undefined.begin(),
                       [](wchar_t c) { return c == L'\xFFFD'; });
        m_complete = std::find(m_undefined.begin(), m_undefined.end(), true) == m_undefined.end();
    }

    Verdict judge(const char* text, std::size_t length) const override {
        if (m_complete) {
            return {length, 0, false};
        }
        const auto isUndefined = [this](char byte) { return m_undefined[static_cast<unsigned char>(byte)]; };
        const char* const found = std::find_if(text, text + length, isUndefined);
        return {static_cast<std::size_t>(found - text), found == text + length ? 0U : 1U, false};
    }
    std::size_t bytesOf(const wchar_t* /*units*/, std::size_t count) const override { return count; }

private:
    std::array<bool, 256> m_undefined{};
    bool m_complete = true;
};

} // namespace

std::unique_ptr<Judge> makeJudge(int codePage) {
    switch (codePage) {
    case kUtf8:
        return std::make_unique<Utf8Judge>();
    case kUtf16BigEndian:
        return std::make_unique<Utf16Judge<true>>();
    case kUtf16LittleEndian:
        return std::make_unique<Utf16Judge<false>>();
    default:
        return std::make_unique<SingleByteJudge>(codePage);
    }
}

} // namespace brimtool
