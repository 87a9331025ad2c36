// BaseStringUtil: static functions over strings. Conversions between narrow and wide text, formatting,
// numbers and booleans, case, searches, tokens, patterns, replacing, escapes.
//
// A search that finds nothing returns the length of the searched text, never npos. Character classes and case
// come from the C library's wide functions in the current locale. Null texts stand for the empty text.
// Exhausted memory is std::bad_alloc. Every function may be called from any thread, as long as none changes
// the process's locale.
#pragma once

#include "Utility/Generic/Portable/RefString.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/SUPString.h"

#include <cstdarg>
#include <cstddef>
#include <utility>
#include <vector>

/// Static functions over strings.
class BRIMPORTABLE_API BaseStringUtil {
public:
    /// The strings of this class.
    using String = sup::String<wchar_t>;
    using NarrowString = sup::String<char>;

    BaseStringUtil() = delete;

    // ---- Narrow and wide text -----------------------------------------------------------------------------
    // `codePage` is a number in the Windows numbering, 0 the process's own (SystemUtility::GetACP). Up to 512
    // characters are converted without an allocation besides the result.

    /// Fill a caller's buffer of `capacity` elements. The result ends in a zero within the capacity; what
    /// does not fit with its zero, or cannot be converted, gives the empty text. Nothing is written at a
    /// capacity of 0. A `srcLength` of 0xFFFFFFFF means a terminated source.
    static void StdStringToString(const char* src, unsigned int srcLength, wchar_t* dst,
                                  unsigned int capacity, unsigned int codePage);
    static void StdStringToString(const char* src, wchar_t* dst, unsigned int capacity,
                                  unsigned int codePage);
    static void StdStringToString(const NarrowString& src, wchar_t* dst, unsigned int capacity,
                                  unsigned int codePage);
    static void StringToStdString(const wchar_t* src, char* dst, unsigned int capacity,
                                  unsigned int codePage);
    static void StringToStdString(const String& src, char* dst, unsigned int capacity, unsigned int codePage);

    /// Build a string. Texts end at their first zero, except where a length is given.
    static String StringFrom(const char* src, unsigned int codePage);
    static String StringFrom(const wchar_t* src);
    static void StdStringToString(const char* src, String& out, unsigned int codePage);
    static void StdStringToString(const char* src, unsigned int srcLength, String& out,
                                  unsigned int codePage);
    static void StdStringToString(const NarrowString& src, String& out, unsigned int codePage);
    static String StdStringToString(const NarrowString& src, unsigned int codePage);
    static NarrowString StringToStdString(const wchar_t* src, unsigned int codePage);
    /// A text that cannot be converted (an unknown code page, or more than three bytes a character) fails the
    /// assertion "false". TryStringToStdString() returns false instead, with `out` empty.
    static NarrowString StringToStdString(const String& src, unsigned int codePage);
    /// The same, but false when the text cannot be converted.
    static bool TryStringToStdString(const String& src, NarrowString& out, unsigned int codePage);

    /// The arguments of main(), from UTF-8, each a terminated text of its own; released by the second
    /// function, given the same `argc`.
    static wchar_t** ConvertCommandArgumentsUTF8(int argc, char** argv);
    static void ReleaseCommandArgumentsUTF8(int argc, wchar_t** argv);

    // ---- Numbers to text ----------------------------------------------------------------------------------
    // Integers are plain decimal numbers in every locale. A double has at most 15 significant digits
    // ("%.15G"), the locale's decimal point and an upper-case exponent.

    /// The number as text.
    static String StringFrom(unsigned long long value);
    static String StringFrom(long long value);
    static String StringFrom(unsigned long value);
    static String StringFrom(long value);
    static String StringFrom(unsigned int value);
    static String StringFrom(int value);
    static String StringFrom(short value);
    static String StringFrom(unsigned short value);
    static String StringFrom(unsigned char value);
    static String ShortStringFrom(double value);
    /// As ShortStringFrom(); then a text without "." and "E" gets ".0", and with `doubleSuffix` every text
    /// but one with an "E" and no "." gets "d" after that: 2.0, 2.5d, 1E+20. Infinities and NaN are such
    /// texts too.
    static String StringFrom(double value, bool doubleSuffix);
    /// "True" or "False".
    static String StringFrom(bool value);

    // ---- Text to numbers ----------------------------------------------------------------------------------
    // As swscanf in the current locale: leading white space is skipped, what follows the number is ignored,
    // and a text that begins with no number gives 0. Integers are read with 64 bits (Int16From: 32), beyond
    // which they saturate, and cut to the result's width.

    /// The number that the text begins with.
    static short Int16From(const String& text);
    static int IntFrom(const String& text);
    static unsigned int UIntFrom(const String& text);
    static double FloatFrom(const String& text);
    static float Float32From(const String& text);
    /// True when wcstol (wcstod) reads the text to its end; so for the empty text.
    static bool IsInteger(const String& text);
    static bool IsFloat(const String& text);
    /// Read a number that may stand in quotes, apostrophes and blanks, as the C library's sscanf("%u") and
    /// strtol do, cut to 32 bits. At most 511 bytes.
    static unsigned int StringToUint32(const String& text);
    static int StringToInteger(const String& text);

    // ---- Booleans -----------------------------------------------------------------------------------------

    /// The words for true, in order, and those for false.
    static constexpr wchar_t S_TRUE_FIRST_CAP[] = L"True";
    static constexpr wchar_t _S_YES[] = L"Yes";
    static constexpr wchar_t S_ON_FIRST_CAP[] = L"On";
    static constexpr wchar_t S_ONE[] = L"1";
    static constexpr wchar_t S_PLUS[] = L"+";
    static constexpr wchar_t S_OKAY[] = L"Ok";
    static constexpr wchar_t S_ONE_POINT_ZERO[] = L"1.0";
    static constexpr wchar_t S_FALSE_FIRST_CAP[] = L"False";
    static constexpr wchar_t _S_NO[] = L"No";
    static constexpr wchar_t S_OFF_FIRST_CAP[] = L"Off";
    static constexpr wchar_t S_ZERO[] = L"0";
    static constexpr wchar_t S_MINUS[] = L"-";
    static constexpr wchar_t S_ZERO_POINT_ZERO[] = L"0.0";

    /// The words are counted from 0.
    static int GetNumberOfTrueWords();
    static int GetNumberOfFalseWords();
    /// The word at `index`; an index that has none is a logic error and ends the process.
    static String GetTrueWord(int index);
    static String GetFalseWord(int index);
    /// Reads a word in any case, blanks around it ignored; a single character is read by the words' initials
    /// ("o" is no one's: On and Off share it). A blank text is false. Anything else is false too, or throws
    /// int 0 with `throwIfUnknown`.
    static bool BooleanFrom(const String& text, bool throwIfUnknown);

    // ---- Formatting ---------------------------------------------------------------------------------------

    /// Formats as printf and converts from the process's code page. Output beyond 98,303 bytes is cut.
    static void BrimString_sprintf(String& out, const char* format, ...)
        __attribute__((format(printf, 2, 3)));
    static void BrimString_sprintfV(String& out, const char* format, va_list args)
        __attribute__((format(printf, 2, 0)));
    /// Formats as wprintf, of any length; ends at the first zero. `out` stays as it was when the format
    /// cannot be expanded.
    static void BrimString_brimsprintf(String& out, const wchar_t* format, ...);

    /// Brings a language tag of two parts into its usual form: "en-us" becomes "en-US"; others stay.
    static void FormatErrorMsgLang(String& tag);

    // ---- Trimming and padding -----------------------------------------------------------------------------

    /// Without the blanks at both ends, at the end, at the beginning.
    static String TrimBoth(const String& text);
    static String TrimTrailingBlanks(const String& text);
    static String CleanLeadingBlanksInString(const String& text);
    /// Fills up with blanks to `width` characters.
    static String RightPadWithSpaces(const String& text, std::size_t width);

    // ---- Case ---------------------------------------------------------------------------------------------

    /// `dst` has room for the text and its zero, and may be `src`.
    static void ToLowerCase(const wchar_t* src, wchar_t* dst);
    static void ToUpperCase(const wchar_t* src, wchar_t* dst);
    static void ToLowerCase(const char* src, char* dst);
    static void ToUpperCase(const char* src, char* dst);
    static String ToLowerCase(const String& text);
    static String ToUpperCase(const String& text);
    static NarrowString ToLowerCase(const NarrowString& text);
    static NarrowString ToUpperCase(const NarrowString& text);

    // ---- Comparison ---------------------------------------------------------------------------------------
    // Without regard to case: characters are compared after towlower, as unsigned numbers. "NTS" forms take
    // zero-terminated texts.

    /// True for texts of the same length and characters.
    static bool IsCaseInsensitiveMatch(const String& a, const String& b);
    static bool IsNTSCaseInsensitiveMatch(const wchar_t* a, const wchar_t* b);
    /// Over the texts up to their first zero.
    static bool IsCaseInsensitiveLessThan(const String& a, const String& b);
    static bool IsNTSCaseInsensitiveLessThan(const wchar_t* a, const wchar_t* b);
    /// -1, 0 or 1.
    static int CaseInsensitiveCompare(const String& a, const String& b);
    /// File names differ by case: wcscmp.
    static int FileNameCompare(const wchar_t* a, const wchar_t* b);
    /// True when `pattern` occurs in `text`; an empty pattern occurs in every text but the empty one.
    static bool CaseInsensitiveFindPattern(const String& text, const String& pattern);
    /// True for the same characters, case included.
    static bool IsMatch(const String& a, const String& b);

    // ---- Character sets -----------------------------------------------------------------------------------

    /// The first character at or after `start` that is in `set`, or that is not.
    static std::size_t FindFirstOf(const String& text, const String& set, std::size_t start);
    static std::size_t FindFirstNotOf(const String& text, const String& set, std::size_t start);
    /// Backwards from `start`, or from the last character when that is nearer.
    static std::size_t FindLastOf(const String& text, const String& set, std::size_t start);

    // ---- Sub-strings --------------------------------------------------------------------------------------
    // Zeros are characters like others here. An empty pattern is never found.

    /// The first occurrence at or after `start`.
    static std::size_t ForwardPatternMatch(const RefStringTemplate<wchar_t>& text,
                                           const RefStringTemplate<wchar_t>& pattern, std::size_t start);
    static std::size_t ForwardPatternMatch(const String& text, const String& pattern, std::size_t start);
    /// The last occurrence whose last character is at or before `pos`.
    static std::size_t ReversePatternMatch(const String& text, const String& pattern, std::size_t pos);
    /// ForwardPatternMatch() over the upper-case forms.
    static std::size_t CaseInsensitiveFind(const String& text, const String& pattern, std::size_t start);

    // ---- Quotes and marks ---------------------------------------------------------------------------------
    // These find a text only before the first zero, as String::find does.

    /// The first `what` at or after `start` that no backslash precedes. Only that one character is looked at:
    /// a doubled backslash escapes too.
    static std::size_t FindFirstUnescaped(const String& text, const wchar_t* what, std::size_t start);
    /// The first `what` at or after `start` outside quotes, single or double; an unterminated quote hides the
    /// rest. The (opening, closing) indices of quoted stretches that were skipped are appended to
    /// `quotedRanges`, if given.
    static std::size_t FindFirstUnquoted(const String& text, const wchar_t* what, std::size_t start,
                                         std::vector<std::pair<std::size_t, std::size_t>>* quotedRanges);
    /// The mark that closes the one before `start`; marks nest, and do not count inside quotes.
    static std::size_t FindClosingMark(const String& text, std::size_t start, const wchar_t* open,
                                       const wchar_t* close);
    static std::size_t FindClosingParenthesis(const String& text, std::size_t start);
    static std::size_t FindClosingBrace(const String& text, std::size_t start);
    /// Reads an apostrophe-quoted value whose opening apostrophe is before `start`; two apostrophes stand for
    /// one. `end` is the index behind the closing apostrophe. False, with `out` empty and `end` where reading
    /// stopped, when there is none.
    static bool GetQuotedString(const String& text, std::size_t start, String& out, std::size_t& end);

    // ---- Splitting and joining ----------------------------------------------------------------------------

    /// Splits at each of the `delimiters`. A trailing empty token is never kept. An empty text, or no
    /// delimiter, leaves `out` untouched.
    static void Tokenize(const String& text, const String& delimiters, BrimStringVector& out,
                         bool returnDelimiters, bool keepEmptyTokens);
    /// Splits at unescaped delimiters; empty tokens are kept but for a trailing one. With `keepEscape` the
    /// escape stays before characters other than the delimiter. An empty text leaves `out` untouched.
    static void TokenizeWithEscapeExt(const String& text, wchar_t delimiter, wchar_t escape, bool keepEscape,
                                      BrimStringVector& out);
    static void TokenizeWithEscape(const String& text, wchar_t delimiter, wchar_t escape,
                                   BrimStringVector& out);
    /// Appends the parts, with line feeds between them on request.
    static void AppendToString(const BrimStringVector& parts, String& out, bool newlineSeparated);
    /// Pieces of `size` characters, the last one shorter; the whole text as one piece for a size of 0. `out`
    /// is replaced; an empty text gives no piece.
    static void SplitStringBySize(const String& text, BrimStringVector& out, std::size_t size);

    // ---- Replacing ----------------------------------------------------------------------------------------

    /// Replaces `from` by `to` in `text`; true when anything was replaced. With `wholeWord` an occurrence
    /// counts between word separators and the ends of the text only, unless `from` is a self-enclosed word.
    static bool ReplaceSubstring(String& text, const String& from, const String& to, bool caseSensitive,
                                 bool wholeWord);
    /// `text` with each `from` replaced, from left to right, not overlapping. An empty `from` replaces
    /// nothing.
    static String ReplacePatternInString(const String& text, const String& from, const String& to);
    /// White space and ! " & ' ( ) * + , - . / : ; < = > ? @ [ \ ] ^ { | } ~ separate words; # $ % _ ` do
    /// not.
    static bool IsWordSeparator(wchar_t c);
    static bool IsWordSeparator(const String& text, int pos);
    /// True for a text in quotes, apostrophes or brackets of one kind.
    static bool IsSelfEnclosedWord(const String& text);

    // ---- Patterns -----------------------------------------------------------------------------------------

    /// "*" stands for any characters, "?" for one; there is no escape.
    static bool IsWildcardCaseInsensitiveMatch(const String& text, const String& pattern);
    /// Resolves backslash escapes. A pattern that leaves nothing (empty, or a lone backslash) fails the
    /// assertion "sv.size() > 0".
    static String UnescapeLikePattern(const String& pattern);

    // ---- Escapes ------------------------------------------------------------------------------------------

    /// Letters, digits and - . ! ' ( ) * _ ~ stay, white space becomes "+", the rest "%" and two digits.
    /// Meant for characters below U+0100: the first digit of others is no digit.
    static String UriEncode(const String& text);
    /// Undoes UriEncode(), and reads %uXXXX; runs of escapes are UTF-8. Text may stand between "URI-ENCODED<"
    /// and
    /// ">"; with `requireMarker` a text without that beginning comes back unchanged. A "%" that begins no
    /// escape is dropped.
    static String UriDecode(const String& text, bool requireMarker);
    /// Decodes Base64 (RFC 4648) up to `length` characters, the first "=", or the first character outside the
    /// alphabet. `out` receives the decoded bytes.
    static void Base64Decode(unsigned char* in, int length, std::vector<unsigned char>& out);
    /// Encodes the UTF-8 form of `text` into `out` and returns its length; -1, with `out` untouched, for an
    /// empty text.
    static int EncodeBase64(const String& text, String& out);
    /// With `breakLines` a CR LF stands after every 76 characters that others follow (RFC 2045).
    static String EncodeBase64(const std::vector<unsigned char>& data, bool breakLines);
    /// The five characters of XML: " ' & < >
    static String EscapeXMLChars(const String& text);
    /// Puts `escape` before each `escape` and `special`.
    static String EscapeCharacter(const String& text, wchar_t escape, wchar_t special);
    /// Doubles each `quote` in `text` and puts one before and behind it.
    static void QuoteAround(String& text, const wchar_t* quote);

    // ---- Clean-up and extraction --------------------------------------------------------------------------

    /// Puts a carriage return before each line feed that has none.
    static String LineFeedConversion(const String& text);
    /// Makes each run of line breaks and tabs one blank, and trims both ends.
    static void MakeOneLineString(String& text);
    /// Keep what iswprint accepts; drop what iswpunct accepts. Surrogate pairs count as their character.
    static String RemoveNonPrintableChars(const String& text);
    static String RemovePunctuationChars(const String& text);
    /// The first `n` characters, or fewer: a longer text is cut at the end of a word, where there is one, and
    /// never inside a surrogate pair.
    static String GetTextFragment(const String& text, std::size_t n);
    /// The same over marked-up text: tags and comments do not count and are not cut, a character reference
    /// counts as one character. The second form also closes the elements that are open at the cut.
    static String GetNonWellFormedTextFragment(const String& text, std::size_t n);
    static String GetHTMLFragment(const String& text, std::size_t n);
    /// Puts the text between the first `open` and the next `close` after it into `out`; false, with `out`
    /// empty, when there is none.
    static bool ExtractTextSegmentIntoString(const String& text, const wchar_t* open, const wchar_t* close,
                                             String& out);
};

namespace sup {

/// The order of wcscmp.
BRIMPORTABLE_API bool operator<(const String<wchar_t>& a, const String<wchar_t>& b);

} // namespace sup
