// A string buffer under many operations, compared with a standard string and a simple rule for the capacity.
#pragma once

#include "Utility/Generic/Portable/StringBuffer.h"

#include "stringbuffer_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace brimtest {

template <class T>
struct StringBufferModel {
    std::basic_string<T> text;
    std::size_t capacity;

    void room(std::size_t needed) {
        if (needed > capacity) {
            capacity = grownCapacity(needed);
        }
    }
    void append(const std::basic_string<T>& more) {
        room(text.size() + more.size());
        text += more;
    }
    void append(const std::basic_string<T>& more, std::size_t granted) {
        room(text.size() + granted);
        text += more;
    }
};

/// `Choices` has below(n), a number below n, and bits(), 64 of them.
template <std::size_t N, class T, class Choices>
class StringBufferSession {
public:
    explicit StringBufferSession(Choices& choices) : m_choices(choices), m_model{{}, N} {}

    // One operation, and what must hold after it.
    void step() {
        const std::size_t operation = below(22);
        SCOPED_TRACE(operation);
        apply(operation);
        ASSERT_EQ(textOf<T>(m_buffer), m_model.text);
        ASSERT_EQ(m_buffer.length(), m_model.text.size());
        ASSERT_EQ(m_buffer.capacity(), m_model.capacity);
        ASSERT_EQ(m_buffer.empty(), m_model.text.empty());
        ASSERT_EQ(m_buffer.appendBufferCapacity(), m_model.capacity - m_model.text.size());
        if (below(4) == 0) {
            ASSERT_EQ(m_buffer.c_str()[m_model.text.size()], T());
        }
    }

private:
    std::size_t below(std::size_t n) { return m_choices.below(n); }
    // Mostly short, now and then longer than several growths.
    std::size_t size() { return below(below(16) == 0 ? 600 : 24); }
    std::size_t upTo(std::size_t n) { return below(n + 1); }
    T character() { return static_cast<T>("abcdefghijklmno\0"[below(16)]); }
    std::basic_string<T> text() {
        std::basic_string<T> made(size(), T());
        std::generate(made.begin(), made.end(), [this] { return character(); });
        return made;
    }
    std::basic_string<T> textWithoutZeros() {
        std::basic_string<T> made = text();
        std::replace(made.begin(), made.end(), T(), static_cast<T>('z'));
        return made;
    }

    void apply(std::size_t operation) {
        const std::size_t length = m_model.text.size();
        if (length > 3000) {
            m_buffer.clear();
            m_model.text.clear();
            return;
        }
        const std::uint64_t number = operation >= 9 && operation <= 14 ? m_choices.bits() : 0;
        switch (operation) {
        case 0: {
            const auto made = textWithoutZeros();
            m_buffer.append(made.c_str());
            m_model.append(made);
            break;
        }
        case 1: {
            const auto made = text();
            m_buffer.append(made.data(), made.size());
            m_model.append(made);
            break;
        }
        case 2: {
            const auto made = text();
            m_buffer.append(sup::String<T>(made.data(), made.size()));
            m_model.append(made);
            break;
        }
        case 3: {
            const auto made = text();
            const std::size_t n = size();
            m_buffer.append(sup::String<T>(made.data(), made.size()), n);
            m_model.append(made.substr(0, n));
            break;
        }
        case 4: {
            const std::size_t n = size();
            const T c = character();
            m_buffer.append(n, c);
            m_model.append(std::basic_string<T>(n, c));
            break;
        }
        case 5: {
            const auto made = text();
            m_buffer.append(RefStringTemplate<T>(made.data(), made.size()));
            m_model.append(made);
            break;
        }
        case 6:
            m_buffer.append(m_buffer);
            m_model.append(std::basic_string<T>(m_model.text));
            break;
        case 7: {
            const std::size_t start = upTo(length);
            const std::size_t n = upTo(length - start);
            m_buffer.append(m_buffer.begin() + start, n);
            m_model.append(m_model.text.substr(start, n));
            break;
        }
        case 8: {
            sup::StringBufferTemplate<8, T> other;
            const auto made = text();
            other.append(made.data(), made.size());
            m_buffer.append(other);
            m_model.append(made);
            break;
        }
        case 9:
            m_buffer.appendNumberAsDecimal(static_cast<int>(number));
            m_model.append(formatted(chooseText<T>("%d", L"%d"), static_cast<int>(number)), 32);
            break;
        case 10:
            m_buffer.appendNumberAsDecimal(static_cast<unsigned int>(number));
            m_model.append(formatted(chooseText<T>("%u", L"%u"), static_cast<unsigned int>(number)), 32);
            break;
        case 11:
            m_buffer.appendNumberAsDecimal(static_cast<long>(number));
            m_model.append(formatted(chooseText<T>("%lld", L"%lld"), static_cast<long long>(number)), 64);
            break;
        case 12:
            m_buffer.appendNumberAsDecimal(static_cast<unsigned long>(number));
            m_model.append(formatted(chooseText<T>("%llu", L"%llu"), static_cast<unsigned long long>(number)),
                           64);
            break;
        case 13:
            m_buffer.appendNumberAsHex(static_cast<unsigned int>(number));
            m_model.append(formatted(chooseText<T>("%x", L"%x"), static_cast<unsigned int>(number)), 32);
            break;
        case 14: {
            const std::size_t granted = 24 + size();
            m_buffer.appendFormatted(granted, chooseText<T>("<%lu>", L"<%lu>"),
                                     static_cast<unsigned long>(number));
            m_model.append(formatted(chooseText<T>("<%lu>", L"<%lu>"), static_cast<unsigned long>(number)),
                           granted);
            break;
        }
        case 15: {
            const std::size_t offset = upTo(length);
            const auto made = text().substr(0, length - offset);
            m_buffer.replace(offset, made.data(), made.size());
            m_model.text.replace(offset, made.size(), made);
            break;
        }
        case 16: {
            const std::size_t offset = upTo(length);
            const auto made = text().substr(0, length - offset);
            m_buffer.replace(offset, sup::String<T>(made.data(), made.size()));
            m_model.text.replace(offset, made.size(), made);
            break;
        }
        case 17: {
            const std::size_t start = upTo(length);
            const std::size_t n = below(8) == 0 ? kNone : size();
            m_buffer.erase(start, n);
            m_model.text.erase(start, n);
            break;
        }
        case 18: {
            const std::size_t n = below(2) == 0 ? upTo(length) : length + size();
            const T c = character();
            m_buffer.resize(n, c);
            m_model.room(n);
            m_model.text.resize(n, c);
            break;
        }
        case 19: {
            const std::size_t n = upTo(length + size());
            m_buffer.reserve(n);
            m_model.room(n);
            break;
        }
        case 20: {
            const auto made = text();
            const std::size_t asked = made.size() + size();
            T* const chunk = m_buffer.getAppendBuffer(asked);
            std::copy(made.begin(), made.end(), chunk);
            m_buffer.commitAppendBuffer(made.size());
            m_model.append(made, asked);
            break;
        }
        default: {
            // Away to another buffer and back.
            sup::StringBufferTemplate<32, T> other(static_cast<const BufferBase<T>&>(m_buffer));
            const sup::StringBufferTemplate<N, T> copy(m_buffer);
            m_buffer = below(2) == 0 ? static_cast<const BufferBase<T>&>(other) : copy;
            break;
        }
        }
    }

    Choices& m_choices;
    sup::StringBufferTemplate<N, T> m_buffer;
    StringBufferModel<T> m_model;
};

} // namespace brimtest
