// sup::String: appending, inserting, erasing, replacing and capacity, each on null, unique, cleared and
// shared strings.
#include "Utility/Generic/Portable/SUPString.h"

#include "string_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <new>
#include <string>
#include <vector>

namespace {

using namespace brimtest;

template <class T>
using Edit = std::function<void(sup::String<T>&)>;

template <class T>
struct NamedEdit {
    const char* name;
    Edit<T> edit;
};

template <class T>
class StringEditTest : public StringTestOf<T> {
protected:
    // A string that fills its block.
    static sup::String<T> fullString(std::size_t atLeast) {
        const sup::String<T> s = alphabetString<T>(blockCapacity<T>(atLeast));
        EXPECT_EQ(s.length(), s.capacity());
        return s;
    }
};

// ---- Appending --------------------------------------------------------------------------------------------

template <class T>
class StringAppend : public StringEditTest<T> {
protected:
    // Every way to append `count` times 'x'.
    static std::vector<NamedEdit<T>> appendsOf(std::size_t count) {
        static constexpr T kX = static_cast<T>('x');
        const std::basic_string<T> text(count, kX);
        std::vector<NamedEdit<T>> edits = {
            {"append(string)", [text](sup::String<T>& s) { s.append(sup::String<T>(text.c_str())); }},
            {"append(text)", [text](sup::String<T>& s) { s.append(text.c_str()); }},
            {"append(text, count)", [text](sup::String<T>& s) { s.append(text.data(), text.size()); }},
            {"append(range)",
             [text](sup::String<T>& s) { s.append(text.data(), text.data() + text.size()); }},
            {"append(n, c)", [count](sup::String<T>& s) { s.append(count, kX); }},
            {"insert(npos, n, c)", [count](sup::String<T>& s) { s.insert(sup::String<T>::npos, count, kX); }},
            {"insert(length, n, c)", [count](sup::String<T>& s) { s.insert(s.length(), count, kX); }},
            {"+= string", [text](sup::String<T>& s) { s += sup::String<T>(text.c_str()); }},
            {"+= text", [text](sup::String<T>& s) { s += text.c_str(); }},
        };
        if (count == 1) {
            edits.push_back({"append(c)", [](sup::String<T>& s) { s.append(kX); }});
            edits.push_back({"+= c", [](sup::String<T>& s) { s += kX; }});
            edits.push_back({"push_back(c)", [](sup::String<T>& s) { s.push_back(kX); }});
        }
        return edits;
    }

    // Applies the edit with a log that leaves out what the edit's own argument needs.
    static void expectBlocks(const NamedEdit<T>& edit, sup::String<T>& s, std::size_t blocks,
                             std::size_t capacity) {
        const std::size_t argumentBlocks =
            edit.name == std::string("append(string)") || edit.name == std::string("+= string") ? 1 : 0;
        AllocationLog log;
        edit.edit(s);
        const std::vector<AllocationRequest> requests = log.requests();
        ASSERT_EQ(requests.size(), argumentBlocks + blocks);
        if (blocks != 0) {
            EXPECT_EQ(requests.back().size, blockSize<T>(capacity));
            EXPECT_EQ(s.capacity(), blockCapacity<T>(capacity));
        }
    }
};
TYPED_TEST_SUITE(StringAppend, CharacterTypes, CharacterTypeNames);

TYPED_TEST(StringAppend, NullStringGetsExactlyTheAddedLength) {
    for (const std::size_t count : {1U, 2U, 7U, 8U, 9U, 30U}) {
        for (const auto& edit : this->appendsOf(count)) {
            SCOPED_TRACE(edit.name);
            sup::String<TypeParam> s;
            this->expectBlocks(edit, s, 1, count);
            EXPECT_EQ(show(s), std::string(count, 'x'));
            EXPECT_TRUE(s.isUnique());
        }
    }
}

TYPED_TEST(StringAppend, UniqueStringWithRoomIsChangedInPlace) {
    for (const std::size_t count : {1U, 5U, 20U}) {
        for (const auto& edit : this->appendsOf(count)) {
            SCOPED_TRACE(edit.name);
            sup::String<TypeParam> s(TEXT("abc"));
            s.reserve(
                blockCapacity<TypeParam>(3 + count)); // exactly enough, when rounding leaves nothing over
            const TypeParam* const before = s.c_str();
            this->expectBlocks(edit, s, 0, 0);
            EXPECT_EQ(show(s), "abc" + std::string(count, 'x'));
            EXPECT_EQ(s.c_str(), before);
        }
    }
}

TYPED_TEST(StringAppend, UniqueStringWithoutRoomDoublesItsCapacity) {
    for (const std::size_t length : {1U, 10U, 40U}) {
        for (const auto& edit : this->appendsOf(1)) {
            SCOPED_TRACE(edit.name);
            auto s = this->fullString(length);
            const std::size_t oldCapacity = s.capacity();
            const std::string expected = show(s) + "x";
            this->expectBlocks(edit, s, 1, std::max(oldCapacity + 1, 2 * oldCapacity));
            EXPECT_EQ(show(s), expected);
        }
    }
}

TYPED_TEST(StringAppend, UniqueStringGrowsBeyondTwiceItsCapacityWhenNeeded) {
    for (const auto& edit : this->appendsOf(100)) {
        SCOPED_TRACE(edit.name);
        auto s = this->fullString(10);
        const std::size_t length = s.length();
        this->expectBlocks(edit, s, 1, length + 100);
        EXPECT_EQ(s.length(), length + 100);
    }
}

TYPED_TEST(StringAppend, AppendToSharedBlockLeavesTheOtherAloneAndGetsExactlyWhatItNeeds) {
    for (const std::size_t count : {1U, 30U}) {
        for (const auto& edit : this->appendsOf(count)) {
            SCOPED_TRACE(edit.name);
            auto s = this->fullString(10);
            s.reserve(100);
            const sup::String<TypeParam> other(s);
            const std::size_t length = s.length();
            const std::string text = show(s);
            this->expectBlocks(edit, s, 1, length + count);
            EXPECT_EQ(show(s), text + std::string(count, 'x'));
            EXPECT_EQ(show(other), text);
            EXPECT_TRUE(s.isUnique());
            EXPECT_TRUE(other.isUnique());
        }
    }
}

TYPED_TEST(StringAppend, ClearedStringKeepsItsBlockAndGrowsAsAUniqueOne) {
    for (const auto& edit : this->appendsOf(3)) {
        SCOPED_TRACE(edit.name);
        auto s = this->fullString(10);
        const std::size_t capacity = s.capacity();
        s.clear();
        this->expectBlocks(edit, s, 0, 0);
        EXPECT_EQ(show(s), "xxx");
        EXPECT_EQ(s.capacity(), capacity);
    }
    for (const auto& edit : this->appendsOf(blockCapacity<TypeParam>(10) + 1)) {
        SCOPED_TRACE(edit.name);
        auto s = this->fullString(10);
        const std::size_t capacity = s.capacity();
        s.clear();
        this->expectBlocks(edit, s, 1, 2 * capacity);
    }
}

TYPED_TEST(StringAppend, SharedEmptyBlockIsLeftToTheOther) {
    for (const auto& edit : this->appendsOf(3)) {
        SCOPED_TRACE(edit.name);
        auto s = this->fullString(10);
        s.clear();
        const sup::String<TypeParam> other(s);
        this->expectBlocks(edit, s, 1, 3);
        EXPECT_EQ(show(s), "xxx");
        EXPECT_EQ(show(other), "");
        EXPECT_TRUE(other.isUnique());
    }
}

TYPED_TEST(StringAppend, NothingChangesNothing) {
    using S = sup::String<TypeParam>;
    const TypeParam* const null = nullptr;
    for (const auto& edit : this->appendsOf(0)) {
        SCOPED_TRACE(edit.name);
        S nothing;
        S s(TEXT("abc"));
        const S other(s);
        AllocationLog log;
        edit.edit(nothing);
        edit.edit(s);
        EXPECT_EQ(nothing.diagnosticGetSharedRepresentation(), nullptr);
        EXPECT_EQ(s.diagnosticGetSharedRepresentation(), other.diagnosticGetSharedRepresentation());
        EXPECT_TRUE(askedForNothing(log));
    }
    S s(TEXT("abc"));
    EXPECT_EQ(show(s.append(null)), "abc");
    EXPECT_EQ(show(s.append(null, 0)), "abc");
    EXPECT_EQ(show(s.append(null, null)), "abc");
    EXPECT_EQ(show(s += null), "abc");
}

TYPED_TEST(StringAppend, ZerosAreKept) {
    using S = sup::String<TypeParam>;
    S s;
    s.append(TEXT("a\0b"), 3);
    s.push_back(CHARACTER(0));
    s.append(2, CHARACTER(0));
    s.append(S(TEXT("\0c"), 2));
    EXPECT_EQ(show(s), "a<0>b<0><0><0><0>c");
}

TYPED_TEST(StringAppend, ReturnsTheString) {
    using S = sup::String<TypeParam>;
    S s;
    EXPECT_EQ(&s.append(S()), &s);
    EXPECT_EQ(&s.append(TEXT("a")), &s);
    EXPECT_EQ(&s.append(TEXT("a"), 1), &s);
    EXPECT_EQ(&s.append(s.begin(), s.end()), &s);
    EXPECT_EQ(&s.append(CHARACTER('b')), &s);
    EXPECT_EQ(&s.append(2, CHARACTER('b')), &s);
    EXPECT_EQ(&(s += S()), &s);
    EXPECT_EQ(&(s += TEXT("c")), &s);
    EXPECT_EQ(&(s += CHARACTER('d')), &s);
    EXPECT_EQ(show(s), "aaaabbbcd");
}

// In place, in a new block, and shared; the part may end in the terminating zero, which the append
// overwrites.
TYPED_TEST(StringAppend, PartsOfTheStringItself) {
    using S = sup::String<TypeParam>;
    const auto text = alphabet<TypeParam>(7);
    enum State { kWithRoom, kWithoutRoom, kShared };
    for (const State state : {kWithRoom, kWithoutRoom, kShared}) {
        for (std::size_t first = 0; first <= 7; ++first) {
            for (std::size_t last = first; last <= 8; ++last) {
                S s(text.data(), text.size());
                s.reserve(state == kWithRoom ? 30 : 7);
                const S other = state == kShared ? s : S();
                s.append(s.begin() + first, s.begin() + last);
                const auto added = (text + TypeParam()).substr(first, last - first);
                EXPECT_EQ(show(s), show(text + added)) << state << " " << first << " " << last;
                EXPECT_EQ(show(other), state == kShared ? show(text) : "");
            }
            S s(text.data(), text.size());
            s.reserve(state == kWithRoom ? 30 : 7);
            const S other = state == kShared ? s : S();
            s.append(s.c_str() + first);
            EXPECT_EQ(show(s), show(text + text.substr(first)));
            s += s.c_str() + 3;
            EXPECT_EQ(show(s), show(text + text.substr(first) + (text + text.substr(first)).substr(3)));
        }
        S s(text.data(), text.size());
        s.reserve(state == kWithRoom ? 30 : 7);
        const S other = state == kShared ? s : S();
        s.append(s);
        s += s;
        EXPECT_EQ(show(s), show(text + text + text + text));
        s.push_back(s.front());
        s.append(s[1]);
        EXPECT_EQ(show(s), show(text + text + text + text) + "ab");
    }
}

TYPED_TEST(StringAppend, TextsTooLargeToExistAreBadAlloc) {
    using S = sup::String<TypeParam>;
    for (const std::size_t n :
         {S::npos, S::npos - 3, S::npos - 4, S::npos / sizeof(TypeParam), S::npos / 8}) {
        S unique(TEXT("abc"));
        S shared(TEXT("def"));
        const S other(shared);
        S null;
        const std::vector<S*> strings = {&unique, &shared, &null};
        for (S* const s : strings) {
            const auto* const block = s->diagnosticGetSharedRepresentation();
            EXPECT_THROW(s->append(n, CHARACTER('x')), std::bad_alloc) << n;
            EXPECT_THROW(s->prepend(n, CHARACTER('x')), std::bad_alloc) << n;
            EXPECT_THROW(s->insert(1, n, CHARACTER('x')), std::bad_alloc) << n;
            EXPECT_THROW(s->insert(S::npos, n, CHARACTER('x')), std::bad_alloc) << n;
            EXPECT_THROW(s->replace(0, S::npos, n, CHARACTER('x')), std::bad_alloc) << n;
            EXPECT_THROW(s->replace(0, 1, n, CHARACTER('x')), std::bad_alloc) << n;
            EXPECT_THROW(s->replace(9, 1, n, CHARACTER('x')), std::bad_alloc) << n;
            EXPECT_THROW(s->resize(n, CHARACTER('x')), std::bad_alloc) << n;
            EXPECT_THROW(s->reserve(n), std::bad_alloc) << n;
            EXPECT_THROW(s->append(TEXT("abc"), n), std::bad_alloc) << n;
            EXPECT_THROW(s->assign(TEXT("abc"), n), std::bad_alloc) << n;
            EXPECT_THROW(s->replace(0, 1, TEXT("abc"), n), std::bad_alloc) << n;
            EXPECT_EQ(s->diagnosticGetSharedRepresentation(), block);
        }
        EXPECT_EQ(show(unique), "abc");
        EXPECT_EQ(show(shared), "def");
        EXPECT_EQ(show(other), "def");
        EXPECT_TRUE(unique.isUnique());
    }
}

TYPED_TEST(StringAppend, RepeatedAppendsTakeFewBlocks) {
    sup::String<TypeParam> s;
    AllocationLog log;
    for (int i = 0; i < 10000; ++i) {
        s.push_back(static_cast<TypeParam>('a' + i % 26));
    }
    EXPECT_EQ(copyOf(s), alphabet<TypeParam>(10000));
    EXPECT_LE(stringBlocks(log), 15U);
}

// ---- Prepending and inserting -----------------------------------------------------------------------------

template <class T>
class StringInsert : public StringEditTest<T> {};
TYPED_TEST_SUITE(StringInsert, CharacterTypes, CharacterTypeNames);

TYPED_TEST(StringInsert, EveryPositionInEveryState) {
    using S = sup::String<TypeParam>;
    using Text = std::basic_string<TypeParam>;
    const Text text = alphabet<TypeParam>(7);
    const Text added = FULL_TEXT("XYZ");
    using Insert = std::function<S&(S&, std::size_t)>;
    const Insert inserts[] = {
        [&](S& s, std::size_t pos) -> S& { return s.insert(pos, S(added.c_str())); },
        [&](S& s, std::size_t pos) -> S& { return s.insert(pos, added.c_str()); },
        [&](S& s, std::size_t pos) -> S& { return s.insert(pos, added.data(), added.data() + 3); },
    };
    const std::size_t positions[] = {0, 1, 3, 6, 7, 8, 100, S::npos};
    for (std::size_t i = 0; i < std::size(inserts); ++i) {
        for (const std::size_t pos : positions) {
            const std::string expected = show(Text(text).insert(std::min<std::size_t>(pos, 7), added));
            SCOPED_TRACE(std::to_string(i) + " at " + std::to_string(pos));
            S withRoom(text.data(), text.size());
            withRoom.reserve(20);
            const TypeParam* const before = withRoom.c_str();
            EXPECT_EQ(&inserts[i](withRoom, pos), &withRoom);
            EXPECT_EQ(show(withRoom), expected);
            EXPECT_EQ(withRoom.c_str(), before);

            S shared(text.data(), text.size());
            const S other(shared);
            inserts[i](shared, pos);
            EXPECT_EQ(show(shared), expected);
            EXPECT_EQ(shared.capacity(), blockCapacity<TypeParam>(10));
            EXPECT_EQ(show(other), show(text));

            S null;
            inserts[i](null, pos);
            EXPECT_EQ(show(null), "XYZ");
            EXPECT_EQ(null.capacity(), blockCapacity<TypeParam>(3));
        }
    }
}

TYPED_TEST(StringInsert, TextsGrowAUniqueStringToExactlyTheNeededLength) {
    using S = sup::String<TypeParam>;
    const S other(CHARACTER('x'));
    const Edit<TypeParam> edits[] = {
        [&](S& s) { s.insert(0, other); },
        [&](S& s) { s.insert(5, other.c_str()); },
        [&](S& s) { s.insert(s.length(), other.begin(), other.end()); },
        [&](S& s) { s.prepend(other); },
        [&](S& s) { s.prepend(1, CHARACTER('x')); },
    };
    for (const auto& edit : edits) {
        S s = this->fullString(20);
        const std::size_t length = s.length();
        AllocationLog log;
        edit(s);
        EXPECT_EQ(s.length(), length + 1);
        EXPECT_TRUE(askedForOneBlock<TypeParam>(log, length + 1));
    }
}

TYPED_TEST(StringInsert, TextBeyondTheEndGrowsAsAnAppend) {
    using S = sup::String<TypeParam>;
    const S other(CHARACTER('x'));
    const Edit<TypeParam> edits[] = {
        [&](S& s) { s.insert(s.length() + 1, other); },
        [&](S& s) { s.insert(S::npos, other.c_str()); },
        [&](S& s) { s.replace(S::npos, S::npos, other); },
        [&](S& s) { s.replace(s.length() + 1, 0, 1, CHARACTER('x')); },
        [&](S& s) { s.replace(s.length() + 1, CHARACTER('x')); },
    };
    for (const auto& edit : edits) {
        S s = this->fullString(20);
        const std::size_t capacity = s.capacity();
        AllocationLog log;
        edit(s);
        EXPECT_EQ(s.back(), CHARACTER('x'));
        EXPECT_TRUE(askedForOneBlock<TypeParam>(log, 2 * capacity));
    }
}

TYPED_TEST(StringInsert, CopiesOfACharacterGrowAUniqueStringAsAnAppend) {
    using S = sup::String<TypeParam>;
    using Text = std::basic_string<TypeParam>;
    for (const std::size_t pos : {std::size_t{0}, std::size_t{4}, S::npos}) {
        S s = this->fullString(20);
        const std::size_t length = s.length();
        const std::size_t place = std::min(pos, length);
        AllocationLog log;
        EXPECT_EQ(&s.insert(pos, 2, CHARACTER('X')), &s);
        EXPECT_EQ(copyOf(s), Text(alphabet<TypeParam>(length)).insert(place, Text(2, CHARACTER('X'))));
        EXPECT_TRUE(askedForOneBlock<TypeParam>(log, 2 * length));

        const std::size_t room = s.capacity() - s.length();
        log.clear();
        s.insert(pos, room, CHARACTER('Y'));
        EXPECT_EQ(s.length(), s.capacity());
        EXPECT_TRUE(askedForNothing(log));

        const S other(s);
        log.clear();
        s.insert(pos, 1, CHARACTER('Z'));
        EXPECT_EQ(s.length(), other.length() + 1);
        EXPECT_TRUE(askedForOneBlock<TypeParam>(log, s.length()));
    }
    S s = this->fullString(20);
    const std::size_t length = s.length();
    AllocationLog log;
    s.insert(1, 1000, CHARACTER('X'));
    EXPECT_TRUE(askedForOneBlock<TypeParam>(log, length + 1000));
}

TYPED_TEST(StringInsert, NothingChangesNothing) {
    using S = sup::String<TypeParam>;
    const TypeParam* const null = nullptr;
    S s(TEXT("abc"));
    const S other(s);
    S nothing;
    AllocationLog log;
    for (S* const string : {&s, &nothing}) {
        for (const std::size_t pos : {std::size_t{0}, std::size_t{2}, std::size_t{3}, S::npos}) {
            string->insert(pos, S());
            string->insert(pos, TEXT(""));
            string->insert(pos, null);
            string->insert(pos, null, null);
            string->insert(pos, 0, CHARACTER('x'));
        }
        string->prepend(S());
        string->prepend(0, CHARACTER('x'));
    }
    EXPECT_EQ(s.diagnosticGetSharedRepresentation(), other.diagnosticGetSharedRepresentation());
    EXPECT_EQ(nothing.diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_TRUE(askedForNothing(log));
}

TYPED_TEST(StringInsert, Prepend) {
    using S = sup::String<TypeParam>;
    S s(TEXT("abc"));
    const S other(s);
    EXPECT_EQ(&s.prepend(S(TEXT("xy"))), &s);
    EXPECT_EQ(show(s), "xyabc");
    EXPECT_EQ(&s.prepend(3, CHARACTER('-')), &s);
    EXPECT_EQ(show(s), "---xyabc");
    EXPECT_EQ(show(other), "abc");
    S null;
    AllocationLog log;
    null.prepend(3, CHARACTER('-'));
    EXPECT_EQ(show(null), "---");
    EXPECT_TRUE(askedForOneBlock<TypeParam>(log, 3));
    log.clear();
    s.reserve(100);
    log.clear();
    s.prepend(other);
    s.prepend(2, CHARACTER('+'));
    EXPECT_EQ(show(s), "++abc---xyabc");
    EXPECT_TRUE(askedForNothing(log));
}

TYPED_TEST(StringInsert, ClearedStringIsFilledInPlace) {
    using S = sup::String<TypeParam>;
    S s(TEXT("abcdef"));
    s.clear();
    AllocationLog log;
    s.insert(0, TEXT("x"));
    s.prepend(S());
    s.insert(0, 2, CHARACTER('y'));
    s.prepend(1, CHARACTER('z'));
    EXPECT_EQ(show(s), "zyyx");
    EXPECT_TRUE(askedForNothing(log));
}

// ---- Erasing ----------------------------------------------------------------------------------------------

template <class T>
class StringErase : public StringEditTest<T> {};
TYPED_TEST_SUITE(StringErase, CharacterTypes, CharacterTypeNames);

TYPED_TEST(StringErase, EveryPartInEveryState) {
    using S = sup::String<TypeParam>;
    using Text = std::basic_string<TypeParam>;
    const Text text = FULL_TEXT("ab\0defghij");
    for (std::size_t pos = 0; pos < 10; ++pos) {
        for (const std::size_t n :
             {std::size_t{1}, std::size_t{4}, 10 - pos, 11 - pos, S::npos - pos, S::npos}) {
            SCOPED_TRACE(std::to_string(pos) + ", " + std::to_string(n));
            const std::string expected = show(Text(text).erase(pos, n));
            S unique(text.data(), text.size());
            const TypeParam* const before = unique.c_str();
            const std::size_t capacity = unique.capacity();
            AllocationLog log;
            EXPECT_EQ(&unique.erase(pos, n), &unique);
            EXPECT_EQ(show(unique), expected);
            EXPECT_EQ(unique.c_str(), before);
            EXPECT_EQ(unique.capacity(), capacity);
            EXPECT_TRUE(askedForNothing(log));

            S shared(text.data(), text.size());
            const S other(shared);
            log.clear();
            shared.erase(pos, n);
            EXPECT_EQ(show(shared), expected);
            EXPECT_EQ(show(other), show(text));
            EXPECT_TRUE(askedForOneBlock<TypeParam>(log, 10)); // a copy of the whole text, then cut
        }
    }
}

TYPED_TEST(StringErase, WithoutACountCutsAtThePosition) {
    using S = sup::String<TypeParam>;
    for (std::size_t pos = 0; pos <= 7; ++pos) {
        S s(TEXT("hello"));
        EXPECT_EQ(&s.erase(pos), &s);
        EXPECT_EQ(show(s), std::string("hello").substr(0, pos));
        EXPECT_TRUE(s.isUnique());
    }
}

TYPED_TEST(StringErase, NothingHappensBeyondTheEndOrForZeroCharacters) {
    using S = sup::String<TypeParam>;
    S s(TEXT("hello"));
    const S other(s);
    S null;
    AllocationLog log;
    s.erase(5, 1);
    s.erase(7, 1);
    s.erase(S::npos, S::npos);
    s.erase(0, 0);
    s.erase(5);
    s.erase(S::npos);
    null.erase(0, 1);
    null.erase(0);
    null.erase(S::npos, S::npos);
    EXPECT_EQ(s.diagnosticGetSharedRepresentation(), other.diagnosticGetSharedRepresentation());
    EXPECT_EQ(show(s), "hello");
    EXPECT_EQ(null.diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_TRUE(askedForNothing(log));
}

TYPED_TEST(StringErase, PopBack) {
    using S = sup::String<TypeParam>;
    S s(TEXT("abc"));
    const S other(s);
    s.pop_back();
    EXPECT_EQ(show(s), "ab");
    EXPECT_EQ(show(other), "abc");
    const TypeParam* const before = s.c_str();
    s.pop_back();
    s.pop_back();
    EXPECT_EQ(show(s), "");
    EXPECT_EQ(s.c_str(), before);
}

TYPED_TEST(StringErase, PopBackOfAnEmptyStringDoesNothing) {
    using S = sup::String<TypeParam>;
    S null;
    null.pop_back();
    EXPECT_EQ(null.diagnosticGetSharedRepresentation(), nullptr);
    S cleared(TEXT("abc"));
    cleared.clear();
    cleared.pop_back();
    EXPECT_EQ(show(cleared), "");
}

TYPED_TEST(StringErase, ClearKeepsAUniqueBlockAndLetsASharedOneGo) {
    using S = sup::String<TypeParam>;
    S unique(TEXT("hello"));
    S shared(TEXT("world"));
    const S other(shared);
    S null;
    const std::size_t capacity = unique.capacity();
    AllocationLog log;
    unique.clear();
    shared.clear();
    null.clear();
    EXPECT_EQ(show(unique), "");
    EXPECT_EQ(unique.capacity(), capacity);
    EXPECT_TRUE(unique.isUnique());
    EXPECT_EQ(shared.diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_EQ(show(other), "world");
    EXPECT_TRUE(other.isUnique());
    EXPECT_EQ(null.diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_TRUE(askedForNothing(log));
    EXPECT_TRUE(log.releases().empty());
    EXPECT_TRUE(noexcept(unique.clear()));
}

// ---- Replacing --------------------------------------------------------------------------------------------

template <class T>
class StringReplace : public StringEditTest<T> {
protected:
    // What replace() makes of `text`.
    static std::basic_string<T> replaced(std::basic_string<T> text, std::size_t pos, std::size_t n,
                                         const std::basic_string<T>& by) {
        return pos > text.size() ? text + by : text.replace(pos, n, by);
    }
};
TYPED_TEST_SUITE(StringReplace, CharacterTypes, CharacterTypeNames);

TYPED_TEST(StringReplace, EveryPartByEveryFormInEveryState) {
    using S = sup::String<TypeParam>;
    using Text = std::basic_string<TypeParam>;
    using Replace = std::function<S&(S&, std::size_t, std::size_t, const Text&)>;
    const Replace replaces[] = {
        [](S& s, std::size_t pos, std::size_t n, const Text& by) -> S& {
            return s.replace(pos, n, by.data(), by.data() + by.size());
        },
        [](S& s, std::size_t pos, std::size_t n, const Text& by) -> S& {
            return s.replace(pos, n, by.c_str());
        },
        [](S& s, std::size_t pos, std::size_t n, const Text& by) -> S& {
            return s.replace(pos, n, by.data(), by.size());
        },
        [](S& s, std::size_t pos, std::size_t n, const Text& by) -> S& {
            return s.replace(pos, n, S(by.data(), by.size()));
        },
        [](S& s, std::size_t pos, std::size_t n, const Text& by) -> S& {
            return s.replace(pos, n, by.size(), CHARACTER('X'));
        },
    };
    const Text text = alphabet<TypeParam>(7);
    for (std::size_t form = 0; form < std::size(replaces); ++form) {
        for (const std::size_t pos : {std::size_t{0}, std::size_t{3}, std::size_t{6}, std::size_t{7},
                                      std::size_t{8}, std::size_t{50}, S::npos}) {
            for (const std::size_t n : {std::size_t{0}, std::size_t{1}, std::size_t{4}, std::size_t{7},
                                        std::size_t{8}, S::npos - 3, S::npos}) {
                for (const std::size_t count : {0U, 1U, 4U, 5U, 9U}) {
                    SCOPED_TRACE(std::to_string(form) + ": " + std::to_string(pos) + ", " +
                                 std::to_string(n) + ", " + std::to_string(count));
                    const Text by(count, CHARACTER('X'));
                    const Text expected = this->replaced(text, pos, n, by);

                    S withRoom(text.data(), text.size());
                    withRoom.reserve(30);
                    const TypeParam* const before = withRoom.c_str();
                    EXPECT_EQ(&replaces[form](withRoom, pos, n, by), &withRoom);
                    EXPECT_EQ(show(withRoom), show(expected));
                    EXPECT_EQ(withRoom.c_str(), before);

                    S shared(text.data(), text.size());
                    const S other(shared);
                    replaces[form](shared, pos, n, by);
                    EXPECT_EQ(show(shared), show(expected));
                    EXPECT_EQ(show(other), show(text));
                    if (shared.isUnique()) { // otherwise nothing was replaced by nothing
                        EXPECT_EQ(shared.capacity(), blockCapacity<TypeParam>(expected.size()));
                    } else {
                        EXPECT_EQ(show(expected), show(text));
                    }

                    S null;
                    replaces[form](null, pos, n, by);
                    EXPECT_EQ(show(null), show(by));
                    EXPECT_EQ(null.capacity(), count == 0 ? 0 : blockCapacity<TypeParam>(count));
                }
            }
        }
    }
}

TYPED_TEST(StringReplace, UniqueStringWithoutRoomGrowsToExactlyTheNeededLength) {
    using S = sup::String<TypeParam>;
    const S by(TEXT("xyz"));
    const Edit<TypeParam> edits[] = {
        [&](S& s) { s.replace(2, 1, by.begin(), by.end()); }, [&](S& s) { s.replace(2, 1, by.c_str()); },
        [&](S& s) { s.replace(2, 1, by.c_str(), 3); },        [&](S& s) { s.replace(2, 1, by); },
        [&](S& s) { s.replace(2, 1, 3, CHARACTER('x')); },    [&](S& s) { s.replace(2, by.c_str()); },
        [&](S& s) { s.replace(s.length(), 5, TEXT("xy")); },
    };
    for (const auto& edit : edits) {
        S s = this->fullString(20);
        const std::size_t length = s.length();
        AllocationLog log;
        edit(s);
        EXPECT_EQ(s.length(), length + 2);
        EXPECT_TRUE(askedForOneBlock<TypeParam>(log, length + 2));
    }
}

TYPED_TEST(StringReplace, BeyondTheEndAppends) {
    using S = sup::String<TypeParam>;
    S s(TEXT("hello"));
    EXPECT_EQ(show(s.replace(10, 2, TEXT("!"))), "hello!");
    EXPECT_EQ(show(s.replace(10, TEXT("?"))), "hello!?");
    EXPECT_EQ(show(s.replace(10, CHARACTER('.'))), "hello!?.");
    EXPECT_EQ(show(s.replace(S::npos, S::npos, 2, CHARACTER('-'))), "hello!?.--");
    EXPECT_EQ(show(s.replace(S::npos, S::npos, s)), "hello!?.--hello!?.--");
}

TYPED_TEST(StringReplace, OneCharacterByATextOrACharacter) {
    using S = sup::String<TypeParam>;
    S s(TEXT("abc"));
    s.reserve(10);
    EXPECT_EQ(show(s.replace(1, TEXT("xyz"))), "axyzc");
    EXPECT_EQ(show(s.replace(0, CHARACTER('A'))), "Axyzc");
    EXPECT_EQ(show(s.replace(4, TEXT(""))), "Axyz");
    EXPECT_EQ(show(s.replace(4, CHARACTER('!'))), "Axyz!");
    EXPECT_EQ(show(s.replace(5, TEXT("?"))), "Axyz!?");
    const S other(s);
    EXPECT_EQ(show(s.replace(0, CHARACTER('B'))), "Bxyz!?");
    EXPECT_EQ(show(other), "Axyz!?");
}

TYPED_TEST(StringReplace, NullTextIsTheEmptyText) {
    using S = sup::String<TypeParam>;
    const TypeParam* const null = nullptr;
    S s(TEXT("hello"));
    EXPECT_EQ(show(s.replace(0, 1, null)), "ello");
    EXPECT_EQ(show(s.replace(0, 1, null, 0)), "llo");
    EXPECT_EQ(show(s.replace(0, 1, null, null)), "lo");
    EXPECT_EQ(show(s.replace(0, null)), "o");
    EXPECT_EQ(show(s.replace(9, 1, null)), "o");
}

TYPED_TEST(StringReplace, NothingByNothingChangesNothing) {
    using S = sup::String<TypeParam>;
    S s(TEXT("hello"));
    const S other(s);
    S null;
    AllocationLog log;
    s.replace(2, 0, TEXT(""));
    s.replace(5, 3, 0, CHARACTER('x'));
    s.replace(9, 3, S());
    s.replace(5, TEXT(""));
    null.replace(0, 4, TEXT(""));
    null.replace(0, 4, 0, CHARACTER('x'));
    EXPECT_EQ(s.diagnosticGetSharedRepresentation(), other.diagnosticGetSharedRepresentation());
    EXPECT_EQ(null.diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_TRUE(askedForNothing(log));
}

TYPED_TEST(StringReplace, FirstCharacterByTheOwnWholeText) {
    using S = sup::String<TypeParam>;
    S s(TEXT("abc"));
    AllocationLog log;
    s.replace(0, 1, s);
    EXPECT_EQ(show(s), "abcbc");
    EXPECT_TRUE(askedForOneBlock<TypeParam>(log, 5));
    S withRoom(TEXT("abc"));
    withRoom.reserve(20);
    log.clear();
    withRoom.replace(0, 1, withRoom.c_str());
    EXPECT_EQ(show(withRoom), "abcbc");
    EXPECT_TRUE(askedForOneBlock<TypeParam>(log, 5)); // not in place, although there is room
}

TYPED_TEST(StringReplace, EveryPartByEveryPartOfTheStringItself) {
    using S = sup::String<TypeParam>;
    using Text = std::basic_string<TypeParam>;
    const Text text = alphabet<TypeParam>(6);
    enum State { kFull, kWithRoom, kShared };
    for (const State state : {kFull, kWithRoom, kShared}) {
        for (std::size_t pos = 0; pos <= 7; ++pos) {
            for (std::size_t n = 0; n <= 6; n += 1 + n / 3) {
                for (std::size_t first = 0; first <= 6; ++first) {
                    for (std::size_t last = first; last <= 6; ++last) {
                        S s(text.data(), text.size());
                        s.reserve(state == kWithRoom ? 30 : 6);
                        const S other = state == kShared ? s : S();
                        s.replace(pos, n, s.begin() + first, s.begin() + last);
                        const Text by = text.substr(first, last - first);
                        EXPECT_EQ(show(s), show(this->replaced(text, pos, n, by)))
                            << state << ": " << pos << " " << n << " " << first << " " << last;
                        EXPECT_EQ(show(other), state == kShared ? show(text) : "");
                    }
                }
            }
            S s(text.data(), text.size());
            s.reserve(state == kWithRoom ? 30 : 6);
            const S other = state == kShared ? s : S();
            s.insert(pos, s);
            EXPECT_EQ(show(s), show(this->replaced(text, pos, 0, text)));
            const Text doubled = copyOf(s);
            s.insert(pos, s.c_str() + 3);
            EXPECT_EQ(show(s), show(this->replaced(doubled, pos, 0, doubled.substr(3))));
            s.replace(pos, s.c_str() + 4);
            const Text inserted = this->replaced(doubled, pos, 0, doubled.substr(3));
            EXPECT_EQ(show(s), show(this->replaced(inserted, pos, 1, inserted.substr(4))));
        }
        S s(text.data(), text.size());
        s.reserve(state == kWithRoom ? 30 : 6);
        const S other = state == kShared ? s : S();
        s.prepend(s);
        EXPECT_EQ(show(s), "abcdefabcdef");
        s.replace(2, s[1]);
        EXPECT_EQ(show(s), "abbdefabcdef");
    }
}

TYPED_TEST(StringReplace, PartOfAStringThatSharedTheBlock) {
    using S = sup::String<TypeParam>;
    S a(TEXT("abcdef"));
    S b(a);
    a.replace(0, 2, b);
    EXPECT_EQ(show(a), "abcdefcdef");
    b.replace(1, 1, a.begin() + 6, a.end());
    EXPECT_EQ(show(b), "acdefcdef");
}

// ---- Capacity ---------------------------------------------------------------------------------------------

template <class T>
class StringCapacity : public StringEditTest<T> {};
TYPED_TEST_SUITE(StringCapacity, CharacterTypes, CharacterTypeNames);

TYPED_TEST(StringCapacity, ReserveOfAUniqueStringWithRoomDoesNothing) {
    using S = sup::String<TypeParam>;
    S s(TEXT("hello"));
    const TypeParam* const before = s.c_str();
    AllocationLog log;
    s.reserve(0);
    s.reserve(5);
    s.reserve(s.capacity());
    EXPECT_EQ(s.c_str(), before);
    EXPECT_TRUE(askedForNothing(log));
}

TYPED_TEST(StringCapacity, ReserveMovesTheTextToABlockOfThatCapacity) {
    using S = sup::String<TypeParam>;
    S s(FULL_TEXT("he\0lo").data(), 5);
    const std::size_t n = s.capacity() + 1;
    AllocationLog log;
    s.reserve(n);
    EXPECT_EQ(show(s), "he<0>lo");
    EXPECT_EQ(s.capacity(), blockCapacity<TypeParam>(n));
    EXPECT_TRUE(askedForOneBlock<TypeParam>(log, n)); // no doubling
    EXPECT_EQ(log.releases().size(), 1U);
}

TYPED_TEST(StringCapacity, ReserveMakesASharedStringPrivate) {
    using S = sup::String<TypeParam>;
    for (const std::size_t n : {0U, 1U, 5U, 6U, 60U}) {
        S s(TEXT("hello"));
        const S other(s);
        AllocationLog log;
        s.reserve(n);
        EXPECT_TRUE(s.isUnique());
        EXPECT_TRUE(other.isUnique());
        EXPECT_EQ(show(s), "hello");
        EXPECT_TRUE(askedForOneBlock<TypeParam>(log, std::max<std::size_t>(5, n)));
    }
}

TYPED_TEST(StringCapacity, ReserveOfANullString) {
    using S = sup::String<TypeParam>;
    S s;
    AllocationLog log;
    s.reserve(0);
    EXPECT_EQ(s.diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_TRUE(askedForNothing(log));
    s.reserve(9);
    EXPECT_EQ(show(s), "");
    EXPECT_TRUE(s.isUnique());
    EXPECT_EQ(s.capacity(), blockCapacity<TypeParam>(9));
    EXPECT_TRUE(askedForOneBlock<TypeParam>(log, 9));
    log.clear();
    s.append(TEXT("abcdefghi"));
    EXPECT_TRUE(askedForNothing(log));
}

TYPED_TEST(StringCapacity, ResizeCutsInPlaceOrAPrivateCopy) {
    using S = sup::String<TypeParam>;
    for (std::size_t n = 0; n <= 5; ++n) {
        S unique(TEXT("hello"));
        S shared(TEXT("hello"));
        const S other(shared);
        AllocationLog log;
        unique.resize(n, CHARACTER('x'));
        EXPECT_EQ(show(unique), std::string("hello").substr(0, n));
        EXPECT_TRUE(askedForNothing(log));
        shared.resize(n, CHARACTER('x'));
        EXPECT_EQ(show(shared), std::string("hello").substr(0, n));
        EXPECT_EQ(show(other), "hello");
        EXPECT_EQ(stringBlocks(log), n < 5 ? 1U : 0U);
    }
}

TYPED_TEST(StringCapacity, ResizeFillsUpAndGrowsToExactlyTheNeededLength) {
    using S = sup::String<TypeParam>;
    S s = this->fullString(20);
    const std::size_t length = s.length();
    AllocationLog log;
    s.resize(length + 1, CHARACTER('X'));
    EXPECT_EQ(show(s), show(alphabet<TypeParam>(length)) + "X");
    EXPECT_TRUE(askedForOneBlock<TypeParam>(log, length + 1));
    const S other(s);
    log.clear();
    s.resize(length + 3, CHARACTER('Y'));
    EXPECT_EQ(show(s), show(alphabet<TypeParam>(length)) + "XYY");
    EXPECT_TRUE(askedForOneBlock<TypeParam>(log, length + 3));
    EXPECT_EQ(other.length(), length + 1);
    s.reserve(length + 30);
    log.clear();
    s.resize(length + 20);
    EXPECT_EQ(copyOf(s).substr(length + 3), std::basic_string<TypeParam>(17, TypeParam()));
    EXPECT_TRUE(askedForNothing(log));
}

TYPED_TEST(StringCapacity, ResizeOfANullString) {
    using S = sup::String<TypeParam>;
    S s;
    AllocationLog log;
    s.resize(0, CHARACTER('x'));
    EXPECT_EQ(s.diagnosticGetSharedRepresentation(), nullptr);
    s.resize(4, CHARACTER('x'));
    EXPECT_EQ(show(s), "xxxx");
    EXPECT_TRUE(askedForOneBlock<TypeParam>(log, 4));
}

TYPED_TEST(StringCapacity, MinimizeMovesTheTextToABlockOfItsLength) {
    using S = sup::String<TypeParam>;
    S s(TEXT("hello"));
    s.reserve(100);
    AllocationLog log;
    s.minimize();
    EXPECT_EQ(show(s), "hello");
    EXPECT_EQ(s.capacity(), blockCapacity<TypeParam>(5));
    EXPECT_TRUE(askedForOneBlock<TypeParam>(log, 5));
    EXPECT_EQ(log.releases().size(), 1U);
}

TYPED_TEST(StringCapacity, MinimizeLeavesFullSharedAndNullStringsAlone) {
    using S = sup::String<TypeParam>;
    S full = this->fullString(20);
    S shared(TEXT("hello"));
    shared.reserve(100);
    const S other(shared);
    S null;
    AllocationLog log;
    full.minimize();
    shared.minimize();
    null.minimize();
    EXPECT_EQ(shared.diagnosticGetSharedRepresentation(), other.diagnosticGetSharedRepresentation());
    EXPECT_EQ(null.diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_TRUE(askedForNothing(log));
}

TYPED_TEST(StringCapacity, MinimizeOfAClearedStringLeavesTheSmallestBlock) {
    using S = sup::String<TypeParam>;
    S s = this->fullString(40);
    s.clear();
    AllocationLog log;
    s.minimize();
    EXPECT_EQ(show(s), "");
    ASSERT_EQ(log.requests().size(), 1U);
    EXPECT_EQ(log.requests()[0].size, 32U);
}

TYPED_TEST(StringCapacity, RoundUpCapacityIsAlwaysZero) {
    using S = sup::String<TypeParam>;
    for (const std::size_t n : {std::size_t{0}, std::size_t{1}, std::size_t{100}, S::npos}) {
        EXPECT_EQ(S::roundUpCapacity(n), 0U);
        EXPECT_EQ(S(TEXT("abc")).roundUpCapacity(n), 0U);
    }
}

} // namespace
