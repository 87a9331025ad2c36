#include "CodePageNames.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

using sup::codePageOfName;

namespace {

struct NamedPage {
    std::string_view name;
    int codePage;
};

TEST(CodePageOfName, KnowsTheEncodingsOfTheRegistry) {
    constexpr NamedPage kRows[] = {
        {"UTF-8", 65001},       {"utf8", 65001},         {"cp65001", 65001},     {"UTF-16BE", 1200},
        {"UTF-16LE", 1201},     {"ISO-8859-1", 28591},   {"iso8859-1", 28591},   {"ISO_8859_1", 28591},
        {"latin1", 28591},      {"L1", 28591},           {"ISO-8859-2", 28592},  {"latin2", 28592},
        {"l2", 28592},          {"ISO-8859-3", 28593},   {"latin-3", 28593},     {"l3", 28593},
        {"ISO-8859-6", 28596},  {"Arabic", 28596},       {"ISO-8859-7", 28597},  {"greek", 28597},
        {"ISO-8859-8", 38598},  {"ISO-8859-8-I", 38598}, {"hebrew", 38598},      {"ISO-8859-15", 285915},
        {"ISO8859-15", 285915}, {"latin-9", 285915},     {"windows-1252", 1252}, {"CP1252", 1252},
    };
    for (const NamedPage& row : kRows) {
        EXPECT_EQ(codePageOfName(row.name), row.codePage) << row.name;
    }
}

TEST(CodePageOfName, TakesPlainAsciiForTheDefaultPage) {
    for (const std::string_view name : {"ANSI_X3.4-1968", "US-ASCII", "ascii"}) {
        EXPECT_EQ(codePageOfName(name), 1252) << name;
    }
}

TEST(CodePageOfName, IgnoresCaseAndPunctuation) {
    for (const std::string_view name :
         {"UTF8", "uTf8", "UTF-8", "utf_8", " utf 8 ", "(u.t,f)=8", "--UTF--8--"}) {
        EXPECT_EQ(codePageOfName(name), 65001) << name;
    }
    EXPECT_EQ(codePageOfName("ISO.8859-15"), 285915);
    EXPECT_EQ(codePageOfName(std::string(1000, '-') + "utf8" + std::string(1000, '_')), 65001);
}

TEST(CodePageOfName, GivesMinusOneForWhatItDoesNotKnow) {
    for (const std::string_view name :
         {"",       "-",      "utf",      "utf-81",     "xutf-8",     "utf-16",      "utf-32",
          "1252",   "65001",  "iso-8859", "iso-8859-4", "iso-8859-5", "iso-8859-16", "iso-8859-150",
          "koi8-r", "cp1251", "ansi",     "latin",      "latin4",     "eucJP",       "windows-12522"}) {
        EXPECT_EQ(codePageOfName(name), -1) << name;
    }
}

TEST(CodePageOfName, GivesMinusOneForLongNames) {
    for (std::size_t length = 14; length < 40; ++length) {
        EXPECT_EQ(codePageOfName(std::string(length, 'a')), -1) << length;
        EXPECT_EQ(codePageOfName("utf8" + std::string(length, '8')), -1) << length;
    }
    EXPECT_EQ(codePageOfName(std::string(100000, 'u')), -1);
}

TEST(CodePageOfName, ReadsNoFurtherThanTheView) {
    EXPECT_EQ(codePageOfName(std::string_view("utf-8x", 5)), 65001);
    EXPECT_EQ(codePageOfName(std::string_view("latin12", 6)), 28591);
    EXPECT_EQ(codePageOfName(std::string_view()), -1);
}

} // namespace
