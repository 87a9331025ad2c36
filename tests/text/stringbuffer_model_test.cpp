// String buffers under random operations.
#include "Utility/Generic/Portable/StringBuffer.h"

#include "stringbuffer_session.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <random>
#include <string>

namespace {

using namespace brimtest;

template <std::size_t N, class T>
void exercise() {
    for (unsigned int seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE(::testing::Message() << "seed " << seed << ", inline size " << N);
        RandomTexts choices(seed);
        StringBufferSession<N, T, RandomTexts> session(choices);
        for (int step = 0; step < 500 && !::testing::Test::HasFatalFailure(); ++step) {
            SCOPED_TRACE(step);
            session.step();
        }
    }
}

template <class T>
class StringBufferModelTest : public BalancedTest {};
TYPED_TEST_SUITE(StringBufferModelTest, CharacterTypes, CharacterTypeNames);

TYPED_TEST(StringBufferModelTest, RandomOperationsOnATinyInlineArray) { exercise<1, TypeParam>(); }
TYPED_TEST(StringBufferModelTest, RandomOperationsOnASmallInlineArray) { exercise<16, TypeParam>(); }
TYPED_TEST(StringBufferModelTest, RandomOperationsOnAnInlineArrayOfAHeapBlocksSize) {
    exercise<63, TypeParam>();
}
TYPED_TEST(StringBufferModelTest, RandomOperationsOnAnInlineArrayOf256) { exercise<256, TypeParam>(); }
TYPED_TEST(StringBufferModelTest, RandomOperationsOnALargeInlineArray) { exercise<511, TypeParam>(); }

TYPED_TEST(StringBufferModelTest, RandomAppendsWithRefusedMemoryLeaveTheTextAlone) {
    for (unsigned int seed = 1; seed <= 40; ++seed) {
        std::mt19937 random(seed);
        sup::StringBufferTemplate<16, TypeParam> buffer;
        std::basic_string<TypeParam> expected;
        for (int step = 0; step < 200; ++step) {
            const std::basic_string<TypeParam> more(random() % 40,
                                                    CHARACTER('a' + static_cast<int>(random() % 26)));
            const bool refuse = random() % 2 == 0;
            const bool fits = expected.size() + more.size() <= buffer.capacity();
            const std::size_t capacity = buffer.capacity();
            const AllocationRefusal refusal(refuse ? 1 : 0);
            if (refuse && !fits) {
                ASSERT_THROW(buffer.append(more.data(), more.size()), std::bad_alloc) << "seed " << seed;
                ASSERT_EQ(buffer.capacity(), capacity) << "seed " << seed;
            } else {
                buffer.append(more.data(), more.size());
                expected += more;
            }
            ASSERT_EQ(textOf<TypeParam>(buffer), expected) << "seed " << seed;
        }
    }
}

} // namespace
