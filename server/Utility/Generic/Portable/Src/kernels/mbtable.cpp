#include "kernels/mbtable.h"

#include <algorithm>

namespace sup::kernels {

void MultibyteDecoding::reset(std::size_t rows) {
    m_rowOf.fill(0);
    m_units.assign(rows * kRow + 1, kUnknown); // one more, for loops that read four bytes
}

void MultibyteDecoding::setUnit(std::size_t row, std::size_t byte, std::uint32_t unit) {
    m_units[row * kRow + byte] = unit < kUnknown ? static_cast<std::uint16_t>(unit) : kUnknown;
}

void MultibyteDecoding::setLead(std::size_t lead, std::size_t row) {
    m_rowOf[lead] = static_cast<unsigned char>(row);
}

void MultibyteDecoding::finish() noexcept {
    m_hasAscii = true;
    for (std::size_t byte = 0; byte < kUpperHalf; ++byte) {
        m_hasAscii = m_hasAscii && m_units[byte] == byte;
    }
    m_hasUpperLeads = std::all_of(m_rowOf.begin(), m_rowOf.begin() + kUpperHalf,
                                  [](unsigned char row) { return row == 0; });
    m_leadBits.fill(0);
    for (std::size_t byte = kUpperHalf; byte < kRow; ++byte) {
        if (m_rowOf[byte] != 0) {
            m_leadBits[byte & 0xFU] |= static_cast<unsigned char>(1U << (byte >> 4 & 7U));
        }
    }
}

} // namespace sup::kernels
