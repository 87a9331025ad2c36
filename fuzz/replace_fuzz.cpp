// ReplaceSubstring and ReplacePatternInString next to a naive replacer.
#include "fuzz_input.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "replace_model.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

using brimtest::brim;
using brimtest::plain;

void fuzzOne(FuzzInput& input) {
    static constexpr std::wstring_view kAlphabets[] = {L"aA -", L"ab()_", L"x'\u03C3\u03C2\u03A3 ", L"a"};
    const bool isAny = input.flip();
    const std::wstring_view alphabet = kAlphabets[input.below(std::size(kAlphabets))];
    const std::wstring from = isAny ? input.text(20) : input.text(alphabet, 6);
    const std::wstring to = isAny ? input.text(20) : input.text(alphabet, 6);
    const std::wstring text = isAny ? input.restAsText() : input.text(alphabet, 200);
    for (const bool caseSensitive : {false, true}) {
        for (const bool wholeWord : {false, true}) {
            const brimtest::Replaced expected =
                brimtest::modelReplace(text, from, to, caseSensitive, wholeWord);
            BrimString given = brim(text);
            const BrimString shared = given;
            ASSERT_EQ(BaseStringUtil::ReplaceSubstring(given, brim(from), brim(to), caseSensitive, wholeWord),
                      expected.any);
            ASSERT_EQ(plain(given), expected.text);
            ASSERT_EQ(plain(shared), text);
        }
    }
    ASSERT_EQ(plain(BaseStringUtil::ReplacePatternInString(brim(text), brim(from), brim(to))),
              brimtest::modelReplace(text, from, to, true, false).text);
}
