// sup::StringBufferBaseTemplate<T>: building text without the heap for the common case. Functions take the
// base by reference; StringBuffer.h has the buffers that a caller declares.
//
// The text lies in an inline array until it outgrows it, and on the heap from then on (a buffer never goes
// back); it is never truncated. It is not kept zero-terminated: c_str() writes the zero. Growth goes to the
// smallest 2^k - 1 from 63 upwards that holds the text. Exhausted memory is std::bad_alloc with the buffer
// unchanged. Arguments may lie inside the buffer. One buffer belongs to one thread.
#pragma once

#include "Utility/Generic/Portable/BrimNodeAlloc.h"
#include "Utility/Generic/Portable/RefString.h"
#include "Utility/Generic/Portable/SUPChecked.h"
#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/SUPString.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <limits>
#include <new>

namespace sup {

namespace string_details {

constexpr const wchar_t* kStringBufferFile = L"server/include/Utility/Generic/Portable/StringBufferBase.h";
constexpr const char* kStringBufferAllocationFile =
    "server/include/Utility/Generic/Portable/StringBufferBase.h";
constexpr int kStringBufferReplaceLine = 89;
constexpr int kStringBufferCommitLine = 145;
constexpr int kStringBufferEraseLine = 224;
constexpr int kStringBufferAllocationLine = 358;

} // namespace string_details

/// The common part of the string buffers.
template <class T>
class BRIMPORTABLE_API StringBufferBaseTemplate {
public:
    /// Positions and lengths in characters, and the types that belong to the buffer.
    using size_type = std::size_t;
    using char_type = T;
    using string_type = String<T>;

    /// The largest number.
    static constexpr size_type npos = static_cast<size_type>(-1);

    /// Does nothing: the text is copied by the derived buffers' own assignment.
    StringBufferBaseTemplate& operator=(const StringBufferBaseTemplate&) noexcept { return *this; }

    // ---- Access -------------------------------------------------------------------------------------------

    /// The number of characters.
    size_type length() const noexcept { return static_cast<size_type>(m_pPos - m_pBuffer); }
    /// True without characters.
    bool empty() const noexcept { return m_pPos == m_pBuffer; }
    /// Characters that fit before the buffer grows.
    size_type capacity() const noexcept { return m_nCapacity; }
    /// The characters; no zero stands behind them. Valid until the buffer is changed.
    const T* begin() const noexcept { return m_pBuffer; }
    const T* end() const noexcept { return m_pPos; }
    /// The text with a zero behind it; valid until the buffer is changed.
    const T* c_str() const noexcept {
        *m_pPos = T();
        return m_pBuffer;
    }
    /// A copy of the text.
    string_type asString() const { return empty() ? string_type() : string_type(m_pBuffer, length()); }

    // ---- Clearing and sizing ------------------------------------------------------------------------------

    /// Empties the text; the storage is kept.
    void clear() noexcept { m_pPos = m_pBuffer; }
    /// Makes room for `n` characters in all.
    void reserve(size_type n) {
        if (n > m_nCapacity) {
            grow(n);
        }
    }
    /// Cuts the text, or fills it up with `c`.
    void resize(size_type n, T c = T()) {
        if (n > length()) {
            append(n - length(), c);
        }
        m_pPos = m_pBuffer + n;
    }

    // ---- Appending ----------------------------------------------------------------------------------------

    /// Append a text, `count` characters, or a string.
    StringBufferBaseTemplate& append(const T* text) { return append(text, string_details::textLength(text)); }
    StringBufferBaseTemplate& append(T* text) { return append(static_cast<const T*>(text)); }
    StringBufferBaseTemplate& append(const T* text, size_type count) {
        addChars(text, count);
        return *this;
    }
    StringBufferBaseTemplate& append(const string_type& s) { return append(s.begin(), s.length()); }
    /// At most the first `n` characters of `s`.
    StringBufferBaseTemplate& append(const string_type& s, size_type n) {
        return append(s.begin(), n < s.length() ? n : s.length());
    }
    /// Append `n` copies of `c`, the text of a buffer, or a view.
    StringBufferBaseTemplate& append(size_type n, T c) {
        make_room(n);
        string_details::fillCharacters(m_pPos, n, c);
        m_pPos += n;
        return *this;
    }
    StringBufferBaseTemplate& append(const StringBufferBaseTemplate& buffer) {
        return append(buffer.m_pBuffer, buffer.length());
    }
    StringBufferBaseTemplate& append(const RefStringTemplate<T>& ref) {
        return append(ref.begin(), ref.length());
    }

    // ---- Numbers ------------------------------------------------------------------------------------------

    /// Plain digits, in every locale.
    StringBufferBaseTemplate& appendNumberAsDecimal(unsigned int value);
    StringBufferBaseTemplate& appendNumberAsDecimal(int value);
    StringBufferBaseTemplate& appendNumberAsDecimal(long value);
    StringBufferBaseTemplate& appendNumberAsDecimal(unsigned long value);
    /// Lower-case digits without a prefix.
    StringBufferBaseTemplate& appendNumberAsHex(unsigned int value);

    // ---- Formatting ---------------------------------------------------------------------------------------

    /// Appends by the C library's formatting. `n` is the room granted to the text, its zero included; grant
    /// enough. When it was too little, the wide form takes one character off the end of the buffer instead,
    /// and the narrow form appends what was written, followed by zeros up to the text's full length.
    StringBufferBaseTemplate& appendFormatted(size_type n, const T* format, ...);
    StringBufferBaseTemplate& appendFormatted2(size_type n, const T* format, va_list args);

    // ---- Overwriting and erasing --------------------------------------------------------------------------

    /// Overwrites characters that are there; the length stays. Beyond the end it fails the assertion
    /// "nOffset + nLen <= length()".
    void replace(size_type offset, const T* text, size_type count);
    void replace(size_type offset, const string_type& s) { replace(offset, s.begin(), s.length()); }
    /// Removes up to `n` characters. A `start` beyond the end fails the assertion "nStart <= length()".
    void erase(size_type start, size_type n);

    // ---- Chunked writing ----------------------------------------------------------------------------------

    /// Room for `n` more characters: write there, then commit what was written.
    T* getAppendBuffer(size_type n) {
        make_room(n);
        return m_pPos;
    }
    /// Room there is without growing, in characters.
    size_type appendBufferCapacity() const noexcept { return m_nCapacity - length(); }
    /// Takes the first `n` characters that were written there.
    BRIM_CHECKED_MEMBER void commitAppendBuffer(size_type n) noexcept {
        BRIM_CHECK(string_details::kStringBufferFile, string_details::kStringBufferCommitLine,
                   n <= appendBufferCapacity());
        m_pPos += n;
    }
    /// Always true.
    static bool canAcceptChunks() noexcept { return true; }

protected:
    /// Begins with the storage of a derived buffer, which has a character more for the zero.
    StringBufferBaseTemplate(T* storage, size_type capacity) noexcept
        : m_pStatic(storage), m_pBuffer(storage), m_pPos(storage), m_nCapacity(capacity) {}
    /// A derived buffer has storage of its own to begin with, and copies the text itself.
    StringBufferBaseTemplate(const StringBufferBaseTemplate&) = delete;
    ~StringBufferBaseTemplate() { freeStorage(m_pBuffer, m_nCapacity); }

    /// Appends, `text` inside the buffer included.
    void addChars(const T* text, size_type count);

private:
    void addCharsToNewStorage(const T* text, size_type count);
    static int call_vsnprintf(wchar_t* to, size_type n, const wchar_t* format, va_list args) {
        return std::vswprintf(to, n, format, args);
    }
    static int call_vsnprintf(char* to, size_type n, const char* format, va_list args) {
        return std::vsnprintf(to, n, format, args);
    }
    StringBufferBaseTemplate& appendDecimal(size_type granted, bool negative, unsigned long magnitude);
    T* allocateStorage(size_type needed, size_type& capacity) const;
    void freeStorage(T* storage, size_type capacity) noexcept;
    void adopt(T* storage, size_type capacity) noexcept;
    void grow(size_type needed);
    void make_room(size_type more) {
        if (more > m_nCapacity - length()) {
            grow(more > std::numeric_limits<size_type>::max() - length() ? npos : length() + more);
        }
    }

    T* m_pStatic;
    T* m_pBuffer;
    T* m_pPos;
    size_type m_nCapacity;
};

// ---- Bodies -----------------------------------------------------------------------------------------------

// The storage holds one character more than the capacity: the place of the zero.
template <class T>
T* StringBufferBaseTemplate<T>::allocateStorage(size_type needed, size_type& capacity) const {
    constexpr size_type kLargest = std::numeric_limits<size_type>::max() / sizeof(T) / 2;
    if (needed > kLargest) {
        throw std::bad_alloc();
    }
    capacity = 63;
    while (capacity < needed) {
        capacity = 2 * capacity + 1;
    }
    return static_cast<T*>(BrimNodeAlloc::allocate((capacity + 1) * sizeof(T),
                                                   string_details::kStringBufferAllocationFile,
                                                   string_details::kStringBufferAllocationLine));
}

template <class T>
void StringBufferBaseTemplate<T>::freeStorage(T* storage, size_type capacity) noexcept {
    if (storage != m_pStatic) {
        BrimNodeAlloc::deallocate(storage, (capacity + 1) * sizeof(T));
    }
}

template <class T>
void StringBufferBaseTemplate<T>::adopt(T* storage, size_type capacity) noexcept {
    const size_type oldLength = length();
    freeStorage(m_pBuffer, m_nCapacity);
    m_pBuffer = storage;
    m_pPos = storage + oldLength;
    m_nCapacity = capacity;
}

template <class T>
void StringBufferBaseTemplate<T>::grow(size_type needed) {
    size_type capacity = 0;
    T* const storage = allocateStorage(needed, capacity);
    string_details::copyCharacters(storage, m_pBuffer, length());
    adopt(storage, capacity);
}

// Inline: while there is room, little more is to be done than the copy.
template <class T>
inline void StringBufferBaseTemplate<T>::addChars(const T* text, size_type count) {
    if (count > m_nCapacity - length()) {
        addCharsToNewStorage(text, count);
        return;
    }
    string_details::moveCharacters(m_pPos, text, count);
    m_pPos += count;
}

// The old storage goes last: the text may lie in it.
template <class T>
void StringBufferBaseTemplate<T>::addCharsToNewStorage(const T* text, size_type count) {
    if (count > std::numeric_limits<size_type>::max() - length()) {
        throw std::bad_alloc();
    }
    size_type capacity = 0;
    T* const storage = allocateStorage(length() + count, capacity);
    string_details::copyCharacters(storage, m_pBuffer, length());
    string_details::copyCharacters(storage + length(), text, count);
    adopt(storage, capacity);
    m_pPos += count;
}

template <class T>
auto StringBufferBaseTemplate<T>::appendFormatted(size_type n, const T* format, ...)
    -> StringBufferBaseTemplate& {
    va_list args;
    va_start(args, format);
    // make_room() may throw; va_end() has nothing to release here.
    appendFormatted2(n, format, args);
    va_end(args);
    return *this;
}

template <class T>
auto StringBufferBaseTemplate<T>::appendFormatted2(size_type n, const T* format, va_list args)
    -> StringBufferBaseTemplate& {
    make_room(n);
    const int result = call_vsnprintf(m_pPos, n, format, args);
    if (result < 0) {
        m_pPos -= empty() ? 0 : 1;
        return *this;
    }
    const auto count = static_cast<size_type>(result);
    if (count >= n) { // cut: the text and its zero would have needed count + 1
        const size_type written = n == 0 ? 0 : n - 1;
        m_pPos += written;
        try {
            append(count - written, T());
        } catch (...) {
            m_pPos -= written;
            throw;
        }
        return *this;
    }
    m_pPos += count;
    return *this;
}

template <class T>
void StringBufferBaseTemplate<T>::replace(size_type offset, const T* text, size_type count) {
    if (offset > length() || count > length() - offset) {
        BrimAssert::handleAssert(string_details::kStringBufferFile, string_details::kStringBufferReplaceLine,
                                 L"nOffset + nLen <= length()");
        std::abort();
    }
    string_details::moveCharacters(m_pBuffer + offset, text, count);
}

template <class T>
void StringBufferBaseTemplate<T>::erase(size_type start, size_type n) {
    if (start > length()) {
        BrimAssert::handleAssert(string_details::kStringBufferFile, string_details::kStringBufferEraseLine,
                                 L"nStart <= length()");
        std::abort();
    }
    const size_type rest = length() - start;
    const size_type removed = n < rest ? n : rest;
    string_details::moveCharacters(m_pBuffer + start, m_pBuffer + start + removed, rest - removed);
    m_pPos -= removed;
}

// The narrow form has a declaration of its own, so that compilers check its arguments against the format.
/// The narrow form.
template <>
StringBufferBaseTemplate<char>& StringBufferBaseTemplate<char>::appendFormatted(size_type n,
                                                                                const char* format, ...)
    __attribute__((format(printf, 3, 4)));

extern template class StringBufferBaseTemplate<wchar_t>;
extern template class StringBufferBaseTemplate<char>;

} // namespace sup
