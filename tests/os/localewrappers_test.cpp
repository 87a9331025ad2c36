// The wrappers that depend on a locale: facts, dates and times, collation.
#include "Utility/Generic/Portable/SUPOSBase.h"

#include "Utility/Generic/Portable/SUPTranscode.h"
#include "child_process.h"
#include "guarded_buffer.h"
#include "recording_manager.h"
#include "test_locale.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cwchar>
#include <langinfo.h>
#include <random>
#include <string>
#include <vector>

// newlocale() of the C library loses its list of the directories in LOCPATH.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:__argz_add_sep"; }

namespace {

constexpr unsigned int kTestLocale = 0xBEEF; // no id of a locale file

// The definition's UTF-8 locale under kTestLocale, while the process itself is in "C".
class LocaleUnderTest {
public:
    explicit LocaleUnderTest(const std::string& source) : m_compiled(source), m_c("C") {
        g_sortLangMap[kTestLocale] = (source + ".UTF-8").c_str();
    }
    ~LocaleUnderTest() { g_sortLangMap.erase(kTestLocale); }
    LocaleUnderTest(const LocaleUnderTest&) = delete;
    LocaleUnderTest& operator=(const LocaleUnderTest&) = delete;

    bool isSet() const { return m_compiled.isSet(); }

private:
    brimtest::CompiledLocale m_compiled;
    brimtest::ScopedLocale m_c;
};

class SortOrder {
public:
    explicit SortOrder(int type) { OSAbstraction::g_sortLocaleType = type; }
    ~SortOrder() { OSAbstraction::g_sortLocaleType = OSAbstraction::kSortLinguistic; }
    SortOrder(const SortOrder&) = delete;
    SortOrder& operator=(const SortOrder&) = delete;
};

class ServerLocale {
public:
    explicit ServerLocale(unsigned int id) { OSAbstraction::g_serverLocaleID = id; }
    ~ServerLocale() { OSAbstraction::g_serverLocaleID = 0; }
    ServerLocale(const ServerLocale&) = delete;
    ServerLocale& operator=(const ServerLocale&) = delete;
};

// What a call gives that fills a buffer, size query and exact fit included.
template <class Call>
std::wstring given(Call call) {
    const int needed = call(nullptr, 0);
    if (needed <= 0) {
        return L"(failed)";
    }
    std::wstring exact(static_cast<std::size_t>(needed), L'#');
    EXPECT_EQ(call(exact.data(), needed), needed);
    EXPECT_EQ(exact.back(), L'\0');
    std::wstring shorter(static_cast<std::size_t>(needed), L'#');
    errno = 0;
    if (needed > 1) {
        EXPECT_EQ(call(shorter.data(), needed - 1), 0);
        EXPECT_EQ(errno, ERANGE);
        EXPECT_EQ(shorter, std::wstring(shorter.size(), L'#'));
    }
    exact.pop_back();
    return exact;
}

std::wstring fact(int item, unsigned int locale = 0) {
    return given([=](wchar_t* buffer, int length) {
        return OSAbstraction::g_wgetlocaleinfoFuncPtr(locale, item, buffer, length);
    });
}

// 2026-03-07 was a Saturday.
BrimSystemTime timeAt(unsigned short hour, unsigned short minute = 4, unsigned short second = 9,
                      unsigned short milliseconds = 56) {
    return {2026, 3, 6, 7, hour, minute, second, milliseconds};
}

std::wstring date(const BrimSystemTime& time, const wchar_t* pattern, unsigned int locale = 0) {
    return given([=](wchar_t* buffer, int length) {
        return OSAbstraction::g_wgetdateformatFuncPtr(locale, &time, pattern, buffer, length);
    });
}

std::wstring timeOfDay(const BrimSystemTime& time, const wchar_t* pattern, unsigned int locale = 0) {
    return given([=](wchar_t* buffer, int length) {
        return OSAbstraction::g_wgettimeformatFuncPtr(locale, &time, pattern, buffer, length);
    });
}

int compare(const std::wstring& a, const std::wstring& b, bool ignoreCase = false) {
    const int order = OSAbstraction::g_wcomparestringFuncPtr(ignoreCase, a.data(), static_cast<int>(a.size()),
                                                             b.data(), static_cast<int>(b.size()));
    return (order > 0) - (order < 0);
}

// ---- Facts ------------------------------------------------------------------------------------------------

TEST(LocaleInfo, KnowsTheProcesssOwnLocale) {
    const struct {
        int item;
        const wchar_t* expected;
    } rows[] = {{kLocaleListSeparator, L","},
                {kLocaleDecimalPoint, L"."},
                {kLocaleThousandsSeparator, L""},
                {kLocaleCurrencySymbol, L""},
                {kLocaleShortDateFormat, L"%m/%d/%y"},
                {kLocaleLongDateFormat, L"%a %b %e %H:%M:%S %Y"},
                {kLocaleTimeFormat, L"%H:%M:%S"},
                {kLocaleAm, L"AM"},
                {kLocalePm, L"PM"},
                {kLocaleDayName, L"Monday"},
                {kLocaleDayName + 5, L"Saturday"},
                {kLocaleDayName + 6, L"Sunday"},
                {kLocaleAbbreviatedDayName, L"Mon"},
                {kLocaleAbbreviatedDayName + 6, L"Sun"},
                {kLocaleMonthName, L"January"},
                {kLocaleMonthName + 11, L"December"},
                {kLocaleAbbreviatedMonthName, L"Jan"},
                {kLocaleAbbreviatedMonthName + 11, L"Dec"},
                {kLocaleName, L"C"},
                {kLocaleCodeSet, L"ANSI_X3.4-1968"}};
    const brimtest::ScopedLocale c("C");
    for (const auto& row : rows) {
        EXPECT_EQ(fact(row.item), row.expected) << row.item;
    }
}

TEST(LocaleInfo, KnowsALocaleByItsId) {
    const LocaleUnderTest german("de_DE");
    BRIM_SKIP_WITHOUT(german);
    EXPECT_EQ(fact(kLocaleDecimalPoint, kTestLocale), L",");
    EXPECT_EQ(fact(kLocaleThousandsSeparator, kTestLocale), L".");
    EXPECT_EQ(fact(kLocaleListSeparator, kTestLocale), L";");
    EXPECT_EQ(fact(kLocaleCurrencySymbol, kTestLocale), L"\u20AC");
    EXPECT_EQ(fact(kLocaleMonthName + 2, kTestLocale), L"M\u00E4rz");
    EXPECT_EQ(fact(kLocaleDayName, kTestLocale), L"Montag");
    EXPECT_EQ(fact(kLocaleCodeSet, kTestLocale), L"UTF-8");
    EXPECT_EQ(fact(kLocaleDecimalPoint), L".") << "the process keeps its own";
}

TEST(LocaleInfo, TakesTheServersLocaleForNone) {
    const LocaleUnderTest german("de_DE");
    BRIM_SKIP_WITHOUT(german);
    const ServerLocale server(kTestLocale);
    EXPECT_EQ(fact(kLocaleDecimalPoint), L",");
}

TEST(LocaleInfo, FailsForALocaleThatIsUnknownOrNotInstalled) {
    wchar_t buffer[8] = L"before";
    errno = 0;
    EXPECT_EQ(WRAP_wgetlocaleinfo(0xDEAD, kLocaleDecimalPoint, buffer, 8), 0);
    EXPECT_EQ(errno, EINVAL);
    g_sortLangMap[0xDEAD] = "xx_XX.NOWHERE";
    errno = 0;
    EXPECT_EQ(WRAP_wgetlocaleinfo(0xDEAD, kLocaleDecimalPoint, buffer, 8), 0);
    EXPECT_EQ(errno, EINVAL);
    g_sortLangMap.erase(0xDEAD);
    EXPECT_STREQ(buffer, L"before");
}

TEST(LocaleInfo, EndsTheProcessForAnItemItDoesNotKnow) {
    for (const int item : {0, -1, kLocaleDayName + 14 + 24 + 1, kLocaleDayName - 3, 0x1005}) {
        const brimtest::ChildResult child = brimtest::runInChild([=] {
            wchar_t buffer[80];
            WRAP_wgetlocaleinfo(0, item, buffer, 80);
        });
        EXPECT_EQ(child.signal(), SIGABRT) << item;
        EXPECT_NE(child.output.find("SUPOSLocale.cpp"), std::string::npos) << child;
    }
}

// ---- Dates and times --------------------------------------------------------------------------------------

TEST(DateFormat, ExpandsItsLetters) {
    const struct {
        const wchar_t* pattern;
        const wchar_t* expected;
    } rows[] = {{L"d", L"7"},
                {L"dd", L"07"},
                {L"ddd", L"Sat"},
                {L"dddd", L"Saturday"},
                {L"ddddd", L"Saturday"},
                {L"M", L"3"},
                {L"MM", L"03"},
                {L"MMM", L"Mar"},
                {L"MMMM", L"March"},
                {L"y", L"26"},
                {L"yy", L"26"},
                {L"yyyy", L"2026"},
                {L"yyyy-MM-dd", L"2026-03-07"},
                {L"dddd, d. MMMM yyyy", L"Saturday, 7. March 2026"},
                {L"'d' d 'o''clock' ''", L"d 7 o'clock '"},
                {L"'open", L"open"},
                {L"", L""},
                {L"h:mm %n", L"h:mm %n"}};
    const brimtest::ScopedLocale c("C");
    for (const auto& row : rows) {
        EXPECT_EQ(date(timeAt(15), row.pattern), row.expected) << std::wcslen(row.pattern);
    }
}

TEST(DateFormat, PadsAndKeepsUnusualYears) {
    EXPECT_EQ(date(BrimSystemTime(5, 1, 0, 1, 0, 0, 0, 0), L"y yy yyyy"), L"5 05 0005");
    EXPECT_EQ(date(BrimSystemTime(2000, 1, 0, 1, 0, 0, 0, 0), L"y yy yyyy"), L"0 00 2000");
    EXPECT_EQ(date(BrimSystemTime(-44, 3, 0, 15, 0, 0, 0, 0), L"y"), L"44");
}

TEST(DateFormat, UsesTheLocalesOwnFormatWithoutAPattern) {
    const brimtest::ScopedLocale c("C");
    EXPECT_EQ(date(timeAt(15), nullptr), L"03/07/26");
    EXPECT_EQ(timeOfDay(timeAt(15), nullptr), L"15:04:09");
}

TEST(DateFormat, TakesItsNamesFromTheLocale) {
    const LocaleUnderTest german("de_DE");
    BRIM_SKIP_WITHOUT(german);
    EXPECT_EQ(date(timeAt(15), L"dddd, d. MMMM yyyy", kTestLocale), L"Samstag, 7. M\u00E4rz 2026");
    EXPECT_EQ(date(timeAt(15), nullptr, kTestLocale), L"07.03.2026");
}

TEST(DateFormat, RefusesWhatIsNoDate) {
    const BrimSystemTime wrong[] = {{2026, 0, 0, 1, 0, 0, 0, 0},
                                    {2026, 13, 0, 1, 0, 0, 0, 0},
                                    {2026, 1, 7, 1, 0, 0, 0, 0},
                                    {2026, 1, 0, 0, 0, 0, 0, 0},
                                    {2026, 1, 0, 32, 0, 0, 0, 0}};
    wchar_t buffer[80];
    for (const BrimSystemTime& time : wrong) {
        errno = 0;
        EXPECT_EQ(WRAP_wgetdateformat(0, &time, L"dddd MMMM", buffer, 80), 0);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(WRAP_wgetdateformat(0, nullptr, L"d", buffer, 80), 0);
    const BrimSystemTime fine = timeAt(15);
    EXPECT_EQ(WRAP_wgetdateformat(0xDEAD, &fine, L"d", buffer, 80), 0);
}

TEST(TimeFormat, ExpandsItsLetters) {
    const struct {
        unsigned short hour;
        const wchar_t* pattern;
        const wchar_t* expected;
    } rows[] = {{15, L"h hh H HH", L"3 03 15 15"},      {0, L"h hh H HH", L"12 12 0 00"},
                {12, L"h hh H HH", L"12 12 12 12"},     {23, L"h hh H HH", L"11 11 23 23"},
                {9, L"m mm mmm", L"4 04 04"},           {9, L"s ss", L"9 09"},
                {9, L"f ff fff ffff", L"0 05 056 056"}, {9, L"t tt", L"A AM"},
                {15, L"t tt ttt", L"P PM PM"},          {15, L"HH:mm:ss.fff", L"15:04:09.056"},
                {15, L"'h' d M y", L"h d M y"},         {15, L"", L""}};
    const brimtest::ScopedLocale c("C");
    for (const auto& row : rows) {
        EXPECT_EQ(timeOfDay(timeAt(row.hour), row.pattern), row.expected) << row.hour;
    }
}

TEST(TimeFormat, HasNoMarkWhereTheLocaleHasNone) {
    const LocaleUnderTest german("de_DE");
    BRIM_SKIP_WITHOUT(german);
    EXPECT_EQ(timeOfDay(timeAt(15), L"h t tt.", kTestLocale), L"3  .");
}

TEST(TimeFormat, RefusesWhatIsNoTime) {
    wchar_t buffer[80];
    for (const BrimSystemTime& time : {timeAt(24), timeAt(0, 60), timeAt(0, 0, 61), timeAt(0, 0, 0, 1000)}) {
        errno = 0;
        EXPECT_EQ(WRAP_wgettimeformat(0, &time, L"H", buffer, 80), 0);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(timeOfDay(timeAt(23, 59, 60, 999), L"H:m:s.fff"), L"23:59:60.999") << "a leap second";
}

// ---- Collation --------------------------------------------------------------------------------------------

TEST(CompareString, FollowsTheLocale) {
    const LocaleUnderTest german("de_DE");
    BRIM_SKIP_WITHOUT(german);
    EXPECT_GT(compare(L"\u00E4", L"z"), 0) << "the process's own locale is C";
    const ServerLocale server(kTestLocale);
    EXPECT_LT(compare(L"\u00E4", L"z"), 0);
    EXPECT_LT(compare(L"\u00E4", L"b"), 0);
    EXPECT_NE(compare(L"A", L"a"), 0);
    EXPECT_EQ(compare(L"\u00C4rger", L"\u00E4RGER", true), 0);
}

TEST(CompareString, FollowsTheNumbersOnRequest) {
    const LocaleUnderTest german("de_DE");
    BRIM_SKIP_WITHOUT(german);
    const ServerLocale server(kTestLocale);
    const SortOrder binary(OSAbstraction::kSortBinary);
    EXPECT_GT(compare(L"\u00E4", L"z"), 0);
    EXPECT_LT(compare(L"Z", L"a"), 0);
    EXPECT_GT(compare(L"Z", L"a", true), 0);
    EXPECT_GT(compare(L"\xD83D\xDE00", L"\uFFFD"), 0) << "a pair is a character above U+FFFF";
}

TEST(CompareString, LooksAtTheWholeText) {
    const SortOrder binary(OSAbstraction::kSortBinary);
    using std::wstring;
    EXPECT_LT(compare(wstring(L"a\0b", 3), wstring(L"a\0c", 3)), 0);
    EXPECT_EQ(compare(wstring(L"a\0b", 3), wstring(L"a\0b", 3)), 0);
    EXPECT_LT(compare(L"a", wstring(L"a\0", 2)), 0);
    EXPECT_GT(compare(wstring(L"a\0", 2), L"a"), 0);
    EXPECT_EQ(compare(L"", L""), 0);
    EXPECT_LT(compare(L"", L"a"), 0);
}

TEST(CompareString, TakesTerminatedTextsAndNone) {
    EXPECT_EQ(WRAP_wcomparestring(false, L"abc", -1, L"abc", 3), 0);
    EXPECT_EQ(WRAP_wcomparestring(false, L"abcd", 3, L"abc", -1), 0);
    EXPECT_EQ(WRAP_wcomparestring(false, nullptr, -1, L"", -1), 0);
    EXPECT_EQ(WRAP_wcomparestring(false, nullptr, 5, nullptr, 0), 0);
    EXPECT_LT(WRAP_wcomparestring(false, nullptr, -1, L"a", -1), 0);
}

TEST(CompareString, ReadsNothingBeyondItsLengths) {
    brimtest::GuardedBuffer<wchar_t> guarded(3);
    wchar_t* const text = guarded.last(3);
    std::wmemcpy(text, L"abc", 3);
    EXPECT_EQ(WRAP_wcomparestring(true, text, 3, L"ABC", 3), 0);
}

TEST(CompareString, OrdersNarrowTextsAsTheirWideForms) {
    const brimtest::ClientCodePage utf8(65001);
    const LocaleUnderTest german("de_DE");
    BRIM_SKIP_WITHOUT(german);
    const ServerLocale server(kTestLocale);
    EXPECT_LT(OSAbstraction::g_ncomparestringFuncPtr(false, "\xC3\xA4", -1, "z", -1), 0);
    EXPECT_EQ(WRAP_ncomparestring(true, "\xC3\x84rger", 6, "\xC3\xA4RGER", -1), 0);
    EXPECT_EQ(WRAP_ncomparestring(false, "abc", 2, "abd", 2), 0);
    EXPECT_EQ(WRAP_ncomparestring(false, nullptr, -1, "", -1), 0);
    EXPECT_LT(WRAP_ncomparestring(false, "", -1, "a", -1), 0);
}

TEST(CompareString, OrdersAsTheCLibraryDoes) {
    const brimtest::CompiledLocale german("de_DE");
    BRIM_SKIP_WITHOUT(german);
    constexpr unsigned int kSeed = 20261;
    std::mt19937 random(kSeed);
    const std::wstring alphabet = L"aAbBzZ\u00E4\u00C4\u00DF -1";
    const auto draw = [&] {
        std::wstring text(random() % 6, L'a');
        for (wchar_t& c : text) {
            c = alphabet[random() % alphabet.size()];
        }
        return text;
    };
    for (int i = 0; i < 2000; ++i) {
        const std::wstring a = draw();
        const std::wstring b = draw();
        SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", pair " << i);
        const int expected = std::wcscoll(a.c_str(), b.c_str());
        EXPECT_EQ(compare(a, b), (expected > 0) - (expected < 0));
    }
}

} // namespace
