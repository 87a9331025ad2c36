#include "Utility/Generic/Portable/SUPBString.h"

#include <cctype>
#include <cwctype>

namespace sup {

namespace string_details {

namespace {

wchar_t lowered(wchar_t c) { return ToLowerCase(c); }
char lowered(char c) { return ToLowerCase(c); }
wchar_t lowered(unsigned char c) { return ToLowerCase2(c); }

template <class Left, class Right>
int compareLowered(const Left* a, std::size_t aLength, const Right* b, std::size_t bLength) {
    const std::size_t common = aLength < bLength ? aLength : bLength;
    for (std::size_t i = 0; i < common; ++i) {
        const std::uint32_t left = hashValue(lowered(a[i]));
        const std::uint32_t right = hashValue(lowered(b[i]));
        if (left != right) {
            return left < right ? -1 : 1;
        }
    }
    return aLength == bLength ? 0 : aLength < bLength ? -1 : 1;
}

} // namespace

wchar_t ToLowerCase(wchar_t c) noexcept {
    return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
}

char ToLowerCase(char c) noexcept { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

wchar_t ToLowerCase2(unsigned char c) noexcept { return ToLowerCase(static_cast<wchar_t>(c)); }

int StringCompareI(const wchar_t* a, std::size_t aLength, const wchar_t* b, std::size_t bLength) noexcept {
    return compareLowered(a, aLength, b, bLength);
}

int StringCompareI(const char* a, std::size_t aLength, const char* b, std::size_t bLength) noexcept {
    return compareLowered(a, aLength, b, bLength);
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

template struct string_details::ByteStringData<wchar_t>;
template struct string_details::ByteStringData<char>;
template class ByteString<wchar_t>;
template class ByteString<char>;

} // namespace sup
