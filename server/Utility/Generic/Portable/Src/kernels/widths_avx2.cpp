// The level of processors with AVX2: 32 units a step; what is left goes in one more step that overlaps the
// one before, and texts shorter than a step by the plain loops.
#include "kernels/targets.h"
#include "kernels/widths.h"

#include <cstdint>
#include <immintrin.h>

namespace sup::kernels {

namespace {

constexpr std::size_t kStep = 32;
// From this length on the wider side is aligned first: its accesses would cross a cache line every other
// time.
constexpr std::size_t kWorthAligning = 1024;

BRIM_AVX2 inline __m128i load16(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
BRIM_AVX2 inline __m256i load32(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
BRIM_AVX2 inline void store32(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }

inline std::size_t unitsToAlignment(const wchar_t* p) {
    constexpr std::size_t kUnits = 32 / sizeof(wchar_t);
    return kUnits - reinterpret_cast<std::uintptr_t>(p) / sizeof(wchar_t) % kUnits;
}

// ---- Towards wide units -----------------------------------------------------------------------------------

// Each makes eight units.
struct FromBytes {
    static constexpr std::size_t kBytes = 1;
    BRIM_AVX2 static __m256i units(const char* src) {
        return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(src)));
    }
    static void plain(const char* src, std::size_t length, wchar_t* dst) { widenPlain(src, length, dst); }
};

struct FromLittle {
    static constexpr std::size_t kBytes = 2;
    BRIM_AVX2 static __m256i units(const char* src) { return _mm256_cvtepu16_epi32(load16(src)); }
    static void plain(const char* src, std::size_t length, wchar_t* dst) {
        decodeUtf16Plain(ByteOrder::little, src, length, dst);
    }
};

struct FromBig {
    static constexpr std::size_t kBytes = 2;
    BRIM_AVX2 static __m256i units(const char* src) {
        const __m128i swap = _mm_set_epi64x(0x0E0F0C0D0A0B0809, 0x0607040502030001);
        return _mm256_cvtepu16_epi32(_mm_shuffle_epi8(load16(src), swap));
    }
    static void plain(const char* src, std::size_t length, wchar_t* dst) {
        decodeUtf16Plain(ByteOrder::big, src, length, dst);
    }
};

template <class From>
BRIM_AVX2 inline void stepToWide(const char* src, wchar_t* dst) {
    for (std::size_t i = 0; i < kStep; i += 8) {
        store32(dst + i, From::units(src + From::kBytes * i));
    }
}

template <class From>
BRIM_AVX2 inline void toWide(const char* src, std::size_t units, wchar_t* dst) {
    if (units < kStep) {
        From::plain(src, units, dst);
        return;
    }
    stepToWide<From>(src, dst);
    std::size_t done = units >= kWorthAligning ? unitsToAlignment(dst) : kStep;
    for (; units - done >= kStep; done += kStep) {
        stepToWide<From>(src + From::kBytes * done, dst + done);
    }
    stepToWide<From>(src + From::kBytes * (units - kStep), dst + (units - kStep));
}

// ---- From wide units --------------------------------------------------------------------------------------

// The lower halves of sixteen units, in order.
BRIM_AVX2 inline __m256i lowerHalves(const wchar_t* src) {
    const __m256i half = _mm256_set1_epi32(0xFFFF);
    const __m256i packed =
        _mm256_packus_epi32(_mm256_and_si256(load32(src), half), _mm256_and_si256(load32(src + 8), half));
    return _mm256_permute4x64_epi64(packed, 0xD8);
}

struct ToBytes {
    static constexpr std::size_t kBytes = 1;
    BRIM_AVX2 static void step(const wchar_t* src, char* dst) {
        const __m256i byte = _mm256_set1_epi32(0xFF);
        const __m256i first =
            _mm256_packus_epi32(_mm256_and_si256(load32(src), byte), _mm256_and_si256(load32(src + 8), byte));
        const __m256i second = _mm256_packus_epi32(_mm256_and_si256(load32(src + 16), byte),
                                                   _mm256_and_si256(load32(src + 24), byte));
        // The packs take from both halves of the registers in turn.
        store32(dst, _mm256_permutevar8x32_epi32(_mm256_packus_epi16(first, second),
                                                 _mm256_set_epi32(7, 3, 6, 2, 5, 1, 4, 0)));
    }
    static void plain(const wchar_t* src, std::size_t length, char* dst) { narrowPlain(src, length, dst); }
};

struct ToLittle {
    static constexpr std::size_t kBytes = 2;
    BRIM_AVX2 static void step(const wchar_t* src, char* dst) {
        store32(dst, lowerHalves(src));
        store32(dst + 32, lowerHalves(src + 16));
    }
    static void plain(const wchar_t* src, std::size_t length, char* dst) {
        encodeUtf16Plain(ByteOrder::little, src, length, dst);
    }
};

struct ToBig {
    static constexpr std::size_t kBytes = 2;
    BRIM_AVX2 static void step(const wchar_t* src, char* dst) {
        const __m256i swap =
            _mm256_broadcastsi128_si256(_mm_set_epi64x(0x0E0F0C0D0A0B0809, 0x0607040502030001));
        store32(dst, _mm256_shuffle_epi8(lowerHalves(src), swap));
        store32(dst + 32, _mm256_shuffle_epi8(lowerHalves(src + 16), swap));
    }
    static void plain(const wchar_t* src, std::size_t length, char* dst) {
        encodeUtf16Plain(ByteOrder::big, src, length, dst);
    }
};

template <class To>
BRIM_AVX2 inline void fromWide(const wchar_t* src, std::size_t units, char* dst) {
    if (units < kStep) {
        To::plain(src, units, dst);
        return;
    }
    To::step(src, dst);
    std::size_t done = units >= kWorthAligning ? unitsToAlignment(src) : kStep;
    for (; units - done >= kStep; done += kStep) {
        To::step(src + done, dst + To::kBytes * done);
    }
    To::step(src + (units - kStep), dst + To::kBytes * (units - kStep));
}

// ---- What fits --------------------------------------------------------------------------------------------

constexpr std::size_t kFitBlock = 64;

BRIM_AVX2 inline bool stepFits(const wchar_t* src, std::size_t units) {
    __m256i all = _mm256_setzero_si256();
    for (std::size_t i = 0; i < units; i += 8) {
        all = _mm256_or_si256(all, load32(src + i));
    }
    return _mm256_testz_si256(all, _mm256_set1_epi32(~0xFF)) != 0;
}

} // namespace

BRIM_AVX2 void widenAvx2(const char* src, std::size_t length, wchar_t* dst) noexcept {
    toWide<FromBytes>(src, length, dst);
}

BRIM_AVX2 void narrowAvx2(const wchar_t* src, std::size_t length, char* dst) noexcept {
    fromWide<ToBytes>(src, length, dst);
}

BRIM_AVX2 bool fitsInByteAvx2(const wchar_t* src, std::size_t length) noexcept {
    for (; length >= kFitBlock; src += kFitBlock, length -= kFitBlock) {
        if (!stepFits(src, kFitBlock)) {
            return false;
        }
    }
    for (; length >= 8; src += 8, length -= 8) {
        if (!stepFits(src, 8)) {
            return false;
        }
    }
    return fitsInBytePlain(src, length);
}

BRIM_AVX2 std::size_t narrowFittingAvx2(const wchar_t* src, std::size_t length, char* dst) noexcept {
    std::size_t done = 0;
    for (; length - done >= kStep && stepFits(src + done, kStep); done += kStep) {
        ToBytes::step(src + done, dst + done);
    }
    return done + narrowFittingPlain(src + done, length - done, dst + done);
}

BRIM_AVX2 void decodeUtf16Avx2(ByteOrder order, const char* src, std::size_t units, wchar_t* dst) noexcept {
    if (order == ByteOrder::big) {
        toWide<FromBig>(src, units, dst);
    } else {
        toWide<FromLittle>(src, units, dst);
    }
}

BRIM_AVX2 void encodeUtf16Avx2(ByteOrder order, const wchar_t* src, std::size_t units, char* dst) noexcept {
    if (order == ByteOrder::big) {
        fromWide<ToBig>(src, units, dst);
    } else {
        fromWide<ToLittle>(src, units, dst);
    }
}

} // namespace sup::kernels
