#include "transcodingimplutf16.h"

#include "EncodingUTF16.h"
#include "kernels/kernels.h"

namespace sup::transcodeimpl {

namespace {

constexpr std::size_t kTooSmall = static_cast<std::size_t>(-1);
constexpr const char* kThisFile = "server/Utility/Generic/Portable/Src/transcodingimplutf16.cpp";
constexpr int kAllocationLine = 21;

using Decoder = N2TEncodingUTF16<wchar_t, unsigned short>;
using Encoder = T2NEncodingUTF16<wchar_t, unsigned short>;

constexpr Decoder kN2WEncodingEndianBE(Decoder::kBIG_ENDIAN);
constexpr Decoder kN2WEncodingEndianLE(Decoder::kLITTLE_ENDIAN);
constexpr Encoder kW2NEncodingEndianBE(Encoder::kBIG_ENDIAN);
constexpr Encoder kW2NEncodingEndianLE(Encoder::kLITTLE_ENDIAN);

constexpr kernels::ByteOrder orderOf(bool bigEndian) {
    return bigEndian ? kernels::ByteOrder::big : kernels::ByteOrder::little;
}

template <class Functor, class Source, class Target>
std::size_t convert(const Functor& functor, const Source* src, std::size_t srcLen, Target* dst,
                    std::size_t dstLen) {
    typename Functor::State state;
    return functor.encode(src, srcLen, dst, dstLen, state);
}

} // namespace

std::size_t Decoder::encode(const char* src, std::size_t srcLen, wchar_t* dst, std::size_t dstLen,
                            State& /*state*/) const {
    const std::size_t units = srcLen / 2;
    if (dstLen < units) {
        return kTooSmall;
    }
    kernels::kernels().decodeUtf16(orderOf(m_bBigEndian), src, units, dst);
    return units;
}

std::size_t Encoder::encode(const wchar_t* src, std::size_t srcLen, char* dst, std::size_t dstLen,
                            State& /*state*/) const {
    if (dstLen / 2 < srcLen) {
        return kTooSmall;
    }
    kernels::kernels().encodeUtf16(orderOf(m_bBigEndian), src, srcLen, dst);
    return 2 * srcLen;
}

TranscoderImplBase* TranscoderImplUTF16BE::CreateTranscoderTable(const UnicodeMultibyteMapping* /*table*/,
                                                                 std::size_t /*param*/) {
    return new (kThisFile, kAllocationLine) TranscoderImplUTF16BE;
}

auto TranscoderImplUTF16BE::multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst,
                                               size_type dstLen, state* /*ctx*/) const -> size_type {
    return S_multibyteToUnicode(src, srcLen, dst, dstLen);
}

auto TranscoderImplUTF16BE::unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst,
                                               size_type dstLen, state* /*ctx*/, callback /*cb*/,
                                               callbackParam /*cbParam*/) const -> size_type {
    return S_unicodeToMultibyte(src, srcLen, dst, dstLen);
}

auto TranscoderImplUTF16BE::getMultibyteFactor() const -> size_type { return Encoder::maxExpansionFactor(); }

bool TranscoderImplUTF16BE::isUnicodeCompletelyRepresentable() const { return true; }

auto TranscoderImplUTF16BE::S_multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst,
                                                 size_type dstLen) -> size_type {
    return convert(kN2WEncodingEndianBE, src, srcLen, dst, dstLen);
}

auto TranscoderImplUTF16BE::S_unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst,
                                                 size_type dstLen) -> size_type {
    return convert(kW2NEncodingEndianBE, src, srcLen, dst, dstLen);
}

TranscoderImplBase* TranscoderImplUTF16LE::CreateTranscoderTable(const UnicodeMultibyteMapping* /*table*/,
                                                                 std::size_t /*param*/) {
    return new (kThisFile, kAllocationLine) TranscoderImplUTF16LE;
}

auto TranscoderImplUTF16LE::multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst,
                                               size_type dstLen, state* /*ctx*/) const -> size_type {
    return S_multibyteToUnicode(src, srcLen, dst, dstLen);
}

auto TranscoderImplUTF16LE::unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst,
                                               size_type dstLen, state* /*ctx*/, callback /*cb*/,
                                               callbackParam /*cbParam*/) const -> size_type {
    return S_unicodeToMultibyte(src, srcLen, dst, dstLen);
}

auto TranscoderImplUTF16LE::getMultibyteFactor() const -> size_type { return Encoder::maxExpansionFactor(); }

bool TranscoderImplUTF16LE::isUnicodeCompletelyRepresentable() const { return true; }

auto TranscoderImplUTF16LE::S_multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst,
                                                 size_type dstLen) -> size_type {
    return convert(kN2WEncodingEndianLE, src, srcLen, dst, dstLen);
}

auto TranscoderImplUTF16LE::S_unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst,
                                                 size_type dstLen) -> size_type {
    return convert(kW2NEncodingEndianLE, src, srcLen, dst, dstLen);
}

} // namespace sup::transcodeimpl
