// Edits of several strings that share, next to a slow model that keeps each text in a standard string, each
// block as an object and each capacity as the rules give it. After every edit all strings must match.
#pragma once

#include "Utility/Generic/Portable/SUPString.h"

#include "string_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <utility>

namespace brimtest {

template <class T>
struct StringBlockModel {
    std::basic_string<T> text;
    std::size_t capacity; // as asked for, rounded up
};

template <class T>
class StringModel {
public:
    using Text = std::basic_string<T>;

    Text text() const { return m_block ? m_block->text : Text(); }
    std::size_t length() const { return m_block ? m_block->text.size() : 0; }
    bool isUnique() const { return m_block.use_count() == 1; }
    std::size_t capacity() const { return isUnique() ? m_block->capacity : length(); }
    const StringBlockModel<T>* block() const { return m_block.get(); }

    void swap(StringModel& other) { m_block.swap(other.m_block); }
    void setNull() { m_block = nullptr; }
    // A block of its own, made for `n` characters.
    void setNew(const Text& text, std::size_t n) {
        m_block = std::make_shared<StringBlockModel<T>>(StringBlockModel<T>{text, blockCapacity<T>(n)});
    }
    // In place when it fits, else a new block made for `n` characters.
    void set(const Text& text, std::size_t n) {
        if (isUnique() && text.size() <= m_block->capacity) {
            m_block->text = text;
        } else {
            setNew(text, n);
        }
    }

    void assign(const Text& text) {
        if (text.empty()) {
            clear();
        } else {
            set(text, text.size());
        }
    }
    void assignFirst(const StringModel& s, std::size_t n) {
        if (n != 0 && n >= s.length()) {
            *this = s;
        } else {
            assign(s.text().substr(0, n));
        }
    }
    void insertGrowing(std::size_t pos, const Text& added) {
        if (!added.empty()) {
            const Text changed = text().insert(std::min(pos, length()), added);
            set(changed, isUnique() ? std::max(changed.size(), 2 * m_block->capacity) : changed.size());
        }
    }
    void append(const Text& added) { insertGrowing(length(), added); }
    void erase(std::size_t pos, std::size_t n) {
        if (n != 0 && pos < length()) {
            set(text().erase(pos, n), length());
        }
    }
    void replace(std::size_t pos, std::size_t n, const Text& by, bool bySelf) {
        if (pos > length()) {
            append(by);
        } else if (std::min(n, length() - pos) != 0 || !by.empty()) {
            const Text changed = text().replace(pos, n, by);
            if (bySelf) {
                setNew(changed, changed.size());
            } else {
                set(changed, changed.size());
            }
        }
    }
    void clear() {
        if (isUnique()) {
            m_block->text.clear();
        } else {
            setNull();
        }
    }
    void reserve(std::size_t n) {
        if ((!isUnique() || m_block->capacity < n) && (m_block || n != 0)) {
            setNew(text(), std::max(n, length()));
        }
    }
    void resize(std::size_t n, T c) {
        if (n < length()) {
            erase(n, Text::npos);
        } else {
            replace(length(), 0, Text(n - length(), c), false);
        }
    }
    void minimize() {
        if (capacity() > length()) {
            setNew(text(), length());
        }
    }
    void makePrivate() {
        if (m_block && !isUnique()) {
            setNew(text(), length());
        }
    }

private:
    std::shared_ptr<StringBlockModel<T>> m_block;
};

/// `Choices` has below(n): a number below n.
template <class T, class Choices>
class StringSession {
public:
    explicit StringSession(Choices& choices) : m_choices(choices) {}

    // One random edit of one string; leaves its description in step().
    void edit();
    void expectMatch() const;
    const std::string& step() const { return m_step; }

private:
    static constexpr std::size_t kStrings = 5;
    static constexpr std::size_t kLongest = 2000;
    static constexpr std::size_t kShortened = 40;
    static constexpr std::size_t kLastIndex = std::numeric_limits<std::size_t>::max();
    using S = sup::String<T>;
    using Text = std::basic_string<T>;

    // Where the characters of an edit come from.
    struct Source {
        Text text;
        const T* first;
        bool self;
        const T* last() const { return first + text.size(); }
    };

    std::size_t below(std::size_t n) { return m_choices.below(n); }
    T character() { return static_cast<T>(below(6) == 0 ? 0 : 'a' + static_cast<int>(below(4))); }
    // A position in the string, at its end, or beyond it.
    std::size_t position(std::size_t length) {
        switch (below(8)) {
        case 0:
            return length;
        case 1:
            return length + 1 + below(5);
        case 2:
            return kLastIndex - below(2);
        default:
            return below(length + 1);
        }
    }
    std::size_t count(std::size_t length) {
        return below(6) == 0 ? kLastIndex - below(4) : below(length + 3);
    }
    // Mostly small, now and then large, so that blocks of all sizes come up.
    std::size_t size() { return below(10) == 0 ? below(200) : below(12); }

    Text randomText() {
        Text text(size(), T());
        for (T& c : text) {
            c = character();
        }
        return text;
    }
    Source source(std::size_t subject) {
        if (below(2) == 0) {
            m_text = randomText();
            return {m_text, m_text.data(), false};
        }
        const std::size_t other = below(3) == 0 ? subject : below(kStrings);
        const Text text = m_models[other].text();
        const std::size_t first = below(text.size() + 1);
        const std::size_t n = below(text.size() - first + 1);
        const bool sameBlock = m_models[other].block() == m_models[subject].block();
        return {text.substr(first, n), m_strings[other].begin() + first, sameBlock && text.size() != 0};
    }

    const long m_otherBlocks = RecordingAllocator::liveBlocks();
    std::array<S, kStrings> m_strings;
    std::array<StringModel<T>, kStrings> m_models;
    Choices& m_choices;
    Text m_text;
    std::string m_step;
};

template <class T, class Choices>
void StringSession<T, Choices>::edit() {
    const std::size_t i = below(kStrings);
    const std::size_t j = below(kStrings);
    S& s = m_strings[i];
    StringModel<T>& model = m_models[i];
    // Texts may double with each edit; a long one is cut to its first characters.
    if (model.length() > kLongest) {
        m_step = "cut of string " + std::to_string(i);
        s.erase(kShortened);
        model.erase(kShortened, kLastIndex);
        return;
    }
    const std::size_t length = model.length();
    const std::size_t pos = position(length);
    const std::size_t n = count(length);
    const std::size_t kind = below(34);
    std::ostringstream step;
    step << "edit " << kind << " of string " << i << ", other " << j << ", pos " << pos << ", n " << n;
    m_step = step.str();
    switch (kind) {
    case 0:
    case 1:
    case 2:
    case 3:
        s = m_strings[j];
        model = m_models[j];
        break;
    case 4:
        s.assign(m_strings[j], n);
        model.assignFirst(m_models[j], n);
        break;
    case 5: {
        const Source from = source(i);
        s.assign(from.first, from.last());
        model.assign(from.text);
        break;
    }
    case 6: {
        const Text text = randomText();
        s = text.c_str();
        model.assign(text.c_str());
        break;
    }
    case 7:
        s.swap(m_strings[j]);
        model.swap(m_models[j]);
        break;
    case 8:
        s.deepSwap(m_strings[j]);
        model.swap(m_models[j]);
        break;
    case 9:
        s = std::move(m_strings[j]);
        if (i != j) {
            model = m_models[j];
            m_models[j].setNull();
        }
        break;
    case 10:
    case 11: {
        const Source from = source(i);
        s.append(from.first, from.text.size());
        model.append(from.text);
        break;
    }
    case 12:
        s += m_strings[j];
        model.append(m_models[j].text());
        break;
    case 13: {
        const T c = character();
        s.push_back(c);
        model.append(Text(1, c));
        break;
    }
    case 14: {
        const T c = character();
        const std::size_t copies = size();
        s.append(copies, c);
        model.append(Text(copies, c));
        break;
    }
    case 15: {
        const T* const text = s.c_str() + (length == 0 ? 0 : below(length));
        const Text added(text);
        s.append(text);
        model.append(added);
        break;
    }
    case 16:
        s.prepend(m_strings[j]);
        model.replace(0, 0, m_models[j].text(), m_models[j].block() == model.block());
        break;
    case 17: {
        const T c = character();
        const std::size_t copies = size();
        s.prepend(copies, c);
        model.replace(0, 0, Text(copies, c), false);
        break;
    }
    case 18:
        s.insert(pos, m_strings[j]);
        model.replace(pos, 0, m_models[j].text(), m_models[j].block() == model.block());
        break;
    case 19: {
        const Source from = source(i);
        s.insert(pos, from.first, from.last());
        model.replace(pos, 0, from.text, from.self);
        break;
    }
    case 20: {
        const T c = character();
        const std::size_t copies = size();
        s.insert(pos, copies, c);
        model.insertGrowing(pos, Text(copies, c));
        break;
    }
    case 21:
        s.erase(pos, n);
        model.erase(pos, n);
        break;
    case 22:
        s.erase(pos);
        model.erase(pos, kLastIndex);
        break;
    case 23:
        s.pop_back();
        model.erase(length == 0 ? kLastIndex : length - 1, 1);
        break;
    case 24:
        s.clear();
        model.clear();
        break;
    case 25:
    case 26: {
        const Source from = source(i);
        s.replace(pos, n, from.first, from.last());
        model.replace(pos, n, from.text, from.self);
        break;
    }
    case 27: {
        const T c = character();
        const std::size_t copies = size();
        s.replace(pos, n, copies, c);
        model.replace(pos, n, Text(copies, c), false);
        break;
    }
    case 28: {
        const T c = character();
        s.replace(pos, c);
        model.replace(pos, 1, Text(1, c), false);
        break;
    }
    case 29: {
        const std::size_t room = size();
        s.reserve(room);
        model.reserve(room);
        break;
    }
    case 30: {
        const T c = character();
        const std::size_t newLength = size();
        s.resize(newLength, c);
        model.resize(newLength, c);
        break;
    }
    case 31:
        s.minimize();
        model.minimize();
        break;
    case 32: {
        T* const first = s.mutable_begin();
        model.makePrivate();
        ASSERT_EQ(first == nullptr, model.block() == nullptr);
        if (length != 0) {
            const T c = character();
            const std::size_t place = below(length);
            first[place] = c;
            Text text = model.text();
            text[place] = c;
            model.set(text, length);
        }
        break;
    }
    case 33: {
        const S part = m_strings[j].substr(pos, n);
        const Text text = m_models[j].text();
        const Text expected = pos >= text.size() ? Text() : text.substr(pos, n);
        ASSERT_EQ(show(part), show(expected));
        const T c = character();
        const std::size_t found = pos >= text.size() ? Text::npos : text.find(c, pos);
        ASSERT_EQ(m_strings[j].find(c, pos, S::kReturnNPosIfFail), found);
        ASSERT_EQ(m_strings[j].find(c, pos), std::min(found, text.size()));
        ASSERT_EQ(m_strings[j].rfind(c), text.rfind(c));
        ASSERT_EQ(S::equals(s, m_strings[j]), model.text() == text);
        ASSERT_EQ(s.compare(m_strings[j]) < 0, Text(model.text().c_str()) < Text(text.c_str()));
        break;
    }
    default:
        FAIL() << "no edit " << kind;
    }
}

template <class T, class Choices>
void StringSession<T, Choices>::expectMatch() const {
    std::set<const StringBlockModel<T>*> blocks;
    for (std::size_t i = 0; i < kStrings; ++i) {
        SCOPED_TRACE("string " + std::to_string(i));
        const S& s = m_strings[i];
        const StringModel<T>& model = m_models[i];
        ASSERT_EQ(show(s), show(model.text()));
        ASSERT_EQ(s.length(), model.length());
        ASSERT_EQ(s.isUnique(), model.isUnique());
        ASSERT_EQ(s.capacity(), model.capacity());
        for (std::size_t j = 0; j < i; ++j) {
            ASSERT_EQ(s.diagnosticGetSharedRepresentation() ==
                          m_strings[j].diagnosticGetSharedRepresentation(),
                      model.block() == m_models[j].block())
                << "sharing with string " << j;
        }
        if (model.block() == nullptr) {
            ASSERT_EQ(s.diagnosticGetSharedRepresentation(), nullptr);
        } else {
            blocks.insert(model.block());
            ASSERT_NE(s.diagnosticGetSharedRepresentation(), nullptr);
        }
    }
    ASSERT_EQ(RecordingAllocator::liveBlocks() - m_otherBlocks, static_cast<long>(blocks.size()));
}

} // namespace brimtest
