// Case, trimming, clean-up and fragments of texts next to their models; narrow and wide text there and back.
#include "fuzz_input.h"

#include "case_model.h"
#include "exact_buffer.h"
#include "fragments_model.h"
#include "utf8_model.h"

#include <gtest/gtest.h>

using brimtest::brim;
using brimtest::plain;

namespace {

constexpr unsigned int kUtf8 = 65001;

void compare(FuzzInput& input) {
    constexpr std::wstring_view kLetters =
        L"aAbBiI\u0130\u0131\u00E9\u00C9\u00DF\u1E9E\u03C3\u03A3\u03C2\u01C5 z";
    const bool isAny = input.flip();
    const std::wstring a = isAny ? input.text(40) : input.text(kLetters, 40);
    const std::wstring b = isAny ? input.restAsText() : input.text(kLetters, 40);
    brimtest::compareWithoutCase(a, b);
    brimtest::compareTrimming(a);
    ASSERT_EQ(plain(BaseStringUtil::ToLowerCase(brim(a))), brimtest::mappedText(a, brimtest::lower));
    ASSERT_EQ(plain(BaseStringUtil::ToUpperCase(brim(a))), brimtest::mappedText(a, brimtest::upper));
}

void cutFragments(FuzzInput& input) {
    const std::size_t n = input.below(64);
    const std::wstring text = input.text(std::wstring_view(L"ab <>/!-&;\xD83D\xDE00\t=\n"), 255);
    ASSERT_EQ(plain(BaseStringUtil::GetTextFragment(brim(text), n)), brimtest::modelFragment(text, n, false));
    const std::wstring loose = plain(BaseStringUtil::GetNonWellFormedTextFragment(brim(text), n));
    ASSERT_EQ(loose, brimtest::modelFragment(text, n, true));
    ASSERT_EQ(plain(BaseStringUtil::GetHTMLFragment(brim(text), n)), loose + brimtest::modelEndTags(loose));
    ASSERT_EQ(plain(BaseStringUtil::LineFeedConversion(brim(text))), brimtest::modelLineFeeds(text));
}

// What is one line stays as it is.
void cleanUp(const std::wstring& text) {
    BrimString line = brim(text);
    BaseStringUtil::MakeOneLineString(line);
    BrimString again = line;
    BaseStringUtil::MakeOneLineString(again);
    ASSERT_EQ(plain(again), plain(line));
    ASSERT_EQ(plain(BaseStringUtil::RemoveNonPrintableChars(brim(text))),
              brimtest::modelKept(text, [](std::wint_t c) { return std::iswprint(c) != 0; }));
    ASSERT_EQ(plain(BaseStringUtil::RemovePunctuationChars(brim(text))),
              brimtest::modelKept(text, [](std::wint_t c) { return std::iswpunct(c) == 0; }));
    BrimString segment(L"before");
    if (!BaseStringUtil::ExtractTextSegmentIntoString(brim(text), L"a", L"b", segment)) {
        ASSERT_TRUE(segment.empty());
    }
}

void convertNarrowText(FuzzInput& input) {
    const std::size_t capacity = input.below(64);
    const std::string bytes = input.rest().c_str(); // up to the first zero
    // The terminator is converted too, and may become a part of a cut sequence.
    std::wstring expected =
        brimtest::Utf8Model::decode(std::string_view(bytes.c_str(), bytes.size() + 1), bytes.size() + 1)
            .written;
    ASSERT_EQ(plain(BaseStringUtil::StringFrom(bytes.c_str(), kUtf8)),
              expected.substr(0, std::max<std::size_t>(expected.size(), 1) - 1));
    if (!expected.empty() && expected.back() == 0) {
        expected.pop_back();
    }
    ExactBuffer<wchar_t> room(capacity);
    BaseStringUtil::StdStringToString(bytes.c_str(), room.data(), static_cast<unsigned int>(capacity), kUtf8);
    if (capacity != 0) {
        ASSERT_EQ(std::wstring(room.data()), expected.size() < capacity ? expected : std::wstring());
    }
}

} // namespace

void fuzzOne(FuzzInput& input) {
    switch (input.below(4)) {
    case 0:
        compare(input);
        break;
    case 1:
        cutFragments(input);
        break;
    case 2:
        convertNarrowText(input);
        break;
    default:
        cleanUp(input.restAsText());
        break;
    }
}
