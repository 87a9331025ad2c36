// BaseStringUtil without memory, function by function. Texts are longer than what any function holds inline.
#include "fault_injection.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "wide_texts.h"

#include <cstdarg>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

using namespace brimtest;
using Util = BaseStringUtil;

namespace {

constexpr unsigned int kUtf8 = 65001;

std::wstring repeated(const std::wstring& text, std::size_t n) {
    std::wstring result;
    while (n-- != 0) {
        result += text;
    }
    return result;
}

struct Texts {
    BrimString text = brim(
        L"  " + repeated(L"alpha, \"beta\"; (gamma) 'de''lta' <b a='1'>\x20AC &amp; %41+%u0042\n\t", 20) +
        L"  ");
    BrimString word{L"gamma"};
    BrimString replacement{L"a longer replacement than what it replaces"};
    BrimString quoted = brim(L"a '" + repeated(L"b''", 100) + L"' c");
    BrimString set{L";%"};
    BrimString number{L"   1234567"};
    BrimString base64 = brim(repeated(L"QUJD", 200));
    BrimString marked = brim(L"URI-ENCODED<" + repeated(L"%E2%82%AC+a", 100) + L">");
    sup::String<char> narrow = Util::StringToStdString(text.c_str(), kUtf8);

    BrimString out{L"before"};
    sup::String<char> narrowOut{"before"};
    BrimStringVector list{BrimString(L"one"), brim(repeated(L"two", 50))};
    std::vector<std::pair<std::size_t, std::size_t>> ranges;
    std::vector<unsigned char> bytes{1, 2, 3};
    std::size_t found = 0;
    double value = 0;
};

std::string picture(const Texts& t) {
    std::string all = testing::PrintToString(plain(t.text)) + testing::PrintToString(plain(t.out)) +
                      t.narrowOut.c_str() + testing::PrintToString(plain(t.list)) +
                      testing::PrintToString(t.ranges) + testing::PrintToString(t.bytes) +
                      std::to_string(t.found) + std::to_string(t.value);
    return all;
}

void formatV(BrimString& out, const char* format, ...) {
    va_list args;
    va_start(args, format);
    try {
        Util::BrimString_sprintfV(out, format, args);
    } catch (...) {
        va_end(args);
        throw;
    }
    va_end(args);
}

TEST(UtilitiesWithoutMemory, Conversions) {
    expectHarmlessRefusals<Texts>({
        {"StdStringToString(bytes, buffer)",
         [](Texts& t) {
             wchar_t buffer[100];
             Util::StdStringToString(t.narrow.c_str(), buffer, 100, kUtf8);
         }},
        {"StdStringToString(bytes, count, buffer)",
         [](Texts& t) {
             wchar_t buffer[100];
             Util::StdStringToString(t.narrow.c_str(), 700, buffer, 100, kUtf8);
         }},
        {"StdStringToString(narrow string, buffer)",
         [](Texts& t) {
             wchar_t buffer[100];
             Util::StdStringToString(t.narrow, buffer, 100, kUtf8);
         }},
        {"StringToStdString(text, buffer)",
         [](Texts& t) {
             char buffer[100];
             Util::StringToStdString(t.text.c_str(), buffer, 100, kUtf8);
         }},
        {"StringToStdString(string, buffer)",
         [](Texts& t) {
             char buffer[100];
             Util::StringToStdString(t.text, buffer, 100, kUtf8);
         }},
        {"StringFrom(bytes)", [](Texts& t) { t.out = Util::StringFrom(t.narrow.c_str(), kUtf8); }},
        {"StringFrom(text)", [](Texts& t) { t.out = Util::StringFrom(t.text.c_str()); }},
        {"StdStringToString(bytes, string)",
         [](Texts& t) { Util::StdStringToString(t.narrow.c_str(), t.out, kUtf8); }},
        {"StdStringToString(bytes, count, string)",
         [](Texts& t) { Util::StdStringToString(t.narrow.c_str(), 700, t.out, kUtf8); }},
        {"StdStringToString(narrow string, string)",
         [](Texts& t) { Util::StdStringToString(t.narrow, t.out, kUtf8); }},
        {"StdStringToString(narrow string)",
         [](Texts& t) { t.out = Util::StdStringToString(t.narrow, kUtf8); }},
        {"StringToStdString(text)",
         [](Texts& t) { t.narrowOut = Util::StringToStdString(t.text.c_str(), kUtf8); }},
        {"StringToStdString(string)", [](Texts& t) { t.narrowOut = Util::StringToStdString(t.text, kUtf8); }},
        {"TryStringToStdString", [](Texts& t) { Util::TryStringToStdString(t.text, t.narrowOut, kUtf8); },
         Promise::usable},
        {"ConvertCommandArgumentsUTF8",
         [](Texts& t) {
             std::string bytes = t.narrow.c_str();
             char* arguments[] = {bytes.data(), bytes.data() + 10, bytes.data() + 20};
             Util::ReleaseCommandArgumentsUTF8(3, Util::ConvertCommandArgumentsUTF8(3, arguments));
         }},
    });
}

TEST(UtilitiesWithoutMemory, Numbers) {
    expectHarmlessRefusals<Texts>({
        {"StringFrom(unsigned long long)", [](Texts& t) { t.out = Util::StringFrom(~0ULL); }},
        {"StringFrom(long long)", [](Texts& t) { t.out = Util::StringFrom(-5LL); }},
        {"StringFrom(unsigned long)", [](Texts& t) { t.out = Util::StringFrom(5UL); }},
        {"StringFrom(long)", [](Texts& t) { t.out = Util::StringFrom(-5L); }},
        {"StringFrom(unsigned int)", [](Texts& t) { t.out = Util::StringFrom(5U); }},
        {"StringFrom(int)", [](Texts& t) { t.out = Util::StringFrom(-5); }},
        {"StringFrom(short)", [](Texts& t) { t.out = Util::StringFrom(static_cast<short>(-5)); }},
        {"StringFrom(unsigned short)",
         [](Texts& t) { t.out = Util::StringFrom(static_cast<unsigned short>(5)); }},
        {"StringFrom(unsigned char)",
         [](Texts& t) { t.out = Util::StringFrom(static_cast<unsigned char>(5)); }},
        {"ShortStringFrom", [](Texts& t) { t.out = Util::ShortStringFrom(1.25); }},
        {"StringFrom(double)", [](Texts& t) { t.out = Util::StringFrom(2.0, true); }},
        {"StringFrom(bool)", [](Texts& t) { t.out = Util::StringFrom(true); }},
        {"GetTrueWord", [](Texts& t) { t.out = Util::GetTrueWord(0); }},
        {"GetFalseWord", [](Texts& t) { t.out = Util::GetFalseWord(0); }},
        {"Int16From", [](Texts& t) { t.value = Util::Int16From(t.number); }, Promise::noRequest},
        {"IntFrom", [](Texts& t) { t.value = Util::IntFrom(t.number); }, Promise::noRequest},
        {"UIntFrom", [](Texts& t) { t.value = Util::UIntFrom(t.number); }, Promise::noRequest},
        {"FloatFrom", [](Texts& t) { t.value = Util::FloatFrom(t.number); }, Promise::noRequest},
        {"Float32From", [](Texts& t) { t.value = Util::Float32From(t.number); }, Promise::noRequest},
        {"IsInteger", [](Texts& t) { t.value = Util::IsInteger(t.number) ? 1 : 2; }, Promise::noRequest},
        {"IsFloat", [](Texts& t) { t.value = Util::IsFloat(t.number) ? 1 : 2; }, Promise::noRequest},
        {"StringToUint32", [](Texts& t) { t.value = Util::StringToUint32(t.number); }},
        {"StringToInteger", [](Texts& t) { t.value = Util::StringToInteger(t.number); }},
        {"BooleanFrom", [](Texts& t) { t.value = Util::BooleanFrom(L" off ", false) ? 1 : 2; }},
    });
}

TEST(UtilitiesWithoutMemory, Formatting) {
    expectHarmlessRefusals<Texts>({
        {"BrimString_sprintf",
         [](Texts& t) {
             Util::BrimString_sprintf(t.out, "%s %d", t.base64.length() > 5 ? "five" : "none", 5);
         }},
        {"BrimString_sprintfV", [](Texts& t) { formatV(t.out, "%01000d", 5); }},
        {"BrimString_brimsprintf", [](Texts& t) { Util::BrimString_brimsprintf(t.out, L"%01000d", 5); }},
        {"FormatErrorMsgLang",
         [](Texts& t) {
             BrimString tag(L"en-us");
             Util::FormatErrorMsgLang(tag);
             t.out = tag;
         }},
    });
}

TEST(UtilitiesWithoutMemory, TrimmingAndCase) {
    expectHarmlessRefusals<Texts>({
        {"TrimBoth", [](Texts& t) { t.out = Util::TrimBoth(t.text); }},
        {"TrimTrailingBlanks", [](Texts& t) { t.out = Util::TrimTrailingBlanks(t.text); }},
        {"CleanLeadingBlanksInString", [](Texts& t) { t.out = Util::CleanLeadingBlanksInString(t.text); }},
        {"RightPadWithSpaces", [](Texts& t) { t.out = Util::RightPadWithSpaces(t.word, 80); }},
        {"ToLowerCase", [](Texts& t) { t.out = Util::ToLowerCase(t.text); }},
        {"ToUpperCase", [](Texts& t) { t.out = Util::ToUpperCase(t.text); }},
        {"ToLowerCase(narrow)", [](Texts& t) { t.narrowOut = Util::ToLowerCase(t.narrow); }},
        {"ToUpperCase(narrow)", [](Texts& t) { t.narrowOut = Util::ToUpperCase(t.narrow); }},
    });
}

TEST(UtilitiesWithoutMemory, ComparisonsNeedNone) {
    expectHarmlessRefusals<Texts>({
        {"IsCaseInsensitiveMatch", [](Texts& t) { Util::IsCaseInsensitiveMatch(t.text, t.text); },
         Promise::noRequest},
        {"IsNTSCaseInsensitiveMatch",
         [](Texts& t) { Util::IsNTSCaseInsensitiveMatch(t.text.c_str(), t.word.c_str()); },
         Promise::noRequest},
        {"IsCaseInsensitiveLessThan", [](Texts& t) { Util::IsCaseInsensitiveLessThan(t.text, t.word); },
         Promise::noRequest},
        {"IsNTSCaseInsensitiveLessThan",
         [](Texts& t) { Util::IsNTSCaseInsensitiveLessThan(t.text.c_str(), t.word.c_str()); },
         Promise::noRequest},
        {"CaseInsensitiveCompare", [](Texts& t) { Util::CaseInsensitiveCompare(t.text, t.word); },
         Promise::noRequest},
        {"FileNameCompare", [](Texts& t) { Util::FileNameCompare(t.text.c_str(), t.word.c_str()); },
         Promise::noRequest},
        {"IsMatch", [](Texts& t) { Util::IsMatch(t.text, t.word); }, Promise::noRequest},
        {"IsWordSeparator", [](Texts& t) { Util::IsWordSeparator(t.text, 3); }, Promise::noRequest},
        {"IsSelfEnclosedWord", [](Texts& t) { Util::IsSelfEnclosedWord(t.text); }, Promise::noRequest},
        {"operator<", [](Texts& t) { t.value = t.text < t.word ? 1 : 2; }, Promise::noRequest},
    });
}

TEST(UtilitiesWithoutMemory, Searches) {
    expectHarmlessRefusals<Texts>({
        {"CaseInsensitiveFindPattern",
         [](Texts& t) { t.value = Util::CaseInsensitiveFindPattern(t.text, L"GAMMA") ? 1 : 2; }},
        {"CaseInsensitiveFind", [](Texts& t) { t.found = Util::CaseInsensitiveFind(t.text, L"GAMMA", 9); }},
        // Texts that repeat themselves, for which a search may want memory.
        {"ForwardPatternMatch",
         [](Texts& t) {
             static const BrimString text = brim(repeated(repeated(L"a", 1199) + L"b", 20));
             static const BrimString pattern = brim(repeated(L"a", 1200));
             t.found = Util::ForwardPatternMatch(text, pattern, 0);
         },
         Promise::served},
        {"ReversePatternMatch",
         [](Texts& t) {
             static const BrimString text = brim(repeated(repeated(L"a", 1199) + L"b", 20));
             static const BrimString pattern = brim(repeated(L"a", 1200));
             t.found = Util::ReversePatternMatch(text, pattern, text.length());
         },
         Promise::served},
        {"FindFirstOf", [](Texts& t) { t.found = Util::FindFirstOf(t.text, t.set, 0); }, Promise::noRequest},
        {"FindFirstNotOf", [](Texts& t) { t.found = Util::FindFirstNotOf(t.text, t.set, 0); },
         Promise::noRequest},
        {"FindLastOf", [](Texts& t) { t.found = Util::FindLastOf(t.text, t.set, 500); }, Promise::noRequest},
        {"FindFirstUnescaped", [](Texts& t) { t.found = Util::FindFirstUnescaped(t.text, L";", 0); },
         Promise::noRequest},
        {"FindFirstUnquoted",
         [](Texts& t) { t.found = Util::FindFirstUnquoted(t.text, L"%u", 0, &t.ranges); }, Promise::usable},
        {"FindClosingMark", [](Texts& t) { t.found = Util::FindClosingMark(t.text, 18, L"(", L")"); },
         Promise::noRequest},
        {"FindClosingParenthesis", [](Texts& t) { t.found = Util::FindClosingParenthesis(t.text, 18); },
         Promise::noRequest},
        {"FindClosingBrace", [](Texts& t) { t.found = Util::FindClosingBrace(t.text, 18); },
         Promise::noRequest},
        {"GetQuotedString", [](Texts& t) { Util::GetQuotedString(t.quoted, 3, t.out, t.found); },
         Promise::usable},
        {"ExtractTextSegmentIntoString",
         [](Texts& t) { Util::ExtractTextSegmentIntoString(t.text, L"alpha", L"lta", t.out); },
         Promise::usable},
        {"IsWildcardCaseInsensitiveMatch",
         [](Texts& t) { t.value = Util::IsWildcardCaseInsensitiveMatch(t.text, L"*G?MMA*delta*") ? 1 : 2; }},
        {"a wildcard segment of many question marks",
         [](Texts& t) {
             static const BrimString text = brim(repeated(L"a", 5000));
             static const BrimString pattern = brim(L"*" + repeated(L"a?", 300) + L"b*");
             t.value = Util::IsWildcardCaseInsensitiveMatch(text, pattern) ? 1 : 2;
         },
         Promise::served},
    });
}

TEST(UtilitiesWithoutMemory, SplittingJoiningAndReplacing) {
    expectHarmlessRefusals<Texts>({
        {"Tokenize", [](Texts& t) { Util::Tokenize(t.text, L" ,;", t.list, true, true); }, Promise::usable},
        {"TokenizeWithEscapeExt",
         [](Texts& t) { Util::TokenizeWithEscapeExt(t.text, L' ', L'a', true, t.list); }, Promise::usable},
        {"TokenizeWithEscape", [](Texts& t) { Util::TokenizeWithEscape(t.text, L' ', L'a', t.list); },
         Promise::usable},
        {"AppendToString", [](Texts& t) { Util::AppendToString(t.list, t.out, true); }, Promise::usable},
        {"SplitStringBySize", [](Texts& t) { Util::SplitStringBySize(t.text, t.list, 7); }, Promise::usable},
        {"ReplaceSubstring",
         [](Texts& t) { Util::ReplaceSubstring(t.text, t.word, t.replacement, true, false); }},
        {"ReplaceSubstring, any case",
         [](Texts& t) { Util::ReplaceSubstring(t.text, L"GAMMA", t.replacement, false, false); }},
        {"ReplaceSubstring, whole words",
         [](Texts& t) { Util::ReplaceSubstring(t.text, t.word, t.replacement, true, true); }},
        {"ReplaceSubstring, parts of words", // whose next occurrence overlaps the last
         [](Texts& t) {
             t.value = Util::ReplaceSubstring(t.text, L"amm", t.replacement, false, true) ? 1 : 2;
         }},
        {"ReplacePatternInString",
         [](Texts& t) { t.out = Util::ReplacePatternInString(t.text, t.word, t.replacement); }},
        {"UnescapeLikePattern",
         [](Texts& t) { t.out = Util::UnescapeLikePattern(L"50\\% of all of the texts"); }},
    });
}

TEST(UtilitiesWithoutMemory, EscapesAndFragments) {
    expectHarmlessRefusals<Texts>({
        {"UriEncode", [](Texts& t) { t.out = Util::UriEncode(t.text); }},
        {"UriDecode", [](Texts& t) { t.out = Util::UriDecode(t.marked, true); }},
        {"UriDecode of a plain text", [](Texts& t) { t.out = Util::UriDecode(t.text, false); }},
        {"Base64Decode",
         [](Texts& t) {
             static unsigned char text[] = "QUJDREVGR0hJSktMTU5PUFFSU1RVVldYWVo=";
             Util::Base64Decode(text, static_cast<int>(sizeof(text)) - 1, t.bytes);
         },
         Promise::usable},
        {"EncodeBase64(text)", [](Texts& t) { t.value = Util::EncodeBase64(t.text, t.out); }},
        {"EncodeBase64(bytes)",
         [](Texts& t) {
             static const std::vector<unsigned char> bytes(500, 'x');
             t.out = Util::EncodeBase64(bytes, true);
         }},
        {"EscapeXMLChars", [](Texts& t) { t.out = Util::EscapeXMLChars(t.text); }},
        {"EscapeCharacter", [](Texts& t) { t.out = Util::EscapeCharacter(t.text, L'\\', L'a'); }},
        {"QuoteAround", [](Texts& t) { Util::QuoteAround(t.text, L"'"); }},
        {"LineFeedConversion", [](Texts& t) { t.out = Util::LineFeedConversion(t.text); }},
        {"MakeOneLineString", [](Texts& t) { Util::MakeOneLineString(t.text); }},
        {"RemoveNonPrintableChars", [](Texts& t) { t.out = Util::RemoveNonPrintableChars(t.text); }},
        {"RemovePunctuationChars", [](Texts& t) { t.out = Util::RemovePunctuationChars(t.text); }},
        {"GetTextFragment", [](Texts& t) { t.out = Util::GetTextFragment(t.text, 200); }},
        {"GetNonWellFormedTextFragment",
         [](Texts& t) { t.out = Util::GetNonWellFormedTextFragment(t.text, 200); }},
        {"GetHTMLFragment", [](Texts& t) { t.out = Util::GetHTMLFragment(t.text, 200); }},
    });
}

} // namespace
