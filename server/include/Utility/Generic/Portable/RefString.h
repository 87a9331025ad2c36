// RefStringTemplate<T>: a view of a run of characters that somebody else owns, for wchar_t and for char.
//
// Two pointers, copied freely. The text need not end in a zero, and must stay alive and unchanged while the
// view is used. Nothing is checked but in the mode of SUPChecked.h, and nothing allocates but asString().
// Unlike sup::String, every search returns npos when it finds nothing. Comparisons and the search for a text
// use the C library's counted comparisons, so they take characters after a zero for equal.
#pragma once

#include "Utility/Generic/Portable/SUPChecked.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/SUPString.h"

#include <cstddef>

namespace sup::string_details {

constexpr const wchar_t* kRefStringFile = L"server/include/Utility/Generic/Portable/RefString.h";
constexpr int kRefStringFrontLine = 52;
constexpr int kRefStringBackLine = 56;
constexpr int kRefStringIndexLine = 60;
constexpr int kRefStringAtLine = 64;
constexpr int kRefStringSubstrLine = 70;

} // namespace sup::string_details

/// A view of characters: two pointers.
template <class T>
class BRIMPORTABLE_API RefStringTemplate {
public:
    /// Positions and lengths in characters, and the types that belong to the view.
    using size_type = std::size_t;
    using char_type = T;
    using string_type = sup::String<T>;

    /// What a search gives that finds nothing.
    static constexpr size_type npos = static_cast<size_type>(-1);

    /// An empty view of nothing.
    RefStringTemplate() noexcept = default;
    /// A zero-terminated text.
    RefStringTemplate(const T* text) noexcept;
    /// `count` characters, a range, or a string's.
    RefStringTemplate(const T* text, size_type count) noexcept : m_p(text), m_pe(text + count) {}
    template <class First, class Last, sup::string_details::RequireRange<First, Last, T> = 0>
    RefStringTemplate(First first, Last last) noexcept : m_p(first), m_pe(last) {}
    RefStringTemplate(const string_type& s) noexcept : m_p(s.begin()), m_pe(s.end()) {}
    /// The first `n` characters of `ref`, or all when there are fewer.
    RefStringTemplate(const RefStringTemplate& ref, size_type n) noexcept : RefStringTemplate(ref, 0, n) {}
    /// Up to `n` characters of `ref` from `pos` on; empty when `pos` is beyond the end.
    RefStringTemplate(const RefStringTemplate& ref, size_type pos, size_type n) noexcept;

    /// As those of std::basic_string_view; no position is checked.
    bool empty() const noexcept { return m_p == m_pe; }
    size_type length() const noexcept { return static_cast<size_type>(m_pe - m_p); }
    const T* begin() const noexcept { return m_p; }
    const T* end() const noexcept { return m_pe; }
    BRIM_CHECKED_MEMBER const T& front() const noexcept {
        BRIM_CHECK(sup::string_details::kRefStringFile, sup::string_details::kRefStringFrontLine, !empty());
        return *m_p;
    }
    BRIM_CHECKED_MEMBER const T& back() const noexcept {
        BRIM_CHECK(sup::string_details::kRefStringFile, sup::string_details::kRefStringBackLine, !empty());
        return m_pe[-1];
    }
    BRIM_CHECKED_MEMBER const T& operator[](size_type i) const noexcept {
        BRIM_CHECK(sup::string_details::kRefStringFile, sup::string_details::kRefStringIndexLine,
                   i < length());
        return m_p[i];
    }
    BRIM_CHECKED_MEMBER const T& at(size_type i) const noexcept {
        BRIM_CHECK(sup::string_details::kRefStringFile, sup::string_details::kRefStringAtLine, i < length());
        return m_p[i];
    }

    /// `n` characters from `pos` on. Not clamped: the caller passes values that lie inside.
    BRIM_CHECKED_MEMBER RefStringTemplate substr(size_type pos, size_type n) const noexcept {
        BRIM_CHECK(sup::string_details::kRefStringFile, sup::string_details::kRefStringSubstrLine,
                   pos <= length() && n <= length() - pos);
        return RefStringTemplate(m_p + pos, n);
    }
    /// A copy that owns its characters. Throws std::bad_alloc.
    string_type asString() const { return string_type(m_p, length()); }

    /// The first `c`, or the last one; npos when there is none.
    size_type find(T c) const noexcept;
    size_type rfind(T c) const noexcept;
    /// The first occurrence; 0 for an empty pattern.
    size_type find(const T* text) const noexcept { return find(RefStringTemplate(text)); }
    size_type find(const RefStringTemplate& ref) const noexcept { return findImpl(ref.m_p, ref.length()); }
    size_type find(const string_type& s) const noexcept { return findImpl(s.begin(), s.length()); }

    /// Negative, 0 or positive; of two texts that differ in length only, the shorter is less.
    int compare(const RefStringTemplate& ref) const noexcept;
    /// True when compare() gives 0.
    bool isEqual(const RefStringTemplate& ref) const noexcept;

private:
    size_type findImpl(const T* pattern, size_type count) const noexcept;

    const T* m_p = nullptr;
    const T* m_pe = nullptr;
};

#include "Utility/Generic/Portable/RefStringImpl.h"
