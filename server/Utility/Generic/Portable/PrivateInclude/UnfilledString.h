// A string whose characters are written before it becomes one, so that nothing is filled in beforehand.
#pragma once

#include "Utility/Generic/Portable/SUPString.h"

#include <cstddef>
#include <utility>

namespace sup {

template <class T>
class BasicUnfilledString {
public:
    /// With room for `capacity` characters.
    explicit BasicUnfilledString(std::size_t capacity) { m_text.reserve(capacity); }

    /// Where to write; null without room.
    T* begin() const noexcept { return block() == nullptr ? nullptr : block()->m_pStart; }

    /// The string of the first `length` characters, for which there was room. To be called once.
    String<T> take(std::size_t length) noexcept {
        if (block() != nullptr) {
            block()->setLength(length);
        }
        return std::move(m_text);
    }
    /// The same for characters up to `end`.
    String<T> takeTo(const T* end) noexcept { return take(static_cast<std::size_t>(end - begin())); }

private:
    // It is this object's own, and not constant.
    string_details::StringData<T>* block() const noexcept {
        return const_cast<string_details::StringData<T>*>(m_text.diagnosticGetSharedRepresentation());
    }

    String<T> m_text;
};

using UnfilledString = BasicUnfilledString<wchar_t>;

} // namespace sup
