// A tree that grows as the rows of a table say, next to TranscoderUsingTable.
#pragma once

#include "transcoderusingtable.h"

#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brimtest {

struct TableRow {
    wchar_t unit;
    std::string bytes;
    sup::transcodeimpl::UMBMDirection direction;
};

inline std::unique_ptr<sup::transcodeimpl::TranscoderImplBase> transcoderOf(const std::deque<TableRow>& rows,
                                                                            std::size_t identityCount) {
    std::vector<sup::transcodeimpl::UnicodeMultibyteMapping> table;
    for (const TableRow& row : rows) {
        table.push_back(
            {row.unit, row.bytes.data(), static_cast<unsigned int>(row.bytes.size()) & 0xFU, row.direction});
    }
    table.push_back({0, nullptr, 0, sup::transcodeimpl::kCP_End});
    return std::unique_ptr<sup::transcodeimpl::TranscoderImplBase>(
        sup::transcodeimpl::TranscoderUsingTable::CreateTranscoderTable(table.data(), identityCount));
}

inline std::wstring decoded(const sup::transcodeimpl::TranscoderImplBase& transcoder,
                            std::string_view bytes) {
    std::wstring units(bytes.size(), L'x');
    units.resize(
        transcoder.multibyteToUnicode(bytes.data(), bytes.size(), units.data(), units.size(), nullptr));
    return units;
}

inline std::string encoded(const sup::transcodeimpl::TranscoderImplBase& transcoder,
                           std::wstring_view units) {
    std::string bytes(units.size() * 4, 'x');
    bytes.resize(transcoder.unicodeToMultibyte(units.data(), units.size(), bytes.data(), bytes.size(),
                                               nullptr, nullptr, nullptr));
    return bytes;
}

class UsingTableModel {
public:
    UsingTableModel(const std::deque<TableRow>& rows, unsigned int identityCount) {
        for (unsigned int byte = 0; byte < identityCount; ++byte) {
            m_start.next[static_cast<char>(byte)].unit = static_cast<wchar_t>(byte);
        }
        for (const TableRow& row : rows) {
            if (row.direction != sup::transcodeimpl::kCP_MBToUnicode) {
                m_bytes[row.unit] = row.bytes;
            }
            if (row.direction != sup::transcodeimpl::kCP_UnicodeToMB) {
                Node* node = &m_start;
                for (const char byte : row.bytes) {
                    node->unit.reset();
                    node = &node->next[byte];
                }
                *node = Node();
                node->unit = row.unit;
            }
        }
    }

    std::wstring decoded(std::string_view bytes) const {
        std::wstring units;
        const Node* node = &m_start;
        for (const char byte : bytes) {
            const auto next = node->next.find(byte);
            if (next != node->next.end() && !next->second.unit) {
                node = &next->second;
                continue;
            }
            units += next == node->next.end() ? L'?' : *next->second.unit;
            node = &m_start;
        }
        return node == &m_start ? units : units + L'?';
    }
    std::string encoded(std::wstring_view units, std::string_view unmappable = "?") const {
        std::string bytes;
        for (std::size_t i = 0; i < units.size(); ++i) {
            const auto known = m_bytes.find(units[i]);
            if (units[i] < 0x80) {
                bytes += static_cast<char>(units[i]);
            } else if (known != m_bytes.end()) {
                bytes += known->second;
            } else {
                bytes += unmappable;
                const bool isPair = units[i] >= 0xD800 && units[i] <= 0xDBFF && i + 1 < units.size() &&
                                    units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF;
                i += isPair ? 1 : 0;
            }
        }
        return bytes;
    }

private:
    struct Node {
        std::optional<wchar_t> unit; // none: a lead byte
        std::map<char, Node> next;
    };
    Node m_start;
    std::map<wchar_t, std::string> m_bytes;
};

} // namespace brimtest
