// Searches for sub-strings, sets, quotes and marks next to naive ones, at each processor level.
#include "fuzz_input.h"

#include "kernel_levels.h"
#include "quotes_model.h"
#include "search_model.h"

#include <gtest/gtest.h>

using brimtest::brim;
using brimtest::Ranges;
using Reference = RefStringTemplate<wchar_t>;

namespace {

// A pattern that occurs, nearly occurs, or whatever it may be.
std::wstring patternFor(FuzzInput& input, const std::wstring& text, std::wstring_view alphabet) {
    if (input.flip()) {
        return input.text(alphabet, 12);
    }
    std::wstring pattern = text.substr(input.below(text.size() + 1), input.below(300));
    if (!pattern.empty() && input.flip()) {
        pattern[input.below(pattern.size())] = alphabet[0];
    }
    return pattern;
}

void searchTexts(FuzzInput& input) {
    static constexpr std::wstring_view kAlphabets[] = {L"ab", L"aAbB\u03C3\u03C2",
                                                       std::wstring_view(L"a\0\U0001F600", 3), L"abcdefgh"};
    const std::wstring_view alphabet = kAlphabets[input.below(std::size(kAlphabets))];
    const std::wstring text = input.text(alphabet, 200);
    const std::wstring pattern = patternFor(input, text, alphabet);
    brimtest::atEachLevel([&] { brimtest::compareSearches(text, pattern); });
}

// Long enough to leave the quick way of searching.
void searchRepetitiveTexts(FuzzInput& input) {
    const std::wstring unit = input.text(L"ab", 12) + L"a";
    std::wstring text;
    for (std::size_t n = input.below(3000); text.size() < n;) {
        text += unit;
    }
    for (std::size_t flaws = input.below(6); flaws != 0 && !text.empty(); --flaws) {
        text[input.below(text.size())] = L'b';
    }
    const std::wstring pattern = patternFor(input, text, L"ab");
    const std::size_t start = input.below(text.size() + 1);
    const bool isEmpty = pattern.empty();
    const std::size_t first = isEmpty ? text.size() : std::min(text.find(pattern, start), text.size());
    const std::size_t last = isEmpty ? text.size() : std::min(text.rfind(pattern), text.size());
    brimtest::atEachLevel([&] {
        ASSERT_EQ(BaseStringUtil::ForwardPatternMatch(Reference(text.data(), text.size()),
                                                      Reference(pattern.data(), pattern.size()), start),
                  first);
        ASSERT_EQ(
            BaseStringUtil::ReversePatternMatch(brim(text), brim(pattern), static_cast<std::size_t>(-1)),
            last);
    });
}

void searchSets(FuzzInput& input) {
    const std::wstring members = input.text(64);
    const std::set<wchar_t> model(members.begin(), members.end());
    const std::size_t start = input.below(128);
    const std::wstring text = input.restAsText();
    const BrimString given = brim(text);
    const BrimString set = brim(members);
    brimtest::atEachLevel([&] {
        ASSERT_EQ(BaseStringUtil::FindFirstOf(given, set, start),
                  brimtest::firstOf(text, model, start, true));
        ASSERT_EQ(BaseStringUtil::FindFirstNotOf(given, set, start),
                  brimtest::firstOf(text, model, start, false));
        ASSERT_EQ(BaseStringUtil::FindLastOf(given, set, start), brimtest::lastOf(text, model, start));
    });
}

void searchBetweenQuotes(FuzzInput& input) {
    constexpr std::wstring_view kAlphabet = L"ab,()'\"\\";
    const std::wstring what = input.text(kAlphabet, 2) + kAlphabet[input.below(kAlphabet.size())];
    const std::wstring close = input.text(kAlphabet, 1) + kAlphabet[input.below(kAlphabet.size())];
    const std::size_t start = input.below(8);
    const std::wstring text = input.text(kAlphabet, 200);
    const BrimString given = brim(text);
    ASSERT_EQ(BaseStringUtil::FindFirstUnescaped(given, what.c_str(), start),
              brimtest::unescaped(text, what, start));
    Ranges found;
    Ranges expected;
    ASSERT_EQ(BaseStringUtil::FindFirstUnquoted(given, what.c_str(), start, &found),
              brimtest::unquoted(text, what, start, &expected));
    ASSERT_EQ(found, expected);
    ASSERT_EQ(BaseStringUtil::FindClosingMark(given, start, what.c_str(), close.c_str()),
              brimtest::closingMark(text, start, what, close));
    if (start <= text.size()) {
        BrimString value;
        std::size_t end = 0;
        std::wstring expectedValue;
        std::size_t expectedEnd = 0;
        ASSERT_EQ(BaseStringUtil::GetQuotedString(given, start, value, end),
                  brimtest::quotedValue(text, start, expectedValue, expectedEnd));
        ASSERT_EQ(brimtest::plain(value), expectedValue);
        ASSERT_EQ(end, expectedEnd);
    }
}

} // namespace

void fuzzOne(FuzzInput& input) {
    constexpr void (*kSearches[])(FuzzInput&) = {searchTexts, searchRepetitiveTexts, searchSets,
                                                 searchBetweenQuotes};
    kSearches[input.below(std::size(kSearches))](input);
}
