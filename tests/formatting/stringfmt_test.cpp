// SUPStringFmt.h: the string types in formats of {fmt}.
#include "Utility/Generic/Portable/SUPStringFmt.h"

#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

#define SUITE StringFmt
#define FORMAT fmt::format
#include "format_cases.h"

TEST(StringFmt, ElementsOfRangesAreStringsTheyAreNotRangesThemselves) {
    const std::vector<sup::String<char>> list = {"ab", "c"};
    EXPECT_EQ(fmt::format("{}", fmt::join(list, "+")), "ab+c");
    EXPECT_EQ(fmt::format("{}", list), R"(["ab", "c"])");
}

TEST(StringFmt, WrongSpecificationsAreRefused) {
    EXPECT_THROW(static_cast<void>(fmt::format(fmt::runtime("{:d}"), sup::String<char>("x"))),
                 fmt::format_error);
    EXPECT_THROW(static_cast<void>(fmt::format(fmt::runtime("{:x}"), RefStringTemplate<char>("x"))),
                 fmt::format_error);
}

} // namespace
