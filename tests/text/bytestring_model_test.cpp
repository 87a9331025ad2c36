// Random edits of byte strings that share.
#include "Utility/Generic/Portable/SUPBString.h"

#include "bytestring_session.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

namespace {

using namespace brimtest;

template <class T>
class ByteStringModelTest : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(ByteStringModelTest, CharacterTypes, CharacterTypeNames);

TYPED_TEST(ByteStringModelTest, RandomEditsOfStringsThatShare) {
    for (unsigned int seed = 2210; seed < 2230; ++seed) {
        SCOPED_TRACE(seed);
        RandomTexts choices(seed);
        ByteStringSession<TypeParam, RandomTexts> session(choices);
        for (int i = 0; i < 1500; ++i) {
            SCOPED_TRACE(i);
            session.step();
            session.check();
            if (this->HasFatalFailure()) {
                return;
            }
        }
    }
}

} // namespace
