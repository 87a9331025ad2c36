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

class BRIMPORTABLE_API BaseStringUtil {
public:
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
    static bool TryStringToStdString(const String& src, NarrowString& out, unsigned int codePage);

    /// The arguments of main(), from UTF-8, each a terminated text of its own; released by the second
    /// function, given the same `argc`.
    static wchar_t** ConvertCommandArgumentsUTF8(int argc, char** argv);
    static void ReleaseCommandArgumentsUTF8(int argc, wchar_t** argv);

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
    static bool IsMatch(const String& a, const String& b);

    // ---- Character sets -----------------------------------------------------------------------------------

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
};

/// The order of wcscmp.
BRIMPORTABLE_API bool operator<(const sup::String<wchar_t>& a, const sup::String<wchar_t>& b);
