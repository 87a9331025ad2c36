#include "json.h"

#include "Utf8Validator.h"

#include <cstdio>

namespace brimtool {

namespace {

// What stands for `c` between quotes; empty for a character that stands for itself.
std::string escapeOf(char c) {
    switch (c) {
    case '"':
        return "\\\"";
    case '\\':
        return "\\\\";
    case '\b':
        return "\\b";
    case '\f':
        return "\\f";
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    default:
        break;
    }
    if (static_cast<unsigned char>(c) >= 0x20) {
        return {};
    }
    char escape[8];
    std::snprintf(escape, sizeof(escape), "\\u%04x", static_cast<unsigned int>(c));
    return escape;
}

} // namespace

JsonWriter& JsonWriter::key(std::string_view name) {
    separate();
    quote(name);
    m_text += ": ";
    m_afterKey = true;
    return *this;
}

JsonWriter& JsonWriter::string(std::string_view text) {
    separate();
    quote(text);
    return *this;
}

JsonWriter& JsonWriter::number(std::int64_t value) {
    separate();
    m_text += std::to_string(value);
    return *this;
}

JsonWriter& JsonWriter::boolean(bool value) {
    separate();
    m_text += value ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::null() {
    separate();
    m_text += "null";
    return *this;
}

JsonWriter& JsonWriter::open(char bracket) {
    separate();
    m_text += bracket;
    m_hasValues.push_back(false);
    return *this;
}

JsonWriter& JsonWriter::close(char bracket) {
    const bool hadValues = m_hasValues.back();
    m_hasValues.pop_back();
    if (hadValues) {
        breakLine();
    }
    m_text += bracket;
    return *this;
}

void JsonWriter::separate() {
    if (m_afterKey || m_hasValues.empty()) {
        m_afterKey = false;
        return;
    }
    if (m_hasValues.back()) {
        m_text += ',';
    }
    m_hasValues.back() = true;
    breakLine();
}

void JsonWriter::breakLine() {
    m_text += '\n';
    m_text.append(2 * m_hasValues.size(), ' ');
}

void JsonWriter::quote(std::string_view text) {
    m_text += '"';
    while (!text.empty()) {
        const auto found = sup::transcodeimpl::Utf8Validator::scan(text.data(), text.size());
        for (const char c : text.substr(0, found.wellFormed)) {
            const std::string escape = escapeOf(c);
            escape.empty() ? m_text.push_back(c) : static_cast<void>(m_text += escape);
        }
        if (found.rest != 0) {
            m_text += "\\ufffd";
        }
        text.remove_prefix(found.wellFormed + found.rest);
    }
    m_text += '"';
}

} // namespace brimtool
