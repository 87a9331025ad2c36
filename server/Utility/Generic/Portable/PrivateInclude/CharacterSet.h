// A set of wide characters with a constant-time test for those below 256.
#pragma once

#include "Utility/Generic/Portable/SUPAutobuffer.h"

#include <algorithm>
#include <cstddef>

namespace sup {

class CharacterSet {
public:
    CharacterSet(const wchar_t* first, const wchar_t* last) {
        m_others.growNoPreserve(static_cast<std::size_t>(last - first));
        for (; first != last; ++first) {
            if (isLow(*first)) {
                m_low[*first] = true;
            } else {
                m_others.data()[m_nOthers++] = *first;
            }
        }
        std::sort(m_others.data(), m_others.data() + m_nOthers);
    }

    bool contains(wchar_t c) const noexcept {
        return isLow(c) ? m_low[c] : std::binary_search(m_others.data(), m_others.data() + m_nOthers, c);
    }

private:
    static bool isLow(wchar_t c) noexcept { return static_cast<unsigned int>(c) < 256; }

    bool m_low[256] = {};
    AutoBuffer<wchar_t, 32> m_others; // sorted
    std::size_t m_nOthers = 0;
};

} // namespace sup
