#include "Utf8Validator.h"

#include "kernels/kernels.h"
#include "kernels/utf8_wellformed.h"

#include <algorithm>
#include <cstring>

namespace sup::transcodeimpl {

using kernels::ScannedSequence;
using kernels::scanSequence;

Utf8Validator::Scan Utf8Validator::scan(const char* src, std::size_t length) noexcept {
    const std::size_t wellFormed = kernels::kernels().wellFormedUtf8(src, length);
    if (wellFormed == length) {
        return {length, 0, false};
    }
    const ScannedSequence sequence = scanSequence(src + wellFormed, src + length);
    return {wellFormed, sequence.rest, sequence.cut};
}

bool Utf8Validator::feed(const char* src, std::size_t length) noexcept {
    if (!m_wellFormed || length == 0) {
        return m_wellFormed;
    }
    if (m_pendingLength != 0) {
        char joined[sizeof(m_pending)];
        const std::size_t added = std::min(sizeof(joined) - m_pendingLength, length);
        std::memcpy(joined, m_pending, m_pendingLength);
        std::memcpy(joined + m_pendingLength, src, added);
        const ScannedSequence sequence = scanSequence(joined, joined + m_pendingLength + added);
        if (sequence.wellFormed == 0) {
            m_wellFormed = sequence.cut;
            m_pendingLength = sequence.rest;
            std::memcpy(m_pending, joined, sequence.rest);
            return m_wellFormed;
        }
        const std::size_t taken = sequence.wellFormed - m_pendingLength;
        src += taken;
        length -= taken;
        m_offset += sequence.wellFormed;
        m_pendingLength = 0;
    }
    const Scan found = scan(src, length);
    m_offset += found.wellFormed;
    m_line += static_cast<std::uint64_t>(std::count(src, src + found.wellFormed, '\n'));
    m_wellFormed = found.rest == 0 || found.cut;
    if (found.cut) {
        m_pendingLength = found.rest;
        std::memcpy(m_pending, src + found.wellFormed, found.rest);
    }
    return m_wellFormed;
}

bool Utf8Validator::finish() noexcept {
    if (m_pendingLength != 0) {
        m_wellFormed = false;
    }
    return m_wellFormed;
}

} // namespace sup::transcodeimpl
