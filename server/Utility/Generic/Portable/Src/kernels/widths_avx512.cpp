// The level of processors with AVX-512 VBMI2: whole registers, and what is left of them through masks.
#include "kernels/units_avx512.h"
#include "kernels/widths.h"

#include <cstdint>
#include <immintrin.h>

namespace sup::kernels {

namespace {

// From this length on the wider side is aligned first: its accesses would cross a cache line each.
constexpr std::size_t kWorthAligning = 1024;
constexpr std::size_t kLine = 64;
constexpr std::size_t kLineUnits = kLine / sizeof(wchar_t);

BRIM_AVX512 inline __mmask16 firstUnits(std::size_t count) {
    return static_cast<__mmask16>(_bzhi_u32(0xFFFF, static_cast<unsigned int>(count)));
}
BRIM_AVX512 inline std::uint64_t firstBytes(std::size_t count) {
    return _bzhi_u64(~std::uint64_t{0}, static_cast<unsigned int>(count));
}
// ---- Towards wide units -----------------------------------------------------------------------------------

// Each step makes 16 units; `part` reads the first ones only.
struct FromBytes {
    static constexpr std::size_t kBytes = 1;
    BRIM_AVX512 static __m512i whole(const char* src) {
        return _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src)));
    }
    BRIM_AVX512 static __m512i part(const char* src, __mmask16 units) {
        return _mm512_cvtepu8_epi32(_mm_maskz_loadu_epi8(units, src));
    }
};

struct FromLittle {
    static constexpr std::size_t kBytes = 2;
    BRIM_AVX512 static __m512i whole(const char* src) {
        return _mm512_cvtepu16_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src)));
    }
    BRIM_AVX512 static __m512i part(const char* src, __mmask16 units) {
        return _mm512_cvtepu16_epi32(_mm256_maskz_loadu_epi16(units, src));
    }
};

struct FromBig {
    static constexpr std::size_t kBytes = 2;
    BRIM_AVX512 static __m512i swapped(__m512i units) {
        const __m512i halves = _mm512_broadcast_i32x4(_mm_set_epi64x(0x0E0F0C0D0A0B0809, 0x0607040502030001));
        return _mm512_cvtepu16_epi32(_mm512_castsi512_si256(_mm512_shuffle_epi8(units, halves)));
    }
    BRIM_AVX512 static __m512i whole(const char* src) {
        return swapped(_mm512_castsi256_si512(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src))));
    }
    BRIM_AVX512 static __m512i part(const char* src, __mmask16 units) {
        return swapped(_mm512_castsi256_si512(_mm256_maskz_loadu_epi16(units, src)));
    }
};

template <class Step>
BRIM_AVX512 inline void storeStep(const char* src, wchar_t* dst) {
    _mm512_storeu_si512(dst, Step::whole(src));
}

template <class Step>
BRIM_AVX512 inline void toWide(const char* src, std::size_t units, wchar_t* dst) {
    std::size_t done = 0;
    if (units >= kWorthAligning) {
        storeStep<Step>(src, dst); // the aligned steps write over a part of it
        done = static_cast<std::size_t>(unitsToLine(dst));
    }
    for (; units - done >= 4 * kLineUnits; done += 4 * kLineUnits) {
        const char* const from = src + Step::kBytes * done;
        storeStep<Step>(from, dst + done);
        storeStep<Step>(from + Step::kBytes * kLineUnits, dst + done + kLineUnits);
        storeStep<Step>(from + Step::kBytes * 2 * kLineUnits, dst + done + 2 * kLineUnits);
        storeStep<Step>(from + Step::kBytes * 3 * kLineUnits, dst + done + 3 * kLineUnits);
    }
    for (; units - done >= kLineUnits; done += kLineUnits) {
        storeStep<Step>(src + Step::kBytes * done, dst + done);
    }
    if (done != units) {
        const __mmask16 rest = firstUnits(units - done);
        _mm512_mask_storeu_epi32(dst + done, rest, Step::part(src + Step::kBytes * done, rest));
    }
}

// ---- From wide units --------------------------------------------------------------------------------------

// Each step takes 64 bytes' worth of units, or with `part` the first `count` of 16.
struct ToBytes {
    static constexpr std::size_t kBytes = 1;
    BRIM_AVX512 static void whole(const wchar_t* src, char* dst) {
        _mm512_storeu_si512(dst, narrow64(_mm512_loadu_si512(src), _mm512_loadu_si512(src + 16),
                                          _mm512_loadu_si512(src + 32), _mm512_loadu_si512(src + 48)));
    }
    BRIM_AVX512 static void part(const wchar_t* src, std::size_t count, char* dst) {
        const __m512i units = _mm512_maskz_loadu_epi32(firstUnits(count), src);
        _mm_mask_storeu_epi8(dst, firstUnits(count), _mm512_cvtepi32_epi8(units));
    }
};

template <unsigned int kFirst>
struct ToUtf16 {
    static constexpr std::size_t kBytes = 2;
    BRIM_AVX512 static void whole(const wchar_t* src, char* dst) {
        _mm512_storeu_si512(dst,
                            (chosenBytes<2, kFirst>(_mm512_loadu_si512(src), _mm512_loadu_si512(src + 16))));
    }
    BRIM_AVX512 static void part(const wchar_t* src, std::size_t count, char* dst) {
        const __m512i units = _mm512_maskz_loadu_epi32(firstUnits(count), src);
        _mm512_mask_storeu_epi8(dst, firstBytes(2 * count), chosenBytes<2, kFirst>(units, units));
    }
};

template <class Step>
BRIM_AVX512 inline void fromWide(const wchar_t* src, std::size_t units, char* dst) {
    constexpr std::size_t kStep = kLine / Step::kBytes;
    std::size_t done = 0;
    if (units >= kWorthAligning) {
        Step::whole(src, dst);
        done = static_cast<std::size_t>(unitsToLine(src));
    }
    for (; units - done >= 2 * kStep; done += 2 * kStep) {
        Step::whole(src + done, dst + Step::kBytes * done);
        Step::whole(src + done + kStep, dst + Step::kBytes * (done + kStep));
    }
    if (units - done >= kStep) {
        Step::whole(src + done, dst + Step::kBytes * done);
        done += kStep;
    }
    for (; units - done >= kLineUnits; done += kLineUnits) {
        Step::part(src + done, kLineUnits, dst + Step::kBytes * done);
    }
    if (done != units) {
        Step::part(src + done, units - done, dst + Step::kBytes * done);
    }
}

// ---- What fits --------------------------------------------------------------------------------------------

constexpr std::size_t kFitBlock = 128;
constexpr std::size_t kNarrowBlock = 64;

BRIM_AVX512 inline __m512i allBits64(const wchar_t* src) {
    const __m512i three = _mm512_ternarylogic_epi32(_mm512_loadu_si512(src), _mm512_loadu_si512(src + 16),
                                                    _mm512_loadu_si512(src + 32), 0xFE);
    return _mm512_or_si512(three, _mm512_loadu_si512(src + 48));
}
BRIM_AVX512 inline bool fits(__m512i bits) {
    return _mm512_test_epi32_mask(bits, _mm512_set1_epi32(~0xFF)) == 0;
}
BRIM_AVX512 inline bool blockFits(const wchar_t* src) {
    return fits(_mm512_or_si512(allBits64(src), allBits64(src + 64)));
}
// The place of the first of 16 units, or fewer, that does not fit; `count` when all do.
BRIM_AVX512 inline std::size_t fittingOf(const wchar_t* src, std::size_t count) {
    const __m512i units = _mm512_maskz_loadu_epi32(firstUnits(count), src);
    const unsigned int others = _mm512_test_epi32_mask(units, _mm512_set1_epi32(~0xFF));
    return others == 0 ? count : _tzcnt_u32(others);
}

} // namespace

BRIM_AVX512 void widenAvx512(const char* src, std::size_t length, wchar_t* dst) noexcept {
    toWide<FromBytes>(src, length, dst);
}

BRIM_AVX512 void narrowAvx512(const wchar_t* src, std::size_t length, char* dst) noexcept {
    fromWide<ToBytes>(src, length, dst);
}

BRIM_AVX512 bool fitsInByteAvx512(const wchar_t* src, std::size_t length) noexcept {
    for (; length >= kFitBlock; src += kFitBlock, length -= kFitBlock) {
        if (!blockFits(src)) {
            return false;
        }
    }
    __m512i all = _mm512_setzero_si512();
    for (; length >= kLineUnits; src += kLineUnits, length -= kLineUnits) {
        all = _mm512_or_si512(all, _mm512_loadu_si512(src));
    }
    return fits(_mm512_or_si512(all, _mm512_maskz_loadu_epi32(firstUnits(length), src)));
}

BRIM_AVX512 std::size_t narrowFittingAvx512(const wchar_t* src, std::size_t length, char* dst) noexcept {
    std::size_t done = 0;
    while (length - done >= kNarrowBlock) {
        const __m512i a = _mm512_loadu_si512(src + done);
        const __m512i b = _mm512_loadu_si512(src + done + 16);
        const __m512i c = _mm512_loadu_si512(src + done + 32);
        const __m512i d = _mm512_loadu_si512(src + done + 48);
        if (!fits(_mm512_or_si512(_mm512_ternarylogic_epi32(a, b, c, 0xFE), d))) {
            break;
        }
        _mm512_storeu_si512(dst + done, narrow64(a, b, c, d));
        // As far as the next cache line of the source: from there on the loads are aligned.
        done += static_cast<std::size_t>(unitsToLine(src + done)) + kNarrowBlock - kLineUnits;
    }
    while (done < length) {
        const std::size_t count = length - done < kLineUnits ? length - done : kLineUnits;
        const std::size_t fitting = fittingOf(src + done, count);
        ToBytes::part(src + done, fitting, dst + done);
        done += fitting;
        if (fitting != count) {
            break;
        }
    }
    return done;
}

BRIM_AVX512 void decodeUtf16Avx512(ByteOrder order, const char* src, std::size_t units,
                                   wchar_t* dst) noexcept {
    if (order == ByteOrder::big) {
        toWide<FromBig>(src, units, dst);
    } else {
        toWide<FromLittle>(src, units, dst);
    }
}

BRIM_AVX512 void encodeUtf16Avx512(ByteOrder order, const wchar_t* src, std::size_t units,
                                   char* dst) noexcept {
    if (order == ByteOrder::big) {
        fromWide<ToUtf16<1>>(src, units, dst);
    } else {
        fromWide<ToUtf16<0>>(src, units, dst);
    }
}

} // namespace sup::kernels
