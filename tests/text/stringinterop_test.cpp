// The string types beside those of the standard library: views both ways, hashes, output to streams.
#include "Utility/Generic/Portable/SUPStringInterop.h"

#include "bytestring_test_support.h"

#include "Utility/Generic/Portable/StringBuffer.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace {

using namespace brimtest;

template <class T>
class StringInterop : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(StringInterop, CharacterTypes, CharacterTypeNames);

// ---- Views ------------------------------------------------------------------------------------------------

TYPED_TEST(StringInterop, ViewOfAStringIsItsCharactersInPlace) {
    const auto text = FULL_TEXT("ab\0cd");
    const sup::String<TypeParam> s(text.data(), text.size());
    AllocationLog log;
    const std::basic_string_view<TypeParam> view = sup::toStringView(s);
    EXPECT_EQ(view.data(), s.begin());
    EXPECT_EQ(view.size(), 5U);
    EXPECT_TRUE(view == text);
    EXPECT_TRUE(s.isUnique());
    EXPECT_TRUE(log.empty());
}

TYPED_TEST(StringInterop, ViewOfAReferenceIsItsCharactersInPlace) {
    const auto text = FULL_TEXT("ab\0cd");
    const RefStringTemplate<TypeParam> ref(text.data() + 1, 3);
    const std::basic_string_view<TypeParam> view = sup::toStringView(ref);
    EXPECT_EQ(view.data(), text.data() + 1);
    EXPECT_EQ(view.size(), 3U);
}

TYPED_TEST(StringInterop, ViewOfABufferIsItsCharactersInPlace) {
    sup::StringBufferTemplate<8, TypeParam> buffer;
    EXPECT_TRUE(sup::toStringView(buffer).empty());
    buffer.append(TEXT("ab\0cd"), 5);
    EXPECT_EQ(sup::toStringView(buffer).data(), buffer.begin());
    EXPECT_TRUE(sup::toStringView(buffer) == FULL_TEXT("ab\0cd"));
    buffer.append(100, CHARACTER('x')); // on the heap by now
    EXPECT_EQ(sup::toStringView(buffer).data(), buffer.begin());
    EXPECT_EQ(sup::toStringView(buffer).size(), 105U);
}

TYPED_TEST(StringInterop, ViewsOfNothingAreEmpty) {
    EXPECT_TRUE(sup::toStringView(sup::String<TypeParam>()).empty());
    EXPECT_TRUE(sup::toStringView(RefStringTemplate<TypeParam>()).empty());
    sup::String<TypeParam> cleared(TEXT("abc"));
    cleared.clear();
    EXPECT_TRUE(sup::toStringView(cleared).empty());
}

TYPED_TEST(StringInterop, ReferenceToAViewIsItsCharactersInPlace) {
    const auto text = FULL_TEXT("ab\0cd");
    const std::basic_string_view<TypeParam> view(text.data(), text.size());
    AllocationLog log;
    const RefStringTemplate<TypeParam> ref = sup::toRefString(view.substr(1, 3));
    EXPECT_EQ(ref.begin(), text.data() + 1);
    EXPECT_EQ(ref.end(), text.data() + 4);
    EXPECT_TRUE(sup::toRefString(std::basic_string_view<TypeParam>()).empty());
    EXPECT_TRUE(log.empty());
}

TYPED_TEST(StringInterop, StringOfAViewIsACopy) {
    const auto text = FULL_TEXT("ab\0cd");
    const std::basic_string_view<TypeParam> view(text.data(), text.size());
    const sup::String<TypeParam> s = sup::toString(view.substr(1));
    EXPECT_EQ(show(s), "b<0>cd");
    EXPECT_NE(s.begin(), view.data() + 1);
    EXPECT_EQ(sup::toString(view.substr(5)).diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_EQ(sup::toString(std::basic_string_view<TypeParam>()).diagnosticGetSharedRepresentation(),
              nullptr);
}

TYPED_TEST(StringInterop, ThereAndBackAgain) {
    for (std::size_t n = 0; n < 70; ++n) {
        const auto s = alphabetString<TypeParam>(n);
        EXPECT_TRUE(sup::toString(sup::toStringView(s)) == s) << n;
        const auto ref = sup::toRefString(sup::toStringView(s));
        EXPECT_EQ(ref.begin(), s.begin());
        EXPECT_EQ(ref.length(), n);
    }
}

// ---- Hashes -----------------------------------------------------------------------------------------------

TYPED_TEST(StringInterop, HashOfAStringIsThatOfItsView) {
    using S = sup::String<TypeParam>;
    const std::hash<S> hash;
    const auto text = FULL_TEXT("ab\0cd");
    const S a(text.data(), text.size());
    const S equal(text.data(), text.size());
    const S shorter(text.data(), 2);
    const std::hash<std::basic_string_view<TypeParam>> viewHash;
    EXPECT_EQ(hash(a), viewHash(std::basic_string_view<TypeParam>(text)));
    EXPECT_EQ(hash(a), hash(equal));
    // What follows a zero counts, as it does for equality.
    EXPECT_NE(hash(a), hash(shorter));
    S cleared(TEXT("abc"));
    cleared.clear();
    ASSERT_TRUE(cleared == S());
    EXPECT_EQ(hash(cleared), hash(S()));
}

TYPED_TEST(StringInterop, HashOfAByteStringIsItsOwn) {
    using B = sup::ByteString<TypeParam>;
    const std::hash<B> hash;
    const auto text = FULL_TEXT("ab\0c\xE9");
    EXPECT_EQ(hash(byteString(text)), hashOf(text));
    EXPECT_EQ(hash(inFullWidth(text)), hashOf(text));
    ASSERT_TRUE(B() == emptyWithBlock<TypeParam>());
    EXPECT_EQ(hash(B()), hash(emptyWithBlock<TypeParam>()));
}

template <class S, class Make>
void useAsKeys(Make make) {
    std::unordered_map<S, std::size_t> map;
    std::unordered_set<S> set;
    for (std::size_t n = 0; n < 200; ++n) {
        map[make(n)] = n;
        set.insert(make(n));
        set.insert(make(n));
    }
    EXPECT_EQ(map.size(), 200U);
    EXPECT_EQ(set.size(), 200U);
    for (std::size_t n = 0; n < 200; ++n) {
        const auto found = map.find(make(n));
        ASSERT_TRUE(found != map.end()) << n;
        EXPECT_EQ(found->second, n);
        EXPECT_EQ(set.count(make(n)), 1U);
    }
    EXPECT_TRUE(map.find(make(200)) == map.end());
}

TYPED_TEST(StringInterop, StringsAreKeysOfUnorderedContainers) {
    useAsKeys<sup::String<TypeParam>>([](std::size_t n) { return alphabetString<TypeParam>(n); });
    useAsKeys<sup::ByteString<TypeParam>>([](std::size_t n) { return byteString(alphabet<TypeParam>(n)); });
    // Equal keys in blocks of different widths are one key.
    std::unordered_set<sup::ByteString<TypeParam>> set;
    set.insert(byteString(FULL_TEXT("abc")));
    set.insert(inFullWidth(FULL_TEXT("abc")));
    EXPECT_EQ(set.size(), 1U);
}

// ---- Streams ----------------------------------------------------------------------------------------------

// What a stream makes of the value, and of a view of the same characters.
template <class T, class Value, class Prepare>
void expectSameOutput(const Value& value, const std::basic_string<T>& text, Prepare prepare) {
    std::basic_ostringstream<T> actual;
    std::basic_ostringstream<T> expected;
    prepare(actual);
    prepare(expected);
    EXPECT_EQ(&(actual << value), &actual);
    expected << std::basic_string_view<T>(text);
    EXPECT_EQ(actual.width(), 0);
    actual << static_cast<T>('|');
    expected << static_cast<T>('|');
    EXPECT_EQ(show(actual.str()), show(expected.str()));
}

TYPED_TEST(StringInterop, OutputHonoursWidthFillAndAdjustment) {
    using T = TypeParam;
    using Stream = std::basic_ostream<T>;
    using Prepare = void (*)(Stream&);
    static constexpr Prepare kPreparations[] = {
        [](Stream&) {},
        [](Stream& out) { out << std::setw(3); },
        [](Stream& out) { out << std::setw(9); },
        [](Stream& out) { out << std::setw(9) << std::left; },
        [](Stream& out) { out << std::setw(9) << std::right << std::setfill(static_cast<T>('*')); },
        [](Stream& out) { out << std::setw(9) << std::left << std::setfill(static_cast<T>('*')); },
        [](Stream& out) { out << std::setw(9) << std::internal << std::setfill(static_cast<T>('0')); },
    };
    const std::basic_string<T> texts[] = {FULL_TEXT(""), FULL_TEXT("abc"), FULL_TEXT("ab\0c\xE9"),
                                          FULL_TEXT("longer than all the widths")};
    for (const auto& text : texts) {
        for (const Prepare prepare : kPreparations) {
            expectSameOutput<T>(sup::String<T>(text.data(), text.size()), text, prepare);
            expectSameOutput<T>(byteString(text), text, prepare);
            expectSameOutput<T>(inFullWidth(text), text, prepare);
            expectSameOutput<T>(RefStringTemplate<T>(text.data(), text.size()), text, prepare);
        }
    }
    const Prepare padded = kPreparations[4];
    expectSameOutput<T>(sup::ByteString<T>(), std::basic_string<T>(), padded);
    expectSameOutput<T>(RefStringTemplate<T>(), std::basic_string<T>(), padded);
}

TYPED_TEST(StringInterop, OutputChains) {
    using T = TypeParam;
    std::basic_ostringstream<T> out;
    const sup::String<T> s(TEXT("ab"));
    out << s << sup::ByteString<T>(TEXT("cd")) << RefStringTemplate<T>(TEXT("ef")) << static_cast<T>('.')
        << std::setfill(static_cast<T>('*')) << std::setw(4) << s << s;
    EXPECT_EQ(show(out.str()), "abcdef.**abab");
}

TYPED_TEST(StringInterop, OutputToAFailedStreamWritesNothing) {
    using T = TypeParam;
    std::basic_ostringstream<T> out;
    out.setstate(std::ios_base::failbit);
    out << sup::String<T>(TEXT("ab")) << sup::ByteString<T>(TEXT("cd")) << RefStringTemplate<T>(TEXT("ef"));
    EXPECT_TRUE(out.fail());
    EXPECT_TRUE(out.str().empty());
}

TEST(StringInteropWide, WideCharactersReachAWideStream) {
    std::wostringstream out;
    const wchar_t* const text = L"\x20AC\xE9z";
    out << BrimString(text) << sup::ByteString<wchar_t>(text);
    EXPECT_EQ(out.str(), std::wstring(text) + text);
}

} // namespace
