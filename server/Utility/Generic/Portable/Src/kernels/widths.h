// The loops that only change the width of characters: bytes, wide units, and the two bytes of UTF-16 in
// either order; at each level. Nothing is read or written beyond the lengths that are told.
#pragma once

#include <cstddef>

namespace sup::kernels {

enum class ByteOrder { little, big };

/// Widens `length` bytes, as unsigned numbers; `dst` has room for as many units.
void widenPlain(const char* src, std::size_t length, wchar_t* dst) noexcept;
void widenAvx2(const char* src, std::size_t length, wchar_t* dst) noexcept;
void widenAvx512(const char* src, std::size_t length, wchar_t* dst) noexcept;

/// Writes the lowest byte of each of `length` units.
void narrowPlain(const wchar_t* src, std::size_t length, char* dst) noexcept;
void narrowAvx2(const wchar_t* src, std::size_t length, char* dst) noexcept;
void narrowAvx512(const wchar_t* src, std::size_t length, char* dst) noexcept;

/// Whether all of `length` units are 0 to 0xFF.
bool fitsInBytePlain(const wchar_t* src, std::size_t length) noexcept;
bool fitsInByteAvx2(const wchar_t* src, std::size_t length) noexcept;
bool fitsInByteAvx512(const wchar_t* src, std::size_t length) noexcept;

/// Narrows up to the first unit that is not 0 to 0xFF; returns the units narrowed, which are also the bytes
/// written.
std::size_t narrowFittingPlain(const wchar_t* src, std::size_t length, char* dst) noexcept;
std::size_t narrowFittingAvx2(const wchar_t* src, std::size_t length, char* dst) noexcept;
std::size_t narrowFittingAvx512(const wchar_t* src, std::size_t length, char* dst) noexcept;

/// Decodes `units` units of two bytes each.
void decodeUtf16Plain(ByteOrder order, const char* src, std::size_t units, wchar_t* dst) noexcept;
void decodeUtf16Avx2(ByteOrder order, const char* src, std::size_t units, wchar_t* dst) noexcept;
void decodeUtf16Avx512(ByteOrder order, const char* src, std::size_t units, wchar_t* dst) noexcept;

/// Encodes the lower half of each of `units` units as two bytes.
void encodeUtf16Plain(ByteOrder order, const wchar_t* src, std::size_t units, char* dst) noexcept;
void encodeUtf16Avx2(ByteOrder order, const wchar_t* src, std::size_t units, char* dst) noexcept;
void encodeUtf16Avx512(ByteOrder order, const wchar_t* src, std::size_t units, char* dst) noexcept;

} // namespace sup::kernels
