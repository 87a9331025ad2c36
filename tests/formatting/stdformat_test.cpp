// SUPStringInterop.h: the string types in formats of the standard library.
#include "Utility/Generic/Portable/SUPStringInterop.h"

#include <gtest/gtest.h>

#include <string>

namespace {

#ifdef __cpp_lib_format

#    define SUITE StdFormat
#    define FORMAT std::format
#    include "format_cases.h"

TEST(StdFormat, WrongSpecificationsAreRefused) {
    const sup::String<char> s("x");
    EXPECT_THROW(static_cast<void>(std::vformat("{:d}", std::make_format_args(s))), std::format_error);
}

#else

TEST(StdFormat, NeedsAStandardLibraryThatHasIt) { GTEST_SKIP() << "this standard library has no <format>"; }

#endif

} // namespace
