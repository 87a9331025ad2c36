// Cuts the text of a report into pieces that are safe as printf formats. It allocates nothing: a report is
// wanted most when memory is short.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace fenmem {

class ReportWriter {
public:
    using Callback = void (*)(void* context, const char* text, std::size_t length);

    ReportWriter(void* context, Callback callback) noexcept : m_context(context), m_callback(callback) {}
    ~ReportWriter() { flush(); }
    ReportWriter(const ReportWriter&) = delete;
    ReportWriter& operator=(const ReportWriter&) = delete;

    // Takes plain text; a piece goes out at each line end and whenever the buffer is full.
    ReportWriter& operator<<(std::string_view text) noexcept;
    ReportWriter& operator<<(long long number) noexcept;

    // Hands over what is pending, if anything.
    void flush() noexcept;

private:
    static constexpr std::size_t kPieceSize = 256;

    void* m_context;
    Callback m_callback;
    std::size_t m_used = 0;
    std::array<char, kPieceSize + 1> m_piece; // one more for the NUL
};

} // namespace fenmem
