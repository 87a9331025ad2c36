// The code-page layer: the Windows-style conversions of SystemUtility and the process's own code page.
#include "Utility/Generic/Portable/SUPTranscode.h"

#include "CharacterTypeLocale.h"
#include "CodePageNames.h"
#include "LoadTime.h"
#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/transcodercache.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <cwchar>
#include <limits>
#include <string_view>

using sup::transcodeimpl::TranscoderCache;
using sup::transcodeimpl::TranscoderImplBase;

unsigned int OSAbstraction::g_clientCodePage = 0;

namespace {

constexpr unsigned int kUtf8 = 65001;
constexpr std::size_t kFailed = static_cast<std::size_t>(-1);
// Texts of so many units, the zero included, are converted without an allocation.
constexpr std::size_t kInlineUnits = 513;
constexpr std::string_view kAnsiName = "ANSI";
constexpr std::string_view kUtf8Name = "UTF8";

// In ASCII: no locale changes what a name means.
template <class T>
bool isName(std::basic_string_view<T> text, std::string_view upperCaseName) {
    return std::equal(text.begin(), text.end(), upperCaseName.begin(), upperCaseName.end(),
                      [](T c, char name) { return (c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c) == name; });
}

// 0 until GetACP() has computed it; two threads that race compute the same.
std::atomic<unsigned int> g_systemCodePage{0};

// What one side of a conversion needs to be known of: the length of a terminated text with its zero, the most
// units that a source unit becomes, and the conversion itself, -1 when the destination is too small.
struct WideToBytes {
    using Source = wchar_t;
    using Target = char;
    static constexpr std::size_t kUnitsPerSourceUnit = 4;
    static std::size_t terminatedLength(const wchar_t* src) { return std::wcslen(src) + 1; }
    static std::size_t convert(const TranscoderImplBase& transcoder, const wchar_t* src, std::size_t srcLen,
                               char* dst, std::size_t dstLen) {
        return transcoder.unicodeToMultibyte(src, srcLen, dst, dstLen, nullptr, nullptr, nullptr);
    }
};

struct BytesToWide {
    using Source = char;
    using Target = wchar_t;
    static constexpr std::size_t kUnitsPerSourceUnit = 1;
    static std::size_t terminatedLength(const char* src) { return std::strlen(src) + 1; }
    static std::size_t convert(const TranscoderImplBase& transcoder, const char* src, std::size_t srcLen,
                               wchar_t* dst, std::size_t dstLen) {
        return transcoder.multibyteToUnicode(src, srcLen, dst, dstLen, nullptr);
    }
};

// 16-bit units go through a temporary wide text.
struct Ucs2ToBytes {
    using Source = unsigned short;
    using Target = char;
    static constexpr std::size_t kUnitsPerSourceUnit = 4;
    static std::size_t terminatedLength(const unsigned short* src) { return UCS2Strlen(src) + 1; }
    static std::size_t convert(const TranscoderImplBase& transcoder, const unsigned short* src,
                               std::size_t srcLen, char* dst, std::size_t dstLen) {
        AutoBuffer<wchar_t, kInlineUnits> wide;
        wide.growNoPreserve(srcLen);
        std::copy(src, src + srcLen, wide.data());
        return WideToBytes::convert(transcoder, wide.data(), srcLen, dst, dstLen);
    }
};

struct BytesToUcs2 {
    using Source = char;
    using Target = unsigned short;
    static constexpr std::size_t kUnitsPerSourceUnit = 1;
    static std::size_t terminatedLength(const char* src) { return std::strlen(src) + 1; }
    static std::size_t convert(const TranscoderImplBase& transcoder, const char* src, std::size_t srcLen,
                               unsigned short* dst, std::size_t dstLen) {
        AutoBuffer<wchar_t, kInlineUnits> wide;
        wide.growNoPreserve(srcLen);
        const std::size_t units = BytesToWide::convert(transcoder, src, srcLen, wide.data(), srcLen);
        if (units == kFailed || units > dstLen) {
            return kFailed;
        }
        std::transform(wide.data(), wide.data() + units, dst,
                       [](wchar_t unit) { return static_cast<unsigned short>(unit); });
        return units;
    }
};

const TranscoderImplBase* transcoderOf(unsigned int codePage) {
    return TranscoderCache::getTranscoder(
        static_cast<int>(codePage == 0 ? SystemUtility::GetACP() : codePage));
}

int resultOf(std::size_t units) {
    return units <= static_cast<std::size_t>(std::numeric_limits<int>::max()) ? static_cast<int>(units) : 0;
}

// The destination may be too small: converts into a temporary buffer that is not, and copies what fits.
template <class Conversion>
int convertHandlingShortDestination(const typename Conversion::Source* src, std::size_t srcLen,
                                    typename Conversion::Target* dst, std::size_t dstLen,
                                    const TranscoderImplBase& transcoder) {
    const std::size_t room = srcLen * Conversion::kUnitsPerSourceUnit;
    AutoBuffer<typename Conversion::Target, kInlineUnits * Conversion::kUnitsPerSourceUnit> converted;
    converted.growNoPreserve(room);
    const std::size_t units = Conversion::convert(transcoder, src, srcLen, converted.data(), room);
    if (units == kFailed) {
        return 0;
    }
    if (dstLen == 0) {
        return resultOf(units);
    }
    std::copy_n(converted.data(), std::min(units, dstLen), dst);
    return dstLen < units ? 0 : resultOf(units);
}

template <class Conversion>
int convertText(const typename Conversion::Source* src, int srcLen, typename Conversion::Target* dst,
                int dstLen, unsigned int codePage) {
    if (src == nullptr || srcLen == 0 || srcLen < -1) {
        return 0;
    }
    const std::size_t length =
        srcLen == -1 ? Conversion::terminatedLength(src) : static_cast<std::size_t>(srcLen);
    const std::size_t room = dst == nullptr || dstLen < 0 ? 0 : static_cast<std::size_t>(dstLen);
    const TranscoderImplBase* const transcoder = transcoderOf(codePage);
    if (transcoder == nullptr) {
        return 0;
    }
    // No conversion makes less than one unit of most of the source's: where there is less room than that,
    // there is too little.
    if (room >= length) {
        const std::size_t units = Conversion::convert(*transcoder, src, length, dst, room);
        if (units != kFailed) {
            return resultOf(units);
        }
    }
    return convertHandlingShortDestination<Conversion>(src, length, dst, room, *transcoder);
}

template <class Conversion>
int convertWhole(unsigned int codePage, const typename Conversion::Source* src, int srcLen,
                 typename Conversion::Target* dst, int dstLen) {
    if (src == nullptr || srcLen <= 0) {
        return 0;
    }
    const TranscoderImplBase* const transcoder = transcoderOf(codePage);
    if (transcoder == nullptr) {
        return 0;
    }
    const std::size_t room = dst == nullptr || dstLen < 0 ? 0 : static_cast<std::size_t>(dstLen);
    const std::size_t units =
        Conversion::convert(*transcoder, src, static_cast<std::size_t>(srcLen), dst, room);
    return units == kFailed ? -1 : resultOf(units);
}

} // namespace

std::size_t UCS2Strlen(const unsigned short* text) {
    const unsigned short* end = text;
    while (*end != 0) {
        ++end;
    }
    return static_cast<std::size_t>(end - text);
}

int MultibyteToUcs2_S(unsigned int codePage, const char* src, int srcLen, unsigned short* dst, int dstLen) {
    return convertWhole<BytesToUcs2>(codePage, src, srcLen, dst, dstLen);
}

int Ucs2ToMultibyte_S(unsigned int codePage, const unsigned short* src, int srcLen, char* dst, int dstLen) {
    return convertWhole<Ucs2ToBytes>(codePage, src, srcLen, dst, dstLen);
}

unsigned int SystemUtility::GetMultiByteCodePage() { return OSAbstraction::g_clientCodePage; }

void sup::loadtime::forgetSystemCodePage() noexcept { g_systemCodePage.store(0, std::memory_order_relaxed); }

unsigned int SystemUtility::GetACP() {
    unsigned int codePage = g_systemCodePage.load(std::memory_order_relaxed);
    if (codePage == 0) {
        codePage = Locale2CodePage(sup::characterTypeLocale(nullptr).c_str());
        g_systemCodePage.store(codePage, std::memory_order_relaxed);
    }
    return codePage;
}

int SystemUtility::GetCodePageFromString(const sup::String<wchar_t>& name) {
    const std::wstring_view text(name.begin(), name.length());
    if (isName(text, kAnsiName)) {
        return static_cast<int>(g_systemCodePage.load(std::memory_order_relaxed));
    }
    return isName(text, kUtf8Name) ? static_cast<int>(kUtf8) : -1;
}

bool SystemUtility::IsValidCodePage(const char* name) {
    return name != nullptr &&
           (isName(std::string_view(name), kAnsiName) || isName(std::string_view(name), kUtf8Name));
}

int SystemUtility::WideCharToMultiByte(const wchar_t* src, int srcLen, char* dst, int dstLen,
                                       unsigned int codePage) {
    return convertText<WideToBytes>(src, srcLen, dst, dstLen, codePage);
}

int SystemUtility::WideCharToMultiByte(const wchar_t* src, char* dst, int dstLen, unsigned int codePage) {
    return WideCharToMultiByte(src, -1, dst, dstLen, codePage);
}

int SystemUtility::WideCharToUTF8(const wchar_t* src, char* dst, int dstLen) {
    return WideCharToMultiByte(src, -1, dst, dstLen, kUtf8);
}

int SystemUtility::MultiByteToWideChar(const char* src, int srcLen, wchar_t* dst, int dstLen,
                                       unsigned int codePage) {
    return convertText<BytesToWide>(src, srcLen, dst, dstLen, codePage);
}

int SystemUtility::MultiByteToWideChar(const char* src, wchar_t* dst, int dstLen, unsigned int codePage) {
    return MultiByteToWideChar(src, -1, dst, dstLen, codePage);
}

int SystemUtility::UTF8ToWideChar(const char* src, wchar_t* dst, int dstLen) {
    return MultiByteToWideChar(src, -1, dst, dstLen, kUtf8);
}

int SystemUtility::MultiByteToUcs2(const char* src, int srcLen, unsigned short* dst, int dstLen,
                                   unsigned int codePage) {
    return convertText<BytesToUcs2>(src, srcLen, dst, dstLen, codePage);
}

int SystemUtility::MultiByteToUcs2(const char* src, unsigned short* dst, int dstLen, unsigned int codePage) {
    return MultiByteToUcs2(src, -1, dst, dstLen, codePage);
}

int SystemUtility::Ucs2ToMultiByte(const unsigned short* src, int srcLen, char* dst, int dstLen,
                                   unsigned int codePage) {
    return convertText<Ucs2ToBytes>(src, srcLen, dst, dstLen, codePage);
}

int SystemUtility::Ucs2ToMultiByte(const unsigned short* src, char* dst, int dstLen, unsigned int codePage) {
    return Ucs2ToMultiByte(src, -1, dst, dstLen, codePage);
}
