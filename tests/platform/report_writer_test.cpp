#include "report_writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace {

using fenmem::ReportWriter;
using testing::ElementsAre;

using Pieces = std::vector<std::string>;

void collect(void* context, const char* text, std::size_t length) {
    EXPECT_EQ(std::strlen(text), length);
    static_cast<Pieces*>(context)->emplace_back(text, length);
}

std::string join(const Pieces& pieces) {
    std::string all;
    for (const std::string& piece : pieces) {
        all += piece;
    }
    return all;
}

TEST(ReportWriter, HandsOverOnePieceALine) {
    Pieces pieces;
    {
        ReportWriter writer(&pieces, &collect);
        writer << "one " << 1 << "\ntwo\nthr";
        EXPECT_THAT(pieces, ElementsAre("one 1\n", "two\n"));
        writer << "ee";
    }
    EXPECT_THAT(pieces, ElementsAre("one 1\n", "two\n", "three"));
}

TEST(ReportWriter, WritesExtremeNumbers) {
    Pieces pieces;
    {
        ReportWriter writer(&pieces, &collect);
        writer << std::numeric_limits<long long>::min() << " " << std::numeric_limits<long long>::max();
    }
    EXPECT_THAT(pieces, ElementsAre("-9223372036854775808 9223372036854775807"));
}

TEST(ReportWriter, EmptyTextGivesNoPiece) {
    Pieces pieces;
    { ReportWriter(&pieces, &collect) << ""; }
    EXPECT_TRUE(pieces.empty());
}

TEST(ReportWriter, DoublesPercentSignsAndNeverSplitsThem) {
    for (std::size_t before = 0; before < 600; ++before) {
        Pieces pieces;
        { ReportWriter(&pieces, &collect) << std::string(before, 'x') + "%s%%n"; }
        EXPECT_EQ(join(pieces), std::string(before, 'x') + "%%s%%%%n");
        for (const std::string& piece : pieces) {
            std::size_t run = 0;
            for (const char c : piece) {
                if (c == '%') {
                    ++run;
                } else {
                    EXPECT_EQ(run % 2, 0U) << piece;
                    run = 0;
                }
            }
            EXPECT_EQ(run % 2, 0U) << piece;
        }
    }
}

} // namespace
