#include "kernels/sbtable.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace sup::kernels {

namespace {

// Windows begin behind the C1 controls, which no text has, and are chosen by the letters in them.
constexpr std::uint32_t kFirstInWindow = 0xA0;
constexpr std::uint32_t kFirstLetter = 0xC0;
constexpr std::uint32_t kWindowEnd = 0x7F00;
// The two ends of a window hold nothing.
constexpr std::uint32_t kWindowUnits = SingleByteEncoding::kWindow - 2;

} // namespace

void SingleByteSteps::pack(const unsigned char* plane) noexcept {
    const auto isSet = [](unsigned char byte) { return byte != 0; };
    const unsigned char* const planeEnd = plane + kPlane;
    const unsigned char* const first = std::find_if(plane, planeEnd, isSet);
    const auto last = std::find_if(std::reverse_iterator(planeEnd), std::reverse_iterator(first), isSet);
    const auto firstRow = static_cast<std::size_t>(first - plane) / kRow;
    const auto endRow = (static_cast<std::size_t>(last.base() - plane) + kRow - 1) / kRow;
    // One more row takes the last one back.
    pack(plane, firstRow * kRow, std::min((endRow + 1) * kRow, kPlane));
}

void SingleByteSteps::pack(const unsigned char* plane, std::size_t beginOfRows,
                           std::size_t endOfRows) noexcept {
    begin = beginOfRows;
    end = endOfRows;
    rows.fill(0);
    for (std::size_t i = begin; i < end; ++i) {
        rows[i] = static_cast<unsigned char>(plane[i] ^ (i >= begin + kRow ? plane[i - kRow] : 0));
    }
}

void SingleByteDecoding::pack(const std::array<wchar_t, 256>& unitsOfBytes, unsigned limit) noexcept {
    units = unitsOfBytes.data();
    identityLimit = limit;
    isPlanar = limit >= kUpperHalf;
    for (std::size_t i = 0; i < kUpperHalf; ++i) {
        const auto unit = static_cast<std::uint32_t>(unitsOfBytes[kUpperHalf + i]);
        isPlanar = isPlanar && unit <= 0xFFFF;
        low[i] = static_cast<unsigned char>(unit & 0xFFU);
        high[i] = static_cast<unsigned char>(unit >> 8 & 0xFFU);
    }
    const std::size_t firstBeyond = isPlanar ? limit - kUpperHalf : 0;
    std::array<unsigned char, kUpperHalf> beyond = low;
    std::fill_n(beyond.begin(), firstBeyond, static_cast<unsigned char>(0));
    const std::size_t begin = firstBeyond / SingleByteSteps::kRow * SingleByteSteps::kRow;
    lowSteps.pack(beyond.data(), begin, kUpperHalf);
    highSteps.pack(high.data(), begin, kUpperHalf);
}

SingleByteEncoding::SingleByteEncoding(unsigned identityLimit)
    : m_identityLimit(identityLimit), m_windowBase(kFirstInWindow), m_window{}, m_windowSteps{}, m_pageOf{},
      m_pages(kPage, 0) {
    for (unsigned value = 0; value < identityLimit; ++value) {
        set(value, static_cast<char>(value));
    }
}

void SingleByteEncoding::set(std::uint32_t unit, char byte) {
    if (unit > kLastUnit) {
        return;
    }
    std::uint16_t& page = m_pageOf[unit / kPage];
    if (page == 0) {
        const auto next = static_cast<std::uint16_t>(m_pages.size() / kPage);
        m_pages.resize(m_pages.size() + kPage, 0);
        page = next;
    }
    m_pages[page * kPage + unit % kPage] = static_cast<unsigned char>(byte);
}

void SingleByteEncoding::chooseWindow() {
    std::vector<std::uint32_t, BrimStlAllocator<std::uint32_t>> letters;
    for (std::uint32_t unit = kFirstLetter; unit < kWindowEnd; ++unit) {
        if (m_pageOf[unit / kPage] == 0) {
            unit |= kPage - 1;
        } else if (byteOf(unit) != 0) {
            letters.push_back(unit);
        }
    }
    // The window with most letters, of equal ones the lowest; each candidate ends with a letter.
    std::uint32_t first = kFirstInWindow;
    std::size_t most = 0;
    for (std::size_t i = 0, inWindow = 0; i < letters.size(); ++i) {
        const std::uint32_t end = letters[i] + 1;
        const std::uint32_t begin = std::max(kFirstInWindow, end - std::min(end, kWindowUnits));
        while (letters[inWindow] < begin) {
            ++inWindow;
        }
        if (i + 1 - inWindow > most) {
            most = i + 1 - inWindow;
            first = begin;
        }
    }
    m_windowBase = static_cast<std::int16_t>(first - 1);
    m_window.fill(0);
    for (std::uint32_t i = 1; i <= kWindowUnits; ++i) {
        m_window[i] = static_cast<unsigned char>(byteOf(first - 1 + i));
    }
    m_windowSteps[0].pack(m_window.data());
    m_windowSteps[1].pack(m_window.data() + SingleByteSteps::kPlane);
}

} // namespace sup::kernels
