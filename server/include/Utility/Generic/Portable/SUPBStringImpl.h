// The bodies of sup::ByteString<T>; SUPBString.h includes this header, callers never do.
#pragma once

#include "Utility/Generic/Portable/SUPBString.h"
#include "Utility/Generic/Portable/SUPExceptionSupport.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <limits>
#include <new>

namespace sup {

namespace string_details {

constexpr const char* kByteStringAllocationFile = "server/include/Utility/Generic/Portable/SUPBStringImpl.h";
constexpr int kByteStringAllocationLine = 104;
constexpr int kByteStringFillLine = 290;
constexpr std::size_t kLargestByteString = std::numeric_limits<std::uint32_t>::max(); // characters

inline void widenBytes(const char* from, std::size_t n, char* to) noexcept { copyCharacters(to, from, n); }
inline void narrowToBytes(const char* from, std::size_t n, char* to) noexcept { copyCharacters(to, from, n); }
inline bool fitsInBytes(const char*, std::size_t) noexcept { return true; }

inline bool fitsInByte(wchar_t c) noexcept { return static_cast<std::uint32_t>(c) <= 0xFF; }
inline bool fitsInByte(char) noexcept { return true; }

template <class T>
auto ByteStringData<T>::allocateData(std::size_t capacity, unsigned int bytesPerChar) -> ByteStringData* {
    constexpr std::uint32_t kFixedBytes = 32;
    static_assert(offsetof(ByteStringData, m_pStart) == 28, "header and characters lie as documented");
    if (capacity > kLargestByteString) {
        throw std::bad_alloc();
    }
    const std::size_t bytes = kFixedBytes + bytesPerChar * capacity + (bytesPerChar == 1 ? 0 : 3);
    if (bytes > std::numeric_limits<std::uint32_t>::max()) {
        volatile char* volatile nowhere = nullptr; // volatile, so that the compiler keeps the write
        *nowhere = 0;
        __builtin_trap();
    }
    void* const block = BrimNodeAlloc::allocate(bytes, kByteStringAllocationFile, kByteStringAllocationLine);
    auto* const fresh = ::new (block) ByteStringData;
    fresh->m_nCapacity = static_cast<std::uint32_t>(capacity);
    fresh->m_nBytesPerChar = static_cast<std::uint8_t>(bytesPerChar);
    fresh->m_nLength = 0;
    std::memset(fresh->m_pStart, 0, bytesPerChar);
    fresh->m_refCount.initialize(1);
    return fresh;
}

template <class T>
void ByteStringData<T>::deallocate() noexcept {
    const std::size_t bytes =
        32 + std::size_t{m_nBytesPerChar} * m_nCapacity + (m_nBytesPerChar == 1 ? 0 : 3);
    BrimNodeAlloc::deallocate(this, bytes);
}

template <class T>
void ByteStringData<T>::append(const ByteStringData& other, std::size_t first, std::size_t n) noexcept {
    if (!other.isNarrow()) {
        append(other.wide() + first, n);
        return;
    }
    if (isNarrow()) {
        copyCharacters(m_pStart + m_nLength, other.m_pStart + first, n);
        m_nLength += static_cast<std::uint32_t>(n);
        m_pStart[m_nLength] = 0;
    } else {
        T* const to = reinterpret_cast<T*>(m_pStart) + m_nLength;
        widenBytes(other.m_pStart + first, n, to);
        to[n] = T();
        m_nLength += static_cast<std::uint32_t>(n);
    }
}

template <class T>
void ByteStringData<T>::append(const T* text, std::size_t n) noexcept {
    if (isNarrow()) {
        narrowToBytes(text, n, m_pStart + m_nLength);
        m_nLength += static_cast<std::uint32_t>(n);
        m_pStart[m_nLength] = 0;
    } else {
        T* const to = reinterpret_cast<T*>(m_pStart) + m_nLength;
        copyCharacters(to, text, n);
        to[n] = T();
        m_nLength += static_cast<std::uint32_t>(n);
    }
}

template <class T>
void ByteStringData<T>::append(std::size_t n, T c) noexcept {
    if (isNarrow()) {
        std::memset(m_pStart + m_nLength, static_cast<unsigned char>(c), n);
        m_nLength += static_cast<std::uint32_t>(n);
        m_pStart[m_nLength] = 0;
    } else {
        T* const to = reinterpret_cast<T*>(m_pStart) + m_nLength;
        fillCharacters(to, n, c);
        to[n] = T();
        m_nLength += static_cast<std::uint32_t>(n);
    }
}

// Calls fn with pointers to the characters of both blocks, bytes as unsigned char.
template <class T, class Function>
auto withCharacters(const ByteStringData<T>& data, Function fn) {
    if constexpr (sizeof(T) != 1) {
        if (data.isNarrow()) {
            return fn(reinterpret_cast<const unsigned char*>(data.m_pStart));
        }
    }
    return fn(data.wide());
}

// The order of single characters: wide ones are signed numbers, narrow ones unsigned.
inline long ordinal(wchar_t c) noexcept { return c; }
inline long ordinal(char c) noexcept { return static_cast<unsigned char>(c); }
inline long ordinal(unsigned char c) noexcept { return c; }

// -1, 0 or 1. The C library's routines have the same orders.
inline int signOf(int result) noexcept { return result < 0 ? -1 : result > 0 ? 1 : 0; }
inline int compareOrdinals(const wchar_t* a, const wchar_t* b, std::size_t n) noexcept {
    return n == 0 ? 0 : signOf(std::wmemcmp(a, b, n));
}
inline int compareOrdinals(const char* a, const char* b, std::size_t n) noexcept {
    return n == 0 ? 0 : signOf(std::memcmp(a, b, n));
}
inline int compareOrdinals(const unsigned char* a, const unsigned char* b, std::size_t n) noexcept {
    return n == 0 ? 0 : signOf(std::memcmp(a, b, n));
}
template <class Left, class Right>
int compareOrdinals(const Left* a, const Right* b, std::size_t n) noexcept {
    for (std::size_t i = 0; i < n; ++i) {
        if (ordinal(a[i]) != ordinal(b[i])) {
            return ordinal(a[i]) < ordinal(b[i]) ? -1 : 1;
        }
    }
    return 0;
}

// Narrow characters hash as unsigned numbers too.
inline std::uint32_t hashValue(wchar_t c) noexcept { return static_cast<std::uint32_t>(c); }
inline std::uint32_t hashValue(char c) noexcept { return static_cast<unsigned char>(c); }
inline std::uint32_t hashValue(unsigned char c) noexcept { return c; }

} // namespace string_details

// ---- Construction and assignment --------------------------------------------------------------------------

template <class T>
ByteString<T>::ByteString(const T* text) : ByteString(text, string_details::textLength(text)) {}

template <class T>
ByteString<T>::ByteString(const T* text, size_type count) {
    if (count > string_details::kLargestByteString) {
        throw std::bad_alloc(); // before the characters are looked at
    }
    if (count != 0) {
        m_rep = data_type::allocateData(count, string_details::fitsInBytes(text, count) ? 1 : sizeof(T));
        m_rep->append(text, count);
    }
}

template <class T>
ByteString<T>::ByteString(size_type n, T c) {
    if (n != 0) {
        m_rep = data_type::allocateData(n, string_details::fitsInByte(c) ? 1 : sizeof(T));
        m_rep->append(n, c);
    }
}

template <class T>
ByteString<T>::ByteString(T c) : ByteString(&c, 1) {}

template <class T>
ByteString<T>::ByteString(const ByteString& b, size_type n) {
    assign(b, n);
}

template <class T>
auto ByteString<T>::makeData(const data_type& from, size_type first, size_type n, size_type capacity,
                             unsigned int bytesPerChar) -> data_type* {
    data_type* const fresh = data_type::allocateData(capacity, bytesPerChar);
    fresh->append(from, first, n);
    return fresh;
}

template <class T>
ByteString<T>& ByteString<T>::assign(const ByteString& b) noexcept {
    if (m_rep != b.m_rep) {
        ByteString shared(b);
        swap(shared);
    }
    return *this;
}

template <class T>
ByteString<T>& ByteString<T>::assign(const T* text) {
    return assign(text, string_details::textLength(text));
}

template <class T>
ByteString<T>& ByteString<T>::assign(const T* text, size_type count) {
    ByteString fresh(text, count);
    swap(fresh);
    return *this;
}

template <class T>
ByteString<T>& ByteString<T>::assign(const ByteString& b, size_type n) {
    if (n != 0 && n >= b.length()) {
        return assign(b);
    }
    ByteString fresh(b.substr(0, n));
    swap(fresh);
    return *this;
}

// ---- Widening ---------------------------------------------------------------------------------------------

template <class T>
void ByteString<T>::fill(T* out) const {
    if (m_rep == nullptr) {
        BrimAssert::handleAssert(string_details::kByteStringFile, string_details::kByteStringFillLine,
                                 L"m_rep");
        std::abort();
    }
    if (m_rep->isNarrow()) {
        string_details::widenBytes(m_rep->m_pStart, length(), out);
    } else {
        string_details::copyCharacters(out, m_rep->wide(), length());
    }
    out[length()] = T();
}

template <class T>
HeapedAutoBuffer<T> ByteString<T>::getAutoArray() const {
    HeapedAutoBuffer<T> array(length() + 1);
    if (m_rep == nullptr) {
        *array.data() = T();
    } else {
        fill(array.data());
    }
    return array;
}

template <class T>
String<T> ByteString<T>::toString() const {
    return String<T>(*this);
}

template <class T>
String<T>::String(const ByteString<T>& b) {
    assign(b);
}

template <class T>
String<T>& String<T>::assign(const ByteString<T>& b) {
    if (b.empty()) {
        clear();
        return *this;
    }
    if (!fitsInPlace(b.length())) {
        putData(data_type::allocateData(b.length()));
    }
    b.fill(rep()->m_pStart);
    rep()->setLength(b.length());
    return *this;
}

template <class T>
ByteString<T> String<T>::toByteString() const {
    return ByteString<T>(begin(), length());
}

// ---- Changes ----------------------------------------------------------------------------------------------

template <class T>
ByteString<T>& ByteString<T>::append(const ByteString& b) {
    if (b.empty()) {
        return *this;
    }
    if (empty()) {
        return assign(b);
    }
    data_type* const fresh = makeData(*m_rep, 0, length(), length() + b.length(),
                                      std::max(getBytesPerChar(), b.getBytesPerChar()));
    fresh->append(*b.m_rep, 0, b.length());
    putData(fresh);
    return *this;
}

template <class T>
void ByteString<T>::clear() noexcept {
    if (isUnique()) {
        m_rep->m_nLength = 0;
        std::memset(m_rep->m_pStart, 0, m_rep->m_nBytesPerChar);
    } else {
        putData(nullptr);
    }
}

template <class T>
void ByteString<T>::reserve(size_type n) {
    if ((isUnique() && n <= m_rep->m_nCapacity) || (m_rep == nullptr && n == 0)) {
        return;
    }
    putData(m_rep == nullptr ? data_type::allocateData(n, 1)
                             : makeData(*m_rep, 0, length(), std::max(n, length()), m_rep->m_nBytesPerChar));
}

template <class T>
ByteString<T> ByteString<T>::substr(size_type pos, size_type n) const {
    ByteString result;
    if (pos < length() && n != 0) {
        const size_type count = std::min(n, length() - pos);
        const bool narrow = m_rep->isNarrow() || string_details::fitsInBytes(m_rep->wide() + pos, count);
        result.m_rep = makeData(*m_rep, pos, count, count, narrow ? 1 : sizeof(T));
    }
    return result;
}

// ---- Searching and comparing ------------------------------------------------------------------------------

template <class T>
auto ByteString<T>::find(T c, size_type pos) const noexcept -> size_type {
    if (pos >= length()) {
        return length();
    }
    if (m_rep->isNarrow()) {
        const auto byte = static_cast<char>(c);
        const char* const start = m_rep->m_pStart;
        const char* const found = string_details::fitsInByte(c)
                                      ? string_details::findInRange(start + pos, length() - pos, byte)
                                      : nullptr;
        return found == nullptr ? length() : static_cast<size_type>(found - start);
    }
    const T* const start = m_rep->wide();
    const T* const found = string_details::findInRange(start + pos, length() - pos, c);
    return found == nullptr ? length() : static_cast<size_type>(found - start);
}

template <class T>
auto ByteString<T>::find(const T* text, size_type pos) const noexcept -> size_type {
    const size_type count = string_details::textLength(text);
    if (pos >= length() || count > length() - pos) {
        return length();
    }
    if (count == 0) {
        return pos;
    }
    const size_type last = length() - count;
    for (size_type at = find(text[0], pos); at <= last; at = find(text[0], at + 1)) {
        const bool matches = string_details::withCharacters(*m_rep, [=](const auto* start) {
            return std::equal(text, text + count, start + at, [](T a, auto b) {
                return string_details::hashValue(a) == string_details::hashValue(b);
            });
        });
        if (matches) {
            return at;
        }
    }
    return length();
}

template <class T>
int ByteString<T>::compare(const ByteString& b) const noexcept {
    if (m_rep == nullptr || b.m_rep == nullptr) {
        return m_rep != nullptr ? 1 : b.empty() ? 0 : -1;
    }
    const size_type common = std::min(length(), b.length());
    const int result = string_details::withCharacters(*m_rep, [&](const auto* left) {
        return string_details::withCharacters(*b.m_rep, [=](const auto* right) {
            return string_details::compareOrdinals(left, right, common);
        });
    });
    if (result != 0 || length() == b.length()) {
        return result;
    }
    return length() < b.length() ? -1 : 1;
}

template <class T>
int ByteString<T>::compareToIgnoreCase(const ByteString& b) const noexcept {
    if (m_rep == nullptr || b.m_rep == nullptr) {
        return m_rep != nullptr ? 1 : b.empty() ? 0 : -1;
    }
    const size_type leftLength = length();
    const size_type rightLength = b.length();
    return string_details::withCharacters(*m_rep, [&](const auto* left) {
        return string_details::withCharacters(*b.m_rep, [=](const auto* right) {
            if constexpr (std::is_same<std::decay_t<decltype(left)>, std::decay_t<decltype(right)>>::value) {
                return string_details::StringCompareI(left, leftLength, right, rightLength);
            } else {
                return string_details::StringCompareI2(left, leftLength, right, rightLength);
            }
        });
    });
}

template <class T>
bool ByteString<T>::equals(const ByteString& a, const ByteString& b) noexcept {
    if (a.length() != b.length()) {
        return false;
    }
    if (a.m_rep == b.m_rep || a.empty()) {
        return true;
    }
    if (a.getBytesPerChar() == b.getBytesPerChar()) {
        return std::memcmp(a.m_rep->m_pStart, b.m_rep->m_pStart, a.length() * a.getBytesPerChar()) == 0;
    }
    return a.compare(b) == 0;
}

template <class T>
bool ByteString<T>::equals(const ByteString& b, const T* text) noexcept {
    const size_type count = string_details::textLength(text);
    return count == b.length() && (count == 0 || b.find(text) == 0);
}

extern template struct string_details::ByteStringData<wchar_t>;
extern template struct string_details::ByteStringData<char>;
extern template class ByteString<wchar_t>;
extern template class ByteString<char>;

} // namespace sup
