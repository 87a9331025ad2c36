#include "Utility/Generic/Portable/RefString.h"

#include "kernels/search.h"

namespace {

// The index of the first place where all `count` characters of the pattern are; `n` when there is none.
std::size_t findAll(const wchar_t* text, std::size_t n, const wchar_t* pattern, std::size_t count) noexcept {
    return sup::kernels::findText(text, n, pattern, count);
}
std::size_t findAll(const char* text, std::size_t n, const char* pattern, std::size_t count) noexcept {
    const void* const found = ::memmem(text, n, pattern, count);
    return found == nullptr ? n : static_cast<std::size_t>(static_cast<const char*>(found) - text);
}

} // namespace

// A zero behind the pattern's first character ends the comparison: what comes after it only has to have room.
template <class T>
auto RefStringTemplate<T>::findImpl(const T* pattern, size_type count) const noexcept -> size_type {
    if (count > length()) {
        return npos;
    }
    if (count == 0) {
        return 0;
    }
    const T* const zero = sup::string_details::findInRange(pattern + 1, count - 1, T());
    const size_type compared = zero == nullptr ? count : static_cast<size_type>(zero - pattern) + 1;
    const size_type n = length() - (count - compared);
    const size_type found = findAll(m_p, n, pattern, compared);
    return found == n ? npos : found;
}

template class RefStringTemplate<wchar_t>;
template class RefStringTemplate<char>;
