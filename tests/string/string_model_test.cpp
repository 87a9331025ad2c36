// Long random edits of several strings that share.
#include "Utility/Generic/Portable/SUPString.h"

#include "string_session.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

namespace {

using namespace brimtest;

template <class T>
class StringModelTest : public StringTestOf<T> {};
TYPED_TEST_SUITE(StringModelTest, CharacterTypes, CharacterTypeNames);

TYPED_TEST(StringModelTest, RandomEditsMatchTheModel) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        RandomTexts choices(seed);
        StringSession<TypeParam, RandomTexts> session(choices);
        for (int i = 0; i < 2500; ++i) {
            session.edit();
            if (!this->HasFatalFailure()) {
                session.expectMatch();
            }
            ASSERT_FALSE(this->HasFatalFailure())
                << "seed " << seed << ", step " << i << ": " << session.step();
        }
    }
}

} // namespace
