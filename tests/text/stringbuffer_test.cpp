#include "Utility/Generic/Portable/StringBuffer.h"

#include "child_process.h"
#include "stringbuffer_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <functional>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using namespace brimtest;
using brimtest::ChildResult;
using brimtest::runInChild;

template <class T>
class StringBuffer : public BalancedTest {};
TYPED_TEST_SUITE(StringBuffer, CharacterTypes, CharacterTypeNames);

template <class T>
void fill(BufferBase<T>& buffer, std::size_t n) {
    const std::basic_string<T> text = alphabet<T>(n);
    buffer.clear();
    buffer.append(text.data(), text.size());
}

// The four fields of the base.
template <class T>
struct Fields {
    T* pStatic;
    T* pBuffer;
    T* pPos;
    std::size_t nCapacity;
};
template <class T>
Fields<T> fieldsOf(const BufferBase<T>& buffer) {
    Fields<T> fields;
    static_assert(sizeof(fields) == sizeof(buffer), "the base has these fields only");
    std::memcpy(&fields, static_cast<const void*>(&buffer), sizeof(fields));
    return fields;
}

// Everything about a buffer that a failed operation must leave alone.
template <class T>
struct Snapshot {
    explicit Snapshot(const BufferBase<T>& buffer)
        : begin(buffer.begin()), capacity(buffer.capacity()), text(textOf(buffer)) {}
    bool operator==(const Snapshot& other) const {
        return begin == other.begin && capacity == other.capacity && text == other.text;
    }

    const T* begin;
    std::size_t capacity;
    std::basic_string<T> text;
};
template <class T>
std::ostream& operator<<(std::ostream& stream, const Snapshot<T>& snapshot) {
    return stream << show(snapshot.text) << " in " << snapshot.capacity;
}

// Every way to add `n` characters, or to make room for them.
template <class T>
struct Growing {
    const char* name;
    bool adds; // otherwise it makes room only
    std::function<void(BufferBase<T>&, std::size_t)> run;
};
template <class T>
std::vector<Growing<T>> growingOperations() {
    return {
        {"append(text)", true,
         [](BufferBase<T>& b, std::size_t n) { b.append(std::basic_string<T>(n, T('x')).c_str()); }},
        {"append(writable text)", true,
         [](BufferBase<T>& b, std::size_t n) { b.append(std::basic_string<T>(n, T('x')).data()); }},
        {"append(text, count)", true,
         [](BufferBase<T>& b, std::size_t n) { b.append(std::basic_string<T>(n, T('x')).data(), n); }},
        {"append(n, c)", true, [](BufferBase<T>& b, std::size_t n) { b.append(n, T('x')); }},
        {"append(ref)", true,
         [](BufferBase<T>& b, std::size_t n) {
             const std::basic_string<T> text(n, T('x'));
             b.append(RefStringTemplate<T>(text.data(), n));
         }},
        {"resize", true, [](BufferBase<T>& b, std::size_t n) { b.resize(b.length() + n, T('x')); }},
        {"reserve", false, [](BufferBase<T>& b, std::size_t n) { b.reserve(b.length() + n); }},
        {"getAppendBuffer", false, [](BufferBase<T>& b, std::size_t n) { b.getAppendBuffer(n); }},
    };
}

// ---- Layout and construction ------------------------------------------------------------------------------

TYPED_TEST(StringBuffer, BaseHasFourFields) {
    using Base = BufferBase<TypeParam>;
    EXPECT_EQ(sizeof(Base), 32U);
    EXPECT_TRUE((std::is_same<typename Base::size_type, std::size_t>::value));
    EXPECT_TRUE((std::is_same<typename Base::char_type, TypeParam>::value));
    EXPECT_TRUE((std::is_same<typename Base::string_type, sup::String<TypeParam>>::value));
    EXPECT_EQ(Base::npos, kNone);
    EXPECT_EQ(sizeof(sup::StringBufferTemplate<511, TypeParam>), 32 + 512 * sizeof(TypeParam));
    EXPECT_EQ(sizeof(sup::StringBufferTemplate<5119, TypeParam>), 32 + 5120 * sizeof(TypeParam));

    sup::StringBufferTemplate<511, TypeParam> buffer;
    auto* const inlineArray = reinterpret_cast<TypeParam*>(reinterpret_cast<unsigned char*>(&buffer) + 32);
    Fields<TypeParam> fields = fieldsOf<TypeParam>(buffer);
    EXPECT_EQ(fields.pStatic, inlineArray);
    EXPECT_EQ(fields.pBuffer, inlineArray);
    EXPECT_EQ(fields.pPos, inlineArray);
    EXPECT_EQ(fields.nCapacity, 511U);

    buffer.append(600, CHARACTER('x'));
    fields = fieldsOf<TypeParam>(buffer);
    EXPECT_EQ(fields.pStatic, inlineArray);
    EXPECT_EQ(fields.pBuffer, buffer.begin());
    EXPECT_NE(fields.pBuffer, inlineArray);
    EXPECT_EQ(fields.pPos, buffer.begin() + 600);
    EXPECT_EQ(fields.nCapacity, 1023U);
}

TYPED_TEST(StringBuffer, StartsEmptyAndInline) {
    AllocationLog log;
    const sup::StringBufferTemplate<256, TypeParam> buffer;
    EXPECT_TRUE(buffer.empty());
    EXPECT_EQ(buffer.length(), 0U);
    EXPECT_EQ(buffer.capacity(), 256U);
    EXPECT_EQ(buffer.begin(), buffer.end());
    EXPECT_TRUE(isInline(buffer));
    EXPECT_EQ(buffer.c_str()[0], CHARACTER(0));
    EXPECT_TRUE(log.empty());
}

template <std::size_t N, class T>
void expectInitialCapacity(std::size_t initial, std::size_t capacity) {
    AllocationLog log;
    {
        const sup::StringBufferTemplate<N, T> buffer(initial);
        EXPECT_EQ(buffer.capacity(), capacity) << initial;
        EXPECT_TRUE(buffer.empty()) << initial;
        EXPECT_EQ(isInline(buffer), capacity == N) << initial;
    }
    if (capacity == N) {
        EXPECT_TRUE(log.empty()) << initial;
    } else {
        EXPECT_TRUE(askedForCapacity<T>(log, capacity)) << initial;
        ASSERT_EQ(log.releases().size(), 1U) << initial;
        EXPECT_EQ(log.releases()[0].size, (capacity + 1) * sizeof(T)) << initial;
    }
}

TYPED_TEST(StringBuffer, InitialCapacityBeyondTheInlineArrayIsOnTheHeap) {
    for (const std::size_t initial : {0U, 1U, 510U, 511U}) {
        expectInitialCapacity<511, TypeParam>(initial, 511);
    }
    expectInitialCapacity<511, TypeParam>(512, 1023);
    expectInitialCapacity<511, TypeParam>(1023, 1023);
    expectInitialCapacity<511, TypeParam>(1024, 2047);
    expectInitialCapacity<5119, TypeParam>(5119, 5119);
    expectInitialCapacity<5119, TypeParam>(5120, 8191);
    expectInitialCapacity<16, TypeParam>(16, 16);
    expectInitialCapacity<16, TypeParam>(17, 63);
    expectInitialCapacity<16, TypeParam>(63, 63);
    expectInitialCapacity<16, TypeParam>(64, 127);
}

TYPED_TEST(StringBuffer, InitialCapacityWithoutMemoryThrows) {
    using Buffer = sup::StringBufferTemplate<16, TypeParam>;
    {
        const AllocationRefusal refusal(1);
        EXPECT_THROW(Buffer(17), std::bad_alloc);
        EXPECT_TRUE(refusal.happened());
    }
    AllocationLog log;
    EXPECT_THROW(Buffer{kNone}, std::bad_alloc);
    EXPECT_TRUE(log.empty());
}

// ---- Growth -----------------------------------------------------------------------------------------------

TYPED_TEST(StringBuffer, FullInlineArrayHasNotAllocatedAndOneMoreCharacterMovesToTheHeap) {
    sup::StringBufferTemplate<256, TypeParam> buffer;
    AllocationLog log;
    for (std::size_t i = 0; i < 256; ++i) {
        buffer.append(1, static_cast<TypeParam>('a' + static_cast<int>(i % 26)));
    }
    EXPECT_EQ(buffer.c_str()[256], CHARACTER(0));
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(buffer.capacity(), 256U);
    EXPECT_TRUE(isInline(buffer));
    buffer.append(1, CHARACTER('!'));
    EXPECT_TRUE(askedForCapacity<TypeParam>(log, 511));
    EXPECT_TRUE(log.releases().empty()) << "the inline array is not freed";
    EXPECT_EQ(buffer.capacity(), 511U);
    EXPECT_FALSE(isInline(buffer));
    EXPECT_EQ(textOf<TypeParam>(buffer), alphabet<TypeParam>(256) + CHARACTER('!'));
}

TYPED_TEST(StringBuffer, SmallestHeapBlockHolds63Characters) {
    sup::StringBufferTemplate<16, TypeParam> buffer;
    AllocationLog log;
    buffer.append(17, CHARACTER('x'));
    ASSERT_EQ(log.requests().size(), 1U);
    EXPECT_EQ(log.requests()[0].size, sizeof(TypeParam) == 4 ? 256U : 64U);
}

TYPED_TEST(StringBuffer, EveryOperationGrowsToThePowerOfTwoLessOneThatHoldsTheText) {
    for (const Growing<TypeParam>& operation : growingOperations<TypeParam>()) {
        for (const std::size_t needed :
             {16U, 17U, 62U, 63U, 64U, 127U, 128U, 255U, 256U, 511U, 512U, 1023U, 1024U, 5000U}) {
            for (const std::size_t before : {0U, 5U, 16U}) {
                sup::StringBufferTemplate<16, TypeParam> buffer;
                fill<TypeParam>(buffer, before);
                AllocationLog log;
                operation.run(buffer, needed - before);
                const std::size_t capacity = needed <= 16 ? 16 : grownCapacity(needed);
                ASSERT_EQ(buffer.capacity(), capacity) << operation.name << needed;
                if (needed <= 16) {
                    ASSERT_TRUE(log.empty()) << operation.name << needed;
                } else {
                    ASSERT_TRUE(askedForCapacity<TypeParam>(log, capacity)) << operation.name << needed;
                }
                ASSERT_EQ(
                    textOf<TypeParam>(buffer),
                    alphabet<TypeParam>(before) +
                        std::basic_string<TypeParam>(operation.adds ? needed - before : 0, CHARACTER('x')))
                    << operation.name << needed;
                *buffer.getAppendBuffer(0) = CHARACTER('z'); // the place of the zero is there
            }
        }
    }
}

TYPED_TEST(StringBuffer, OldHeapBlockIsFreedWithItsSize) {
    AllocationLog log;
    {
        sup::StringBufferTemplate<16, TypeParam> buffer;
        for (std::size_t n = 0; n < 1000; ++n) {
            buffer.append(1, CHARACTER('x'));
        }
        EXPECT_EQ(buffer.capacity(), 1023U);
    }
    const auto requests = log.requests();
    const auto releases = log.releases();
    ASSERT_EQ(requests.size(), 5U); // 63, 127, 255, 511, 1023
    ASSERT_EQ(releases.size(), 5U);
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(requests[i].size, (std::size_t{64} << i) * sizeof(TypeParam));
        EXPECT_EQ(releases[i].block, requests[i].block);
        EXPECT_EQ(releases[i].size, requests[i].size);
    }
}

TYPED_TEST(StringBuffer, SizesThatNoBlockCanHaveAreNotRequested) {
    for (const std::size_t before : {0U, 5U}) {
        sup::StringBufferTemplate<16, TypeParam> buffer;
        fill<TypeParam>(buffer, before);
        const Snapshot<TypeParam> snapshot(buffer);
        AllocationLog log;
        for (const std::size_t n :
             {kNone, kNone - 1, kNone - 5, kNone / sizeof(TypeParam), kNone / sizeof(TypeParam) / 2 + 1}) {
            EXPECT_THROW(buffer.append(n, CHARACTER('x')), std::bad_alloc) << n;
            EXPECT_THROW(buffer.append(TEXT("x"), n), std::bad_alloc) << n;
            EXPECT_THROW(buffer.getAppendBuffer(n), std::bad_alloc) << n;
            EXPECT_THROW(buffer.reserve(n), std::bad_alloc) << n;
            EXPECT_THROW(buffer.resize(n, CHARACTER('x')), std::bad_alloc) << n;
            EXPECT_THROW(buffer.appendFormatted(n, TEXT("%c"), 'x'), std::bad_alloc) << n;
        }
        EXPECT_TRUE(log.empty());
        EXPECT_EQ(Snapshot<TypeParam>(buffer), snapshot);
    }
}

TYPED_TEST(StringBuffer, RefusedMemoryLeavesTheBufferAsItWas) {
    struct Operation {
        const char* name;
        std::function<void(BufferBase<TypeParam>&)> run;
    };
    std::vector<Operation> operations;
    for (const Growing<TypeParam>& growing : growingOperations<TypeParam>()) {
        operations.push_back({growing.name, [growing](BufferBase<TypeParam>& b) { growing.run(b, 300); }});
    }
    const sup::String<TypeParam> s(300, CHARACTER('s'));
    sup::StringBufferTemplate<16, TypeParam> other;
    other.append(300, CHARACTER('o'));
    operations.push_back({"append(s)", [&](BufferBase<TypeParam>& b) { b.append(s); }});
    operations.push_back({"append(s, n)", [&](BufferBase<TypeParam>& b) { b.append(s, 250); }});
    operations.push_back({"append(buffer)", [&](BufferBase<TypeParam>& b) { b.append(other); }});
    operations.push_back({"append(itself)", [](BufferBase<TypeParam>& b) {
                              b.resize(b.capacity());
                              b.append(b);
                          }});
    operations.push_back({"decimal", [](BufferBase<TypeParam>& b) {
                              for (;;) {
                                  b.appendNumberAsDecimal(123456789);
                              }
                          }});
    operations.push_back(
        {"formatted", [](BufferBase<TypeParam>& b) { b.appendFormatted(300, TEXT("%d"), 5); }});
    for (const std::size_t before : {std::size_t{0}, std::size_t{16}, std::size_t{60}}) {
        for (const Operation& operation : operations) {
            sup::StringBufferTemplate<16, TypeParam> buffer;
            fill<TypeParam>(buffer, before);
            if (std::strcmp(operation.name, "append(itself)") == 0) {
                buffer.resize(buffer.capacity(), CHARACTER('i'));
            }
            if (std::strcmp(operation.name, "decimal") == 0 && buffer.capacity() > 31) {
                buffer.resize(buffer.capacity() - 31, CHARACTER('i'));
            }
            const Snapshot<TypeParam> snapshot(buffer);
            AllocationLog log;
            const AllocationRefusal refusal(1);
            EXPECT_THROW(operation.run(buffer), std::bad_alloc) << operation.name;
            EXPECT_TRUE(refusal.happened()) << operation.name;
            EXPECT_EQ(Snapshot<TypeParam>(buffer), snapshot) << operation.name;
            EXPECT_TRUE(log.releases().empty()) << operation.name;
        }
    }
}

// ---- Access -----------------------------------------------------------------------------------------------

TYPED_TEST(StringBuffer, OnlyCStrWritesTheZero) {
    sup::StringBufferTemplate<16, TypeParam> buffer;
    buffer.append(TEXT("abcdef"));
    buffer.clear();
    buffer.append(TEXT("xy"));
    EXPECT_EQ(buffer.begin()[2], CHARACTER('c'));
    AllocationLog log;
    const TypeParam* const text = buffer.c_str();
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(text, buffer.begin());
    EXPECT_EQ(text[2], CHARACTER(0));
    EXPECT_EQ(text[3], CHARACTER('d'));
    EXPECT_EQ(buffer.length(), 2U);
}

TYPED_TEST(StringBuffer, CStrOfAFullBufferDoesNotGrow) {
    for (const std::size_t n : {16U, 63U, 127U}) {
        sup::StringBufferTemplate<16, TypeParam> buffer;
        fill<TypeParam>(buffer, n);
        ASSERT_EQ(buffer.capacity(), n);
        AllocationLog log;
        EXPECT_EQ(std::basic_string<TypeParam>(buffer.c_str()), alphabet<TypeParam>(n));
        EXPECT_TRUE(log.empty());
    }
}

TYPED_TEST(StringBuffer, AsStringCopiesTheTextWithItsZeros) {
    sup::StringBufferTemplate<16, TypeParam> buffer;
    EXPECT_EQ(buffer.asString().diagnosticGetSharedRepresentation(), nullptr);
    buffer.append(TEXT("ab\0cd"), 5);
    const sup::String<TypeParam> s = buffer.asString();
    EXPECT_EQ(copyOf(s), FULL_TEXT("ab\0cd"));
    buffer.replace(0, TEXT("z"), 1);
    EXPECT_EQ(copyOf(s), FULL_TEXT("ab\0cd"));
}

// ---- Clearing and sizing ----------------------------------------------------------------------------------

TYPED_TEST(StringBuffer, ClearKeepsTheHeapBlock) {
    sup::StringBufferTemplate<16, TypeParam> buffer;
    fill<TypeParam>(buffer, 100);
    const TypeParam* const block = buffer.begin();
    AllocationLog log;
    buffer.clear();
    EXPECT_TRUE(buffer.empty());
    EXPECT_EQ(buffer.capacity(), 127U);
    buffer.append(127, CHARACTER('x'));
    EXPECT_EQ(buffer.begin(), block);
    EXPECT_EQ(textOf<TypeParam>(buffer), std::basic_string<TypeParam>(127, CHARACTER('x')));
    EXPECT_TRUE(log.empty());
}

TYPED_TEST(StringBuffer, NeverShrinksBackToTheInlineArray) {
    sup::StringBufferTemplate<16, TypeParam> buffer;
    fill<TypeParam>(buffer, 100);
    buffer.resize(1);
    buffer.erase(0, 1);
    buffer.clear();
    buffer.reserve(0);
    EXPECT_FALSE(isInline(buffer));
    EXPECT_EQ(buffer.capacity(), 127U);
}

TYPED_TEST(StringBuffer, ReserveCountsTheWholeText) {
    sup::StringBufferTemplate<16, TypeParam> buffer;
    fill<TypeParam>(buffer, 10);
    AllocationLog log;
    buffer.reserve(0);
    buffer.reserve(10);
    buffer.reserve(16);
    EXPECT_TRUE(log.empty());
    buffer.reserve(63);
    EXPECT_TRUE(askedForCapacity<TypeParam>(log, 63));
    EXPECT_EQ(textOf<TypeParam>(buffer), alphabet<TypeParam>(10));
}

TYPED_TEST(StringBuffer, ResizeCutsOrFills) {
    sup::StringBufferTemplate<16, TypeParam> buffer;
    buffer.append(TEXT("abcdef"));
    buffer.resize(6, CHARACTER('x'));
    EXPECT_EQ(textOf<TypeParam>(buffer), TEXT("abcdef"));
    buffer.resize(3, CHARACTER('x'));
    EXPECT_EQ(textOf<TypeParam>(buffer), TEXT("abc"));
    buffer.resize(5, CHARACTER('x'));
    EXPECT_EQ(textOf<TypeParam>(buffer), TEXT("abcxx"));
    buffer.resize(7);
    EXPECT_EQ(textOf<TypeParam>(buffer), FULL_TEXT("abcxx\0\0"));
    buffer.resize(0);
    EXPECT_TRUE(buffer.empty());
}

// ---- Appending --------------------------------------------------------------------------------------------

TYPED_TEST(StringBuffer, EveryFormOfAppendAddsAtTheEnd) {
    sup::StringBufferTemplate<256, TypeParam> buffer;
    sup::StringBufferTemplate<16, TypeParam> other;
    other.append(TEXT("buffer"));
    const sup::String<TypeParam> s(TEXT("string"));
    TypeParam writable[] = {CHARACTER('w'), CHARACTER('r'), CHARACTER(0), CHARACTER('x')};
    AllocationLog log;
    BufferBase<TypeParam>& result = buffer.append(TEXT("text\0more"))
                                        .append(writable)
                                        .append(TEXT("c\0unt"), 4)
                                        .append(s)
                                        .append(s, 3)
                                        .append(s, 6)
                                        .append(s, 100)
                                        .append(s, kNone)
                                        .append(s, 0)
                                        .append(3, CHARACTER('n'))
                                        .append(0, CHARACTER('n'))
                                        .append(other)
                                        .append(RefStringTemplate<TypeParam>(TEXT("view\0xxx"), 6));
    EXPECT_EQ(&result, &buffer);
    EXPECT_EQ(textOf<TypeParam>(buffer), FULL_TEXT("textwrc\0unstringstrstringstringstringnnnbufferview\0x"));
    EXPECT_TRUE(log.empty());
}

TYPED_TEST(StringBuffer, AppendingNothingDoesNothing) {
    sup::StringBufferTemplate<16, TypeParam> buffer;
    fill<TypeParam>(buffer, 16);
    AllocationLog log;
    buffer.append(TEXT(""))
        .append(static_cast<const TypeParam*>(nullptr), 0)
        .append(sup::String<TypeParam>())
        .append(0, CHARACTER('x'))
        .append(sup::StringBufferTemplate<1, TypeParam>())
        .append(RefStringTemplate<TypeParam>());
    EXPECT_EQ(textOf<TypeParam>(buffer), alphabet<TypeParam>(16));
    EXPECT_TRUE(log.empty());
}

TYPED_TEST(StringBuffer, BufferAppendedToItselfComesOutDoubled) {
    // Inside the inline array, to its edge and over it, on the heap, to its edge and over it.
    for (const std::size_t n : {0U, 1U, 7U, 8U, 9U, 16U, 17U, 31U, 32U, 63U, 64U, 100U, 127U}) {
        sup::StringBufferTemplate<16, TypeParam> buffer;
        fill<TypeParam>(buffer, n);
        EXPECT_EQ(&buffer.append(buffer), &buffer);
        EXPECT_EQ(textOf<TypeParam>(buffer), alphabet<TypeParam>(n) + alphabet<TypeParam>(n)) << n;
    }
}

TYPED_TEST(StringBuffer, RangesInsideTheBufferAreAppended) {
    for (const std::size_t n : {16U, 63U, 127U}) {
        for (const std::size_t first : {std::size_t{0}, std::size_t{5}, n - 1, n}) {
            for (const std::size_t cut : {0U, 1U, 5U}) { // with and without room left
                sup::StringBufferTemplate<16, TypeParam> buffer;
                fill<TypeParam>(buffer, n);
                buffer.resize(n - cut);
                const std::basic_string<TypeParam> before = textOf<TypeParam>(buffer);
                const std::size_t start = std::min(first, before.size());
                const std::size_t count = before.size() - start;
                buffer.append(buffer.begin() + start, count);
                ASSERT_EQ(textOf<TypeParam>(buffer), before + before.substr(start)) << n << ", " << start;
                buffer.append(RefStringTemplate<TypeParam>(buffer.begin() + start, count));
                ASSERT_EQ(textOf<TypeParam>(buffer), before + before.substr(start) + before.substr(start))
                    << n << ", " << start;
                buffer.append(buffer.c_str());
                const std::basic_string<TypeParam> all = before + before.substr(start) + before.substr(start);
                ASSERT_EQ(textOf<TypeParam>(buffer), all + all) << n << ", " << start;
            }
        }
    }
}

TYPED_TEST(StringBuffer, ProtectedAddCharsAppends) {
    class Derived : public sup::StringBufferTemplate<16, TypeParam> {
    public:
        void add(const TypeParam* text, std::size_t count) { this->addChars(text, count); }
    };
    Derived buffer;
    buffer.add(TEXT("ab\0cd"), 4);
    EXPECT_EQ(textOf<TypeParam>(buffer), FULL_TEXT("ab\0c"));
}

// ---- Numbers ----------------------------------------------------------------------------------------------

template <class T, class Number>
void expectDecimal(Number value, const T* format) {
    sup::StringBufferTemplate<256, T> buffer;
    buffer.append(1, T('>'));
    EXPECT_EQ(&buffer.appendNumberAsDecimal(value), &buffer);
    ASSERT_EQ(textOf<T>(buffer), T('>') + formatted(format, value)) << value;
}

TYPED_TEST(StringBuffer, DecimalNumbersComeOutAsTheCLibraryFormatsThem) {
    std::vector<unsigned long> values = {0, 1, 5, 9, 10, 99, 100, INT_MAX, UINT_MAX, LONG_MAX, ULONG_MAX};
    for (const long value : {-1L, -9L, -10L, long{INT_MIN}, LONG_MIN}) {
        values.push_back(static_cast<unsigned long>(value));
    }
    for (unsigned long power = 10; power < ULONG_MAX / 10; power *= 10) {
        values.insert(values.end(), {power - 1, power, power + 1});
    }
    std::mt19937_64 random(2301);
    for (int i = 0; i < 500; ++i) {
        values.push_back(random() >> (random() % 64));
    }
    for (const unsigned long value : values) {
        expectDecimal<TypeParam>(static_cast<unsigned int>(value), TEXT("%u"));
        expectDecimal<TypeParam>(static_cast<int>(value), TEXT("%d"));
        expectDecimal<TypeParam>(static_cast<long>(value), TEXT("%ld"));
        expectDecimal<TypeParam>(value, TEXT("%lu"));
        sup::StringBufferTemplate<256, TypeParam> buffer;
        EXPECT_EQ(&buffer.appendNumberAsHex(static_cast<unsigned int>(value)), &buffer);
        ASSERT_EQ(textOf<TypeParam>(buffer), formatted(TEXT("%x"), static_cast<unsigned int>(value)));
    }
}

TYPED_TEST(StringBuffer, ExtremeNumbersAreWrittenOut) {
    sup::StringBufferTemplate<256, TypeParam> buffer;
    const auto space = [&] { buffer.append(TEXT(" ")); };
    buffer.appendNumberAsDecimal(0);
    space();
    buffer.appendNumberAsDecimal(INT_MIN);
    space();
    buffer.appendNumberAsDecimal(UINT_MAX);
    space();
    buffer.appendNumberAsDecimal(LONG_MIN);
    space();
    buffer.appendNumberAsDecimal(ULONG_MAX);
    space();
    buffer.appendNumberAsHex(0xDEADBEEFU);
    EXPECT_EQ(textOf<TypeParam>(buffer),
              TEXT("0 -2147483648 4294967295 -9223372036854775808 18446744073709551615 deadbeef"));
}

TYPED_TEST(StringBuffer, NumbersMakeTheRoomThatIsGrantedToThem) {
    struct Row {
        const char* name;
        std::size_t granted;
        std::function<void(BufferBase<TypeParam>&)> run;
    };
    const Row rows[] = {
        {"unsigned int", 32, [](BufferBase<TypeParam>& b) { b.appendNumberAsDecimal(5U); }},
        {"int", 32, [](BufferBase<TypeParam>& b) { b.appendNumberAsDecimal(5); }},
        {"long", 64, [](BufferBase<TypeParam>& b) { b.appendNumberAsDecimal(5L); }},
        {"unsigned long", 64, [](BufferBase<TypeParam>& b) { b.appendNumberAsDecimal(5UL); }},
        {"hex", 32, [](BufferBase<TypeParam>& b) { b.appendNumberAsHex(5U); }},
    };
    for (const Row& row : rows) {
        sup::StringBufferTemplate<255, TypeParam> enough;
        fill<TypeParam>(enough, 255 - row.granted);
        AllocationLog log;
        row.run(enough);
        EXPECT_TRUE(log.empty()) << row.name;
        EXPECT_EQ(textOf<TypeParam>(enough), alphabet<TypeParam>(255 - row.granted) + CHARACTER('5'))
            << row.name;
        row.run(enough); // one character short of the room now
        EXPECT_TRUE(askedForCapacity<TypeParam>(log, 511)) << row.name;
        EXPECT_EQ(textOf<TypeParam>(enough), alphabet<TypeParam>(255 - row.granted) + TEXT("55")) << row.name;
    }
}

// ---- Formatting -------------------------------------------------------------------------------------------

template <class T>
BufferBase<T>& callWithList(BufferBase<T>& buffer, std::size_t n, const T* format, ...) {
    va_list args;
    va_start(args, format);
    BufferBase<T>& result = buffer.appendFormatted2(n, format, args);
    va_end(args);
    return result;
}

TYPED_TEST(StringBuffer, FormattedTextIsAppended) {
    sup::StringBufferTemplate<256, TypeParam> buffer;
    buffer.append(TEXT("<"));
    AllocationLog log;
    EXPECT_EQ(&buffer.appendFormatted(64, TEXT("%d-%s-%ls %c"), -5, "narrow", L"wide", 'c'), &buffer);
    EXPECT_EQ(&callWithList<TypeParam>(buffer, 64, TEXT("%5x|%lld"), 255U, LLONG_MIN), &buffer);
    EXPECT_EQ(&buffer.appendFormatted(64, TEXT("%s"), ""), &buffer);
    EXPECT_EQ(textOf<TypeParam>(buffer), TEXT("<-5-narrow-wide c   ff|-9223372036854775808"));
    EXPECT_TRUE(log.empty());
}

TYPED_TEST(StringBuffer, FormattingMakesTheRoomThatIsGranted) {
    sup::StringBufferTemplate<16, TypeParam> buffer;
    AllocationLog log;
    buffer.appendFormatted(16, TEXT("a%c"), 'b');
    EXPECT_TRUE(log.empty());
    buffer.appendFormatted(14, TEXT("%c"), 'c');
    EXPECT_TRUE(log.empty());
    buffer.appendFormatted(14, TEXT("%c"), 'd');
    EXPECT_TRUE(askedForCapacity<TypeParam>(log, 63));
    buffer.appendFormatted(60, TEXT("%c"), 'e');
    EXPECT_EQ(buffer.capacity(), 127U);
    EXPECT_EQ(textOf<TypeParam>(buffer), TEXT("abcde"));
}

TYPED_TEST(StringBuffer, FormattedTextFitsWithItsZero) {
    for (const std::size_t n : {2U, 16U, 17U, 63U, 64U, 65U}) {
        sup::StringBufferTemplate<16, TypeParam> buffer;
        buffer.appendFormatted(n, TEXT("%*d"), static_cast<int>(n - 1), 7);
        EXPECT_EQ(textOf<TypeParam>(buffer),
                  std::basic_string<TypeParam>(n - 2, CHARACTER(' ')) + CHARACTER('7'))
            << n;
    }
}

TEST(StringBufferFormat, WideTextThatDoesNotFitTakesOneCharacterOffTheEnd) {
    for (const std::size_t n : {0U, 1U, 5U, 10U}) { // ten characters need eleven
        sup::StringBufferTemplate<16, wchar_t> buffer;
        buffer.append(L"abc");
        EXPECT_EQ(&buffer.appendFormatted(n, L"%d", 1234567890), &buffer);
        EXPECT_EQ(textOf<wchar_t>(buffer), L"ab") << n;
    }
}

TEST(StringBufferFormat, FailureTakesOneCharacterOffTheEnd) {
    sup::StringBufferTemplate<16, wchar_t> wide;
    wide.append(L"abc");
    wide.appendFormatted(64, L"%s", "\xFF"); // no multibyte character in any locale that tests run in
    EXPECT_EQ(textOf<wchar_t>(wide), L"ab");
    sup::StringBufferTemplate<16, char> narrow;
    narrow.append("abc");
    narrow.appendFormatted(64, "%ls", L"\xD800");
    EXPECT_EQ(textOf<char>(narrow), "ab");
}

TEST(StringBufferFormat, FailureInAnEmptyBufferStaysAtTheStart) {
    sup::StringBufferTemplate<16, wchar_t> wide;
    wide.appendFormatted(3, L"%d", 1234567890);
    EXPECT_EQ(wide.length(), 0U);
    wide.appendFormatted(0, L"x");
    EXPECT_EQ(wide.length(), 0U);
    EXPECT_EQ(wide.begin(), wide.end());
    sup::StringBufferTemplate<16, char> narrow;
    narrow.appendFormatted(64, "%ls", L"\xD800");
    EXPECT_EQ(narrow.length(), 0U);
    // On the heap too.
    fill<wchar_t>(wide, 100);
    wide.clear();
    wide.appendFormatted(3, L"%d", 1234567890);
    EXPECT_EQ(wide.length(), 0U);
}

TEST(StringBufferFormat, NarrowTextThatDoesNotFitCountsInFullAndItsTailIsZeros) {
    for (const std::size_t n : {0U, 1U, 2U, 5U, 9U, 10U}) {
        sup::StringBufferTemplate<256, char> buffer;
        buffer.append(200, '#'); // what the tail must not show
        buffer.clear();
        buffer.append("abc");
        EXPECT_EQ(&buffer.appendFormatted(n, "%d", 1234567890), &buffer);
        std::string expected = std::string("abc") + std::string("1234567890").substr(0, n == 0 ? 0 : n - 1);
        expected.resize(13);
        EXPECT_EQ(textOf<char>(buffer), expected) << n;
    }
}

TEST(StringBufferFormat, NarrowTextThatDoesNotFitGetsItsRoom) {
    AllocationLog log;
    sup::StringBufferTemplate<16, char> buffer;
    buffer.append("abc");
    buffer.appendFormatted(4, "%0300d", 7);
    std::string expected = "abc000";
    expected.resize(303);
    EXPECT_EQ(textOf<char>(buffer), expected);
    EXPECT_TRUE(askedForCapacity<char>(log, 511));
    EXPECT_EQ(buffer.c_str()[303], '\0');
}

TEST(StringBufferFormat, RefusedMemoryLeavesTheTextAsItWas) {
    // The first request makes the granted room, the second that of a text which is longer.
    for (const long n : {1, 2}) {
        sup::StringBufferTemplate<16, char> buffer;
        buffer.append("abc");
        const AllocationRefusal refusal(n);
        EXPECT_THROW(buffer.appendFormatted(20, "%0300d", 7), std::bad_alloc);
        EXPECT_TRUE(refusal.happened());
        EXPECT_EQ(textOf<char>(buffer), "abc") << n;
    }
}

// ---- Overwriting ------------------------------------------------------------------------------------------

TYPED_TEST(StringBuffer, ReplaceOverwritesInPlace) {
    sup::StringBufferTemplate<16, TypeParam> buffer;
    AllocationLog log;
    buffer.append(TEXT("abcd"));
    buffer.replace(2, TEXT("xyz"), 2);
    EXPECT_EQ(textOf<TypeParam>(buffer), TEXT("abxy"));
    buffer.replace(0, TEXT("1234"), 4);
    EXPECT_EQ(textOf<TypeParam>(buffer), TEXT("1234"));
    buffer.replace(1, TEXT("\0z"), 2);
    EXPECT_EQ(textOf<TypeParam>(buffer), FULL_TEXT("1\0z4"));
    buffer.replace(4, TEXT("none"), 0);
    buffer.replace(0, static_cast<const TypeParam*>(nullptr), 0);
    EXPECT_EQ(textOf<TypeParam>(buffer), FULL_TEXT("1\0z4"));
    EXPECT_TRUE(log.empty());
    const sup::String<TypeParam> s(TEXT("ST"));
    buffer.replace(2, s);
    buffer.replace(4, sup::String<TypeParam>());
    EXPECT_EQ(textOf<TypeParam>(buffer), FULL_TEXT("1\0ST"));
}

TYPED_TEST(StringBuffer, ReplaceTakesTextFromInsideTheBuffer) {
    sup::StringBufferTemplate<16, TypeParam> buffer;
    buffer.append(TEXT("abcdefgh"));
    buffer.replace(2, buffer.begin(), 5);
    EXPECT_EQ(textOf<TypeParam>(buffer), TEXT("ababcdeh"));
    buffer.replace(0, buffer.begin() + 3, 5);
    EXPECT_EQ(textOf<TypeParam>(buffer), TEXT("bcdehdeh"));
}

// What a failed assertion prints and how the process ends.
template <class Body>
void expectAssertion(const char* condition, int line, Body body) {
    const ChildResult result = runInChild(body);
    EXPECT_EQ(result.signal(), SIGABRT) << result;
    EXPECT_EQ(result.output, std::string("Internal Assertion: Condition ") + condition + ", file " +
                                 kBufferFile + ", line " + std::to_string(line) + "\n");
}

TYPED_TEST(StringBuffer, ReplaceBeyondTheEndFailsAnAssertion) {
    const struct {
        std::size_t offset;
        std::size_t count;
    } rows[] = {{3, 2},     {0, 5},         {4, 1},         {5, 0},     {kNone, 0}, {kNone, 1},
                {kNone, 2}, {kNone - 2, 4}, {1, kNone - 1}, {0, kNone}, {1, kNone}, {4, kNone - 3}};
    const TypeParam* const text = TEXT("123456");
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.offset << ", " << row.count);
        expectAssertion("nOffset + nLen <= length()", 89, [&] {
            sup::StringBufferTemplate<16, TypeParam> buffer;
            buffer.append(TEXT("abcd"));
            buffer.replace(row.offset, text, row.count);
        });
    }
}

TYPED_TEST(StringBuffer, ReplaceByAStringFailsTheSameAssertion) {
    for (const std::size_t offset : {std::size_t{3}, std::size_t{4}, std::size_t{5}, kNone - 1, kNone}) {
        SCOPED_TRACE(offset);
        expectAssertion("nOffset + nLen <= length()", 89, [&] {
            sup::StringBufferTemplate<16, TypeParam> buffer;
            buffer.append(TEXT("abcd"));
            buffer.replace(offset, sup::String<TypeParam>(TEXT("xy")));
        });
    }
    expectAssertion("nOffset + nLen <= length()", 89, [&] {
        sup::StringBufferTemplate<16, TypeParam> buffer;
        buffer.replace(1, sup::String<TypeParam>());
    });
}

// ---- Erasing ----------------------------------------------------------------------------------------------

TYPED_TEST(StringBuffer, EraseRemovesUpToTheEnd) {
    const std::basic_string<TypeParam> text = alphabet<TypeParam>(20);
    for (const std::size_t inlineOrHeap : {16U, 20U}) {
        for (std::size_t start = 0; start <= inlineOrHeap; ++start) {
            for (const std::size_t n : {std::size_t{0}, std::size_t{1}, std::size_t{3}, inlineOrHeap - start,
                                        inlineOrHeap, std::size_t{100}, kNone - 1, kNone}) {
                sup::StringBufferTemplate<16, TypeParam> buffer;
                buffer.append(text.data(), inlineOrHeap);
                const TypeParam* const begin = buffer.begin();
                AllocationLog log;
                buffer.erase(start, n);
                ASSERT_EQ(textOf<TypeParam>(buffer), text.substr(0, inlineOrHeap).erase(start, n))
                    << start << ", " << n;
                ASSERT_EQ(buffer.begin(), begin);
                ASSERT_TRUE(log.empty());
            }
        }
    }
    sup::StringBufferTemplate<16, TypeParam> buffer;
    buffer.append(TEXT("abcd"));
    buffer.erase(1, 100);
    EXPECT_EQ(textOf<TypeParam>(buffer), TEXT("a"));
}

TYPED_TEST(StringBuffer, EraseFromBeyondTheEndFailsAnAssertionWhateverTheCount) {
    for (const std::size_t start : {std::size_t{5}, std::size_t{17}, kNone - 1, kNone}) {
        for (const std::size_t n : {std::size_t{0}, std::size_t{1}, kNone}) {
            SCOPED_TRACE(::testing::Message() << start << ", " << n);
            expectAssertion("nStart <= length()", 224, [&] {
                sup::StringBufferTemplate<16, TypeParam> buffer;
                buffer.append(TEXT("abcd"));
                buffer.erase(start, n);
            });
        }
    }
}

// ---- Assertions with a handler ----------------------------------------------------------------------------

class Handler : public sup::SUPExceptionSupport {
public:
    explicit Handler(bool throws) : m_throws(throws) { m_pSUPExceptionSupport = this; }
    ~Handler() { m_pSUPExceptionSupport = nullptr; }

private:
    [[noreturn]] static void unexpected() { throw std::logic_error("unexpected"); }
    void throwErrorMessageImpl(const wchar_t*, int, const BrimString&) override { unexpected(); }
    void throwInternalMessageImpl(const wchar_t*, int, InternalMessageID, va_list*) override { unexpected(); }
    void throwAssertErrorImpl(const wchar_t*, int line, const wchar_t*) override {
        if (m_throws) {
            throw std::out_of_range(std::to_string(line));
        }
    }
    void throwLogicErrorImpl(const wchar_t*, int, const BrimString&) override { unexpected(); }

    bool m_throws;
};

TYPED_TEST(StringBuffer, HandlerThatThrowsLeavesTheBufferAsItWas) {
    const ChildResult result = runInChild([] { // the reports go to standard output
        const Handler handler(true);
        sup::StringBufferTemplate<16, TypeParam> buffer;
        buffer.append(TEXT("abcd"));
        int thrown = 0;
        try {
            buffer.replace(3, TEXT("xy"), 2);
        } catch (const std::out_of_range& e) {
            thrown += std::string(e.what()) == "89" ? 1 : 0;
        }
        try {
            buffer.erase(5, 1);
        } catch (const std::out_of_range& e) {
            thrown += std::string(e.what()) == "224" ? 1 : 0;
        }
        ::_exit(thrown == 2 && textOf<TypeParam>(buffer) == TEXT("abcd") ? 7 : 8);
    });
    EXPECT_EQ(result.exitCode(), 7) << result;
}

TYPED_TEST(StringBuffer, HandlerThatReturnsEndsTheProcess) {
    expectAssertion("nOffset + nLen <= length()", 89, [] {
        const Handler handler(false);
        sup::StringBufferTemplate<16, TypeParam>().replace(1, TEXT("x"), 0);
    });
    expectAssertion("nStart <= length()", 224, [] {
        const Handler handler(false);
        sup::StringBufferTemplate<16, TypeParam>().erase(1, 0);
    });
}

// ---- Chunked writing --------------------------------------------------------------------------------------

TYPED_TEST(StringBuffer, ChunksAreWrittenAndThenCommitted) {
    sup::StringBufferTemplate<16, TypeParam> buffer;
    EXPECT_TRUE(buffer.canAcceptChunks());
    EXPECT_EQ(buffer.appendBufferCapacity(), 16U);
    buffer.append(TEXT("abc"));
    EXPECT_EQ(buffer.appendBufferCapacity(), 13U);
    AllocationLog log;
    TypeParam* chunk = buffer.getAppendBuffer(13);
    EXPECT_EQ(chunk, buffer.end());
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(buffer.length(), 3U) << "nothing is committed yet";
    std::fill(chunk, chunk + 13, CHARACTER('x'));
    buffer.commitAppendBuffer(2); // less than was asked for
    EXPECT_EQ(textOf<TypeParam>(buffer), TEXT("abcxx"));
    buffer.commitAppendBuffer(0);
    EXPECT_EQ(buffer.length(), 5U);
    EXPECT_EQ(buffer.appendBufferCapacity(), 11U);

    chunk = buffer.getAppendBuffer(200);
    EXPECT_EQ(buffer.capacity(), 255U);
    EXPECT_EQ(buffer.appendBufferCapacity(), 250U);
    EXPECT_EQ(chunk, buffer.end());
    std::fill(chunk, chunk + 250, CHARACTER('y'));
    buffer.commitAppendBuffer(250); // all that fits
    EXPECT_EQ(textOf<TypeParam>(buffer), TEXT("abcxx") + std::basic_string<TypeParam>(250, CHARACTER('y')));
    EXPECT_EQ(buffer.appendBufferCapacity(), 0U);
    EXPECT_EQ(buffer.c_str()[255], CHARACTER(0));
}

// ---- Copies -----------------------------------------------------------------------------------------------

TYPED_TEST(StringBuffer, CopiesHaveStorageOfTheirOwn) {
    for (const std::size_t n : {0U, 1U, 16U, 17U, 100U}) {
        sup::StringBufferTemplate<16, TypeParam> buffer;
        fill<TypeParam>(buffer, n);
        const std::size_t capacity = n <= 16 ? 16 : grownCapacity(n);
        AllocationLog log;
        sup::StringBufferTemplate<16, TypeParam> copy(buffer);
        EXPECT_EQ(log.requests().size(), n <= 16 ? 0U : 1U);
        const BufferBase<TypeParam>& base = buffer;
        const sup::StringBufferTemplate<64, TypeParam> other(base);
        EXPECT_EQ(textOf<TypeParam>(copy), alphabet<TypeParam>(n));
        EXPECT_EQ(textOf<TypeParam>(other), alphabet<TypeParam>(n));
        EXPECT_EQ(copy.capacity(), capacity);
        EXPECT_EQ(other.capacity(), n <= 64 ? 64U : capacity);
        EXPECT_NE(copy.begin(), buffer.begin());
        buffer.append(TEXT("more"));
        copy.clear();
        EXPECT_EQ(textOf<TypeParam>(buffer), alphabet<TypeParam>(n) + TEXT("more"));
        EXPECT_EQ(textOf<TypeParam>(other), alphabet<TypeParam>(n));
    }
}

TYPED_TEST(StringBuffer, CopyOfShortTextInAHeapBlockIsInline) {
    sup::StringBufferTemplate<16, TypeParam> buffer;
    fill<TypeParam>(buffer, 100);
    buffer.resize(3);
    AllocationLog log;
    const sup::StringBufferTemplate<16, TypeParam> copy(buffer);
    EXPECT_TRUE(log.empty());
    EXPECT_TRUE(isInline(copy));
    EXPECT_EQ(textOf<TypeParam>(copy), TEXT("abc"));
}

TYPED_TEST(StringBuffer, AssignmentCopiesTheTextOfEitherKind) {
    for (const std::size_t from : {0U, 1U, 16U, 17U, 100U, 200U}) {
        for (const std::size_t to : {0U, 5U, 16U, 17U, 100U}) {
            sup::StringBufferTemplate<16, TypeParam> source;
            fill<TypeParam>(source, from);
            const BufferBase<TypeParam>& base = source;
            sup::StringBufferTemplate<16, TypeParam> same;
            sup::StringBufferTemplate<64, TypeParam> other;
            same.append(to, CHARACTER('x'));
            other.append(to, CHARACTER('x'));
            EXPECT_EQ(&(same = source), &same);
            EXPECT_EQ(&(other = base), &other);
            ASSERT_EQ(textOf<TypeParam>(same), alphabet<TypeParam>(from)) << from << ", " << to;
            ASSERT_EQ(textOf<TypeParam>(other), alphabet<TypeParam>(from)) << from << ", " << to;
            ASSERT_NE(same.begin(), source.begin());
            ASSERT_EQ(same.capacity(), std::max<std::size_t>(to <= 16 ? 16 : grownCapacity(to),
                                                             from <= 16 ? 16 : grownCapacity(from)))
                << from << ", " << to;
        }
    }
}

TYPED_TEST(StringBuffer, AssignmentToItselfChangesNothing) {
    for (const std::size_t n : {0U, 10U, 100U}) {
        sup::StringBufferTemplate<16, TypeParam> buffer;
        fill<TypeParam>(buffer, n);
        const Snapshot<TypeParam> snapshot(buffer);
        const auto& same = buffer;
        const BufferBase<TypeParam>& base = buffer;
        buffer = same;
        buffer = base;
        EXPECT_EQ(Snapshot<TypeParam>(buffer), snapshot);
    }
}

TYPED_TEST(StringBuffer, AssignmentOfTheBaseDoesNothing) {
    sup::StringBufferTemplate<16, TypeParam> buffer;
    sup::StringBufferTemplate<16, TypeParam> other;
    buffer.append(TEXT("abc"));
    fill<TypeParam>(other, 100);
    const Snapshot<TypeParam> snapshot(buffer);
    BufferBase<TypeParam>& base = buffer;
    EXPECT_EQ(&(base = other), &base);
    EXPECT_EQ(Snapshot<TypeParam>(buffer), snapshot);
}

TYPED_TEST(StringBuffer, CopiesWithoutMemoryThrow) {
    using Buffer = sup::StringBufferTemplate<16, TypeParam>;
    Buffer source;
    fill<TypeParam>(source, 100);
    {
        const AllocationRefusal refusal(1);
        EXPECT_THROW(Buffer{source}, std::bad_alloc);
        EXPECT_TRUE(refusal.happened());
    }
    for (const std::size_t n : {5U, 40U}) {
        Buffer target;
        fill<TypeParam>(target, n);
        const Snapshot<TypeParam> snapshot(target);
        const AllocationRefusal refusal(1);
        EXPECT_THROW(target = source, std::bad_alloc);
        EXPECT_TRUE(refusal.happened());
        EXPECT_EQ(Snapshot<TypeParam>(target), snapshot);
    }
}

TYPED_TEST(StringBuffer, BaseCannotBeMadeOnItsOwn) {
    using Base = BufferBase<TypeParam>;
    EXPECT_FALSE((std::is_constructible<Base, TypeParam*, std::size_t>::value));
    EXPECT_FALSE(std::is_copy_constructible<Base>::value);
    EXPECT_FALSE(std::is_destructible<Base>::value);
}

} // namespace
