// What a fuzz target makes of its bytes: choices, numbers and texts. When the bytes are used up, all choices
// are 0 and all texts are empty.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

class FuzzInput {
public:
    FuzzInput(const std::uint8_t* data, std::size_t size)
        : m_rest(reinterpret_cast<const char*>(data), size) {}

    bool done() const { return m_rest.empty(); }

    /// 0 to `limit` - 1. Small limits take a byte.
    std::size_t below(std::size_t limit) {
        const std::size_t bytes = limit <= 1 ? 0 : limit <= 0x100 ? 1 : limit <= 0x10000 ? 2 : 8;
        return static_cast<std::size_t>(number(bytes)) % limit;
    }
    bool flip() { return below(2) == 1; }
    std::uint64_t bits() { return number(8); }

    /// Up to `longest` bytes.
    std::string bytes(std::size_t longest) { return std::string(take(below(longest + 1))); }
    std::string rest() { return std::string(take(m_rest.size())); }

    /// Up to `longest` characters: of a byte each, of two, or of four.
    std::wstring text(std::size_t longest) { return wide(below(longest + 1)); }
    std::wstring restAsText() { return wide(m_rest.size()); }
    /// Up to `longest` characters of `alphabet`.
    std::wstring text(std::wstring_view alphabet, std::size_t longest) {
        std::wstring made;
        for (const char byte : take(below(longest + 1))) {
            made += alphabet[static_cast<unsigned char>(byte) % alphabet.size()];
        }
        return made;
    }

private:
    std::string_view take(std::size_t n) {
        const std::string_view taken = m_rest.substr(0, n);
        m_rest.remove_prefix(taken.size());
        return taken;
    }
    std::uint64_t number(std::size_t bytes) {
        std::uint64_t value = 0;
        for (const char byte : take(bytes)) {
            value = value << 8U | static_cast<unsigned char>(byte);
        }
        return value;
    }
    std::wstring wide(std::size_t n) {
        static constexpr std::size_t kWidths[] = {1, 1, 2, 4};
        const std::size_t width = kWidths[below(4)];
        std::wstring made;
        while (made.size() < n && !done()) {
            made += static_cast<wchar_t>(number(width));
        }
        return made;
    }

    std::string_view m_rest;
};

/// A fuzz target: fails by an assertion of GoogleTest.
void fuzzOne(FuzzInput& input);
