// A sink for print writers that keeps what it is given in fixed arrays, so that it works without a heap.
#pragma once

#include "Utility/Generic/Portable/PrintWriterBase.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace brimtest {

/// `Base` is sup::PrintWriterBase, or a class derived from it.
template <class Base>
class PrintSink : public Base {
public:
    using size_type = typename Base::size_type;
    using Base::addChars;

    void addChars(const wchar_t* chars, size_type count) override {
        if (m_calls < kMostCalls) {
            m_counts[m_calls] = count;
        }
        ++m_calls;
        const size_type kept = std::min(count, kMostCharacters - m_length);
        std::copy(chars, chars + kept, m_text + m_length);
        m_length += kept;
    }
    void flush() override { ++m_flushes; }
    /// Remembers the value and does what writers do.
    void outputEndl(sup::PrintWriterBase::Flush flush) override {
        m_lastFlush = flush;
        Base::outputEndl(flush);
    }

    /// All the characters so far.
    std::wstring text() const { return std::wstring(m_text, m_length); }
    bool textIs(const wchar_t* text, size_type count) const {
        return m_length == count && std::equal(text, text + count, m_text);
    }
    /// How many characters each call of addChars() brought.
    std::vector<size_type> chunks() const {
        return std::vector<size_type>(m_counts, m_counts + std::min(m_calls, kMostCalls));
    }
    size_type calls() const { return m_calls; }
    int flushes() const { return m_flushes; }
    /// What the last outputEndl() was given; -1 when there was none.
    int lastFlush() const { return m_lastFlush; }
    void clear() {
        m_length = 0;
        m_calls = 0;
        m_flushes = 0;
        m_lastFlush = -1;
    }
    /// The text since the last call.
    std::wstring take() {
        const std::wstring taken = text();
        clear();
        return taken;
    }

private:
    static constexpr size_type kMostCharacters = 16384;
    static constexpr size_type kMostCalls = 512;

    wchar_t m_text[kMostCharacters];
    size_type m_length = 0;
    size_type m_counts[kMostCalls];
    size_type m_calls = 0;
    int m_flushes = 0;
    int m_lastFlush = -1;
};

} // namespace brimtest
