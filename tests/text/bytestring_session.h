// sup::ByteString against a model: edits of a handful of strings that share blocks, after each of which every
// string is compared with what the model says about its text, its block and who shares it.
#pragma once

#include "Utility/Generic/Portable/SUPBString.h"

#include "bytestring_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <utility>

namespace brimtest {

template <class T>
struct ByteStringBlockModel {
    std::basic_string<T> text;
    unsigned int width;
    std::size_t capacity;
};

// A string as the rules describe it; no block is the null string.
template <class T>
class ByteStringModel {
public:
    using Text = std::basic_string<T>;

    ByteStringModel() = default;
    explicit ByteStringModel(const Text& text) {
        if (!text.empty()) {
            m_block = std::make_shared<ByteStringBlockModel<T>>(
                ByteStringBlockModel<T>{text, widthOf(text), text.size()});
        }
    }
    ByteStringModel(std::size_t capacity, unsigned int width)
        : m_block(
              std::make_shared<ByteStringBlockModel<T>>(ByteStringBlockModel<T>{Text(), width, capacity})) {}

    Text text() const { return m_block == nullptr ? Text() : m_block->text; }
    const ByteStringBlockModel<T>* block() const { return m_block.get(); }
    int references() const { return static_cast<int>(m_block.use_count()); }

    void append(const ByteStringModel& other) {
        if (other.text().empty()) {
            return;
        }
        if (text().empty()) {
            *this = ByteStringModel(other);
            return;
        }
        ByteStringModel joined(text() + other.text());
        joined.m_block->width = std::max(m_block->width, other.m_block->width);
        *this = joined;
    }
    void clear() {
        if (references() == 1) {
            m_block->text.clear();
        } else {
            m_block.reset();
        }
    }
    void reserve(std::size_t n) {
        if (m_block == nullptr && n != 0) {
            *this = ByteStringModel(n, 1);
        } else if (m_block != nullptr && (references() > 1 || m_block->capacity < n)) {
            m_block = std::make_shared<ByteStringBlockModel<T>>(*m_block);
            m_block->capacity = std::max(n, m_block->text.size());
        }
    }
    ByteStringModel substr(std::size_t pos, std::size_t n) const {
        return ByteStringModel(pos < text().size() ? text().substr(pos, n) : Text());
    }
    void assign(const ByteStringModel& other, std::size_t n) {
        *this = n != 0 && n >= other.text().size() ? ByteStringModel(other) : other.substr(0, n);
    }

private:
    std::shared_ptr<ByteStringBlockModel<T>> m_block;
};

/// `Choices` has below(n): a number below n.
template <class T, class Choices>
class ByteStringSession {
public:
    using B = sup::ByteString<T>;
    using Text = std::basic_string<T>;

    explicit ByteStringSession(Choices& choices)
        : m_choices(choices), m_liveBefore(RecordingAllocator::liveBlocks()) {}

    void step() {
        const std::size_t i = below(kStrings);
        const std::size_t j = below(kStrings);
        B& b = m_strings[i];
        ByteStringModel<T>& m = m_models[i];
        // Texts grow by appending; a long one is cut to its first characters.
        if (b.length() > 300) {
            b.assign(b, 40);
            m.assign(m, 40);
            return;
        }
        const Text text = someText();
        const T c = characters(1, below(3) != 0)[0];
        const std::size_t n = below(12) == 0 ? B::npos - below(2) : below(b.length() + 4);
        const std::size_t pos = below(12) == 0 ? B::npos - below(2) : below(b.length() + 4);
        switch (below(19)) {
        case 0:
            b.assign(text.data(), text.size());
            m = ByteStringModel<T>(text);
            break;
        case 1:
            b = text.c_str();
            m = ByteStringModel<T>(Text(text.c_str()));
            break;
        case 2:
            b.assign(text.data(), text.data() + text.size());
            m = ByteStringModel<T>(text);
            break;
        case 3:
        case 4:
            b = m_strings[j];
            m = ByteStringModel<T>(m_models[j]);
            break;
        case 5:
            b.assign(m_strings[j], n);
            m.assign(ByteStringModel<T>(m_models[j]), n);
            break;
        case 6:
            b = B(m_strings[j], n);
            m.assign(ByteStringModel<T>(m_models[j]), n);
            break;
        case 7:
        case 8:
            b += m_strings[j];
            m.append(ByteStringModel<T>(m_models[j]));
            break;
        case 9:
            b.append(text.data(), text.size());
            m.append(ByteStringModel<T>(text));
            break;
        case 10:
            b += text.c_str();
            m.append(ByteStringModel<T>(Text(text.c_str())));
            break;
        case 11:
            b.push_back(c);
            m.append(ByteStringModel<T>(Text(1, c)));
            break;
        case 12:
            b.append(text.size(), c);
            m.append(ByteStringModel<T>(Text(text.size(), c)));
            break;
        case 13:
            b.clear();
            m.clear();
            break;
        case 14:
            b.reserve(text.size());
            m.reserve(text.size());
            break;
        case 15: {
            const unsigned int width = below(2) == 0 ? 1U : static_cast<unsigned int>(sizeof(T));
            b = B(text.size(), width);
            m = ByteStringModel<T>(text.size(), width);
            break;
        }
        case 16:
            b = m_strings[j].substr(pos, n);
            m = m_models[j].substr(pos, n);
            break;
        case 17:
            b = sup::String<T>(m_strings[j]);
            m = ByteStringModel<T>(m_models[j].text());
            break;
        default:
            b.swap(m_strings[j]);
            std::swap(m, m_models[j]);
            break;
        }
    }

    void check() {
        std::set<const void*> blocks;
        for (std::size_t i = 0; i < kStrings; ++i) {
            const B& b = m_strings[i];
            const ByteStringModel<T>& m = m_models[i];
            if (m.block() == nullptr) {
                ASSERT_TRUE(isNull(b)) << i;
            } else {
                ASSERT_TRUE(isBlockOf(b, m.text(), m.block()->width, m.block()->capacity, m.references()))
                    << i;
                blocks.insert(b.diagnosticGetSharedRepresentation());
            }
            const Text text = m.text();
            ASSERT_EQ(b.length(), text.size());
            ASSERT_EQ(b.empty(), text.empty());
            ASSERT_EQ(b.hash(), hashOf(text));
            ASSERT_EQ(Text(b.begin(), b.end()), text);
            ASSERT_EQ(copyOf(b.toString()), text);
            const std::size_t other = below(kStrings);
            ASSERT_EQ(shareOneBlock(b, m_strings[other]),
                      m.block() != nullptr && m.block() == m_models[other].block());
            ASSERT_EQ(B::equals(b, m_strings[other]), text == m_models[other].text());
            if (!text.empty()) {
                const std::size_t pos = below(text.size());
                const T c = text[below(text.size())];
                const std::size_t found = text.find(c, pos);
                ASSERT_EQ(b.find(c, pos), found == Text::npos ? text.size() : found);
                const Text part = text.substr(below(text.size()), 1 + below(3)).c_str();
                const std::size_t partFound = text.find(part, pos);
                ASSERT_EQ(b.find(part.c_str(), pos), partFound == Text::npos ? text.size() : partFound);
            }
        }
        ASSERT_EQ(RecordingAllocator::liveBlocks() - m_liveBefore, static_cast<long>(blocks.size()));
    }

private:
    static constexpr std::size_t kStrings = 6;

    std::size_t below(std::size_t n) { return m_choices.below(n); }
    Text characters(std::size_t n, bool narrow) {
        const auto random = [this] { return below(256); };
        return randomText<T>(random, n, narrow);
    }
    Text someText() {
        const std::size_t n = below(4) == 0 ? below(60) : below(6);
        return characters(n, below(3) != 0);
    }

    Choices& m_choices;
    long m_liveBefore;
    std::array<B, kStrings> m_strings;
    std::array<ByteStringModel<T>, kStrings> m_models;
};

} // namespace brimtest
