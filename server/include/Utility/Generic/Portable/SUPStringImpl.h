// The bodies of sup::String<T>; SUPString.h includes this header, callers never do.
#pragma once

#include "Utility/Generic/Portable/SUPString.h"

#include <cstring>
#include <cwchar>
#include <functional>
#include <limits>
#include <new>

namespace sup {

namespace string_details {

constexpr const char* kStringAllocationFile = "server/include/Utility/Generic/Portable/SUPStringImpl.h";
constexpr int kStringAllocationLine = 68;

// The C library's routines by character type. Its wide ones are as fast as its narrow ones where they are
// used.
inline std::size_t textLength(const wchar_t* text) noexcept {
    return text == nullptr ? 0 : std::wcslen(text);
}
inline std::size_t textLength(const char* text) noexcept { return text == nullptr ? 0 : std::strlen(text); }

inline int compareTexts(const wchar_t* a, const wchar_t* b) noexcept { return std::wcscmp(a, b); }
inline int compareTexts(const char* a, const char* b) noexcept { return std::strcmp(a, b); }

inline int compareCounted(const wchar_t* a, const wchar_t* b, std::size_t n) noexcept {
    return std::wcsncmp(a, b, n);
}
inline int compareCounted(const char* a, const char* b, std::size_t n) noexcept {
    return std::strncmp(a, b, n);
}

// 0 when all `n` characters are equal, zeros included.
inline int compareMemory(const wchar_t* a, const wchar_t* b, std::size_t n) noexcept {
    return std::wmemcmp(a, b, n);
}
inline int compareMemory(const char* a, const char* b, std::size_t n) noexcept {
    return std::memcmp(a, b, n);
}

inline const wchar_t* findInRange(const wchar_t* first, std::size_t n, wchar_t c) noexcept {
    return std::wmemchr(first, c, n);
}
inline const char* findInRange(const char* first, std::size_t n, char c) noexcept {
    return static_cast<const char*>(std::memchr(first, c, n));
}

// There is no wmemrchr, and wcsrchr stops at a zero.
inline const wchar_t* findLastInRange(const wchar_t* first, std::size_t n, wchar_t c) noexcept {
    const wchar_t* p = first + n;
    while (p - first >= 4) {
        p -= 4;
        if (((p[0] == c) | (p[1] == c) | (p[2] == c) | (p[3] == c)) != 0) {
            for (p += 3; *p != c; --p) {
            }
            return p;
        }
    }
    while (p != first) {
        if (*--p == c) {
            return p;
        }
    }
    return nullptr;
}
inline const char* findLastInRange(const char* first, std::size_t n, char c) noexcept {
    return static_cast<const char*>(::memrchr(first, c, n));
}

// `n` may be 0, and then the pointers may be null, which memcpy and memmove do not allow.
template <class T>
inline void copyCharacters(T* to, const T* from, std::size_t n) noexcept {
    if (n != 0) {
        std::memcpy(to, from, n * sizeof(T));
    }
}
template <class T>
inline void moveCharacters(T* to, const T* from, std::size_t n) noexcept {
    if (n != 0) {
        std::memmove(to, from, n * sizeof(T));
    }
}
inline void fillCharacters(wchar_t* to, std::size_t n, wchar_t c) noexcept { std::wmemset(to, c, n); }
inline void fillCharacters(char* to, std::size_t n, char c) noexcept { std::memset(to, c, n); }

template <class T>
StringData<T>* StringData<T>::allocateData(std::size_t n) {
    constexpr std::size_t kHeaderBytes = sizeof(StringData);
    static_assert(kHeaderBytes == 24, "header and characters lie as documented");
    if (n > (std::numeric_limits<std::size_t>::max() - kHeaderBytes - 7) / sizeof(T) - 1) {
        throw std::bad_alloc();
    }
    const std::size_t bytes = ((n + 1) * sizeof(T) + 7) & ~std::size_t{7};
    void* const block =
        BrimNodeAlloc::allocate(kHeaderBytes + bytes, kStringAllocationFile, kStringAllocationLine);
    auto* const fresh = ::new (block) StringData;
    fresh->m_nCapacity = bytes / sizeof(T) - 1;
    fresh->setLength(0);
    fresh->m_refCount.initialize(1);
    return fresh;
}

template <class T>
inline void StringData<T>::deallocate() noexcept {
    BrimNodeAlloc::deallocate(this, sizeof(StringData) + (m_nCapacity + 1) * sizeof(T));
}

} // namespace string_details

// ---- Blocks -----------------------------------------------------------------------------------------------

template <class T>
auto String<T>::makeData(const T* text, size_type count, size_type capacity) -> data_type* {
    data_type* const fresh = data_type::allocateData(capacity < count ? count : capacity);
    string_details::copyCharacters(fresh->m_pStart, text, count);
    fresh->setLength(count);
    return fresh;
}

// Lets go of the old block last: the new text may have come from it.
template <class T>
void String<T>::putData(data_type* fresh) noexcept {
    derefData();
    m_tState.m_pData = fresh;
}

template <class T>
void String<T>::makePrivate() {
    if (rep() != nullptr && !rep()->isUnique()) {
        putData(makeData(begin(), length(), length()));
    }
}

template <class T>
bool String<T>::fitsInPlace(size_type length) const noexcept {
    return isUnique() && length <= rep()->m_nCapacity;
}

template <class T>
bool String<T>::selfReferencing(const T* text) const noexcept {
    return !std::less<const T*>()(text, begin()) && !std::less<const T*>()(end(), text);
}

template <class T>
auto String<T>::lengthPlus(size_type added) const -> size_type {
    if (added > std::numeric_limits<size_type>::max() - length()) {
        throw std::bad_alloc();
    }
    return length() + added;
}

template <class T>
auto String<T>::grownCapacity(size_type needed) const noexcept -> size_type {
    return isUnique() && needed < 2 * rep()->m_nCapacity ? 2 * rep()->m_nCapacity : needed;
}

// Replaces `n` characters at `pos` by `count` characters that fill(T*) writes: in place when asked to,
// otherwise in a new block of `capacity`. `pos` and `n` lie inside the string.
template <class T>
template <class Fill>
void String<T>::splice(size_type pos, size_type n, size_type count, bool inPlace, size_type capacity,
                       Fill fill) {
    const size_type oldLength = length();
    const size_type tail = oldLength - pos - n;
    if (inPlace) {
        T* const start = rep()->m_pStart;
        string_details::moveCharacters(start + pos + count, start + pos + n, tail);
        fill(start + pos);
        rep()->setLength(pos + count + tail);
        return;
    }
    data_type* const fresh = data_type::allocateData(capacity);
    const T* const old = begin();
    string_details::copyCharacters(fresh->m_pStart, old, pos);
    fill(fresh->m_pStart + pos);
    string_details::copyCharacters(fresh->m_pStart + pos + count, old + pos + n, tail);
    fresh->setLength(pos + count + tail);
    putData(fresh);
}

// ---- Construction and assignment --------------------------------------------------------------------------

template <class T>
String<T>::String(const T* text) : String(text, string_details::textLength(text)) {}

template <class T>
String<T>::String(const T* text, size_type count) {
    if (count != 0) {
        m_tState.m_pData = makeData(text, count, count);
    }
}

template <class T>
String<T>::String(size_type n, T c) {
    append(n, c);
}

template <class T>
String<T>::String(T c) : String(&c, 1) {}

template <class T>
String<T>::String(const String& s, size_type n) {
    assign(s, n);
}

template <class T>
String<T>::String(const String& s, totalCapacity capacity)
    : m_tState{makeData(s.begin(), s.length(), capacity.amount())} {}

template <class T>
String<T>& String<T>::assign(const String& s) noexcept {
    if (rep() != s.rep()) {
        String shared(s);
        swap(shared);
    }
    return *this;
}

template <class T>
String<T>& String<T>::assign(const T* text) {
    return assign(text, string_details::textLength(text));
}

template <class T>
String<T>& String<T>::assign(const T* text, size_type count) {
    if (count == 0) {
        clear();
    } else if (fitsInPlace(count)) {
        string_details::moveCharacters(rep()->m_pStart, text, count);
        rep()->setLength(count);
    } else {
        putData(makeData(text, count, count));
    }
    return *this;
}

template <class T>
String<T>& String<T>::assign(const String& s, size_type n) {
    return n != 0 && n >= s.length() ? assign(s) : assign(s.begin(), n);
}

template <class T>
void String<T>::deepSwap(String& other) noexcept {
    const String holdThis(*this);
    const String holdOther(other);
    swap(other);
}

// ---- Access -----------------------------------------------------------------------------------------------

template <class T>
auto String<T>::capacity() const noexcept -> size_type {
    return isUnique() ? rep()->m_nCapacity : length();
}

template <class T>
auto String<T>::mutable_begin() -> iterator {
    makePrivate();
    return rep() == nullptr ? nullptr : rep()->m_pStart;
}

template <class T>
auto String<T>::mutable_end() -> iterator {
    makePrivate();
    return rep() == nullptr ? nullptr : rep()->m_pFinish;
}

// ---- Appending, inserting, erasing ------------------------------------------------------------------------

template <class T>
String<T>& String<T>::append(const T* text) {
    return append(text, string_details::textLength(text));
}

// Inline, like push_back: while there is room, little more is to be done than the copy.
template <class T>
inline String<T>& String<T>::append(const T* text, size_type count) {
    data_type* const data = rep();
    if (data == nullptr || !data->isUnique() || count == 0 || count > data->room()) {
        return appendToNewBlock(text, count);
    }
    // The source may end in the terminating zero, where the new characters begin.
    T* const finish = data->m_pFinish;
    std::memmove(finish, text, count * sizeof(T));
    finish[count] = T();
    data->m_pFinish = finish + count;
    return *this;
}

template <class T>
String<T>& String<T>::appendToNewBlock(const T* text, size_type count) {
    if (count != 0) {
        splice(length(), 0, count, false, grownCapacity(lengthPlus(count)),
               [=](T* to) { string_details::copyCharacters(to, text, count); });
    }
    return *this;
}

template <class T>
String<T>& String<T>::append(size_type n, T c) {
    return insert(length(), n, c);
}

template <class T>
String<T>& String<T>::insert(size_type pos, size_type n, T c) {
    if (n == 0) {
        return *this;
    }
    const size_type newLength = lengthPlus(n);
    splice(pos < length() ? pos : length(), 0, n, fitsInPlace(newLength), grownCapacity(newLength),
           [=](T* to) { string_details::fillCharacters(to, n, c); });
    return *this;
}

template <class T>
String<T>& String<T>::erase(size_type pos, size_type n) {
    const size_type oldLength = length();
    if (n != 0 && pos < oldLength) {
        splice(pos, n < oldLength - pos ? n : oldLength - pos, 0, isUnique(), oldLength, [](T*) {});
    }
    return *this;
}

template <class T>
void String<T>::clear() noexcept {
    if (isUnique()) {
        rep()->setLength(0);
    } else {
        putData(nullptr);
    }
}

// ---- Replacing --------------------------------------------------------------------------------------------

template <class T>
String<T>& String<T>::replace(size_type pos, size_type n, const T* text) {
    return replace(pos, n, text, string_details::textLength(text));
}

template <class T>
String<T>& String<T>::replace(size_type pos, size_type n, const T* text, size_type count) {
    if (pos > length()) {
        return append(text, count);
    }
    n = n < length() - pos ? n : length() - pos;
    if (n == 0 && count == 0) {
        return *this;
    }
    const size_type newLength = lengthPlus(count) - n;
    splice(pos, n, count, fitsInPlace(newLength) && !selfReferencing(text), newLength,
           [=](T* to) { string_details::copyCharacters(to, text, count); });
    return *this;
}

template <class T>
String<T>& String<T>::replace(size_type pos, size_type n, size_type count, T c) {
    if (pos > length()) {
        return append(count, c);
    }
    n = n < length() - pos ? n : length() - pos;
    if (n == 0 && count == 0) {
        return *this;
    }
    const size_type newLength = lengthPlus(count) - n;
    splice(pos, n, count, fitsInPlace(newLength), newLength,
           [=](T* to) { string_details::fillCharacters(to, count, c); });
    return *this;
}

// ---- Capacity ---------------------------------------------------------------------------------------------

template <class T>
void String<T>::reserve(size_type n) {
    if (!fitsInPlace(n) && (rep() != nullptr || n != 0)) {
        putData(makeData(begin(), length(), n));
    }
}

template <class T>
void String<T>::resize(size_type n, T c) {
    if (n < length()) {
        erase(n);
    } else {
        replace(length(), 0, n - length(), c);
    }
}

template <class T>
void String<T>::minimize() {
    if (capacity() > length()) {
        putData(makeData(begin(), length(), length()));
    }
}

template <class T>
auto String<T>::roundUpCapacity(size_type /*n*/) noexcept -> size_type {
    return 0;
}

// ---- Searching and comparing ------------------------------------------------------------------------------

// Inline: a short search costs no more than a call.
template <class T>
inline auto String<T>::findCharacter(T c, size_type pos) const noexcept -> size_type {
    if (pos >= length()) {
        return npos;
    }
    const T* const found = string_details::findInRange(begin() + pos, length() - pos, c);
    return found == nullptr ? npos : static_cast<size_type>(found - begin());
}

template <class T>
auto String<T>::rfind(T c) const noexcept -> size_type {
    const T* const found = string_details::findLastInRange(begin(), length(), c);
    return found == nullptr ? npos : static_cast<size_type>(found - begin());
}

// Texts of one length that differ are compared anew: a zero may come before the difference.
template <class T>
int String<T>::compare(const String& s) const noexcept {
    return equals(*this, s) ? 0 : string_details::compareTexts(c_str(), s.c_str());
}

template <class T>
int String<T>::compare(const T* text) const noexcept {
    return string_details::compareTexts(c_str(), text == nullptr ? emptyText() : text);
}

template <class T>
inline bool String<T>::equals(const T* a, size_type aLength, const T* b, size_type bLength) noexcept {
    return aLength == bLength && (aLength == 0 || string_details::compareMemory(a, b, aLength) == 0);
}

template <class T>
bool String<T>::equals(const String& s, const T* text) noexcept {
    return equals(s.begin(), s.length(), text, string_details::textLength(text));
}

// ---- Sub-strings ------------------------------------------------------------------------------------------

template <class T>
String<T> String<T>::substr(size_type pos, size_type n) const {
    if (pos >= length()) {
        return String();
    }
    return String(begin() + pos, n < length() - pos ? n : length() - pos);
}

extern template struct string_details::StringData<wchar_t>;
extern template struct string_details::StringData<char>;
extern template class String<wchar_t>;
extern template class String<char>;

} // namespace sup
