// A wide string whose characters are written before it becomes one, so that nothing is filled in beforehand.
#pragma once

#include "Utility/Generic/Portable/SUPString.h"

#include <cstddef>
#include <utility>

namespace sup {

class UnfilledString {
public:
    /// With room for `capacity` characters.
    explicit UnfilledString(std::size_t capacity) { m_text.reserve(capacity); }

    /// Where to write; null without room.
    wchar_t* begin() const noexcept { return block() == nullptr ? nullptr : block()->m_pStart; }

    /// The string of the first `length` characters, for which there was room. To be called once.
    BrimString take(std::size_t length) noexcept {
        if (block() != nullptr) {
            block()->setLength(length);
        }
        return std::move(m_text);
    }
    /// The same for characters up to `end`.
    BrimString takeTo(const wchar_t* end) noexcept { return take(static_cast<std::size_t>(end - begin())); }

private:
    // It is this object's own, and not constant.
    string_details::StringData<wchar_t>* block() const noexcept {
        return const_cast<string_details::StringData<wchar_t>*>(m_text.diagnosticGetSharedRepresentation());
    }

    BrimString m_text;
};

} // namespace sup
