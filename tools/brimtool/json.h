// Writes JSON (RFC 8259), two blanks a level.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace brimtool {

/// Values are written in the order of the calls; within an object a key() comes before each.
///
///   JsonWriter json;
///   json.beginObject().key("pages").beginArray().number(1252).endArray().endObject();
///   json.text() // the document, with a line feed at its end
class JsonWriter {
public:
    JsonWriter& beginObject() { return open('{'); }
    JsonWriter& endObject() { return close('}'); }
    JsonWriter& beginArray() { return open('['); }
    JsonWriter& endArray() { return close(']'); }
    JsonWriter& key(std::string_view name);

    /// `text` is UTF-8; each malformed sequence in it becomes U+FFFD.
    JsonWriter& string(std::string_view text);
    JsonWriter& number(std::int64_t value);
    JsonWriter& boolean(bool value);
    JsonWriter& null();

    std::string text() const { return m_text + '\n'; }

private:
    JsonWriter& open(char bracket);
    JsonWriter& close(char bracket);
    /// Puts what has to stand before the next value or key.
    void separate();
    void breakLine();
    void quote(std::string_view text);

    std::string m_text;
    std::vector<bool> m_hasValues; // of each open object or array
    bool m_afterKey = false;
};

} // namespace brimtool
