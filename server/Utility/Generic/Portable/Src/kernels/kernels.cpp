#include "kernels/kernels.h"

#include <cstdlib>
#include <cstring>

namespace sup::kernels {

namespace {

constexpr const char* kVariable = "BRIM_KERNELS";

// From the best to the least.
struct NamedLevel {
    const char* name;
    Level level;
};
constexpr NamedLevel kLevels[] = {{"avx512", Level::avx512}, {"avx2", Level::avx2}, {"plain", Level::plain}};

bool hasAvx2() noexcept {
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
           __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("popcnt");
}

bool hasAvx512() noexcept {
    return hasAvx2() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq") &&
           __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vbmi2");
}

constexpr Kernels kPlainKernels{
    .level = Level::plain,
    .decodeUtf8 = &decodeUtf8Plain,
    .encodeUtf8 = &encodeUtf8Plain,
    .exactUtf8Size = &exactUtf8SizePlain,
    .wellFormedUtf8 = &wellFormedUtf8Plain,
    .widen = &widenPlain,
    .narrow = &narrowPlain,
    .fitsInByte = &fitsInBytePlain,
    .narrowFitting = &narrowFittingPlain,
    .decodeUtf16 = &decodeUtf16Plain,
    .encodeUtf16 = &encodeUtf16Plain,
    .decodeSingleByte = &decodeSingleBytePlain,
    .encodeSingleByte = &encodeSingleBytePlain,
    .decodeMultibyte = &decodeMultibytePlain,
    .encodeMultibyte = &encodeMultibytePlain,
};

constexpr Kernels kAvx2Kernels{
    .level = Level::avx2,
    .decodeUtf8 = &decodeUtf8Avx2,
    .encodeUtf8 = &encodeUtf8Avx2,
    .exactUtf8Size = &exactUtf8SizeAvx2,
    .wellFormedUtf8 = &wellFormedUtf8Avx2,
    .widen = &widenAvx2,
    .narrow = &narrowAvx2,
    .fitsInByte = &fitsInByteAvx2,
    .narrowFitting = &narrowFittingAvx2,
    .decodeUtf16 = &decodeUtf16Avx2,
    .encodeUtf16 = &encodeUtf16Avx2,
    .decodeSingleByte = &decodeSingleByteAvx2,
    .encodeSingleByte = &encodeSingleByteAvx2,
    .decodeMultibyte = &decodeMultibyteAvx2,
    .encodeMultibyte = &encodeMultibyteAvx2,
};

constexpr Kernels kAvx512Kernels{
    .level = Level::avx512,
    .decodeUtf8 = &decodeUtf8Avx512,
    .encodeUtf8 = &encodeUtf8Avx512,
    .exactUtf8Size = &exactUtf8SizeAvx512,
    .wellFormedUtf8 = &wellFormedUtf8Avx512,
    .widen = &widenAvx512,
    .narrow = &narrowAvx512,
    .fitsInByte = &fitsInByteAvx512,
    .narrowFitting = &narrowFittingAvx512,
    .decodeUtf16 = &decodeUtf16Avx512,
    .encodeUtf16 = &encodeUtf16Avx512,
    .decodeSingleByte = &decodeSingleByteAvx512,
    .encodeSingleByte = &encodeSingleByteAvx512,
    .decodeMultibyte = &decodeMultibyteAvx512,
    .encodeMultibyte = &encodeMultibyteAvx512,
};

} // namespace

const Kernels* kernelsOf(Level level) noexcept {
    __builtin_cpu_init(); // a constructor may be what calls
    switch (level) {
    case Level::plain:
        return &kPlainKernels;
    case Level::avx2:
        return hasAvx2() ? &kAvx2Kernels : nullptr;
    case Level::avx512:
        return hasAvx512() ? &kAvx512Kernels : nullptr;
    }
    return nullptr;
}

const Kernels& kernelsInUse() noexcept { return kernels(); }

void overrideKernels(const Kernels* table) noexcept {
    kernels_details::g_current.store(table, std::memory_order_relaxed);
}

namespace kernels_details {

constinit std::atomic<const Kernels*> g_current{nullptr};

// Threads that come here at the same time choose the same.
const Kernels& choose() noexcept {
    const char* const asked = std::getenv(kVariable);
    const Kernels* best = nullptr;
    const Kernels* named = nullptr;
    for (const NamedLevel& row : kLevels) {
        const Kernels* const table = kernelsOf(row.level);
        if (best == nullptr) {
            best = table;
        }
        if (asked != nullptr && std::strcmp(asked, row.name) == 0) {
            named = table;
        }
    }
    const Kernels* const chosen = named != nullptr ? named : best;
    // An override that came first stays.
    const Kernels* current = nullptr;
    g_current.compare_exchange_strong(current, chosen, std::memory_order_relaxed);
    return current != nullptr ? *current : *chosen;
}

} // namespace kernels_details

} // namespace sup::kernels
