// Heap blocks of exactly the size of what they hold, so that the address sanitizer sees a step beside them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

template <class T>
class ExactBuffer {
public:
    explicit ExactBuffer(std::size_t size) : m_data(new T[size]) {}
    explicit ExactBuffer(std::basic_string_view<T> text) : ExactBuffer(text.size()) {
        std::copy(text.begin(), text.end(), m_data.get());
    }

    T* data() { return m_data.get(); }
    std::basic_string<T> first(std::size_t n) const { return std::basic_string<T>(m_data.get(), n); }

private:
    std::unique_ptr<T[]> m_data;
};
