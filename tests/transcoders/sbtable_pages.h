// The single-byte pages that tests walk through, and a plain statement of their rules to compare with.
#pragma once

#include "sbtables.h"
#include "transcodersbtable.h"

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

namespace brimtest {

using Owner = std::unique_ptr<sup::transcodeimpl::TranscoderImplBase>;

struct Page {
    const char* name;
    const char* iconvName;
    const sup::transcodeimpl::UnicodeMultibyteMapping* table;
    sup::transcodeimpl::TranscoderFactory factory;
    unsigned identityLimit;
    unsigned primaryLimit;
    bool hasExtras;
    std::size_t rows;

    Owner make() const { return Owner(factory(table, 0)); }
};

inline void PrintTo(const Page& page, std::ostream* out) { *out << page.name; }

template <unsigned IdentityLimit, unsigned PrimaryLimit, bool bAnyExtras>
constexpr Page page(const char* name, const char* iconvName,
                    const sup::transcodeimpl::UnicodeMultibyteMapping* table, std::size_t rows) {
    using Transcoder = sup::transcodeimpl::TranscoderSBTable<IdentityLimit, PrimaryLimit, bAnyExtras>;
    return {name,          iconvName,    table,      Transcoder::CreateTranscoderTable,
            IdentityLimit, PrimaryLimit, bAnyExtras, rows};
}

namespace pages {
using namespace sup::transcodeimpl;
inline const Page kLatin1 = page<256, 256, false>("ISO8859_1", "ISO-8859-1", cpISO8859_1, 0);
inline const Page kLatin2 = page<161, 734, false>("ISO8859_2", "ISO-8859-2", cpISO8859_2, 95);
inline const Page kLatin3 = page<161, 730, false>("ISO8859_3", "ISO-8859-3", cpISO8859_3, 88);
inline const Page kArabic = page<161, 1619, false>("ISO8859_6", "ISO-8859-6", cpISO8859_6, 50);
inline const Page kGreek = page<161, 975, true>("ISO8859_7", "ISO-8859-7", cpISO8859_7, 89);
inline const Page kLatin9 = page<164, 8365, false>("ISO8859_15", "ISO-8859-15", cpISO8859_15, 92);
inline const Page kWindows = page<128, 733, true>("Win1252", "CP1252", cpWin1252, 128);
inline const Page kHebrew = page<161, 1515, true>("ISO8859_8_i", "ISO-8859-8", cpISO8859_8_i, 95);
} // namespace pages

inline const Page kPages[] = {pages::kLatin1, pages::kLatin2, pages::kLatin3,  pages::kArabic,
                              pages::kGreek,  pages::kLatin9, pages::kWindows, pages::kHebrew};

/// The rules over maps, for tables whose keys occur once in each direction.
class Reference {
public:
    explicit Reference(const Page& of)
        : m_identityLimit(of.identityLimit), m_primaryLimit(of.primaryLimit), m_hasExtras(of.hasExtras) {
        for (const auto* row = of.table; row->eDirection != sup::transcodeimpl::kCP_End; ++row) {
            if (row->eDirection != sup::transcodeimpl::kCP_MBToUnicode) {
                add(row->wUnicodeChar, row->cMBChars[0]);
            }
            if (row->eDirection != sup::transcodeimpl::kCP_UnicodeToMB) {
                m_toUnit[static_cast<unsigned char>(row->cMBChars[0])] = row->wUnicodeChar;
            }
        }
    }

    /// What AddUnicodeMapping() does.
    void add(wchar_t unit, char byte) { m_toByte[unit] = byte; }

    /// The bytes of units, mappings that do not count included.
    const std::map<wchar_t, char>& mappings() const { return m_toByte; }

    wchar_t unitOf(char c) const {
        const auto byte = static_cast<unsigned char>(c);
        const auto found = m_toUnit.find(byte);
        return byte < m_identityLimit    ? static_cast<wchar_t>(byte)
               : found != m_toUnit.end() ? found->second
                                         : wchar_t{0xFFFD};
    }
    std::wstring decode(const std::string& bytes) const {
        std::wstring units;
        for (const char c : bytes) {
            units += unitOf(c);
        }
        return units;
    }

    /// The units of the character at `i`.
    std::size_t unitsAt(const std::wstring& units, std::size_t i) const {
        const wchar_t unit = units[i];
        const bool isPair = static_cast<unsigned>(unit) >= m_primaryLimit && unit >= 0xD800 &&
                            unit <= 0xDBFF && i + 1 < units.size() && units[i + 1] >= 0xDC00 &&
                            units[i + 1] <= 0xDFFF;
        return isPair ? 2 : 1;
    }
    /// The byte of the character at `i`, if it has one.
    std::optional<char> byteAt(const std::wstring& units, std::size_t i) const {
        const wchar_t unit = units[i];
        const auto codePoint = static_cast<unsigned>(unit);
        const auto found = m_toByte.find(unit);
        if (codePoint < m_identityLimit) {
            return static_cast<char>(unit);
        }
        if (found == m_toByte.end() || unitsAt(units, i) == 2) {
            return std::nullopt;
        }
        const bool isMapping = codePoint < m_primaryLimit ? found->second != 0 : m_hasExtras;
        return isMapping ? std::optional<char>(found->second) : std::nullopt;
    }
    /// The bytes, `replacement` for each unmappable unit or pair.
    std::string encode(const std::wstring& units, const std::string& replacement) const {
        std::string bytes;
        for (std::size_t i = 0; i < units.size(); i += unitsAt(units, i)) {
            const std::optional<char> byte = byteAt(units, i);
            bytes += byte ? std::string(1, *byte) : replacement;
        }
        return bytes;
    }

private:
    unsigned m_identityLimit;
    unsigned m_primaryLimit;
    bool m_hasExtras;
    std::map<wchar_t, char> m_toByte;
    std::map<unsigned char, wchar_t> m_toUnit;
};

} // namespace brimtest
