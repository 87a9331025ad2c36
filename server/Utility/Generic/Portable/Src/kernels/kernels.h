// The hot loops, one table of them for each processor level. All levels give the same results; the best one
// that the processor has is chosen on the first use, unless the environment variable BRIM_KERNELS names a
// lower one (plain, avx2 or avx512; anything else is ignored). Any thread may ask, at any time, static
// initialisation included.
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"
#include "kernels/mbtable.h"
#include "kernels/sbtable.h"
#include "kernels/utf8.h"
#include "kernels/widths.h"

#include <atomic>
#include <cstddef>

namespace sup::kernels {

enum class Level {
    plain,  ///< what every x86-64 processor has: SSE2
    avx2,   ///< AVX2, BMI2
    avx512, ///< AVX-512 with VBMI2
};

/// The headers of the areas tell what the functions do.
struct Kernels {
    Level level;

    // utf8.h
    DecodeProgress (*decodeUtf8)(const char* src, const char* end, wchar_t* dst) noexcept;
    EncodeProgress (*encodeUtf8)(const wchar_t* src, const wchar_t* end, char* dst) noexcept;
    std::size_t (*exactUtf8Size)(const wchar_t* src, std::size_t srcLen) noexcept;
    std::size_t (*wellFormedUtf8)(const char* src, std::size_t length) noexcept;

    // widths.h
    void (*widen)(const char* src, std::size_t length, wchar_t* dst) noexcept;
    void (*narrow)(const wchar_t* src, std::size_t length, char* dst) noexcept;
    bool (*fitsInByte)(const wchar_t* src, std::size_t length) noexcept;
    std::size_t (*narrowFitting)(const wchar_t* src, std::size_t length, char* dst) noexcept;
    void (*decodeUtf16)(ByteOrder order, const char* src, std::size_t units, wchar_t* dst) noexcept;
    void (*encodeUtf16)(ByteOrder order, const wchar_t* src, std::size_t units, char* dst) noexcept;

    // sbtable.h
    void (*decodeSingleByte)(const SingleByteDecoding& table, const char* src, std::size_t length,
                             wchar_t* dst) noexcept;
    std::size_t (*encodeSingleByte)(const SingleByteEncoding& table, const wchar_t* src, std::size_t length,
                                    char* dst) noexcept;

    // mbtable.h
    MultibyteProgress (*decodeMultibyte)(const MultibyteDecoding& table, const char* src, std::size_t length,
                                         wchar_t* dst, std::size_t room) noexcept;
    MultibyteProgress (*encodeMultibyte)(const MultibyteEncoding& table, const wchar_t* src,
                                         std::size_t length, char* dst, std::size_t room) noexcept;
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

} // namespace sup::kernels
