// BaseStringUtil: formatted strings and language tags; and the size of a formatted text.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "Utility/Generic/Portable/SUPOS.h"
#include "recording_allocator.h"
#include "recording_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cstdarg>
#include <cstddef>
#include <cwchar>
#include <initializer_list>
#include <string>
#include <string_view>

using brimtest::ClientCodePage;
using brimtest::RecordingAllocator;
using brimtest::RecordingManager;
using WideString = sup::String<wchar_t>;

namespace {

constexpr unsigned int kUtf8 = 65001;
constexpr std::size_t kNarrowRoom = 98304;

std::wstring_view viewOf(const WideString& s) { return {s.begin(), s.length()}; }

// Sets LC_CTYPE while it lives.
class CharacterLocale {
public:
    explicit CharacterLocale(const char* name) { EXPECT_NE(std::setlocale(LC_CTYPE, name), nullptr) << name; }
    ~CharacterLocale() { std::setlocale(LC_CTYPE, "C"); }
    CharacterLocale(const CharacterLocale&) = delete;
    CharacterLocale& operator=(const CharacterLocale&) = delete;
};

// ---- Narrow formats --------------------------------------------------------------------------------------

TEST(BrimString_sprintf, FormatsAsPrintf) {
    WideString out(L"before");
    BaseStringUtil::BrimString_sprintf(out, "%s|%5d|%-4x|%.2f|%c|%%|%zu", "text", -42, 0xABU, 1.5, 'c',
                                       std::size_t{7});
    EXPECT_EQ(viewOf(out), L"text|  -42|ab  |1.50|c|%|7");
    BaseStringUtil::BrimString_sprintf(out, "%s", "");
    EXPECT_EQ(viewOf(out), L"");
}

TEST(BrimString_sprintf, ConvertsFromTheClientCodePage) {
    WideString out;
    {
        const ClientCodePage client(kUtf8);
        BaseStringUtil::BrimString_sprintf(out, "%s", "\xE2\x82\xAC");
        EXPECT_EQ(viewOf(out), L"\x20AC");
    }
    const ClientCodePage client(28591);
    BaseStringUtil::BrimString_sprintf(out, "%s", "\xE2\x82\xAC");
    EXPECT_EQ(viewOf(out), L"\xE2\x82\xAC");
}

TEST(BrimString_sprintf, IsEmptyForAnUnknownCodePageWhichIsReported) {
    const RecordingManager manager;
    const ClientCodePage client(4711);
    WideString out(L"before");
    BaseStringUtil::BrimString_sprintf(out, "%d", 1);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(manager.reports(), RecordingManager::unsupported("4711"));
}

TEST(BrimString_sprintf, EndsAtTheFirstZero) {
    WideString out;
    BaseStringUtil::BrimString_sprintf(out, "a%cb", '\0');
    EXPECT_EQ(viewOf(out), L"a");
}

TEST(BrimString_sprintf, KeepsWhatFitsOfALongText) {
    const ClientCodePage client(1252);
    for (const std::size_t length : {std::size_t{511}, std::size_t{513}, std::size_t{600}, kNarrowRoom - 2,
                                     kNarrowRoom - 1, kNarrowRoom, kNarrowRoom + 1, kNarrowRoom * 3}) {
        const std::string text = std::string(length - 1, 'a') + 'z';
        std::wstring expected(text.begin(), text.end());
        expected.resize(std::min(length, kNarrowRoom - 1));
        WideString out;
        BaseStringUtil::BrimString_sprintf(out, "%s", text.c_str());
        EXPECT_EQ(out.length(), expected.size());
        EXPECT_TRUE(viewOf(out) == expected) << length;
    }
}

TEST(BrimString_sprintf, IsEmptyForAFormatThatCannotBeExpanded) {
    const CharacterLocale locale("C");
    WideString out(L"before");
    BaseStringUtil::BrimString_sprintf(out, "a%ls", L"\x20AC"); // not in this locale
    EXPECT_TRUE(out.empty());
}

TEST(BrimString_sprintf, FormatsAStringIntoItself) {
    const CharacterLocale locale("C");
    WideString out(L"text");
    BaseStringUtil::BrimString_sprintf(out, "<%ls>", out.c_str());
    EXPECT_EQ(viewOf(out), L"<text>");
}

__attribute__((format(printf, 2, 3))) void formatThroughAList(WideString& out, const char* format, ...) {
    va_list args;
    va_start(args, format);
    BaseStringUtil::BrimString_sprintfV(out, format, args);
    va_end(args);
}

TEST(BrimString_sprintfV, FormatsAListOfArguments) {
    WideString out;
    formatThroughAList(out, "%d %s", 5, "text");
    EXPECT_EQ(viewOf(out), L"5 text");
}

// ---- Wide formats ----------------------------------------------------------------------------------------

TEST(BrimString_brimsprintf, FormatsAsWprintf) {
    WideString out(L"before");
    BaseStringUtil::BrimString_brimsprintf(out, L"%ls|%5d|%-4x|%.2f|%lc|%%|\x20AC", L"\xE9t\xE9", -42, 0xABU,
                                           1.5, static_cast<wint_t>(0x20AC));
    EXPECT_EQ(viewOf(out), L"\xE9t\xE9|  -42|ab  |1.50|\x20AC|%|\x20AC");
    BaseStringUtil::BrimString_brimsprintf(out, L"%ls", L"");
    EXPECT_EQ(viewOf(out), L"");
}

TEST(BrimString_brimsprintf, FormatsTextsOfAnyLength) {
    for (const std::size_t length : {1U, 62U, 63U, 64U, 65U, 510U, 511U, 512U, 513U, 5000U, 300000U}) {
        const std::wstring text = std::wstring(length - 1, L'\x20AC') + L'z';
        const long live = RecordingAllocator::liveBlocks();
        {
            WideString out;
            BaseStringUtil::BrimString_brimsprintf(out, L"%ls", text.c_str());
            EXPECT_TRUE(viewOf(out) == text) << length;
            BaseStringUtil::BrimString_brimsprintf(out, L"%d%ls%d", 1, text.c_str(), 2);
            EXPECT_TRUE(viewOf(out) == L"1" + text + L"2") << length;
            BaseStringUtil::BrimString_brimsprintf(out, L"%*d", static_cast<int>(length), 7);
            EXPECT_TRUE(viewOf(out) == std::wstring(length - 1, L' ') + L"7") << length;
        }
        EXPECT_EQ(RecordingAllocator::liveBlocks(), live);
    }
}

TEST(BrimString_brimsprintf, EndsAtTheFirstZero) {
    WideString out;
    BaseStringUtil::BrimString_brimsprintf(out, L"a%lcb", static_cast<wint_t>(0));
    EXPECT_EQ(viewOf(out), L"a");
}

TEST(BrimString_brimsprintf, LeavesTheStringAloneForAFormatThatCannotBeExpanded) {
    const CharacterLocale locale("C.utf8");
    WideString out(L"before");
    BaseStringUtil::BrimString_brimsprintf(out, L"a%s", "\xFF"); // no text in this locale
    EXPECT_EQ(viewOf(out), L"before");
    BaseStringUtil::BrimString_brimsprintf(out, L"%*d%s", 1000, 1, "\xFF");
    EXPECT_EQ(viewOf(out), L"before");
    BaseStringUtil::BrimString_brimsprintf(out, L"%s", "\xE2\x82\xAC");
    EXPECT_EQ(viewOf(out), L"\x20AC");
}

TEST(BrimString_brimsprintf, FormatsAStringIntoItself) {
    WideString out(L"text");
    BaseStringUtil::BrimString_brimsprintf(out, L"<%ls>%ls", out.c_str(), out.c_str());
    EXPECT_EQ(viewOf(out), L"<text>text");
}

// ---- The size of a formatted text ------------------------------------------------------------------------

struct Sizes {
    int first;
    int second; // with the same list once more
};

Sizes sizesOf(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    Sizes sizes{};
    sizes.first = SystemUtility::GetTotalSizeOfVariableArgumentList(format, args);
    sizes.second = SystemUtility::GetTotalSizeOfVariableArgumentList(format, args);
    va_end(args);
    return sizes;
}

TEST(GetTotalSizeOfVariableArgumentList, CountsCharactersWithoutTheZeroAndKeepsTheList) {
    for (const int length : {0, 1, 63, 64, 510, 511, 512, 513, 5000, 300000}) {
        const std::wstring text(static_cast<std::size_t>(length), L'\x20AC');
        const Sizes sizes = sizesOf(L"%ls", text.c_str());
        EXPECT_EQ(sizes.first, length);
        EXPECT_EQ(sizes.second, length);
    }
    EXPECT_EQ(sizesOf(L"%d-%ls-%.1f-%lc%%", 12, L"ab", 0.5, static_cast<wint_t>(0)).first, 12);
}

TEST(GetTotalSizeOfVariableArgumentList, IsNegativeForAFormatThatCannotBeExpanded) {
    const CharacterLocale locale("C.utf8");
    EXPECT_LT(sizesOf(L"a%s", "\xFF").first, 0);
    EXPECT_LT(sizesOf(L"%*d%s", 1000, 1, "\xFF").first, 0);
}

// ---- Language tags ---------------------------------------------------------------------------------------

struct Tag {
    const wchar_t* before;
    const wchar_t* after;
};

void expectFormatted(std::initializer_list<Tag> tags) {
    for (const Tag& row : tags) {
        WideString tag(row.before);
        BaseStringUtil::FormatErrorMsgLang(tag);
        EXPECT_EQ(viewOf(tag), row.after) << testing::PrintToString(std::wstring(row.before));
    }
}

TEST(FormatErrorMsgLang, RaisesTheSecondOfTwoParts) {
    expectFormatted({{L"en-us", L"en-US"},
                     {L"pt-br", L"pt-BR"},
                     {L"PT-BR", L"PT-BR"},
                     {L"zh-Hant", L"zh-HANT"},
                     {L"a-1", L"a-1"}});
}

TEST(FormatErrorMsgLang, LeavesOtherShapesAlone) {
    expectFormatted({{L"", L""},
                     {L"fr", L"fr"},
                     {L"x-y-z", L"x-y-z"},
                     {L"en_us", L"en_us"},
                     {L"-", L"-"},
                     {L"--", L"--"},
                     {L"en-", L"en-"},
                     {L"-us", L"-us"},
                     {L"en us", L"en us"}});
}

// Empty parts do not count.
TEST(FormatErrorMsgLang, DropsExtraDashesAroundTwoParts) {
    expectFormatted({{L"en--us", L"en-US"}, {L"-en-us", L"en-US"}, {L"en-us-", L"en-US"}});
}

TEST(FormatErrorMsgLang, ChangesNoOtherStringThatSharesTheText) {
    const WideString original(L"en-us");
    WideString tag(original);
    BaseStringUtil::FormatErrorMsgLang(tag);
    EXPECT_EQ(viewOf(original), L"en-us");
    EXPECT_EQ(viewOf(tag), L"en-US");
}

} // namespace
