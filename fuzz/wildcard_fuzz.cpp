// Wildcard patterns next to a matcher by dynamic programming.
#include "fuzz_input.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "wide_texts.h"
#include "wildcard_model.h"

#include <gtest/gtest.h>

namespace {

// The text with parts covered.
std::wstring covered(FuzzInput& input, std::wstring text) {
    for (std::size_t edits = input.below(12); edits != 0 && !text.empty(); --edits) {
        const std::size_t at = input.below(text.size());
        const std::size_t length = input.below(8);
        text.replace(at, length, input.text(L"*?ab", 2));
    }
    return text;
}

void expectSameAnswer(const std::wstring& text, const std::wstring& pattern) {
    ASSERT_EQ(BaseStringUtil::IsWildcardCaseInsensitiveMatch(brimtest::brim(text), brimtest::brim(pattern)),
              brimtest::modelWildcardMatch(text, pattern))
        << ::testing::PrintToString(text) << " against " << ::testing::PrintToString(pattern);
}

// Segments that are hard to find: over many alike characters.
void matchLongTexts(FuzzInput& input) {
    std::wstring text(input.below(2000), L'a');
    for (std::size_t n = input.below(20); n != 0 && !text.empty(); --n) {
        text[input.below(text.size())] = L'b';
    }
    std::wstring segment = text.substr(input.below(text.size() + 1), input.below(256));
    const std::size_t step = 1 + input.below(6);
    for (std::size_t k = input.below(4); k < segment.size(); k += step) {
        segment[k] = L'?';
    }
    expectSameAnswer(text, L"*" + covered(input, segment) + (input.flip() ? L"*" : L"b*"));
}

} // namespace

void fuzzOne(FuzzInput& input) {
    switch (input.below(4)) {
    case 0:
        matchLongTexts(input);
        break;
    case 1: {
        const std::wstring text = input.text(60);
        expectSameAnswer(text, input.restAsText());
        break;
    }
    default: {
        const std::wstring text = input.text(L"abAB\u03C3\u03A3", 100);
        expectSameAnswer(text, input.flip() ? covered(input, text) : input.text(L"ab?**", 60));
        break;
    }
    }
}
