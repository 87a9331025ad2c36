// Numbers read and written next to the C library.
#include "fuzz_input.h"

#include "numbers_model.h"

#include <bit>

namespace {

// The quoted form takes 511 bytes, and its check ASCII only.
bool mayBeQuoted(const std::wstring& text) {
    bool isPlain = text.size() <= 511;
    for (const wchar_t c : text) {
        isPlain = isPlain && c > 0 && c < 0x80;
    }
    return isPlain;
}

void expectIntegersWrittenAsByTheCLibrary(std::uint64_t bits) {
    using brimtest::formatted;
    using brimtest::plain;
    const auto word = static_cast<unsigned int>(bits);
    ASSERT_EQ(plain(BaseStringUtil::StringFrom(static_cast<unsigned long>(bits))),
              formatted(L"%lu", static_cast<unsigned long>(bits)));
    ASSERT_EQ(plain(BaseStringUtil::StringFrom(static_cast<long>(bits))),
              formatted(L"%ld", static_cast<long>(bits)));
    ASSERT_EQ(plain(BaseStringUtil::StringFrom(word)), formatted(L"%u", word));
    ASSERT_EQ(plain(BaseStringUtil::StringFrom(static_cast<int>(word))),
              formatted(L"%d", static_cast<int>(word)));
    ASSERT_EQ(plain(BaseStringUtil::StringFrom(static_cast<short>(word))),
              formatted(L"%d", static_cast<int>(static_cast<short>(word))));
}

void readBoolean(const std::wstring& text) {
    const bool value = BaseStringUtil::BooleanFrom(brimtest::brim(text), false);
    try {
        ASSERT_EQ(BaseStringUtil::BooleanFrom(brimtest::brim(text), true), value);
    } catch (const int unknown) {
        ASSERT_EQ(unknown, 0);
        ASSERT_FALSE(value);
    }
}

} // namespace

void fuzzOne(FuzzInput& input) {
    switch (input.below(4)) {
    case 0: {
        const std::uint64_t bits = input.bits();
        brimtest::expectWrittenAsByTheCLibrary(std::bit_cast<double>(bits));
        expectIntegersWrittenAsByTheCLibrary(bits >> input.below(64));
        break;
    }
    case 1: {
        const std::wstring text = input.text(L"0123456789.+-eExXpPabcdfinINty '\"\t,()_", 80);
        brimtest::expectReadAsByTheCLibrary(text);
        brimtest::expectQuotedReadAsByTheCLibrary(text);
        break;
    }
    default: {
        const std::wstring text = input.restAsText();
        brimtest::expectReadAsByTheCLibrary(text);
        if (mayBeQuoted(text)) {
            brimtest::expectQuotedReadAsByTheCLibrary(text);
        }
        readBoolean(text);
        break;
    }
    }
}
