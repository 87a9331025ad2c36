#include "Utility/Generic/Portable/SUPBString.h"

#include "CaseFolding.h"
#include "Wraps.h"
#include "kernels/bytehash.h"
#include "kernels/kernels.h"

#include <algorithm>
#include <cctype>
#include <ctype.h>
#include <cwctype>

namespace sup {

namespace string_details {

namespace {

constexpr std::size_t kBlock = 256;

// `n` characters, at most kBlock, as wide ones: where they are, or in `room`.
const wchar_t* asWide(const wchar_t* from, std::size_t /*n*/, wchar_t* /*room*/) { return from; }
const wchar_t* asWide(const unsigned char* from, std::size_t n, wchar_t* room) {
    widenBytes(reinterpret_cast<const char*>(from), n, room);
    return room;
}

int compareNumbers(std::size_t a, std::size_t b) { return a == b ? 0 : a < b ? -1 : 1; }

// Block by block, so that bytes are widened only as far as the texts are equal.
template <class Left, class Right>
int compareLowered(const Left* a, std::size_t aLength, const Right* b, std::size_t bLength) {
    const LowerCaseFold fold;
    const std::size_t common = std::min(aLength, bLength);
    for (std::size_t at = 0; at < common; at += kBlock) {
        const std::size_t n = std::min(kBlock, common - at);
        wchar_t leftRoom[kBlock];
        wchar_t rightRoom[kBlock];
        const wchar_t* const left = asWide(a + at, n, leftRoom);
        const wchar_t* const right = asWide(b + at, n, rightRoom);
        const std::size_t differs = fold.firstDifference(left, right, n);
        if (differs != n) {
            return compareNumbers(static_cast<std::uint32_t>(fold(left[differs])),
                                  static_cast<std::uint32_t>(fold(right[differs])));
        }
    }
    return compareNumbers(aLength, bLength);
}

std::uint32_t hashOf(const unsigned char* characters, std::size_t n) {
    return kernels::hashBytes(characters, n);
}
std::uint32_t hashOf(const char* characters, std::size_t n) {
    return kernels::hashBytes(reinterpret_cast<const unsigned char*>(characters), n);
}
BRIM_WRAPS std::uint32_t hashOf(const wchar_t* characters, std::size_t n) {
    std::uint32_t h = 0;
    for (std::size_t i = 0; i < n; ++i) {
        h = h * 101 + static_cast<std::uint32_t>(characters[i]);
    }
    return h;
}

} // namespace

void widenBytes(const char* from, std::size_t n, wchar_t* to) noexcept {
    kernels::kernels().widen(from, n, to);
}

void narrowToBytes(const wchar_t* from, std::size_t n, char* to) noexcept {
    kernels::kernels().narrow(from, n, to);
}

// Negative characters do not fit.
bool fitsInBytes(const wchar_t* text, std::size_t n) noexcept {
    return kernels::kernels().fitsInByte(text, n);
}

wchar_t ToLowerCase(wchar_t c) noexcept {
    return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
}

char ToLowerCase(char c) noexcept { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

wchar_t ToLowerCase2(unsigned char c) noexcept { return ToLowerCase(static_cast<wchar_t>(c)); }

int StringCompareI(const wchar_t* a, std::size_t aLength, const wchar_t* b, std::size_t bLength) noexcept {
    return compareLowered(a, aLength, b, bLength);
}

// The table that tolower() reads, looked up once for the text.
int StringCompareI(const char* a, std::size_t aLength, const char* b, std::size_t bLength) noexcept {
    const auto* const lower = *::__ctype_tolower_loc();
    const std::size_t common = std::min(aLength, bLength);
    for (std::size_t i = 0; i < common; ++i) {
        const auto left = static_cast<unsigned char>(lower[static_cast<unsigned char>(a[i])]);
        const auto right = static_cast<unsigned char>(lower[static_cast<unsigned char>(b[i])]);
        if (left != right) {
            return left < right ? -1 : 1;
        }
    }
    return compareNumbers(aLength, bLength);
}

int StringCompareI(const unsigned char* a, std::size_t aLength, const unsigned char* b,
                   std::size_t bLength) noexcept {
    return compareLowered(a, aLength, b, bLength);
}

int StringCompareI2(const wchar_t* a, std::size_t aLength, const unsigned char* b,
                    std::size_t bLength) noexcept {
    return compareLowered(a, aLength, b, bLength);
}

int StringCompareI2(const unsigned char* a, std::size_t aLength, const wchar_t* b,
                    std::size_t bLength) noexcept {
    return compareLowered(a, aLength, b, bLength);
}

} // namespace string_details

template <class T>
std::uint32_t ByteString<T>::hash() const noexcept {
    if (m_rep == nullptr) {
        return 0;
    }
    return string_details::withCharacters(
        *m_rep, [n = length()](const auto* characters) { return string_details::hashOf(characters, n); });
}

template struct string_details::ByteStringData<wchar_t>;
template struct string_details::ByteStringData<char>;
template class ByteString<wchar_t>;
template class ByteString<char>;

} // namespace sup
