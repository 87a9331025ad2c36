#include "transcodingimplutf8.h"

#include "EncodingUTF8.h"
#include "kernels/kernels.h"

#include <algorithm>
#include <cstring>

namespace sup::transcodeimpl {

namespace {

constexpr std::size_t kTooSmall = static_cast<std::size_t>(-1);
constexpr const char* kThisFile = "server/Utility/Generic/Portable/Src/transcodingimplutf8.cpp";
constexpr int kAllocationLine = 20;

using Decoder = N2TEncodingUTF8<wchar_t, unsigned short>;
using Encoder = T2NEncodingUTF8<wchar_t, unsigned short>;

constexpr Decoder ktN2WUtf8er{};
constexpr Encoder ktW2NUtf8er{};

// Decodes until the source ends or is cut; false when the destination is too small. No byte gives more than
// one unit, so a source of `room` bytes always fits: the kernel works on such slices, and only what a slice's
// end cuts is checked character by character.
bool decodeBounded(const char*& src, const char* end, wchar_t*& dst, const wchar_t* dstEnd) {
    for (;;) {
        const kernels::DecodeProgress at =
            kernels::kernels().decodeUtf8(src, src + std::min(end - src, dstEnd - dst), dst);
        const bool moved = at.src != src;
        src = at.src;
        dst = at.dst;
        if (src == end) {
            return true;
        }
        if (moved) {
            continue;
        }
        const kernels::DecodedSequence sequence = kernels::decodeSequence(src, end);
        if (sequence.consumed == 0) {
            return true;
        }
        if (static_cast<std::size_t>(dstEnd - dst) < kernels::unitCount(sequence.value)) {
            return false;
        }
        src += sequence.consumed;
        dst = kernels::writeUnits(sequence.value, dst);
    }
}

// Completes the pending sequence of `state` from `src`; false when `dst` is too small. Leaves bytes pending
// only when the source ends first.
bool resume(Decoder::State& state, const char*& src, const char* end, wchar_t*& dst, const wchar_t* dstEnd) {
    if (dst == dstEnd) {
        return false;
    }
    const std::size_t length = std::min(state.nCharByteLength, sizeof(state.aBytes));
    while (state.nBytesStored < length) {
        if (src == end) {
            return true;
        }
        if (!kernels::isContinuation(static_cast<unsigned char>(*src))) {
            *dst++ = static_cast<wchar_t>(kernels::kReplacement);
            state.nBytesStored = 0;
            return true;
        }
        state.aBytes[state.nBytesStored++] = *src++;
    }
    const char32_t value = kernels::decodeSequence(state.aBytes, state.aBytes + length).value;
    if (static_cast<std::size_t>(dstEnd - dst) < kernels::unitCount(value)) {
        return false;
    }
    dst = kernels::writeUnits(value, dst);
    state.nBytesStored = 0;
    return true;
}

} // namespace

std::size_t Decoder::encode(const char* src, std::size_t srcLen, wchar_t* dst, std::size_t dstLen,
                            State& state) const {
    const char* const end = src + srcLen;
    wchar_t* const start = dst;
    const wchar_t* const dstEnd = dst + dstLen;
    State next = state;
    if (next.nBytesStored != 0 && !resume(next, src, end, dst, dstEnd)) {
        return kTooSmall;
    }
    if (next.nBytesStored == 0) {
        if (!decodeBounded(src, end, dst, dstEnd)) {
            return kTooSmall;
        }
        if (src != end) {
            next.nCharByteLength = kernels::announcedLength(static_cast<unsigned char>(*src));
            next.nBytesStored = static_cast<std::size_t>(end - src);
            std::copy(src, end, next.aBytes);
        }
    }
    state = next;
    return static_cast<std::size_t>(dst - start);
}

std::size_t Decoder::finalize(wchar_t* dst, std::size_t dstLen, const State& state) const {
    if (state.nBytesStored == 0) {
        return 0;
    }
    if (dstLen == 0) {
        return kTooSmall;
    }
    *dst = static_cast<wchar_t>(kernels::kReplacement);
    return 1;
}

// Works on slices that fit at three bytes a unit, as decodeBounded() does; the characters that the kernel
// stops at are checked one by one.
std::size_t Encoder::encode(const wchar_t* src, std::size_t srcLen, char* dst, std::size_t dstLen,
                            State& /*state*/) const {
    if (srcLen > dstLen) {
        return kTooSmall;
    }
    const wchar_t* const end = src + srcLen;
    char* const start = dst;
    const char* const dstEnd = dst + dstLen;
    while (src != end) {
        const kernels::EncodeProgress at =
            kernels::kernels().encodeUtf8(src, src + std::min(end - src, (dstEnd - dst) / 3), dst);
        src = at.src;
        dst = at.dst;
        if (src == end) {
            break;
        }
        const kernels::EncodedCharacter character = kernels::encodeCharacter(src, end);
        if (static_cast<std::size_t>(dstEnd - dst) < character.length) {
            return kTooSmall;
        }
        std::memcpy(dst, character.bytes, character.length);
        dst += character.length;
        src += character.consumed;
    }
    return static_cast<std::size_t>(dst - start);
}

std::size_t Encoder::calculateExactSize(const wchar_t* src, std::size_t srcLen) noexcept {
    return kernels::kernels().exactUtf8Size(src, srcLen);
}

TranscoderImplBase* TranscoderImplUTF8::CreateTranscoderTable(const UnicodeMultibyteMapping* /*table*/,
                                                              std::size_t /*param*/) {
    return new (kThisFile, kAllocationLine) TranscoderImplUTF8;
}

auto TranscoderImplUTF8::multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst,
                                            size_type dstLen, state* /*ctx*/) const -> size_type {
    return S_multibyteToUnicode(src, srcLen, dst, dstLen);
}

auto TranscoderImplUTF8::unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst,
                                            size_type dstLen, state* /*ctx*/, callback /*cb*/,
                                            callbackParam /*cbParam*/) const -> size_type {
    return S_unicodeToMultibyte(src, srcLen, dst, dstLen);
}

auto TranscoderImplUTF8::getMultibyteFactor() const -> size_type { return Encoder::maxExpansionFactor(); }

bool TranscoderImplUTF8::isUnicodeCompletelyRepresentable() const { return true; }

auto TranscoderImplUTF8::S_multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst,
                                              size_type dstLen) -> size_type {
    if (srcLen <= dstLen) { // a unit a byte always fits, and what the end cuts is dropped
        return static_cast<std::size_t>(kernels::kernels().decodeUtf8(src, src + srcLen, dst).dst - dst);
    }
    Decoder::State state;
    return ktN2WUtf8er.encode(src, srcLen, dst, dstLen, state);
}

auto TranscoderImplUTF8::S_unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst,
                                              size_type dstLen) -> size_type {
    if (srcLen <= dstLen / 3) { // three bytes a unit fit; seldom is there a unit that needs four
        const kernels::EncodeProgress at = kernels::kernels().encodeUtf8(src, src + srcLen, dst);
        if (at.src == src + srcLen) {
            return static_cast<std::size_t>(at.dst - dst);
        }
    }
    Encoder::State state;
    return ktW2NUtf8er.encode(src, srcLen, dst, dstLen, state);
}

auto TranscoderImplUTF8::S_unicodeToMultibyteCalculateExactSize(const wchar_t* src, std::size_t srcLen)
    -> size_type {
    return Encoder::calculateExactSize(src, srcLen);
}

} // namespace sup::transcodeimpl
