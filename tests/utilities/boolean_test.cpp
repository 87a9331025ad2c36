// The words for true and false, and what reads them.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPExceptionSupport.h"

#include "child_process.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

#include <climits>
#include <csignal>
#include <cstdio>
#include <cwctype>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using brimtest::brim;
using brimtest::ChildResult;
using brimtest::plain;
using brimtest::runInChild;

const std::vector<std::wstring> kTrueWords = {L"True", L"Yes", L"On", L"1", L"+", L"Ok", L"1.0"};
const std::vector<std::wstring> kFalseWords = {L"False", L"No", L"Off", L"0", L"-", L"0.0"};

bool isTrue(std::wstring_view text) { return BaseStringUtil::BooleanFrom(brim(text), false); }

// "true", "false", or "unknown" when it throws.
std::string readStrictly(const std::wstring& text) {
    try {
        return BaseStringUtil::BooleanFrom(brim(text), true) ? "true" : "false";
    } catch (int value) {
        EXPECT_EQ(value, 0);
        return "unknown";
    }
}

// Prints the logic error that it is given, and returns or throws.
class PrintingHandler : public sup::SUPExceptionSupport {
public:
    explicit PrintingHandler(bool throws) : m_throws(throws) { m_pSUPExceptionSupport = this; }
    ~PrintingHandler() { m_pSUPExceptionSupport = nullptr; }
    PrintingHandler(const PrintingHandler&) = delete;
    PrintingHandler& operator=(const PrintingHandler&) = delete;

    void throwErrorMessageImpl(const wchar_t*, int, const BrimString&) override { std::puts("message"); }
    void throwInternalMessageImpl(const wchar_t*, int, InternalMessageID, va_list*) override {
        std::puts("internal message");
    }
    void throwAssertErrorImpl(const wchar_t*, int, const wchar_t*) override { std::puts("assertion"); }
    void throwLogicErrorImpl(const wchar_t* file, int, const BrimString& message) override {
        const std::wstring path(file);
        const bool isHere = path.find(L"SUPBaseStringUtil") != std::wstring::npos;
        std::printf("logic error in %s, message of %zu\n", isHere ? "the utilities" : "another source",
                    message.length());
        std::fflush(stdout);
        if (m_throws) {
            throw std::logic_error("handler");
        }
    }

private:
    bool m_throws;
};

// ---- The words --------------------------------------------------------------------------------------------

TEST(BooleanWords, AreTwoListsInOrder) {
    ASSERT_EQ(BaseStringUtil::GetNumberOfTrueWords(), 7);
    ASSERT_EQ(BaseStringUtil::GetNumberOfFalseWords(), 6);
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(plain(BaseStringUtil::GetTrueWord(i)), kTrueWords[static_cast<std::size_t>(i)]);
    }
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(plain(BaseStringUtil::GetFalseWord(i)), kFalseWords[static_cast<std::size_t>(i)]);
    }
}

TEST(BooleanWords, AreNamedConstants) {
    const std::vector<std::wstring> trueWords = {BaseStringUtil::S_TRUE_FIRST_CAP, BaseStringUtil::_S_YES,
                                                 BaseStringUtil::S_ON_FIRST_CAP,   BaseStringUtil::S_ONE,
                                                 BaseStringUtil::S_PLUS,           BaseStringUtil::S_OKAY,
                                                 BaseStringUtil::S_ONE_POINT_ZERO};
    const std::vector<std::wstring> falseWords = {
        BaseStringUtil::S_FALSE_FIRST_CAP, BaseStringUtil::_S_NO,
        BaseStringUtil::S_OFF_FIRST_CAP,   BaseStringUtil::S_ZERO,
        BaseStringUtil::S_MINUS,           BaseStringUtil::S_ZERO_POINT_ZERO};
    EXPECT_EQ(trueWords, kTrueWords);
    EXPECT_EQ(falseWords, kFalseWords);
}

TEST(BooleanWords, AreCopiesThatTheCallerMayChange) {
    BrimString word = BaseStringUtil::GetTrueWord(0);
    word.append(L"!");
    EXPECT_EQ(plain(BaseStringUtil::GetTrueWord(0)), L"True");
}

TEST(BooleanWords, AnIndexWithoutAWordEndsTheProcessSilently) {
    for (const int index : {-1, 7, 8, INT_MAX, INT_MIN}) {
        const ChildResult result = runInChild([&] { BaseStringUtil::GetTrueWord(index); });
        EXPECT_EQ(result.signal(), SIGABRT) << index << ": " << result;
        EXPECT_EQ(result.output, "") << index;
    }
    for (const int index : {-1, 6, 7, INT_MAX, INT_MIN}) {
        const ChildResult result = runInChild([&] { BaseStringUtil::GetFalseWord(index); });
        EXPECT_EQ(result.signal(), SIGABRT) << index << ": " << result;
        EXPECT_EQ(result.output, "") << index;
    }
}

TEST(BooleanWords, AnIndexWithoutAWordIsReportedAsALogicErrorWithoutAMessage) {
    for (void (*const lookUp)() : {+[] { static_cast<void>(BaseStringUtil::GetTrueWord(7)); },
                                   +[] { static_cast<void>(BaseStringUtil::GetFalseWord(-1)); }}) {
        const ChildResult returned = runInChild([&] {
            const PrintingHandler handler(false);
            lookUp();
        });
        EXPECT_EQ(returned.output, "logic error in the utilities, message of 0\n");
        EXPECT_EQ(returned.signal(), SIGABRT) << returned;
        const ChildResult thrown = runInChild([&] {
            const PrintingHandler handler(true);
            lookUp();
        });
        EXPECT_EQ(thrown.output, "logic error in the utilities, message of 0\n");
        EXPECT_EQ(thrown.exitCode(), 99) << "the handler's exception passes: " << thrown;
    }
}

TEST(StringFrom, ABooleanIsTheFirstWord) {
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(true)), L"True");
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(false)), L"False");
}

// ---- Reading ----------------------------------------------------------------------------------------------

TEST(BooleanFrom, KnowsItsWordsInAnyCaseAndBetweenBlanks) {
    constexpr std::uint64_t kSeed = 7101;
    brimtest::RandomTexts random(kSeed);
    const auto expectWord = [&](const std::wstring& word, const char* expected) {
        for (int i = 0; i < 30; ++i) {
            std::wstring text = word;
            for (wchar_t& c : text) {
                const auto code = static_cast<std::wint_t>(c);
                c = static_cast<wchar_t>(random.flip() ? std::towupper(code) : std::towlower(code));
            }
            text = random.text(L" \t\r\n", 3) + text + random.text(L" \t\v\f", 3);
            EXPECT_EQ(readStrictly(text), expected) << text << ", seed " << kSeed;
            EXPECT_EQ(isTrue(text), expected == std::string("true")) << text << ", seed " << kSeed;
        }
    };
    for (const std::wstring& word : kTrueWords) {
        expectWord(word, "true");
    }
    for (const std::wstring& word : kFalseWords) {
        expectWord(word, "false");
    }
}

TEST(BooleanFrom, ReadsItsExamples) {
    for (const wchar_t* const text : {L"yes", L"TRUE", L"1.0", L"  ok ", L"Y", L"1", L"+", L"t"}) {
        EXPECT_TRUE(isTrue(text)) << text;
    }
    for (const wchar_t* const text : {L"off", L"0.0", L"-", L"n", L"0", L"F", L"o", L"maybe"}) {
        EXPECT_FALSE(isTrue(text)) << text;
    }
}

TEST(BooleanFrom, ASingleCharacterIsAnInitial) {
    const std::set<wchar_t> trueInitials = {L't', L'T', L'y', L'Y', L'1', L'+'};
    const std::set<wchar_t> falseInitials = {L'f', L'F', L'n', L'N', L'0', L'-'};
    for (wchar_t c = 0; c < 0x500; ++c) {
        const std::wstring text(1, c);
        if (std::iswspace(static_cast<std::wint_t>(c)) != 0) {
            continue;
        }
        const char* const expected = trueInitials.count(c) != 0    ? "true"
                                     : falseInitials.count(c) != 0 ? "false"
                                                                   : "unknown";
        ASSERT_EQ(readStrictly(text), expected) << static_cast<long>(c);
        ASSERT_EQ(readStrictly(L" " + text + L"\n"), expected) << static_cast<long>(c);
        ASSERT_EQ(isTrue(text), trueInitials.count(c) != 0) << static_cast<long>(c);
    }
}

TEST(BooleanFrom, TheInitialOfOnAndOffIsNoOnes) {
    for (const wchar_t* const text : {L"o", L"O", L" o "}) {
        EXPECT_EQ(readStrictly(text), "unknown");
        EXPECT_FALSE(isTrue(text));
    }
}

TEST(BooleanFrom, ABlankTextIsFalseAndNeverThrows) {
    for (const wchar_t* const text : {L"", L" ", L"\t \r\n\v\f"}) {
        EXPECT_EQ(readStrictly(text), "false");
    }
    EXPECT_FALSE(BaseStringUtil::BooleanFrom(BrimString(), true));
}

TEST(BooleanFrom, AnythingElseIsUnknown) {
    for (const wchar_t* const text : {L"maybe", L"ye", L"yess", L"tr ue", L"10", L"1.00", L"++", L"0.", L"2",
                                      L"okay", L"\u00DF\u00DF", L"truefalse", L"nof"}) {
        EXPECT_EQ(readStrictly(text), "unknown") << text;
        EXPECT_FALSE(isTrue(text)) << text;
    }
    EXPECT_EQ(readStrictly(std::wstring(L"Yes\0", 4)), "unknown") << "the zero counts";
}

} // namespace
