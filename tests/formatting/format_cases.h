// The tests that every formatting library passes. Define SUITE and FORMAT, then include.

TEST(SUITE, StringsAreFormattedAsTheirCharacters) {
    EXPECT_EQ(FORMAT(L"{}", BrimString(L"wide")), L"wide");
    EXPECT_EQ(FORMAT("{}", sup::String<char>("narrow")), "narrow");
    EXPECT_EQ(FORMAT("{}|{}", sup::String<char>(), 7), "|7");
    EXPECT_EQ(FORMAT(L"{}", BrimString(L"a\0b", 3)), std::wstring(L"a\0b", 3));
    EXPECT_EQ(FORMAT(L"{}", BrimString(L"\xE9\x4E2D")), L"\xE9\x4E2D");
}

TEST(SUITE, ByteStringsAreFormattedAsTheirCharacters) {
    EXPECT_EQ(FORMAT(L"{}", sup::ByteString<wchar_t>(L"a\xE9")), L"a\xE9");
    EXPECT_EQ(FORMAT(L"{}", sup::ByteString<wchar_t>(L"a\x20AC")), L"a\x20AC");
    EXPECT_EQ(FORMAT("{}", sup::ByteString<char>("bytes")), "bytes");
    EXPECT_EQ(FORMAT("<{}>", sup::ByteString<char>()), "<>");
}

TEST(SUITE, ViewsAreFormattedAsTheirCharacters) {
    const BrimString text(L"abcdef");
    EXPECT_EQ(FORMAT(L"{}", RefStringTemplate<wchar_t>(text.begin() + 1, 3)), L"bcd");
    EXPECT_EQ(FORMAT("{}", RefStringTemplate<char>("abc", 2)), "ab");
    EXPECT_EQ(FORMAT("<{}>", RefStringTemplate<char>()), "<>");
}

TEST(SUITE, SpecificationsOfStringViewsAreHonoured) {
    const BrimString s(L"abc");
    EXPECT_EQ(FORMAT(L"{:>6}|{:<6}|{:^6}|", s, s, s), L"   abc|abc   | abc  |");
    EXPECT_EQ(FORMAT(L"{:*<5}", sup::ByteString<wchar_t>(L"abc")), L"abc**");
    EXPECT_EQ(FORMAT(L"{:.2}", RefStringTemplate<wchar_t>(s)), L"ab");
    EXPECT_EQ(FORMAT("{:-^{}.{}s}", sup::String<char>("abcdef"), 8, 4), "--abcd--");
}
