// sup::String<T>: the shared, reference-counted, copy-on-write string, for wchar_t and for char.
//
// A copy copies one pointer and counts one reference; the first change of a shared string makes a private
// copy. The empty string owns no memory ("null"); a string emptied by clear() may keep its block. Text lies
// in one heap block behind a header (StringData) and always ends in a zero, which length() does not count.
// Wide characters hold one UTF-16 code unit each.
//
//   String<wchar_t> a(L"ab");
//   String<wchar_t> b = a;      // shares the block
//   b.append(L"c");             // b gets a block of its own; a is still L"ab"
//   a.find(L'x')                // 2: plain find returns length() when nothing is found, not npos
//
// Terms: a "text" is a zero-terminated `const T*` (null stands for the empty text), a "range" two pointers
// `first`, `last`. No member checks a position unless its comment says so; SUPChecked.h has a mode that finds
// such mistakes. Arguments may be the string itself or lie inside it. Exhausted memory is std::bad_alloc and
// leaves the string as it was.
//
// Threads: strings that share a block may belong to different threads. One string object must not be changed
// by one thread while another uses it.
#pragma once

#include "Utility/Generic/Portable/BrimNodeAlloc.h"
#include "Utility/Generic/Portable/SUPAtomic.h"
#include "Utility/Generic/Portable/SUPChecked.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/memallocnewdel.h"

#include <cstddef>
#include <cstring>
#include <iterator>
#include <type_traits>
#include <utility>
#include <vector>

namespace sup {

template <class T>
class BRIMPORTABLE_API ByteString;

namespace string_details {

constexpr const wchar_t* kStringFile = L"server/include/Utility/Generic/Portable/SUPString.h";
constexpr int kStringFrontLine = 187;
constexpr int kStringBackLine = 191;
constexpr int kStringAtLine = 195;
constexpr int kStringIndexLine = 199;
constexpr int kStringPopBackLine = 269;

/// The shared block: this header, then the characters and their terminating zero.
template <class T>
struct BRIMPORTABLE_API StringData {
    IntegralAtomic<int, false> m_refCount; ///< strings that share the block
    std::size_t m_nCapacity;               ///< characters that fit, the zero not counted
    T* m_pFinish;                          ///< the terminating zero
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic" // a flexible array member, which both compilers know
    T m_pStart[];                           ///< the characters
#pragma GCC diagnostic pop

    std::size_t length() const noexcept { return static_cast<std::size_t>(m_pFinish - m_pStart); }
    /// Characters that fit in addition.
    std::size_t room() const noexcept { return static_cast<std::size_t>(m_pStart + m_nCapacity - m_pFinish); }
    void setLength(std::size_t n) noexcept {
        m_pFinish = m_pStart + n;
        *m_pFinish = T();
    }

    /// Returns a block for `n` characters at least, with count 1 and length 0. Sizes are rounded up to 8
    /// bytes and the slack is capacity; the smallest block has 32 bytes. std::bad_alloc when there is no
    /// memory, or no such size.
    static StringData* allocateData(std::size_t n);
    void deallocate() noexcept;

    void ref() noexcept { m_refCount.increment(); }
    void deref() noexcept {
        if (m_refCount.release()) {
            deallocate();
        }
    }
    bool isUnique() const noexcept { return m_refCount.get() == 1; }
};

template <class First, class Last, class T>
using RequireRange = std::enable_if_t<
    std::is_convertible<First, const T*>::value && std::is_convertible<Last, const T*>::value, int>;

} // namespace string_details

/// The shared, copy-on-write string.
template <class T>
class BRIMPORTABLE_API String : public memalloc::MemAllocNewdel {
    using data_type = string_details::StringData<T>;
    template <class First, class Last>
    using RequireRange = string_details::RequireRange<First, Last, T>;

public:
    /// Positions and lengths in characters, and the types that belong to the string.
    using size_type = std::size_t;
    using char_type = T;
    using value_type = T;
    using iterator = T*;
    using const_iterator = const T*;
    using const_reverse_iterator = std::reverse_iterator<const T*>;
    using allocator = BrimNodeAlloc;

    /// What the searches give that are asked for it; as a count: up to the end.
    static constexpr size_type npos = static_cast<size_type>(-1);

    /// Tags for the searches: what to return when nothing is found.
    enum ReturnNPosIfNotFound { kReturnNPosIfFail };
    enum ReturnStringLenIfNotFound { kReturnStringLenIfNotFound };

    /// Asks a constructor for a block of a given capacity.
    class totalCapacity {
    public:
        /// Keeps the number of characters.
        explicit totalCapacity(size_type n) noexcept : m_nReserve(n) {}
        size_type amount() const noexcept { return m_nReserve; }

    private:
        size_type m_nReserve;
    };

    // ---- Construction -------------------------------------------------------------------------------------

    /// The null string; allocates nothing.
    String() noexcept = default;
    /// Shares the block of `s`.
    String(const String& s) noexcept : m_tState(s.m_tState) { refData(); }
    /// Takes the block of `s`, which becomes null.
    String(String&& s) noexcept : m_tState(std::exchange(s.m_tState, string_state())) {}
    /// A copy of a text, of `count` characters, or of a range.
    String(const T* text);
    String(const T* text, size_type count);
    template <class First, class Last, RequireRange<First, Last> = 0>
    String(First first, Last last) : String(static_cast<const T*>(first), rangeLength(first, last)) {}
    /// `n` copies of `c`.
    String(size_type n, T c);
    explicit String(T c);
    /// The first `n` characters of `s`: shares the block when that is all of them; null when `n` is 0.
    String(const String& s, size_type n);
    /// A copy in a new block of capacity max(length, amount()) at least.
    String(const String& s, totalCapacity capacity);
    /// The same of a range.
    template <class First, class Last, RequireRange<First, Last> = 0>
    String(First first, Last last, totalCapacity capacity)
        : m_tState{makeData(first, rangeLength(first, last), capacity.amount())} {}
    /// The characters of a byte string, widened. This and the other members that take or give a byte string
    /// need SUPBString.h.
    explicit String(const ByteString<T>& b);
    ~String() { derefData(); }

    // ---- Assignment ---------------------------------------------------------------------------------------

    /// As assign(); a moved string becomes null.
    String& operator=(const String& s) noexcept { return assign(s); }
    String& operator=(String&& s) noexcept {
        String taken(std::move(s));
        swap(taken);
        return *this;
    }
    String& operator=(const T* text) { return assign(text); }
    String& operator=(const ByteString<T>& b) { return assign(b); }
    /// Shares the block of `s`.
    String& assign(const String& s) noexcept;
    /// The characters are written in place when the block is unique and big enough.
    String& assign(const T* text);
    String& assign(const T* text, size_type count);
    template <class First, class Last, RequireRange<First, Last> = 0>
    String& assign(First first, Last last) {
        return assign(static_cast<const T*>(first), rangeLength(first, last));
    }
    /// The first `n` characters of `s`; shares its block when that is all of them.
    String& assign(const String& s, size_type n);
    /// The characters of a byte string, widened.
    String& assign(const ByteString<T>& b);
    /// Exchanges the blocks.
    void swap(String& other) noexcept { std::swap(m_tState, other.m_tState); }
    /// As swap(); both blocks are held by an extra reference meanwhile.
    void deepSwap(String& other) noexcept;

    // ---- Access -------------------------------------------------------------------------------------------

    /// The zero-terminated text, never null. Valid until the string is changed or destroyed.
    const T* c_str() const noexcept { return rep() == nullptr ? emptyText() : rep()->m_pStart; }
    const T* data() const noexcept { return c_str(); }
    /// The number of characters.
    size_type length() const noexcept { return rep() == nullptr ? 0 : rep()->length(); }
    size_type size() const noexcept { return length(); }
    /// Characters that fit in place: 0 for the null string, the length when the block is shared.
    size_type capacity() const noexcept;
    /// True without characters.
    bool empty() const noexcept { return length() == 0; }
    /// The characters from the front, and from the end; as valid as c_str().
    const_iterator begin() const noexcept { return c_str(); }
    const_iterator end() const noexcept { return rep() == nullptr ? emptyText() : rep()->m_pFinish; }
    const_reverse_iterator rbegin() const noexcept { return const_reverse_iterator(end()); }
    const_reverse_iterator rend() const noexcept { return const_reverse_iterator(begin()); }
    /// One character, which must exist; see SUPChecked.h.
    BRIM_CHECKED_MEMBER const T& front() const noexcept {
        BRIM_CHECK(string_details::kStringFile, string_details::kStringFrontLine, !empty());
        return *begin();
    }
    BRIM_CHECKED_MEMBER const T& back() const noexcept {
        BRIM_CHECK(string_details::kStringFile, string_details::kStringBackLine, !empty());
        return *(end() - 1);
    }
    BRIM_CHECKED_MEMBER const T& at(size_type i) const noexcept {
        BRIM_CHECK(string_details::kStringFile, string_details::kStringAtLine, i < length());
        return c_str()[i];
    }
    BRIM_CHECKED_MEMBER const T& operator[](size_type i) const noexcept {
        BRIM_CHECK(string_details::kStringFile, string_details::kStringIndexLine, i <= length());
        return c_str()[i];
    }
    /// The allocator, which has no state.
    allocator get_allocator() const noexcept { return allocator(); }
    /// True when this string alone holds its block; false for the null string.
    bool isUnique() const noexcept { return rep() != nullptr && rep()->isUnique(); }

    /// Makes the block private and returns its characters for writing; null for the null string. Valid until
    /// the string is copied, changed or destroyed.
    iterator mutable_begin();
    iterator mutable_end();

    // ---- Appending ----------------------------------------------------------------------------------------
    // A unique block without room grows to max(needed, twice its capacity); a shared or null string gets
    // exactly what it needs.

    /// Append a string, a text, `count` characters, a range, or `n` copies of `c`.
    String& append(const String& s) { return append(s.c_str(), s.length()); }
    String& append(const T* text);
    String& append(const T* text, size_type count);
    template <class First, class Last, RequireRange<First, Last> = 0>
    String& append(First first, Last last) {
        return append(static_cast<const T*>(first), rangeLength(first, last));
    }
    String& append(T c) {
        push_back(c);
        return *this;
    }
    String& append(size_type n, T c);
    String& operator+=(const String& s) { return append(s); }
    String& operator+=(const T* text) { return append(text); }
    String& operator+=(T c) { return append(c); }
    void push_back(T c) {
        data_type* const data = rep();
        if (data != nullptr && data->isUnique() && data->m_pFinish != data->m_pStart + data->m_nCapacity) {
            T* const finish = data->m_pFinish;
            finish[0] = c;
            finish[1] = T();
            data->m_pFinish = finish + 1;
        } else {
            append(1, c);
        }
    }
    /// Inserts in front; grows to exactly the needed length.
    String& prepend(const String& s) { return insert(0, s); }
    String& prepend(size_type n, T c) { return replace(0, 0, n, c); }

    // ---- Inserting and erasing ----------------------------------------------------------------------------
    // Beyond the end, an insertion appends and an erasure does nothing.

    /// Inserts a string, a text or a range; grows to exactly the needed length.
    String& insert(size_type pos, const String& s) { return replace(pos, 0, s); }
    String& insert(size_type pos, const T* text) { return replace(pos, 0, text); }
    template <class First, class Last, RequireRange<First, Last> = 0>
    String& insert(size_type pos, First first, Last last) {
        return replace(pos, 0, first, last);
    }
    /// Inserts `n` copies of `c`; grows as an append does.
    String& insert(size_type pos, size_type n, T c);
    /// Removes up to `n` characters from `pos` on.
    String& erase(size_type pos, size_type n);
    /// Cuts the string at `pos`.
    String& erase(size_type pos) { return erase(pos, npos); }
    /// Removes the last character, if there is one.
    BRIM_CHECKED_MEMBER void pop_back() {
        BRIM_CHECK(string_details::kStringFile, string_details::kStringPopBackLine, !empty());
        if (!empty()) {
            erase(length() - 1);
        }
    }
    /// Empties the string: a unique block is kept, a shared one is let go.
    void clear() noexcept;

    // ---- Replacing ----------------------------------------------------------------------------------------
    // Each replaces up to `n` characters from `pos` on (one where there is no `n`) and grows to exactly the
    // needed length. Beyond the end the new characters are appended.

    /// Replaces by a range, a text, `count` characters, a string, or `count` copies of `c`.
    template <class First, class Last, RequireRange<First, Last> = 0>
    String& replace(size_type pos, size_type n, First first, Last last) {
        return replace(pos, n, static_cast<const T*>(first), rangeLength(first, last));
    }
    String& replace(size_type pos, size_type n, const T* text);
    String& replace(size_type pos, size_type n, const T* text, size_type count);
    String& replace(size_type pos, size_type n, const String& s) {
        return replace(pos, n, s.c_str(), s.length());
    }
    String& replace(size_type pos, size_type n, size_type count, T c);
    String& replace(size_type pos, const T* text) { return replace(pos, 1, text); }
    String& replace(size_type pos, T c) { return replace(pos, 1, 1, c); }

    // ---- Capacity -----------------------------------------------------------------------------------------

    /// Makes the block private, with room for `n` characters.
    void reserve(size_type n);
    /// Cuts the text, or fills it up with `c`; grows to exactly `n`.
    void resize(size_type n, T c = T());
    /// Moves the text to a block without spare room.
    void minimize();
    /// Always 0; nothing depends on it.
    static size_type roundUpCapacity(size_type n) noexcept;

    // ---- Searching ----------------------------------------------------------------------------------------
    // The plain forms return length() when nothing is found, and so do the ReturnStringLenIfNotFound forms;
    // the ReturnNPosIfNotFound forms return npos. A search that starts at or beyond the end finds nothing. A
    // text is found only before the first zero inside the string; characters are found everywhere.

    /// The first `c` or `text` at or after `pos`; length() when there is none.
    size_type find(T c) const noexcept { return lengthIfNPos(findCharacter(c, 0)); }
    size_type find(T c, size_type pos) const noexcept { return lengthIfNPos(findCharacter(c, pos)); }
    size_type find(const T* text) const noexcept { return lengthIfNPos(findText(text, 0)); }
    size_type find(const T* text, size_type pos) const noexcept { return lengthIfNPos(findText(text, pos)); }
    size_type find(T c, ReturnStringLenIfNotFound) const noexcept { return find(c); }
    size_type find(T c, size_type pos, ReturnStringLenIfNotFound) const noexcept { return find(c, pos); }
    size_type find(const T* text, ReturnStringLenIfNotFound) const noexcept { return find(text); }
    size_type find(const T* text, size_type pos, ReturnStringLenIfNotFound) const noexcept {
        return find(text, pos);
    }
    /// The same, but npos when there is none.
    size_type find(T c, ReturnNPosIfNotFound) const noexcept { return findCharacter(c, 0); }
    size_type find(T c, size_type pos, ReturnNPosIfNotFound) const noexcept { return findCharacter(c, pos); }
    size_type find(const T* text, ReturnNPosIfNotFound) const noexcept { return findText(text, 0); }
    size_type find(const T* text, size_type pos, ReturnNPosIfNotFound) const noexcept {
        return findText(text, pos);
    }
    /// The last `c`; npos when there is none.
    size_type rfind(T c) const noexcept;

    // ---- Comparing ----------------------------------------------------------------------------------------

    /// Compares the zero-terminated texts as wcscmp (wide) or strcmp (narrow) does: negative, 0 or positive.
    int compare(const String& s) const noexcept;
    int compare(const T* text) const noexcept;
    /// Compares lengths, then all characters, zeros included.
    static bool equals(const String& a, const String& b) noexcept {
        return a.rep() == b.rep() || equals(a.c_str(), a.length(), b.c_str(), b.length());
    }
    static bool equals(const String& s, const T* text) noexcept;
    static bool equals(const T* text, const String& s) noexcept { return equals(s, text); }

    /// As equals().
    friend bool operator==(const String& a, const String& b) noexcept { return equals(a, b); }
    friend bool operator==(const String& s, const T* text) noexcept { return equals(s, text); }
    friend bool operator==(const T* text, const String& s) noexcept { return equals(s, text); }
    friend bool operator!=(const String& a, const String& b) noexcept { return !equals(a, b); }
    friend bool operator!=(const String& s, const T* text) noexcept { return !equals(s, text); }
    friend bool operator!=(const T* text, const String& s) noexcept { return !equals(s, text); }

    // ---- Sub-strings --------------------------------------------------------------------------------------

    /// Up to `n` characters from `pos` on; null when `pos` is at or beyond the end.
    String substr(size_type pos, size_type n) const;
    String substr(size_type pos) const { return substr(pos, npos); }
    template <class First, class Last, RequireRange<First, Last> = 0>
    String substr(First first, Last last) const {
        return String(first, last);
    }

    // ---- Conversion ---------------------------------------------------------------------------------------

    /// The characters as a byte string.
    ByteString<T> toByteString() const;

    // ---- Diagnostics --------------------------------------------------------------------------------------

    /// The shared block, for tests of sharing; null for the null string.
    const data_type* diagnosticGetSharedRepresentation() const noexcept { return rep(); }

private:
    struct string_state {
        data_type* m_pData = nullptr;
    };

    // Stands in for the characters of the null string: the second zero, so that back() finds one too.
    static constexpr T s_emptyText[2] = {};
    static const T* emptyText() noexcept { return s_emptyText + 1; }

    static size_type rangeLength(const T* first, const T* last) noexcept {
        return static_cast<size_type>(last - first);
    }
    static data_type* makeData(const T* text, size_type count, size_type capacity);
    static bool equals(const T* a, size_type aLength, const T* b, size_type bLength) noexcept;

    data_type* rep() const noexcept { return m_tState.m_pData; }
    void refData() noexcept {
        if (rep() != nullptr) {
            rep()->ref();
        }
    }
    void derefData() noexcept {
        if (rep() != nullptr) {
            rep()->deref();
        }
    }
    void putData(data_type* fresh) noexcept;
    void makePrivate();
    String& appendToNewBlock(const T* text, size_type count);
    bool fitsInPlace(size_type length) const noexcept;
    bool selfReferencing(const T* text) const noexcept;
    size_type lengthPlus(size_type added) const;
    size_type grownCapacity(size_type needed) const noexcept;
    template <class Fill>
    void splice(size_type pos, size_type n, size_type count, bool inPlace, size_type capacity, Fill fill);
    size_type findCharacter(T c, size_type pos) const noexcept;
    size_type findText(const T* text, size_type pos) const noexcept;
    size_type lengthIfNPos(size_type found) const noexcept { return found == npos ? length() : found; }

    string_state m_tState;
};

} // namespace sup

/// The wide string, under the name that the rest of the library uses.
using BrimString = sup::String<wchar_t>;

/// A vector of wide strings that is made through the allocator gateway.
class BrimStringVector : public std::vector<BrimString>, public memalloc::MemAllocNewdel {
public:
    using std::vector<BrimString>::vector;
    /// Copies and moves as the vector does.
    BrimStringVector() = default;
    BrimStringVector(const BrimStringVector&) = default;
    BrimStringVector(BrimStringVector&&) = default;
    BrimStringVector& operator=(const BrimStringVector&) = default;
    BrimStringVector& operator=(BrimStringVector&&) = default;
    virtual ~BrimStringVector() = default;
};

#include "Utility/Generic/Portable/SUPStringImpl.h"
