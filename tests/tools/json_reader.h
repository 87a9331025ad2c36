// Reads the JSON of the tool: just what it writes.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace brimtest {

struct Json {
    std::string text;        // of a string, without its escapes; of a number or word, as it stands
    std::vector<Json> items; // of an array
    std::map<std::string, Json> members; // of an object

    const Json& at(const std::string& name) const {
        static const Json none;
        const auto found = members.find(name);
        EXPECT_NE(found, members.end()) << "no " << name;
        return found == members.end() ? none : found->second;
    }
    bool has(const std::string& name) const { return members.count(name) != 0; }

    /// The element of the array `name` whose member `key` is `value`.
    const Json& element(const std::string& name, const std::string& key, const std::string& value) const {
        static const Json none;
        for (const Json& item : at(name).items) {
            if (item.at(key).text == value) {
                return item;
            }
        }
        ADD_FAILURE() << "no element of " << name << " has the " << key << ' ' << value;
        return none;
    }

    std::vector<std::string> texts() const {
        std::vector<std::string> result;
        for (const Json& item : items) {
            result.push_back(item.text);
        }
        return result;
    }
};

class JsonReader {
public:
    static Json read(std::string_view text) {
        JsonReader reader(text);
        const Json value = reader.value();
        reader.skipBlanks();
        EXPECT_TRUE(reader.m_rest.empty()) << "not JSON: " << text;
        return value;
    }

private:
    explicit JsonReader(std::string_view text) : m_rest(text) {}

    Json value() {
        Json result;
        if (take('{')) {
            while (!take('}') && !m_rest.empty()) {
                const std::string name = value().text;
                EXPECT_TRUE(take(':'));
                result.members[name] = value();
                take(',');
            }
        } else if (take('[')) {
            while (!take(']') && !m_rest.empty()) {
                result.items.push_back(value());
                take(',');
            }
        } else if (take('"')) {
            result.text = string();
        } else {
            const std::size_t length = std::min(m_rest.find_first_of(",]} \n"), m_rest.size());
            EXPECT_NE(length, 0U) << "not JSON: " << m_rest;
            result.text = m_rest.substr(0, length);
            m_rest.remove_prefix(length == 0 ? m_rest.size() : length);
        }
        return result;
    }

    std::string string() {
        std::string result;
        while (!m_rest.empty() && m_rest.front() != '"') {
            if (m_rest.front() == '\\') {
                m_rest.remove_prefix(1);
                result += m_rest.front() == 'n' ? '\n' : m_rest.front();
            } else {
                result += m_rest.front();
            }
            m_rest.remove_prefix(1);
        }
        EXPECT_TRUE(take('"'));
        return result;
    }

    void skipBlanks() {
        while (!m_rest.empty() && std::isspace(static_cast<unsigned char>(m_rest.front())) != 0) {
            m_rest.remove_prefix(1);
        }
    }

    bool take(char c) {
        skipBlanks();
        const bool is = !m_rest.empty() && m_rest.front() == c;
        m_rest.remove_prefix(is ? 1 : 0);
        return is;
    }

    std::string_view m_rest;
};

} // namespace brimtest
