// URI, Base64, XML and quote escapes, next to models that read like their descriptions.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "escapes_model.h"
#include "guarded_buffer.h"
#include "kernel_levels.h"
#include "kernels/base64.h"
#include "kernels/escape.h"
#include "test_locale.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace {

using brimtest::brim;
using brimtest::Bytes;
using brimtest::hexDigit;
using brimtest::kBase64;
using brimtest::modelBase64;
using brimtest::modelBase64Decode;
using brimtest::modelEscapeXml;
using brimtest::modelUriDecode;
using brimtest::modelUriEncode;
using brimtest::plain;
using brimtest::RandomTexts;

std::wstring encoded(std::wstring_view text) { return plain(BaseStringUtil::UriEncode(brim(text))); }
std::wstring decoded(std::wstring_view text, bool requireMarker = false) {
    return plain(BaseStringUtil::UriDecode(brim(text), requireMarker));
}

std::wstring repeated(std::wstring_view unit, std::size_t times) {
    std::wstring text;
    for (std::size_t i = 0; i < times; ++i) {
        text += unit;
    }
    return text;
}

Bytes bytesOf(std::string_view text) { return Bytes(text.begin(), text.end()); }

Bytes base64Decoded(Bytes text, int length) {
    Bytes out(3, 0x55);
    BaseStringUtil::Base64Decode(text.data(), length, out);
    return out;
}
Bytes base64Decoded(std::string_view text) {
    return base64Decoded(bytesOf(text), static_cast<int>(text.size()));
}
std::wstring base64Encoded(std::string_view bytes, bool breakLines = false) {
    return plain(BaseStringUtil::EncodeBase64(bytesOf(bytes), breakLines));
}

// ---- UriEncode --------------------------------------------------------------------------------------------

TEST(UriEncode, EscapesWhatIsNeitherALetterNorADigitNorOneOfNine) {
    EXPECT_EQ(encoded(L"a b&c"), L"a+b%26c");
    EXPECT_EQ(encoded(L"50%"), L"50%25");
    EXPECT_EQ(encoded(L"a-b_c.d~e!"), L"a-b_c.d~e!");
    EXPECT_EQ(encoded(L"'(*)"), L"'(*)");
    EXPECT_EQ(encoded(L"/:"), L"%2F%3A");
    EXPECT_EQ(encoded(L"\t\n x"), L"+++x");
    EXPECT_EQ(encoded(L"\x7F\x01"), L"%7F%01");
    EXPECT_EQ(encoded(std::wstring_view(L"\0", 1)), L"%00");
    EXPECT_EQ(encoded(L""), L"");
}

TEST(UriEncode, LettersOfTheLocaleStay) {
    EXPECT_EQ(encoded(L"\u00E9\u00FF\u00A7"), L"%E9%FF%A7") << "in the C locale";
    const brimtest::ScopedLocale locale("C.utf8");
    BRIM_SKIP_WITHOUT(locale)
    EXPECT_EQ(encoded(L"\u00E9\u0416\u00A7"), L"\u00E9\u0416%A7");
}

TEST(UriEncode, TheFirstDigitOfAWideCharacterIsComputedFromEightBits) {
    EXPECT_EQ(encoded(L"\u20AC"), L"%AC") << "0x20A, cut to 0x0A";
    EXPECT_EQ(encoded(L"\u0100"), (std::wstring{L'%', hexDigit(0x10), L'0'}));
    EXPECT_EQ(encoded(L"\u0800"), (std::wstring{L'%', static_cast<wchar_t>(L'0' - 128), L'0'}));
    EXPECT_EQ(encoded(L"\u1000"), L"%00");
}

TEST(UriEncode, EveryCharacterIsAsDescribed) {
    for (const char* const name : {"C", "C.utf8"}) {
        const brimtest::ScopedLocale locale(name);
        ASSERT_TRUE(locale.isSet());
        for (wchar_t c = 0; c < 0x11000; ++c) {
            const std::wstring text(1, c);
            ASSERT_EQ(encoded(text), modelUriEncode(text)) << static_cast<long>(c) << " in " << name;
        }
    }
}

TEST(UriEncode, AgreesWithTheModelOnLongTexts) {
    const brimtest::ScopedLocale locale("C.utf8");
    BRIM_SKIP_WITHOUT(locale)
    constexpr std::uint64_t kSeed = 7403;
    RandomTexts random(kSeed);
    for (std::size_t n = 0; n < 800; ++n) {
        const std::wstring text =
            random.textOf(n % 2 == 0 ? L"abc /%" : L"a-\t\n&\u00E9\u00D7\u0416\u2003~", n);
        ASSERT_EQ(encoded(text), modelUriEncode(text)) << "seed " << kSeed << ", length " << n;
        ASSERT_EQ(decoded(encoded(text)), modelUriDecode(modelUriEncode(text), false)) << "length " << n;
    }
}

// Each kernel gets exactly the room that it asks for, and no character more to read.
TEST(UriEncode, AgreesWithTheModelAtEveryLevelAndLength) {
    const brimtest::ScopedLocale locale("C.utf8");
    BRIM_SKIP_WITHOUT(locale)
    brimtest::atEachLevel([] {
        constexpr std::uint64_t kSeed = 7404;
        RandomTexts random(kSeed);
        for (std::size_t n = 0; n < 150; ++n) {
            for (const std::wstring_view alphabet :
                 {std::wstring_view(L"abc /%"), std::wstring_view(L"abcdefgh\u00E9\u00D7~\u0416", 12),
                  std::wstring_view(L"aB09-_.!'()*~ \t\n\0\"<>\\^\x7F\x80\xFF\u0100", 26)}) {
                const std::wstring text = random.textOf(alphabet, n);
                ASSERT_EQ(encoded(text), modelUriEncode(text)) << "seed " << kSeed << ", length " << n;
            }
        }
    });
}

TEST(UriEncode, TheKernelStaysInsideItsRoom) {
    sup::kernels::UriPieces pieces;
    std::fill(std::begin(pieces), std::end(pieces), 3U << 24 | 0x464625U);
    brimtest::atEachLevel([&] {
        brimtest::GuardedBuffer<wchar_t> source(300);
        brimtest::GuardedBuffer<wchar_t> room(3 * 300 + 4);
        for (std::size_t n = 0; n <= 300; ++n) {
            wchar_t* const text = source.last(n);
            std::fill_n(text, n, L'\xFF');
            wchar_t* const out = room.last(3 * n + 4);
            const sup::kernels::EscapeProgress done = sup::kernels::encodeUri(pieces, text, n, out);
            ASSERT_EQ(done.read, n);
            ASSERT_EQ(std::wstring_view(out, done.written).substr(0, 6), n == 0   ? L""
                                                                         : n == 1 ? L"%FF"
                                                                                  : L"%FF%FF");
            ASSERT_EQ(done.written, 3 * n);
        }
    });
}

TEST(UriDecode, AgreesWithTheModelAtEveryLevelAndLength) {
    const std::wstring_view pieces[] = {L"abcdefghijklmnopqrstuvwxyz",
                                        L"+",
                                        L"%41",
                                        L"%2f",
                                        L"%2F",
                                        L"%00",
                                        L"%C3%A9",
                                        L"%u20AC",
                                        L"%",
                                        L"%4",
                                        L"%g1",
                                        L"\u4E00",
                                        L"%%41",
                                        L"-"};
    brimtest::atEachLevel([&] {
        constexpr std::uint64_t kSeed = 7405;
        RandomTexts random(kSeed);
        for (int i = 0; i < 4000; ++i) {
            // Mostly what is decoded by blocks, which then begin anywhere.
            const std::size_t kinds = i % 2 == 0 ? 5 : std::size(pieces);
            std::wstring text;
            for (std::size_t n = random.below(60); n != 0; --n) {
                const std::wstring_view piece = pieces[random.below(kinds)];
                text += piece.substr(0, piece.size() == 26 ? random.below(27) : piece.size());
            }
            ASSERT_EQ(decoded(text), modelUriDecode(text, false))
                << "seed " << kSeed << ", round " << i << ": " << ::testing::PrintToString(text);
        }
    });
}

TEST(UriDecode, TheKernelStaysInsideItsRoom) {
    brimtest::atEachLevel([&] {
        brimtest::GuardedBuffer<wchar_t> source(400);
        brimtest::GuardedBuffer<wchar_t> room(400 + 64);
        for (std::size_t n = 0; n <= 400; ++n) {
            for (const std::wstring_view unit : {std::wstring_view(L"a"), std::wstring_view(L"%41")}) {
                wchar_t* const text = source.last(n);
                for (std::size_t i = 0; i < n; ++i) {
                    text[i] = unit[i % unit.size()];
                }
                const sup::kernels::EscapeProgress done = sup::kernels::decodeUri(text, n, room.last(n + 64));
                ASSERT_LE(done.read, n);
                ASSERT_TRUE(done.read == n || text[done.read] == L'%') << n;
            }
        }
    });
}

TEST(UriDecode, UndoesTheEncodingOfAsciiTexts) {
    std::wstring all;
    for (wchar_t c = 0x20; c < 0x80; ++c) {
        all += c;
    }
    EXPECT_EQ(decoded(encoded(all)), all);
}

// ---- UriDecode --------------------------------------------------------------------------------------------

TEST(UriDecode, ReadsItsEscapes) {
    EXPECT_EQ(decoded(L"a%20b+c"), L"a b c");
    EXPECT_EQ(decoded(L"%C3%A9"), L"\u00E9");
    EXPECT_EQ(decoded(L"%c3%a9"), L"\u00E9");
    EXPECT_EQ(decoded(L"%u20AC%u20ac"), L"\u20AC\u20AC");
    EXPECT_EQ(decoded(L"%41%C3%A9%42%E2%82%AC%43"), L"A\u00E9B\u20AC"
                                                    L"C");
    EXPECT_EQ(decoded(L"%F0%9F%98%80"), L"\xD83D\xDE00");
    EXPECT_EQ(decoded(L"%uD83D%uDE00"), L"\xD83D\xDE00");
    EXPECT_EQ(decoded(L""), L"");
}

TEST(UriDecode, APercentSignThatBeginsNoEscapeIsDropped) {
    EXPECT_EQ(decoded(L"100%zz"), L"100zz");
    EXPECT_EQ(decoded(L"%"), L"");
    EXPECT_EQ(decoded(L"%%41"), L"A");
    EXPECT_EQ(decoded(L"%4"), L"4");
    EXPECT_EQ(decoded(L"%4g%u12"), L"4gu12");
    EXPECT_EQ(decoded(L"%U20AC"), L"U20AC") << "only a small u";
    EXPECT_EQ(decoded(L"%u20A"), L"u20A");
    EXPECT_EQ(decoded(L"%\uFF14\uFF11"), L"\uFF14\uFF11") << "wide digits are none";
    EXPECT_EQ(decoded(L"%C3%%A9").find(L'\u00E9'), std::wstring::npos) << "and ends a run";
}

TEST(UriDecode, ZeroBytesAreDropped) {
    EXPECT_EQ(decoded(L"a%00b"), L"ab");
    EXPECT_EQ(decoded(L"%C3%00%A9"), L"\u00E9") << "inside a run too";
    EXPECT_EQ(decoded(L"a%u0000b"), std::wstring(L"a\0b", 3)) << "but not this form";
}

TEST(UriDecode, EndsAtTheFirstClosingBracket) {
    EXPECT_EQ(decoded(L"a>b"), L"a");
    EXPECT_EQ(decoded(L">b"), L"");
    EXPECT_EQ(decoded(L"%4>1"), L"4");
    EXPECT_EQ(decoded(L"a%3Eb"), L"a>b") << "an escaped one is none";
}

TEST(UriDecode, TheMarkerIsSkippedWhereverTheTextBeginsWithIt) {
    for (const bool requireMarker : {false, true}) {
        EXPECT_EQ(decoded(L"URI-ENCODED<x%3Dy>tail", requireMarker), L"x=y");
        EXPECT_EQ(decoded(L"URI-ENCODED<x+y", requireMarker), L"x y");
        EXPECT_EQ(decoded(L"URI-ENCODED<", requireMarker), L"");
        EXPECT_EQ(decoded(L"URI-ENCODED<URI-ENCODED<", requireMarker), L"URI-ENCODED<") << "once";
    }
    for (const wchar_t* const text :
         {L"x%3Dy", L"a+b>c", L"URI-ENCODED", L"uri-encoded<x+y>", L" URI-ENCODED<x+y>", L""}) {
        EXPECT_EQ(decoded(text, true), text) << "without the marker it stays";
    }
    EXPECT_EQ(decoded(L"x URI-ENCODED<a>b"), L"x URI-ENCODED<a");
}

TEST(UriDecode, ACharacterAcrossTheEndOfAFullBufferIsCut) {
    for (const std::wstring_view unit :
         {std::wstring_view(L"%E2%82%AC"), std::wstring_view(L"%C3%A9"), std::wstring_view(L"%F0%9F%98%80"),
          std::wstring_view(L"%C3%A9%41")}) {
        for (std::size_t escapes = 2044; escapes <= 2052; ++escapes) {
            const std::wstring text = repeated(unit, escapes).substr(0, 3 * escapes);
            ASSERT_EQ(decoded(text + L"z"), modelUriDecode(text + L"z", false)) << escapes;
            ASSERT_EQ(decoded(L"%41" + text), L"A" + modelUriDecode(text, false)) << escapes;
        }
    }
    // 682 whole characters are 2,046 bytes; the next one has two bytes before the edge and one behind.
    const std::wstring whole = decoded(repeated(L"%E2%82%AC", 682));
    EXPECT_EQ(whole, std::wstring(682, L'\u20AC'));
    const std::wstring cut = decoded(repeated(L"%E2%82%AC", 683));
    EXPECT_EQ(cut.substr(0, 682), whole);
    EXPECT_EQ(cut.find(L'\u20AC', 682), std::wstring::npos);
    EXPECT_EQ(decoded(repeated(L"%C3%A9", 1025)), std::wstring(1025, L'\u00E9')) << "1,024 fill it exactly";
}

TEST(UriDecode, AgreesWithTheModelOnRandomTexts) {
    constexpr std::uint64_t kSeed = 7801;
    RandomTexts random(kSeed);
    const std::wstring_view pieces[] = {L"%",   L"%4",     L"1",      L"%C3", L"%A9",    L"%c3%a9",
                                        L"%00", L"%u20AC", L"%u",     L"u12", L"+",      L"a",
                                        L"%7F", L"%80",    L"%E2%82", L"%FF", L"%F0%9F", L"%98%80",
                                        L"<",   L"\u4E00", L"%41",    L"g",   L"%uD800", L"%ED%A0%80"};
    for (int i = 0; i < 30000; ++i) {
        std::wstring text = random.below(4) == 0 ? L"URI-ENCODED<" : L"";
        for (std::size_t n = random.below(12); n != 0; --n) {
            text += pieces[random.below(std::size(pieces))];
        }
        text += random.below(6) == 0 ? L">%41" : L"";
        const bool requireMarker = random.flip();
        ASSERT_EQ(decoded(text, requireMarker), modelUriDecode(text, requireMarker))
            << "seed " << kSeed << ": " << ::testing::PrintToString(text) << ", " << requireMarker;
    }
}

// ---- Base64 -----------------------------------------------------------------------------------------------

TEST(EncodeBase64, PadsToFourCharacters) {
    EXPECT_EQ(base64Encoded(""), L"");
    EXPECT_EQ(base64Encoded("f"), L"Zg==");
    EXPECT_EQ(base64Encoded("fo"), L"Zm8=");
    EXPECT_EQ(base64Encoded("foo"), L"Zm9v");
    EXPECT_EQ(base64Encoded("foobar"), L"Zm9vYmFy");
    EXPECT_EQ(base64Encoded("\xFB\xEF\xFF"), L"++//");
}

TEST(EncodeBase64, ATextIsEncodedAsUtf8) {
    BrimString out(L"before");
    EXPECT_EQ(BaseStringUtil::EncodeBase64(BrimString(L"\u00E9\u20AC"), out), 8);
    EXPECT_EQ(plain(out), L"w6nigqw=");
    EXPECT_EQ(BaseStringUtil::EncodeBase64(out, out), 12) << "the text may be the result";
    EXPECT_EQ(plain(out), L"dzZuaWdxdz0=");
    EXPECT_EQ(BaseStringUtil::EncodeBase64(BrimString(L"fo\0o", 4), out), 4) << "the first zero ends it";
    EXPECT_EQ(plain(out), L"Zm8=");
}

TEST(EncodeBase64, AnEmptyTextGivesMinusOneAndLeavesTheResultAlone) {
    BrimString out(L"before");
    EXPECT_EQ(BaseStringUtil::EncodeBase64(BrimString(), out), -1);
    EXPECT_EQ(BaseStringUtil::EncodeBase64(BrimString(L"\0x", 2), out), -1);
    EXPECT_EQ(plain(out), L"before");
}

TEST(EncodeBase64, BreaksLinesAfterSeventySixCharactersThatOthersFollow) {
    const std::string bytes(57, 'x'); // one line
    EXPECT_EQ(base64Encoded(bytes, true).find(L'\r'), std::wstring::npos);
    const std::wstring two = base64Encoded(bytes + "y", true);
    EXPECT_EQ(two.size(), 82U);
    EXPECT_EQ(two.substr(76), L"\r\neQ==");
    EXPECT_EQ(base64Encoded(bytes + bytes, true).size(), 154U) << "no break at the end";
    EXPECT_EQ(base64Encoded("", true), L"");
}

TEST(Base64, AgreesWithTheModelsOnEveryLength) {
    constexpr std::uint64_t kSeed = 7802;
    RandomTexts random(kSeed);
    for (std::size_t length = 0; length < 300; ++length) {
        Bytes bytes(length);
        for (unsigned char& byte : bytes) {
            byte = static_cast<unsigned char>(random.below(256));
        }
        for (const bool breakLines : {false, true}) {
            ASSERT_EQ(plain(BaseStringUtil::EncodeBase64(bytes, breakLines)), modelBase64(bytes, breakLines))
                << "seed " << kSeed << ", " << length;
        }
        const std::wstring text = plain(BaseStringUtil::EncodeBase64(bytes, false));
        ASSERT_EQ(base64Decoded(std::string(text.begin(), text.end())), bytes)
            << "seed " << kSeed << ", " << length;
    }
}

TEST(Base64, AgreesWithTheModelsAtEveryLevel) {
    brimtest::atEachLevel([] {
        constexpr std::uint64_t kSeed = 7804;
        RandomTexts random(kSeed);
        for (std::size_t length = 0; length < 5000; length += length < 260 ? 1 : 613) {
            Bytes bytes(length);
            for (unsigned char& byte : bytes) {
                byte = static_cast<unsigned char>(random.below(256));
            }
            const std::wstring text = modelBase64(bytes, false);
            ASSERT_EQ(plain(BaseStringUtil::EncodeBase64(bytes, false)), text)
                << "seed " << kSeed << ", " << length;
            ASSERT_EQ(plain(BaseStringUtil::EncodeBase64(bytes, true)), modelBase64(bytes, true))
                << "seed " << kSeed << ", " << length;
            ASSERT_EQ(base64Decoded(std::string(text.begin(), text.end())), bytes)
                << "seed " << kSeed << ", " << length;
        }
    });
}

TEST(Base64Decode, AnyCharacterOutsideTheAlphabetEndsItAtEveryPlaceAndLevel) {
    brimtest::atEachLevel([] {
        for (std::size_t length = 1; length < 160; length += 1 + length / 9) {
            for (std::size_t place = 0; place < length; ++place) {
                Bytes text(length, static_cast<unsigned char>('z'));
                for (const char c : std::string_view("\0,.:@[`{\x7F\x80\xAB\xE1\xFF", 13)) {
                    text[place] = static_cast<unsigned char>(c);
                    ASSERT_EQ(base64Decoded(text, static_cast<int>(length)), modelBase64Decode(text))
                        << length << ", " << place << ", " << static_cast<int>(c);
                }
            }
        }
        for (int c = 0; c < 256; ++c) { // in a block that is looked at as a whole
            Bytes text(80, static_cast<unsigned char>('A'));
            text[37] = static_cast<unsigned char>(c);
            ASSERT_EQ(base64Decoded(text, 80), modelBase64Decode(text)) << c;
        }
    });
}

TEST(Base64, TheKernelsStayInsideTheirRoom) {
    brimtest::atEachLevel([] {
        brimtest::GuardedBuffer<unsigned char> bytes(3 * 200);
        brimtest::GuardedBuffer<char> text(4 * 200);
        brimtest::GuardedBuffer<unsigned char> back(3 * 200);
        for (std::size_t groups = 0; groups <= 200; ++groups) {
            unsigned char* const from = bytes.last(3 * groups);
            for (std::size_t i = 0; i < 3 * groups; ++i) {
                from[i] = static_cast<unsigned char>(i * 77);
            }
            char* const encodedText = text.last(4 * groups);
            sup::kernels::encodeBase64(from, groups, encodedText);
            unsigned char* const to = back.last(3 * groups);
            ASSERT_EQ(sup::kernels::decodeBase64(reinterpret_cast<unsigned char*>(encodedText), groups, to),
                      groups);
            ASSERT_TRUE(std::equal(from, from + 3 * groups, to)) << groups;
        }
    });
}

TEST(Base64Decode, StopsAtTheFirstCharacterOutsideTheAlphabet) {
    const Bytes foo = bytesOf("foo");
    for (const char* const text :
         {"Zm9v", "Zm9v=YmFy", "Zm9v\r\nYmFy", "Zm9v YmFy", "Zm9v-YmFy", "Zm9v_", "Zm9v\xE9YmFy"}) {
        EXPECT_EQ(base64Decoded(text), foo) << text;
    }
    EXPECT_EQ(base64Decoded(std::string_view("Zm9v\0YmFy", 9)), foo);
    EXPECT_EQ(base64Decoded("Zm9vYmFy"), bytesOf("foobar"));
}

TEST(Base64Decode, LettersOfTheLocaleOutsideTheAlphabetEndIt) {
    for (int c = 0; c < 256; ++c) {
        const bool inAlphabet = kBase64.find(static_cast<char>(c)) != std::string_view::npos;
        const std::string text = std::string("Zm9v") + static_cast<char>(c) + "AAA";
        ASSERT_EQ(base64Decoded(text).size(), inAlphabet ? 6U : 3U) << c;
    }
}

TEST(Base64Decode, AShortFinalGroupGivesOneOrTwoBytes) {
    EXPECT_EQ(base64Decoded("Zg=="), bytesOf("f"));
    EXPECT_EQ(base64Decoded("Zg"), bytesOf("f")) << "padding is not asked for";
    EXPECT_EQ(base64Decoded("Zm8"), bytesOf("fo"));
    EXPECT_EQ(base64Decoded("Z"), Bytes()) << "one character is no byte";
    EXPECT_EQ(base64Decoded("Zm9vY"), bytesOf("foo"));
    EXPECT_EQ(base64Decoded("="), Bytes());
}

TEST(Base64Decode, ReadsNoMoreThanTheLength) {
    EXPECT_EQ(base64Decoded(bytesOf("Zm9vYmFy"), 4), bytesOf("foo"));
    EXPECT_EQ(base64Decoded(bytesOf("Zm9vYmFy"), 0), Bytes());
    EXPECT_EQ(base64Decoded(bytesOf("Zm9vYmFy"), -1), Bytes());
    Bytes out(5);
    BaseStringUtil::Base64Decode(nullptr, 0, out);
    EXPECT_TRUE(out.empty());
}

TEST(Base64Decode, AgreesWithTheModelOnRandomTexts) {
    constexpr std::uint64_t kSeed = 7803;
    RandomTexts random(kSeed);
    for (int i = 0; i < 20000; ++i) {
        Bytes text(random.below(24));
        for (unsigned char& c : text) {
            c = static_cast<unsigned char>(random.below(12) == 0
                                               ? random.below(256)
                                               : static_cast<unsigned char>(kBase64[random.below(64)]));
        }
        ASSERT_EQ(base64Decoded(text, static_cast<int>(text.size())), modelBase64Decode(text))
            << "seed " << kSeed;
    }
}

// ---- XML and quotes ---------------------------------------------------------------------------------------

TEST(EscapeXMLChars, EscapesTheFive) {
    const auto escaped = [](std::wstring_view text) {
        return plain(BaseStringUtil::EscapeXMLChars(brim(text)));
    };
    EXPECT_EQ(escaped(L"a<b & \"c\""), L"a&lt;b &amp; &quot;c&quot;");
    EXPECT_EQ(escaped(L"it's>"), L"it&apos;s&gt;");
    EXPECT_EQ(escaped(L"&&amp;"), L"&amp;&amp;amp;");
    EXPECT_EQ(escaped(L"plain \u4E00"), L"plain \u4E00");
    EXPECT_EQ(escaped(std::wstring_view(L"a\0<", 3)), std::wstring(L"a\0&lt;", 6));
    EXPECT_EQ(escaped(L""), L"");
}

TEST(EscapeXMLChars, AgreesWithTheModelOnRandomTexts) {
    brimtest::atEachLevel([] {
        constexpr std::uint64_t kSeed = 7402;
        RandomTexts random(kSeed);
        for (int i = 0; i < 1500; ++i) {
            const std::wstring text = random.text(
                i % 2 == 0 ? L"abcdefghijklmnopqrstuvwxyz\u00E9\u0426\u043C<" : L"a\"'&<>b\u0426", 600);
            ASSERT_EQ(plain(BaseStringUtil::EscapeXMLChars(brim(text))), modelEscapeXml(text))
                << "seed " << kSeed << ", round " << i;
        }
    });
}

TEST(EscapeXMLChars, TheKernelStaysInsideItsRoom) {
    brimtest::GuardedBuffer<wchar_t> source(70);
    brimtest::GuardedBuffer<wchar_t> room(6 * 70 + 3);
    for (std::size_t n = 0; n <= 70; ++n) {
        wchar_t* const text = source.last(n);
        std::fill_n(text, n, L'"');
        wchar_t* const out = room.last(6 * n + 3);
        ASSERT_EQ(sup::kernels::escapeXml(text, n, out), 6 * n);
        ASSERT_EQ(std::wstring(out, 6 * n), modelEscapeXml(std::wstring(text, n)));
    }
}

TEST(EscapeXMLChars, WhatLooksLikeASpecialCharacterWhenItIsNarrowedStays) {
    std::wstring text;
    for (const wchar_t c : {L'"', L'\'', L'&', L'<', L'>'}) {
        for (const int far : {0x80, 0x100, 0x8000, 0x10000, 0x7FFFFF00}) {
            text += static_cast<wchar_t>(c + far);
        }
        text += static_cast<wchar_t>(static_cast<std::uint32_t>(c) | 0x80000000U);
    }
    EXPECT_EQ(plain(BaseStringUtil::EscapeXMLChars(brim(text))), text);
}

TEST(EscapeCharacter, PutsTheEscapeBeforeItselfAndTheSpecialCharacter) {
    const auto escaped = [](const wchar_t* text, wchar_t escape, wchar_t special) {
        return plain(BaseStringUtil::EscapeCharacter(BrimString(text), escape, special));
    };
    EXPECT_EQ(escaped(L"a,b\\c", L'\\', L','), L"a\\,b\\\\c");
    EXPECT_EQ(escaped(L"a'b", L'\'', L'\''), L"a''b") << "once where both are one";
    EXPECT_EQ(escaped(L"abc", L'\\', L','), L"abc");
    EXPECT_EQ(escaped(L"", L'\\', L','), L"");
}

TEST(EscapeCharacter, IsUndoneByTheTokenizer) {
    constexpr std::uint64_t kSeed = 7804;
    RandomTexts random(kSeed);
    for (int i = 0; i < 3000; ++i) {
        const std::wstring text = L"x" + random.text(L"ab,\\", 12);
        BrimStringVector out;
        BaseStringUtil::TokenizeWithEscape(BaseStringUtil::EscapeCharacter(brim(text), L'\\', L','), L',',
                                           L'\\', out);
        ASSERT_EQ(plain(out), std::vector<std::wstring>{text}) << "seed " << kSeed;
    }
}

TEST(QuoteAround, DoublesQuotesAndPutsOneOnEachSide) {
    const auto quoted = [](const wchar_t* text, const wchar_t* quote) {
        BrimString given(text);
        const BrimString shared = given;
        BaseStringUtil::QuoteAround(given, quote);
        EXPECT_EQ(shared, text) << "a copy made before";
        return plain(given);
    };
    EXPECT_EQ(quoted(L"it's", L"'"), L"'it''s'");
    EXPECT_EQ(quoted(L"", L"\""), L"\"\"");
    EXPECT_EQ(quoted(L"'", L"'"), L"''''");
    EXPECT_EQ(quoted(L"a$$b$c", L"$$"), L"$$a$$$$b$c$$");
    EXPECT_EQ(quoted(L"abc", L""), L"abc");
    BrimString own(L"'");
    BaseStringUtil::QuoteAround(own, own.c_str());
    EXPECT_EQ(plain(own), L"''''") << "the quote may be the text";
}

} // namespace
