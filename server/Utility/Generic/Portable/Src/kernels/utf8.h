// What the UTF-8 loops do with one character, for all levels in one place; EncodingUTF8.h tells the rules.
// The loops (kernels.h) only find runs on which every rule agrees, and leave the rest to these functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace sup::kernels {

/// How far a loop came on either side.
struct DecodeProgress {
    const char* src;
    wchar_t* dst;
};
struct EncodeProgress {
    const wchar_t* src;
    char* dst;
};

/// One decoded sequence: its value, and the bytes it took; 0 bytes when `end` cuts the sequence.
struct DecodedSequence {
    char32_t value;
    std::size_t consumed;
};

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kFirstHighSurrogate = 0xD800;
constexpr char32_t kFirstLowSurrogate = 0xDC00;
constexpr char32_t kFirstSupplementary = 0x10000;
constexpr char32_t kLastCodePoint = 0x10FFFF;

inline bool isContinuation(unsigned char byte) noexcept { return (byte & 0xC0U) == 0x80U; }
inline bool isHighSurrogate(char32_t unit) noexcept { return (unit & ~0x3FFU) == kFirstHighSurrogate; }
inline bool isLowSurrogate(char32_t unit) noexcept { return (unit & ~0x3FFU) == kFirstLowSurrogate; }

/// The length that a lead byte announces; 1 for everything that leads nothing.
inline std::size_t announcedLength(unsigned char lead) noexcept {
    return lead < 0xC0 || lead >= 0xF8 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

/// Decodes the sequence at `src`, which is not `end`.
inline DecodedSequence decodeSequence(const char* src, const char* end) noexcept {
    const auto at = [src](std::size_t i) { return static_cast<unsigned char>(src[i]); };
    const unsigned char lead = at(0);
    const std::size_t length = announcedLength(lead);
    if (length == 1) {
        return {lead < 0x80 ? lead : kReplacement, 1};
    }
    if (static_cast<std::size_t>(end - src) < length) {
        return {kReplacement, 0};
    }
    const auto payload = [at](std::size_t i) { return static_cast<char32_t>(at(i) & 0x3FU); };
    if (length == 2) {
        if (!isContinuation(at(1))) {
            return {kReplacement, 1};
        }
        const char32_t value = (lead & 0x1FU) << 6 | payload(1);
        return {value < 0x80 ? kReplacement : value, 2};
    }
    // Lenient on purpose: one continuation byte among the trailing ones is enough.
    if (length == 3) {
        if (!isContinuation(at(1)) && !isContinuation(at(2))) {
            return {kReplacement, 1};
        }
        const char32_t value = (lead & 0x0FU) << 12 | payload(1) << 6 | payload(2);
        return {value < 0x800 ? kReplacement : value, 3};
    }
    if (!isContinuation(at(1)) && !isContinuation(at(2)) && !isContinuation(at(3))) {
        return {kReplacement, 1};
    }
    const char32_t value = (lead & 0x07U) << 18 | payload(1) << 12 | payload(2) << 6 | payload(3);
    return {value < kFirstSupplementary || value > kLastCodePoint ? kReplacement : value, 4};
}

/// The wide units of a decoded value, and writing them.
inline std::size_t unitCount(char32_t value) noexcept { return value < kFirstSupplementary ? 1 : 2; }
inline wchar_t* writeUnits(char32_t value, wchar_t* dst) noexcept {
    if (value < kFirstSupplementary) {
        *dst++ = static_cast<wchar_t>(value);
    } else {
        *dst++ = static_cast<wchar_t>(kFirstHighSurrogate + ((value - kFirstSupplementary) >> 10));
        *dst++ = static_cast<wchar_t>(kFirstLowSurrogate + (value & 0x3FFU));
    }
    return dst;
}

/// One encoded character: up to four bytes, and the units it took.
struct EncodedCharacter {
    char bytes[4];
    std::size_t length;
    std::size_t consumed;
};

/// Encodes the character at `src`, which is not `end`.
inline EncodedCharacter encodeCharacter(const wchar_t* src, const wchar_t* end) noexcept {
    const auto tag = [](char32_t bits, unsigned int mark) { return static_cast<char>(bits | mark); };
    auto c = static_cast<char32_t>(*src);
    std::size_t consumed = 1;
    if (c < 0x80) {
        return {{static_cast<char>(c)}, 1, 1};
    }
    if (c < 0x800) {
        return {{tag(c >> 6, 0xC0), tag(c & 0x3FU, 0x80)}, 2, 1};
    }
    if (isHighSurrogate(c) && end - src > 1 && isLowSurrogate(static_cast<char32_t>(src[1]))) {
        c = ((c - kFirstHighSurrogate) << 10) + (static_cast<char32_t>(src[1]) - kFirstLowSurrogate) +
            kFirstSupplementary;
        consumed = 2;
    }
    if (c < kFirstSupplementary) {
        return {{tag(c >> 12, 0xE0), tag(c >> 6 & 0x3FU, 0x80), tag(c & 0x3FU, 0x80)}, 3, 1};
    }
    if (c > kLastCodePoint) {
        return {{'?'}, 1, 1};
    }
    return {{tag(c >> 18, 0xF0), tag(c >> 12 & 0x3FU, 0x80), tag(c >> 6 & 0x3FU, 0x80), tag(c & 0x3FU, 0x80)},
            4,
            consumed};
}

/// Writes exactly the bytes of the character. A copy of a length that the compiler does not know is a call.
inline char* writeCharacter(const EncodedCharacter& character, char* dst) noexcept {
    dst[0] = character.bytes[0];
    if (character.length > 1) {
        dst[1] = character.bytes[1];
    }
    if (character.length > 2) {
        dst[2] = character.bytes[2];
    }
    if (character.length > 3) {
        dst[3] = character.bytes[3];
    }
    return dst + character.length;
}

/// The bytes that the exact size counts for the character at `src`, which is not `end`, and its units. Most
/// lone surrogates count as one byte.
struct CountedCharacter {
    std::size_t size;
    std::size_t consumed;
};
inline CountedCharacter countCharacter(const wchar_t* src, const wchar_t* end) noexcept {
    const auto c = static_cast<char32_t>(*src);
    if (c < 0x800) {
        return {c < 0x80 ? 1U : 2U, 1};
    }
    if (isHighSurrogate(c)) {
        const bool paired = end - src > 1 && isLowSurrogate(static_cast<char32_t>(src[1]));
        return paired ? CountedCharacter{4, 2} : CountedCharacter{1, 1};
    }
    if (isLowSurrogate(c)) {
        return {c == 0xDFFF ? 3U : 1U, 1};
    }
    return {c < kFirstSupplementary ? 3U : c <= kLastCodePoint ? 4U : 1U, 1};
}

// ---- Loops by the rule ------------------------------------------------------------------------------------

/// Decodes by the rule until `until`, which is not beyond `end`, is reached or passed; false when `end` cuts
/// the next sequence. Eight ASCII bytes go at once: they become no more units than there is room for.
inline bool decodeByRule(DecodeProgress& at, const char* until, const char* end) noexcept {
    while (at.src < until) {
        if (until - at.src >= 8) {
            std::uint64_t bytes = 0;
            std::memcpy(&bytes, at.src, sizeof(bytes));
            if ((bytes & 0x8080808080808080U) == 0) {
                for (std::size_t i = 0; i < 8; ++i) {
                    at.dst[i] = static_cast<wchar_t>(at.src[i]);
                }
                at.src += 8;
                at.dst += 8;
                continue;
            }
        }
        const DecodedSequence sequence = decodeSequence(at.src, end);
        if (sequence.consumed == 0) {
            return false;
        }
        at.src += sequence.consumed;
        at.dst = writeUnits(sequence.value, at.dst);
    }
    return true;
}

/// Encodes by the rule until `until`, which is not beyond `end`, is reached or passed; false before a unit
/// above 0xFFFF and before a high surrogate at the very end.
inline bool encodeByRule(EncodeProgress& at, const wchar_t* until, const wchar_t* end) noexcept {
    while (at.src < until) {
        const auto unit = static_cast<char32_t>(*at.src);
        if (unit < 0x80) {
            *at.dst++ = static_cast<char>(unit);
            ++at.src;
            continue;
        }
        if (unit >= kFirstSupplementary || (isHighSurrogate(unit) && end - at.src == 1)) {
            return false;
        }
        const EncodedCharacter character = encodeCharacter(at.src, end);
        at.dst = writeCharacter(character, at.dst);
        at.src += character.consumed;
    }
    return true;
}

/// Counts by the rule until `until`, which is not beyond `end`, is reached or passed; moves `src` there.
inline std::size_t countByRule(const wchar_t*& src, const wchar_t* until, const wchar_t* end) noexcept {
    std::size_t size = 0;
    while (src < until) {
        const CountedCharacter character = countCharacter(src, end);
        size += character.size;
        src += character.consumed;
    }
    return size;
}

// ---- The loops, at each level -----------------------------------------------------------------------------

/// Decodes [src, end) into `dst`, which has room for end - src units; nothing beyond is written. Stops before
/// a sequence that `end` cuts.
DecodeProgress decodeUtf8Plain(const char* src, const char* end, wchar_t* dst) noexcept;
DecodeProgress decodeUtf8Avx2(const char* src, const char* end, wchar_t* dst) noexcept;
DecodeProgress decodeUtf8Avx512(const char* src, const char* end, wchar_t* dst) noexcept;

/// Encodes [src, end) into `dst`, which has room for three bytes a unit; nothing beyond is written. Stops
/// before a unit above 0xFFFF, which may need four, and before a high surrogate at the very end, whose pair
/// it cannot see.
EncodeProgress encodeUtf8Plain(const wchar_t* src, const wchar_t* end, char* dst) noexcept;
EncodeProgress encodeUtf8Avx2(const wchar_t* src, const wchar_t* end, char* dst) noexcept;
EncodeProgress encodeUtf8Avx512(const wchar_t* src, const wchar_t* end, char* dst) noexcept;

/// T2NEncodingUTF8::calculateExactSize().
std::size_t exactUtf8SizePlain(const wchar_t* src, std::size_t srcLen) noexcept;
std::size_t exactUtf8SizeAvx2(const wchar_t* src, std::size_t srcLen) noexcept;
std::size_t exactUtf8SizeAvx512(const wchar_t* src, std::size_t srcLen) noexcept;

/// The bytes of the well-formed sequences (utf8_wellformed.h) before the first that is not.
std::size_t wellFormedUtf8Plain(const char* src, std::size_t length) noexcept;
std::size_t wellFormedUtf8Avx2(const char* src, std::size_t length) noexcept;
std::size_t wellFormedUtf8Avx512(const char* src, std::size_t length) noexcept;

} // namespace sup::kernels
