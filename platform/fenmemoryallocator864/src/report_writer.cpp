#include "report_writer.h"

#include <charconv>
#include <limits>

namespace fenmem {

ReportWriter& ReportWriter::operator<<(std::string_view text) noexcept {
    for (const char c : text) {
        const std::size_t width = c == '%' ? 2 : 1;
        if (m_used + width > kPieceSize) {
            flush(); // a doubled sign is never split between two pieces
        }
        m_piece[m_used++] = c;
        if (c == '%') {
            m_piece[m_used++] = c;
        } else if (c == '\n') {
            flush();
        }
    }
    return *this;
}

ReportWriter& ReportWriter::operator<<(long long number) noexcept {
    std::array<char, std::numeric_limits<long long>::digits10 + 2> digits;
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    return *this << std::string_view(digits.data(), static_cast<std::size_t>(result.ptr - digits.data()));
}

void ReportWriter::flush() noexcept {
    if (m_used == 0) {
        return;
    }
    m_piece[m_used] = '\0';
    m_callback(m_context, m_piece.data(), m_used);
    m_used = 0;
}

} // namespace fenmem
