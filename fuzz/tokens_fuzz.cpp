// The tokenisers next to naive ones; pieces that give the text again when they are joined.
#include "fuzz_input.h"

#include "tokens_model.h"

#include <gtest/gtest.h>

using brimtest::brim;
using brimtest::plain;

void fuzzOne(FuzzInput& input) {
    const std::size_t flags = input.below(8);
    const std::size_t size = input.below(20);
    const std::wstring delimiters = input.text(40);
    const std::wstring text = input.flip() ? input.text(delimiters + L"ab\\", 255) : input.restAsText();
    const bool first = (flags & 1U) != 0;
    const bool second = (flags & 2U) != 0;
    ASSERT_EQ(brimtest::tokenized(text, delimiters, first, second),
              brimtest::modelTokens(text, delimiters, first, second));
    const wchar_t delimiter = delimiters.empty() ? L',' : delimiters.front();
    const wchar_t escape = (flags & 4U) != 0 ? delimiter : delimiters.empty() ? L'\\' : delimiters.back();
    ASSERT_EQ(brimtest::tokenizedWithEscape(text, delimiter, escape, first),
              brimtest::modelEscapedTokens(text, delimiter, escape, first));

    BrimStringVector pieces;
    BaseStringUtil::SplitStringBySize(brim(text), pieces, size);
    for (std::size_t i = 0; i + 1 < pieces.size(); ++i) {
        ASSERT_EQ(pieces[i].length(), size);
    }
    BrimString joined;
    BaseStringUtil::AppendToString(pieces, joined, false);
    ASSERT_EQ(plain(joined), text);

    BrimStringVector whole;
    BaseStringUtil::TokenizeWithEscape(BaseStringUtil::EscapeCharacter(brim(L"x" + text), L'\\', delimiter),
                                       delimiter, L'\\', whole);
    ASSERT_EQ(plain(whole), brimtest::Texts{L"x" + text});
}
