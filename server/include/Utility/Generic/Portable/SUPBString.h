// sup::ByteString<T>: a compact, shared, reference-counted string for text that is kept long and mostly read,
// for wchar_t and for char.
//
// Each character takes one byte when all characters of the text lie in 0 to 255, and sizeof(T) bytes
// otherwise; "byte" speaks of that storage, lengths and positions are in characters. Sharing works as in
// sup::String, and so do the searches: they return length() when nothing is found. A text is at most 2^32 - 1
// characters long.
//
// Terms: a "text" is a zero-terminated `const T*` (null stands for the empty text), a "range" two pointers.
// No position is checked but in the mode of SUPChecked.h. Arguments may be the string itself. Exhausted
// memory is std::bad_alloc and leaves the string as it was; so is a text of 2^32 characters or more. A block
// whose size does not fit 32 bits stops the process on purpose.
//
// Threads: as for sup::String.
#pragma once

#include "Utility/Generic/Portable/SUPAtomic.h"
#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "Utility/Generic/Portable/SUPChecked.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/SUPString.h"
#include "Utility/Generic/Portable/memallocnewdel.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <type_traits>
#include <utility>

namespace sup {

namespace string_details {

constexpr const wchar_t* kByteStringFile = L"server/include/Utility/Generic/Portable/SUPBString.h";
constexpr int kByteStringFrontLine = 216;
constexpr int kByteStringBackLine = 220;
constexpr int kByteStringAtLine = 224;
constexpr int kByteStringIndexLine = 228;

/// The shared block: a header of 28 bytes, then the characters and a zero of the same width.
template <class T>
struct BRIMPORTABLE_API ByteStringData : public memalloc::MemAllocNewdel {
    IntegralAtomic<int, false> m_refCount; ///< strings that share the block
    std::uint32_t m_nCapacity;             ///< characters that fit
    std::uint8_t m_nBytesPerChar;          ///< 1 or sizeof(T)
    std::uint32_t m_nLength;               ///< characters in use
    std::uint32_t m_nReserved[3];          ///< fills the header
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic" // a flexible array member, which both compilers know
    char m_pStart[];                        ///< the characters
#pragma GCC diagnostic pop

    /// Returns a block with count 1 and length 0.
    static ByteStringData* allocateData(std::size_t capacity, unsigned int bytesPerChar);
    void deallocate() noexcept;

    bool isNarrow() const noexcept { return sizeof(T) != 1 && m_nBytesPerChar == 1; }
    const T* wide() const noexcept { return reinterpret_cast<const T*>(m_pStart); }
    T at(std::size_t i) const noexcept {
        return isNarrow() ? static_cast<T>(static_cast<unsigned char>(m_pStart[i])) : wide()[i];
    }
    /// Append characters, converted to the block's width (a wide character gives its low byte to a narrow
    /// block), then the zero. The caller has seen to the capacity.
    void append(const ByteStringData& other, std::size_t first, std::size_t n) noexcept;
    void append(const T* text, std::size_t n) noexcept;
    void append(std::size_t n, T c) noexcept;

    void ref() noexcept { m_refCount.increment(); }
    void deref() noexcept {
        if (m_refCount.release()) {
            deallocate();
        }
    }
    bool isUnique() const noexcept { return m_refCount.get() == 1; }
};

/// The lower case of a character by the current locale; ToLowerCase2 takes a byte that stands for a wide
/// character.
BRIMPORTABLE_API wchar_t ToLowerCase(wchar_t c) noexcept;
BRIMPORTABLE_API char ToLowerCase(char c) noexcept;
BRIMPORTABLE_API wchar_t ToLowerCase2(unsigned char c) noexcept;

/// Compare without regard to case, characters as unsigned numbers: negative, 0 or positive. StringCompareI
/// compares like characters (bytes stand for wide characters), StringCompareI2 wide ones with bytes.
BRIMPORTABLE_API int StringCompareI(const wchar_t* a, std::size_t aLength, const wchar_t* b,
                                    std::size_t bLength) noexcept;
BRIMPORTABLE_API int StringCompareI(const char* a, std::size_t aLength, const char* b,
                                    std::size_t bLength) noexcept;
BRIMPORTABLE_API int StringCompareI(const unsigned char* a, std::size_t aLength, const unsigned char* b,
                                    std::size_t bLength) noexcept;
BRIMPORTABLE_API int StringCompareI2(const wchar_t* a, std::size_t aLength, const unsigned char* b,
                                     std::size_t bLength) noexcept;
BRIMPORTABLE_API int StringCompareI2(const unsigned char* a, std::size_t aLength, const wchar_t* b,
                                     std::size_t bLength) noexcept;

/// Widen bytes as unsigned numbers; write the low byte of each character; tell whether all are 0 to 255.
BRIMPORTABLE_API void widenBytes(const char* from, std::size_t n, wchar_t* to) noexcept;
BRIMPORTABLE_API void narrowToBytes(const wchar_t* from, std::size_t n, char* to) noexcept;
BRIMPORTABLE_API bool fitsInBytes(const wchar_t* text, std::size_t n) noexcept;

/// Integer types that count; a character type asks for copies of a character instead.
template <class Integer>
using RequireCount =
    std::enable_if_t<std::is_integral<Integer>::value && !std::is_same<Integer, wchar_t>::value &&
                         !std::is_same<Integer, char>::value && !std::is_same<Integer, bool>::value,
                     int>;

} // namespace string_details

/// The byte string.
template <class T>
class BRIMPORTABLE_API ByteString : public memalloc::MemAllocNewdel {
    using data_type = string_details::ByteStringData<T>;
    template <class First, class Last>
    using RequireRange = string_details::RequireRange<First, Last, T>;

public:
    /// Positions and lengths in characters, and the type of a character.
    using size_type = std::size_t;
    using char_type = T;
    using value_type = T;

    /// The largest number: up to the end.
    static constexpr size_type npos = static_cast<size_type>(-1);

    /// Spells out what every search does: length() when nothing is found.
    enum ReturnStringLenIfNotFound { kReturnStringLenIfNotFound };

    /// Reads characters, whatever their storage.
    class const_iterator {
    public:
        /// What the standard asks of a random-access iterator, but that it gives characters by value.
        using iterator_category = std::random_access_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = const T*;
        using reference = T;

        /// An iterator of nothing, or one at character `i`.
        const_iterator() noexcept = default;
        const_iterator(const data_type* rep, difference_type i) noexcept : m_rep(rep), m_i(i) {}
        /// The character there, and `n` characters further on.
        T operator*() const noexcept { return m_rep->at(static_cast<size_type>(m_i)); }
        T operator[](difference_type n) const noexcept { return *(*this + n); }
        /// Moving, distance and order, as for pointers.
        const_iterator& operator++() noexcept { return *this += 1; }
        const_iterator& operator--() noexcept { return *this += -1; }
        const_iterator operator++(int) noexcept { return std::exchange(*this, *this + 1); }
        const_iterator operator--(int) noexcept { return std::exchange(*this, *this - 1); }
        const_iterator& operator+=(difference_type n) noexcept {
            m_i += n;
            return *this;
        }
        const_iterator& operator-=(difference_type n) noexcept { return *this += -n; }
        friend const_iterator operator+(const_iterator it, difference_type n) noexcept { return it += n; }
        friend const_iterator operator+(difference_type n, const_iterator it) noexcept { return it += n; }
        friend const_iterator operator-(const_iterator it, difference_type n) noexcept { return it -= n; }
        friend difference_type operator-(const_iterator a, const_iterator b) noexcept {
            return a.m_i - b.m_i;
        }
        friend bool operator==(const_iterator a, const_iterator b) noexcept { return a.m_i == b.m_i; }
        friend bool operator!=(const_iterator a, const_iterator b) noexcept { return a.m_i != b.m_i; }
        friend bool operator<(const_iterator a, const_iterator b) noexcept { return a.m_i < b.m_i; }
        friend bool operator>(const_iterator a, const_iterator b) noexcept { return a.m_i > b.m_i; }
        friend bool operator<=(const_iterator a, const_iterator b) noexcept { return a.m_i <= b.m_i; }
        friend bool operator>=(const_iterator a, const_iterator b) noexcept { return a.m_i >= b.m_i; }

    private:
        const data_type* m_rep = nullptr;
        difference_type m_i = 0;
    };
    /// The same from the end.
    using const_reverse_iterator = std::reverse_iterator<const_iterator>;

    // ---- Construction and assignment ----------------------------------------------------------------------
    // The width is chosen from the characters; an empty text gives the null string.

    /// The null string; allocates nothing.
    ByteString() noexcept = default;
    /// Shares the block of `b`.
    ByteString(const ByteString& b) noexcept : m_rep(b.m_rep) { refData(); }
    /// Takes the block of `b`, which becomes null.
    ByteString(ByteString&& b) noexcept : m_rep(std::exchange(b.m_rep, nullptr)) {}
    /// A copy of a text, of `count` characters, or of a range.
    ByteString(const T* text);
    ByteString(const T* text, size_type count);
    template <class First, class Last, RequireRange<First, Last> = 0>
    ByteString(First first, Last last) : ByteString(static_cast<const T*>(first), rangeLength(first, last)) {}
    /// `n` copies of `c`.
    ByteString(size_type n, T c);
    explicit ByteString(T c);
    /// The first `n` characters of `b`: shares the block when that is all of them; null when `n` is 0.
    ByteString(const ByteString& b, size_type n);
    /// An empty string with a block for `capacity` characters of `bytesPerChar` bytes, 1 or sizeof(T).
    template <class Capacity, class Width, string_details::RequireCount<Capacity> = 0,
              string_details::RequireCount<Width> = 0>
    ByteString(Capacity capacity, Width bytesPerChar)
        : m_rep(data_type::allocateData(static_cast<size_type>(capacity),
                                        static_cast<unsigned int>(bytesPerChar))) {}
    ~ByteString() { derefData(); }

    /// As assign(); a moved string becomes null.
    ByteString& operator=(const ByteString& b) noexcept { return assign(b); }
    ByteString& operator=(ByteString&& b) noexcept {
        ByteString taken(std::move(b));
        swap(taken);
        return *this;
    }
    ByteString& operator=(const T* text) { return assign(text); }
    ByteString& operator=(const String<T>& s) { return assign(s); }
    /// Shares the block of `b`.
    ByteString& assign(const ByteString& b) noexcept;
    /// A copy of a text, of characters, of the first `n` characters of `b`, or of a string.
    ByteString& assign(const T* text);
    ByteString& assign(const T* text, size_type count);
    template <class First, class Last, RequireRange<First, Last> = 0>
    ByteString& assign(First first, Last last) {
        return assign(static_cast<const T*>(first), rangeLength(first, last));
    }
    ByteString& assign(const ByteString& b, size_type n);
    ByteString& assign(const String<T>& s) { return assign(s.begin(), s.length()); }
    /// Exchanges the blocks.
    void swap(ByteString& other) noexcept { std::swap(m_rep, other.m_rep); }

    // ---- Access -------------------------------------------------------------------------------------------

    /// The number of characters.
    size_type length() const noexcept { return m_rep == nullptr ? 0 : m_rep->m_nLength; }
    size_type size() const noexcept { return length(); }
    /// Characters that the block holds; 0 for the null string.
    size_type capacity() const noexcept { return m_rep == nullptr ? 0 : m_rep->m_nCapacity; }
    /// True without characters.
    bool empty() const noexcept { return length() == 0; }
    /// The characters from the front, and from the end.
    const_iterator begin() const noexcept { return const_iterator(m_rep, 0); }
    const_iterator end() const noexcept {
        return const_iterator(m_rep, static_cast<std::ptrdiff_t>(length()));
    }
    const_reverse_iterator rbegin() const noexcept { return const_reverse_iterator(end()); }
    const_reverse_iterator rend() const noexcept { return const_reverse_iterator(begin()); }
    /// One character, which must exist; see SUPChecked.h.
    BRIM_CHECKED_MEMBER T front() const noexcept {
        BRIM_CHECK(string_details::kByteStringFile, string_details::kByteStringFrontLine, !empty());
        return m_rep->at(0);
    }
    BRIM_CHECKED_MEMBER T back() const noexcept {
        BRIM_CHECK(string_details::kByteStringFile, string_details::kByteStringBackLine, !empty());
        return m_rep->at(length() - 1);
    }
    BRIM_CHECKED_MEMBER T at(size_type i) const noexcept {
        BRIM_CHECK(string_details::kByteStringFile, string_details::kByteStringAtLine, i < length());
        return m_rep->at(i);
    }
    BRIM_CHECKED_MEMBER T operator[](size_type i) const noexcept {
        BRIM_CHECK(string_details::kByteStringFile, string_details::kByteStringIndexLine, i < length());
        return m_rep->at(i);
    }
    /// True when this string alone holds its block; false for the null string.
    bool isUnique() const noexcept { return m_rep != nullptr && m_rep->isUnique(); }
    /// 1 or sizeof(T); 1 for the null string.
    unsigned int getBytesPerChar() const noexcept { return m_rep == nullptr ? 1U : m_rep->m_nBytesPerChar; }
    /// The stored characters, getBytesPerChar() bytes each, and their zero; null for the null string.
    const char* getCharArray() const noexcept { return m_rep == nullptr ? nullptr : m_rep->m_pStart; }
    /// The characters widened to T, with a zero behind them, in an array that the caller owns.
    HeapedAutoBuffer<T> getAutoArray() const;

    // ---- Widening -----------------------------------------------------------------------------------------

    /// Writes the characters, widened, and a zero to `out`, which has room for length() + 1. The null string
    /// fails the assertion "m_rep".
    void fill(T* out) const;
    /// The characters as a string; null for the null string.
    String<T> toString() const;

    // ---- Changes ------------------------------------------------------------------------------------------
    // An append never works in place: it builds a new block of exactly the new length, in the wider of the
    // two widths. To an empty string it gives the appended block.

    /// Append a string, a text, `count` characters, a range, or `n` copies of `c`.
    ByteString& append(const ByteString& b);
    ByteString& append(const T* text) { return append(ByteString(text)); }
    ByteString& append(const T* text, size_type count) { return append(ByteString(text, count)); }
    template <class First, class Last, RequireRange<First, Last> = 0>
    ByteString& append(First first, Last last) {
        return append(ByteString(first, last));
    }
    ByteString& append(T c) { return append(ByteString(1, c)); }
    ByteString& append(size_type n, T c) { return append(ByteString(n, c)); }
    ByteString& operator+=(const ByteString& b) { return append(b); }
    ByteString& operator+=(const T* text) { return append(text); }
    ByteString& operator+=(T c) { return append(c); }
    void push_back(T c) { append(c); }
    /// Empties the string: a unique block is kept, a shared one is let go.
    void clear() noexcept;
    /// Makes the block private, with room for `n` characters of its width.
    void reserve(size_type n);
    /// Up to `n` characters from `pos` on; null when `pos` is at or beyond the end.
    ByteString substr(size_type pos, size_type n) const;
    ByteString substr(size_type pos) const { return substr(pos, npos); }

    // ---- Searching ----------------------------------------------------------------------------------------
    // length() when nothing is found; a search that starts at or beyond the end finds nothing.

    /// The first `c` or `text` at or after `pos`.
    size_type find(T c, size_type pos = 0) const noexcept;
    size_type find(const T* text, size_type pos = 0) const noexcept;
    size_type find(T c, ReturnStringLenIfNotFound) const noexcept { return find(c); }
    size_type find(T c, size_type pos, ReturnStringLenIfNotFound) const noexcept { return find(c, pos); }
    size_type find(const T* text, ReturnStringLenIfNotFound) const noexcept { return find(text); }
    size_type find(const T* text, size_type pos, ReturnStringLenIfNotFound) const noexcept {
        return find(text, pos);
    }

    // ---- Comparing ----------------------------------------------------------------------------------------

    /// Compares characters (wide ones as signed, narrow ones as unsigned numbers), then lengths: negative, 0
    /// or positive. A string with a block is greater than the null string even when it is empty; the null
    /// string is equal to an empty one.
    int compare(const ByteString& b) const noexcept;
    /// The same without regard to case, by the current locale, characters as unsigned numbers.
    int compareToIgnoreCase(const ByteString& b) const noexcept;
    /// Compare lengths and characters.
    static bool equals(const ByteString& a, const ByteString& b) noexcept;
    static bool equals(const ByteString& b, const T* text) noexcept;
    static bool equals(const T* text, const ByteString& b) noexcept { return equals(b, text); }

    /// As equals().
    friend bool operator==(const ByteString& a, const ByteString& b) noexcept { return equals(a, b); }
    friend bool operator!=(const ByteString& a, const ByteString& b) noexcept { return !equals(a, b); }

    /// h = h * 101 + character, from 0, in 32 bits.
    std::uint32_t hash() const noexcept;

    // ---- Diagnostics --------------------------------------------------------------------------------------

    /// The shared block, for tests of sharing; null for the null string.
    const data_type* diagnosticGetSharedRepresentation() const noexcept { return m_rep; }

private:
    static size_type rangeLength(const T* first, const T* last) noexcept {
        return static_cast<size_type>(last - first);
    }
    static data_type* makeData(const data_type& from, size_type first, size_type n, size_type capacity,
                               unsigned int bytesPerChar);

    void refData() noexcept {
        if (m_rep != nullptr) {
            m_rep->ref();
        }
    }
    void derefData() noexcept {
        if (m_rep != nullptr) {
            m_rep->deref();
        }
    }
    void putData(data_type* fresh) noexcept {
        derefData();
        m_rep = fresh;
    }

    data_type* m_rep = nullptr;
};

} // namespace sup

#include "Utility/Generic/Portable/SUPBStringImpl.h"
