// The hot loops, one table of them for each processor level. All levels give the same results; the best one
// that the processor has is chosen on the first use, unless the environment variable BRIM_KERNELS names a
// lower one (plain, avx2 or avx512; anything else is ignored). Any thread may ask, at any time, static
// initialisation included.
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"
#include "kernels/sbtable.h"
#include "kernels/utf8.h"

#include <atomic>
#include <cstddef>

namespace sup::kernels {

enum class Level {
    plain,  ///< what every x86-64 processor has: SSE2
    avx2,   ///< AVX2, BMI2
    avx512, ///< AVX-512 with VBMI2
};

struct Kernels {
    Level level;

    /// Decodes [src, end) into `dst`, which has room for end - src units; nothing beyond is written. Stops
    /// before a sequence that `end` cuts.
    DecodeProgress (*decodeUtf8)(const char* src, const char* end, wchar_t* dst) noexcept;

    /// Encodes [src, end) into `dst`, which has room for three bytes a unit; nothing beyond is written. Stops
    /// before a unit above 0xFFFF, which may need four, and before a high surrogate at the very end, whose
    /// pair it cannot see.
    EncodeProgress (*encodeUtf8)(const wchar_t* src, const wchar_t* end, char* dst) noexcept;

    /// T2NEncodingUTF8::calculateExactSize().
    std::size_t (*exactUtf8Size)(const wchar_t* src, std::size_t srcLen) noexcept;

    /// See sbtable.h.
    void (*decodeSingleByte)(const SingleByteDecoding& table, const char* src, std::size_t length,
                             wchar_t* dst) noexcept;
    std::size_t (*encodeSingleByte)(const SingleByteEncoding& table, const wchar_t* src, std::size_t length,
                                    char* dst) noexcept;
};

/// The table of a level; null when the processor lacks it.
BRIMPORTABLE_API const Kernels* kernelsOf(Level level) noexcept;

namespace kernels_details {
/// Null until the first use. The tables are constants, so nothing has to be published with the pointer.
extern std::atomic<const Kernels*> g_current;
const Kernels& choose() noexcept;
} // namespace kernels_details

/// The table in use, for the library.
inline const Kernels& kernels() noexcept {
    const Kernels* const current = kernels_details::g_current.load(std::memory_order_relaxed);
    return current != nullptr ? *current : kernels_details::choose();
}

/// For tests: kernels(); and a table in the place of the chosen one, null going back to the choice.
BRIMPORTABLE_API const Kernels& kernelsInUse() noexcept;
BRIMPORTABLE_API void overrideKernels(const Kernels* table) noexcept;

/// The tables of the levels. Take them from kernelsOf(), which knows the processor.
extern const Kernels kPlainKernels;
extern const Kernels kAvx2Kernels;
extern const Kernels kAvx512Kernels;

} // namespace sup::kernels
