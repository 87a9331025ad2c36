// A whole multi-byte code page as the platform's converter knows it, as rows of a mapping table.
#pragma once

#include "usingtable_model.h"

#include <iconv.h>

#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>

namespace brimtest {

/// One direction of the platform's converter, a character at a time.
class CharacterConverter {
public:
    /// std::runtime_error when the converter does not know one of the encodings.
    CharacterConverter(const char* to, const char* from) : m_converter(::iconv_open(to, from)) {
        if (m_converter == reinterpret_cast<iconv_t>(-1)) {
            throw std::runtime_error(std::string("iconv knows no way from ") + from + " to " + to);
        }
    }
    ~CharacterConverter() { ::iconv_close(m_converter); }
    CharacterConverter(const CharacterConverter&) = delete;
    CharacterConverter& operator=(const CharacterConverter&) = delete;

    /// Nothing when the bytes are not exactly one character.
    std::optional<std::string> convert(std::string bytes) {
        char* in = bytes.data();
        std::size_t inLeft = bytes.size();
        char buffer[16];
        char* out = buffer;
        std::size_t outLeft = sizeof(buffer);
        ::iconv(m_converter, nullptr, nullptr, nullptr, nullptr);
        if (::iconv(m_converter, &in, &inLeft, &out, &outLeft) != 0) { // not reversible ones either
            return std::nullopt;
        }
        return std::string(buffer, out);
    }

private:
    iconv_t m_converter;
};

/// The characters beyond ASCII of up to three bytes; those of two from 0x30 on in the second.
class PlatformPage {
public:
    explicit PlatformPage(const char* name) : m_decoder("UTF-16LE", name) {
        CharacterConverter encoder(name, "UTF-16LE");
        for (int first = 0x80; first < 0x100; ++first) {
            const std::string lead(1, static_cast<char>(first));
            add(lead);
            for (int second = 0x30; m_units.count(lead) == 0 && second < 0x100; ++second) {
                add(lead + static_cast<char>(second));
            }
        }
        for (wchar_t unit = 0x80; unit <= 0xFFFF; ++unit) {
            const auto bytes =
                encoder.convert({static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)});
            if (bytes && bytes->size() <= 3) {
                m_bytes[unit] = *bytes;
                add(*bytes);
            }
        }
    }

    const std::map<std::string, wchar_t>& units() const { return m_units; }
    const std::map<wchar_t, std::string>& bytes() const { return m_bytes; }

    std::deque<TableRow> rows() const {
        std::deque<TableRow> rows;
        for (const auto& [bytes, unit] : m_units) {
            const auto back = m_bytes.find(unit);
            const bool either = back != m_bytes.end() && back->second == bytes;
            rows.push_back(
                {unit, bytes, either ? sup::transcodeimpl::kCP_Either : sup::transcodeimpl::kCP_MBToUnicode});
        }
        for (const auto& [unit, bytes] : m_bytes) {
            const auto back = m_units.find(bytes);
            if (back == m_units.end() || back->second != unit) {
                rows.push_back({unit, bytes, sup::transcodeimpl::kCP_UnicodeToMB});
            }
        }
        return rows;
    }

private:
    void add(const std::string& bytes) {
        const auto utf16 = m_decoder.convert(bytes);
        if (utf16 && utf16->size() == 2) {
            m_units[bytes] = static_cast<unsigned char>((*utf16)[0]) | static_cast<unsigned char>((*utf16)[1])
                                                                           << 8;
        }
    }

    CharacterConverter m_decoder;
    std::map<std::string, wchar_t> m_units;
    std::map<wchar_t, std::string> m_bytes;
};

} // namespace brimtest
