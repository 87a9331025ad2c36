// The bodies of RefStringTemplate<T>; RefString.h includes this header, callers never do.
#pragma once

#include "Utility/Generic/Portable/RefString.h"

template <class T>
RefStringTemplate<T>::RefStringTemplate(const T* text) noexcept
    : RefStringTemplate(text, sup::string_details::textLength(text)) {}

template <class T>
RefStringTemplate<T>::RefStringTemplate(const RefStringTemplate& ref, size_type pos, size_type n) noexcept {
    const size_type start = pos < ref.length() ? pos : ref.length();
    const size_type rest = ref.length() - start;
    m_p = ref.m_p + start;
    m_pe = m_p + (n < rest ? n : rest);
}

template <class T>
auto RefStringTemplate<T>::find(T c) const noexcept -> size_type {
    if (empty()) {
        return npos;
    }
    const T* const found = sup::string_details::findInRange(m_p, length(), c);
    return found == nullptr ? npos : static_cast<size_type>(found - m_p);
}

template <class T>
auto RefStringTemplate<T>::rfind(T c) const noexcept -> size_type {
    if (empty()) {
        return npos;
    }
    const T* const found = sup::string_details::findLastInRange(m_p, length(), c);
    return found == nullptr ? npos : static_cast<size_type>(found - m_p);
}

template <class T>
int RefStringTemplate<T>::compare(const RefStringTemplate& ref) const noexcept {
    const size_type common = length() < ref.length() ? length() : ref.length();
    const int result = common == 0 ? 0 : sup::string_details::compareCounted(m_p, ref.m_p, common);
    if (result != 0 || length() == ref.length()) {
        return result;
    }
    return length() < ref.length() ? -1 : 1;
}

// Where all characters are equal no zero matters.
template <class T>
bool RefStringTemplate<T>::isEqual(const RefStringTemplate& ref) const noexcept {
    const size_type n = length();
    return n == ref.length() && (n == 0 || sup::string_details::compareMemory(m_p, ref.m_p, n) == 0 ||
                                 sup::string_details::compareCounted(m_p, ref.m_p, n) == 0);
}

extern template class RefStringTemplate<wchar_t>;
extern template class RefStringTemplate<char>;
