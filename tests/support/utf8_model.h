// The rules of the UTF-8 transcoder, written for reading and not for speed: one character at a time, one room
// check before each. It shares no code with the library, which is compared with it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace brimtest {

/// A sequence that the end of a text has cut: its bytes so far, and how many it needs.
struct HeldBytes {
    std::string bytes;
    std::size_t needed = 0;

    bool operator==(const HeldBytes& other) const {
        return bytes == other.bytes && (bytes.empty() || needed == other.needed);
    }
};

/// What a conversion does: whether it fits, and what it has written when it ends, either way.
template <class Text>
struct ModelResult {
    bool fits = true;
    Text written;

    std::size_t value() const { return fits ? written.size() : static_cast<std::size_t>(-1); }
};

class Utf8Model {
public:
    /// Decodes `text` after `held` into room for `room` units; on success `held` is what `text` leaves cut.
    static ModelResult<std::wstring> decode(std::string_view text, std::size_t room, HeldBytes& held) {
        ModelResult<std::wstring> result;
        HeldBytes now = held;
        std::size_t at = 0;
        if (!now.bytes.empty()) {
            if (room == 0) {
                return {false, {}};
            }
            while (!now.bytes.empty() && now.bytes.size() < now.needed) {
                if (at == text.size()) {
                    held = now;
                    return result;
                }
                if (continues(text[at])) {
                    now.bytes += text[at++];
                } else {
                    now.bytes.clear();
                    result.written += kReplacement;
                }
            }
            if (!now.bytes.empty() && !putUnits(first(now.bytes).value, room, result)) {
                return result;
            }
        }
        now.bytes.clear();
        while (at < text.size()) {
            const Character character = first(text.substr(at));
            if (character.length == 0) {
                now.bytes = text.substr(at);
                now.needed = character.value;
                break;
            }
            if (!putUnits(character.value, room, result)) {
                return result;
            }
            at += character.length;
        }
        held = now;
        return result;
    }
    static ModelResult<std::wstring> decode(std::string_view text, std::size_t room) {
        HeldBytes held;
        return decode(text, room, held);
    }

    /// Encodes `text` into room for `room` bytes.
    static ModelResult<std::string> encode(std::wstring_view text, std::size_t room) {
        ModelResult<std::string> result;
        if (text.size() > room) {
            result.fits = false;
            return result;
        }
        for (std::size_t at = 0; at < text.size(); ++at) {
            auto value = static_cast<std::uint32_t>(text[at]);
            bool pair = false;
            if (value >= 0xD800 && value <= 0xDBFF && at + 1 < text.size()) {
                const auto low = static_cast<std::uint32_t>(text[at + 1]);
                if (low >= 0xDC00 && low <= 0xDFFF) {
                    value = 0x10000 + (value - 0xD800) * 0x400 + (low - 0xDC00);
                    pair = true;
                }
            }
            const std::string bytes = bytesOf(value);
            if (result.written.size() + bytes.size() > room) {
                result.fits = false;
                return result;
            }
            result.written += bytes;
            at += pair ? 1 : 0;
        }
        return result;
    }

    /// The exact size as the library counts it: most lone surrogates are one byte.
    static std::size_t exactSize(std::wstring_view text) {
        std::size_t size = 0;
        for (std::size_t at = 0; at < text.size(); ++at) {
            const auto value = static_cast<std::uint32_t>(text[at]);
            if (value >= 0xD800 && value <= 0xDBFF) {
                const auto next = at + 1 < text.size() ? static_cast<std::uint32_t>(text[at + 1]) : 0;
                const bool pair = next >= 0xDC00 && next <= 0xDFFF;
                size += pair ? 4 : 1;
                at += pair ? 1 : 0;
            } else if (value >= 0xDC00 && value <= 0xDFFE) {
                size += 1;
            } else {
                size += bytesOf(value).size();
            }
        }
        return size;
    }

private:
    static constexpr wchar_t kReplacement = 0xFFFD;

    // A decoded character and its bytes; for a cut one length 0, and the length it needs as value.
    struct Character {
        std::uint32_t value;
        std::size_t length;
    };

    static bool continues(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

    static Character first(std::string_view text) {
        struct Form {
            unsigned int mask;
            unsigned int mark;
            std::size_t length;
            std::uint32_t smallest;
            std::uint32_t largest;
        };
        static constexpr Form kForms[] = {{0x80, 0x00, 1, 0, 0x7F},
                                          {0xE0, 0xC0, 2, 0x80, 0x7FF},
                                          {0xF0, 0xE0, 3, 0x800, 0xFFFF},
                                          {0xF8, 0xF0, 4, 0x10000, 0x10FFFF}};
        const unsigned int lead = static_cast<unsigned char>(text[0]);
        for (const Form& form : kForms) {
            if ((lead & form.mask) != form.mark) {
                continue;
            }
            if (text.size() < form.length) {
                return {static_cast<std::uint32_t>(form.length), 0};
            }
            std::uint32_t value = lead & ~form.mask;
            bool anyContinues = form.length == 1;
            for (const char byte : text.substr(1, form.length - 1)) {
                value = value * 64 + (static_cast<unsigned char>(byte) & 0x3FU);
                anyContinues = anyContinues || continues(byte);
            }
            if (!anyContinues) {
                return {kReplacement, 1};
            }
            if (value < form.smallest || value > form.largest) {
                value = kReplacement;
            }
            return {value, form.length};
        }
        return {kReplacement, 1};
    }

    static bool putUnits(std::uint32_t value, std::size_t room, ModelResult<std::wstring>& result) {
        const std::size_t needed = value > 0xFFFF ? 2 : 1;
        if (result.written.size() + needed > room) {
            result.fits = false;
        } else if (needed == 1) {
            result.written += static_cast<wchar_t>(value);
        } else {
            result.written += static_cast<wchar_t>(0xD800 + (value - 0x10000) / 0x400);
            result.written += static_cast<wchar_t>(0xDC00 + (value - 0x10000) % 0x400);
        }
        return result.fits;
    }

    static std::string bytesOf(std::uint32_t value) {
        if (value > 0x10FFFF) {
            return "?";
        }
        if (value < 0x80) {
            return std::string(1, static_cast<char>(value));
        }
        const std::size_t length = value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
        static constexpr unsigned int kMarks[] = {0, 0, 0xC0, 0xE0, 0xF0};
        std::string bytes(length, '\0');
        for (std::size_t i = length - 1; i > 0; --i) {
            bytes[i] = static_cast<char>(0x80 + value % 64);
            value /= 64;
        }
        bytes[0] = static_cast<char>(kMarks[length] + value);
        return bytes;
    }
};

} // namespace brimtest
