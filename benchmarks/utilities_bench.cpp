// BaseStringUtil against the C library, the standard library, {fmt}, ICU, Qt, GLib, Abseil, Boost and plain
// loops.
#include "corpus.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <absl/strings/escaping.h>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <boost/algorithm/searching/boyer_moore.hpp>
#include <charconv>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <dlfcn.h>
#include <fmt/compile.h>
#include <fmt/xchar.h>
#include <fnmatch.h>
#include <glib.h>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <type_traits>
#include <unicode/locid.h>
#include <unicode/unistr.h>
#include <utility>
#include <vector>

namespace {

using Util = BaseStringUtil;
using Texts = std::vector<std::wstring>;
using Bytes = std::vector<unsigned char>;

// ---- Rows -------------------------------------------------------------------------------------------------

BrimString brim(const std::wstring& text) { return BrimString(text.data(), text.size()); }
std::wstring plain(const std::wstring& text) { return text; }
std::string narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }
icu::UnicodeString icuText(const std::wstring& text) {
    return icu::UnicodeString::fromUTF32(reinterpret_cast<const UChar32*>(text.data()),
                                         static_cast<std::int32_t>(text.size()));
}

QString qtText(const std::wstring& text) { return QString::fromStdWString(text); }

template <class T>
bool same(const T& answer, const T& expected) {
    return answer == expected;
}
bool same(const BrimString& answer, const std::wstring& expected) {
    return std::wstring_view(answer.begin(), answer.length()) == expected;
}
bool same(const icu::UnicodeString& answer, const std::wstring& expected) {
    return answer == icuText(expected);
}
bool same(const QString& answer, const std::wstring& expected) { return answer.toStdWString() == expected; }
bool same(const QByteArray& answer, const std::wstring& expected) {
    return same(QString::fromLatin1(answer), expected);
}
bool same(const std::string& answer, const std::wstring& expected) {
    return std::equal(answer.begin(), answer.end(), expected.begin(), expected.end());
}
bool same(const std::string& answer, const Bytes& expected) {
    return std::equal(answer.begin(), answer.end(), expected.begin(), expected.end(),
                      [](char a, unsigned char b) { return static_cast<unsigned char>(a) == b; });
}
bool same(const QStringList& answer, const Texts& expected) {
    return std::equal(answer.begin(), answer.end(), expected.begin(), expected.end(),
                      [](const QString& a, const std::wstring& b) { return same(a, b); });
}
bool same(const BrimStringVector& answer, const Texts& expected) {
    return std::equal(answer.begin(), answer.end(), expected.begin(), expected.end(),
                      [](const BrimString& a, const std::wstring& b) { return same(a, b); });
}

/// The cases "BM_What<Peer>/name" of one row: the peers go round the same inputs, each in a form of its own,
/// and have to give the expected answers before they are measured.
template <class Input, class Answer>
class Row {
public:
    Row(std::string what, std::string name, std::vector<Input> inputs, std::vector<Answer> expected)
        : m_what(std::move(what)), m_name(std::move(name)),
          m_case(std::make_shared<Case>(Case{std::move(inputs), std::move(expected)})) {}

    /// `make` gives a peer's form of an input; `run` is measured.
    template <class Make, class Run>
    Row& peer(const char* peerName, Make make, Run run) {
        const std::string name = "BM_" + m_what + "<" + peerName + ">" + (m_name.empty() ? "" : "/" + m_name);
        benchmark::RegisterBenchmark(name.c_str(), [make, run, held = m_case](benchmark::State& state) {
            std::vector<std::decay_t<std::invoke_result_t<Make, const Input&>>> inputs;
            for (const Input& input : held->inputs) {
                inputs.push_back(make(input));
            }
            for (std::size_t i = 0; i < inputs.size(); ++i) {
                if (!same(run(inputs[i]), held->expected[i])) {
                    state.SkipWithError("wrong answer");
                    return;
                }
            }
            std::size_t next = 0;
            for (auto _ : state) {
                benchmark::ClobberMemory();
                auto answer = run(inputs[next]);
                benchmark::DoNotOptimize(answer);
                next = next + 1 == inputs.size() ? 0 : next + 1;
            }
        });
        return *this;
    }

private:
    struct Case {
        std::vector<Input> inputs;
        std::vector<Answer> expected;
    };

    std::string m_what;
    std::string m_name;
    std::shared_ptr<const Case> m_case;
};

// The answers of the first peer are the expected ones.
template <class Input, class Run>
auto row(std::string what, std::string name, std::vector<Input> inputs, Run reference) {
    std::vector<decltype(reference(inputs[0]))> expected;
    for (const Input& input : inputs) {
        expected.push_back(reference(input));
    }
    return Row(std::move(what), std::move(name), std::move(inputs), std::move(expected));
}

// ---- Texts ------------------------------------------------------------------------------------------------

constexpr std::size_t kLongText = 65536;

std::wstring repeatedTo(std::size_t length, std::wstring_view sentence) {
    std::wstring text;
    while (text.size() < length) {
        text += sentence;
    }
    text.resize(length);
    return text;
}

std::wstring prose(const char* name, std::size_t length) {
    const bench::Text* const text = bench::findUtf8Text(name);
    return text == nullptr ? std::wstring() : bench::toUnits(text->bytes).substr(0, length);
}

std::wstring proseOr(const char* name, std::size_t length, std::wstring_view otherwise) {
    const std::wstring text = prose(name, length);
    return text.empty() ? repeatedTo(length, otherwise) : text;
}

wchar_t lower(wchar_t c) { return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c))); }
wchar_t upper(wchar_t c) { return static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(c))); }

std::wstring mapped(std::wstring text, wchar_t (*map)(wchar_t)) {
    std::transform(text.begin(), text.end(), text.begin(), map);
    return text;
}

constexpr std::wstring_view kSentence = L"The quick brown Fox jumps over the lazy Dog. ";
constexpr std::wstring_view kRussian = L"Съешь ещё этих мягких французских булок, да выпей Чаю. ";

// ---- Searches ---------------------------------------------------------------------------------------------

template <class T>
struct Search {
    T text;
    T pattern;
};
using WideSearch = Search<std::wstring>;

Search<BrimString> brimSearch(const WideSearch& s) { return {brim(s.text), brim(s.pattern)}; }
WideSearch wideSearch(const WideSearch& s) { return s; }

std::size_t indexOr(std::size_t found, const WideSearch& s) { return std::min(found, s.text.size()); }

void addForwardPatternMatch(const char* name, const WideSearch& search) {
    row("ForwardPatternMatch", name, std::vector{search},
        [](const WideSearch& s) { return indexOr(s.text.find(s.pattern), s); })
        .peer("Brim", brimSearch,
              [](const Search<BrimString>& s) { return Util::ForwardPatternMatch(s.text, s.pattern, 0); })
        .peer("Wcsstr", wideSearch,
              [](const WideSearch& s) {
                  const wchar_t* const found = std::wcsstr(s.text.c_str(), s.pattern.c_str());
                  return found == nullptr ? s.text.size() : static_cast<std::size_t>(found - s.text.c_str());
              })
        .peer("Std", wideSearch, [](const WideSearch& s) { return indexOr(s.text.find(s.pattern), s); })
        .peer("BoyerMoore", wideSearch, [](const WideSearch& s) {
            const auto found = boost::algorithm::boyer_moore_search(s.text, s.pattern).first;
            return static_cast<std::size_t>(found - s.text.begin());
        });
}

void addReversePatternMatch(const char* name, const WideSearch& search) {
    row("ReversePatternMatch", name, std::vector{search},
        [](const WideSearch& s) { return indexOr(s.text.rfind(s.pattern), s); })
        .peer("Brim", brimSearch,
              [](const Search<BrimString>& s) {
                  return Util::ReversePatternMatch(s.text, s.pattern, s.text.length());
              })
        .peer("Std", wideSearch, [](const WideSearch& s) { return indexOr(s.text.rfind(s.pattern), s); })
        .peer("Horspool", wideSearch, [](const WideSearch& s) {
            const std::boyer_moore_horspool_searcher searcher(s.pattern.rbegin(), s.pattern.rend());
            const auto found = std::search(s.text.rbegin(), s.text.rend(), searcher);
            return found == s.text.rend()
                       ? s.text.size()
                       : static_cast<std::size_t>(s.text.rend() - found) - s.pattern.size();
        });
}

// The pattern behind (before) a text that does not hold it elsewhere.
WideSearch atTheEnd(std::wstring text, const std::wstring& pattern) {
    for (std::size_t at = 0; (at = text.find(pattern, at)) != std::wstring::npos;) {
        text[at] = L' ';
    }
    return {text + pattern, pattern};
}

// Each word is the two before it together: the pattern nearly fits in a great many places.
WideSearch wordsOfTwoWords() {
    std::wstring text = L"b";
    std::wstring next = L"a";
    while (text.size() < kLongText) {
        std::wstring both = next + text;
        text = std::move(next);
        next = std::move(both);
    }
    std::wstring pattern = text.substr(0, 200);
    pattern[text.find(L'b', 190)] = L'a';
    return {text, pattern};
}

void addSearches() {
    const std::wstring ascii = proseOr("ascii", kLongText, kSentence);
    const std::wstring odd = std::wstring(63, L'a');
    addForwardPatternMatch("rare_first_letter", atTheEnd(ascii, L"Xylophone"));
    addForwardPatternMatch("common_word", atTheEnd(ascii, L"the letters"));
    addForwardPatternMatch("long_pattern",
                           atTheEnd(ascii, L"the terms and conditions for copying, and for what else"));
    addForwardPatternMatch("not_found",
                           {atTheEnd(ascii, L"another one").text.substr(0, ascii.size()), L"another one"});
    addForwardPatternMatch("periodic_odd_last", {std::wstring(kLongText, L'a'), odd + L"b"});
    addForwardPatternMatch("periodic_odd_middle", {std::wstring(kLongText, L'a'), odd + L"b" + odd});
    addForwardPatternMatch("periodic_odd_first", {std::wstring(kLongText, L'a'), L"b" + odd});
    addForwardPatternMatch("periodic_pair", {repeatedTo(kLongText, L"ab"), repeatedTo(62, L"ab") + L"b"});
    addForwardPatternMatch("periodic_flaws", {repeatedTo(kLongText, L"aaaaaaab"),
                                              repeatedTo(256, L"aaaaaaab") + repeatedTo(256, L"aaaaaab")});
    addForwardPatternMatch("words_of_two_words", wordsOfTwoWords());
    addForwardPatternMatch("eight_in_forty", {L"quick brown foxes jump over the lazy dog", L"lazy dog"});
    const std::wstring russian = prose("russian", kLongText);
    const std::wstring japanese = prose("japanese", kLongText);
    if (!russian.empty()) {
        addForwardPatternMatch("russian_word", atTheEnd(russian, L"пересылка"));
    }
    if (!japanese.empty()) {
        addForwardPatternMatch("japanese_word", atTheEnd(japanese, L"かいもの"));
    }
    const WideSearch word = atTheEnd(ascii, L"the letters");
    addReversePatternMatch("common_word", {word.pattern + word.text.substr(0, ascii.size()), word.pattern});
    addReversePatternMatch("not_found", {word.text.substr(0, ascii.size()), word.pattern});
    addReversePatternMatch("long_pattern",
                           {ascii, L"the terms and conditions for copying, and for what else there is"});

    row("CaseInsensitiveFind", "64K", std::vector{word},
        [](const WideSearch& s) { return mapped(s.text, upper).find(mapped(s.pattern, upper)); })
        .peer("Brim", brimSearch,
              [](const Search<BrimString>& s) { return Util::CaseInsensitiveFind(s.text, s.pattern, 0); })
        .peer("Loop", wideSearch,
              [](const WideSearch& s) { return mapped(s.text, upper).find(mapped(s.pattern, upper)); });
}

// ---- Character sets ---------------------------------------------------------------------------------------

void addFindFirstOf(const std::string& name, const WideSearch& search) {
    row("FindFirstOf", name, std::vector{search},
        [](const WideSearch& s) { return indexOr(s.text.find_first_of(s.pattern), s); })
        .peer("Brim", brimSearch,
              [](const Search<BrimString>& s) { return Util::FindFirstOf(s.text, s.pattern, 0); })
        .peer("Wcspbrk", wideSearch,
              [](const WideSearch& s) {
                  const wchar_t* const found = std::wcspbrk(s.text.c_str(), s.pattern.c_str());
                  return found == nullptr ? s.text.size() : static_cast<std::size_t>(found - s.text.c_str());
              })
        .peer("Std", wideSearch,
              [](const WideSearch& s) { return indexOr(s.text.find_first_of(s.pattern), s); });
}

void addCharacterSets() {
    const std::wstring letters = repeatedTo(kLongText, L"abcdefghijklmnopqrstuvwxyz");
    addFindFirstOf("4_of_64K", {letters + L';', L",;\t\n"});
    addFindFirstOf("16_of_64K", {letters + L';', L",;\t\n0123456789+-"});
    addFindFirstOf("4_of_16", {letters.substr(0, 15) + L';', L",;\t\n"});

    const WideSearch blanks{std::wstring(kLongText, L' ') + L'x', L" \t\n\r"};
    row("FindFirstNotOf", "4_of_64K", std::vector{blanks},
        [](const WideSearch& s) { return indexOr(s.text.find_first_not_of(s.pattern), s); })
        .peer("Brim", brimSearch,
              [](const Search<BrimString>& s) { return Util::FindFirstNotOf(s.text, s.pattern, 0); })
        .peer("Wcsspn", wideSearch,
              [](const WideSearch& s) { return std::wcsspn(s.text.c_str(), s.pattern.c_str()); });

    row("FindLastOf", "4_of_64K", std::vector{WideSearch{L';' + letters, L",;\t\n"}},
        [](const WideSearch& s) { return indexOr(s.text.find_last_of(s.pattern), s); })
        .peer(
            "Brim", brimSearch,
            [](const Search<BrimString>& s) { return Util::FindLastOf(s.text, s.pattern, s.text.length()); })
        .peer("Std", wideSearch,
              [](const WideSearch& s) { return indexOr(s.text.find_last_of(s.pattern), s); });
}

// ---- Case -------------------------------------------------------------------------------------------------

int sign(int order) { return order < 0 ? -1 : order > 0 ? 1 : 0; }

bool matchByLoop(const WideSearch& s) {
    return s.text.size() == s.pattern.size() &&
           std::equal(s.text.begin(), s.text.end(), s.pattern.begin(),
                      [](wchar_t a, wchar_t b) { return a == b || lower(a) == lower(b); });
}

void addCase(const std::string& script, std::wstring_view sentence, std::size_t length) {
    const std::string name = script + "/" + std::to_string(length);
    const std::wstring text = repeatedTo(length, sentence);
    const WideSearch pair{text, mapped(text, upper)};
    const auto icuPair = [](const WideSearch& s) {
        return Search<icu::UnicodeString>{icuText(s.text), icuText(s.pattern)};
    };
    const auto qtPair = [](const WideSearch& s) {
        return Search<QString>{qtText(s.text), qtText(s.pattern)};
    };
    row("CaseInsensitiveMatch", name, std::vector{pair}, matchByLoop)
        .peer("Brim", brimSearch,
              [](const Search<BrimString>& s) { return Util::IsCaseInsensitiveMatch(s.text, s.pattern); })
        .peer("Wcscasecmp", wideSearch,
              [](const WideSearch& s) { return ::wcscasecmp(s.text.c_str(), s.pattern.c_str()) == 0; })
        .peer("Icu", icuPair,
              [](const Search<icu::UnicodeString>& s) { return s.text.caseCompare(s.pattern, 0) == 0; })
        .peer("Qt", qtPair,
              [](const Search<QString>& s) {
                  return QString::compare(s.text, s.pattern, Qt::CaseInsensitive) == 0;
              })
        .peer("Loop", wideSearch, matchByLoop);

    const WideSearch unequal{text + L'a', pair.pattern + L'B'};
    row("CaseInsensitiveCompare", name, std::vector{unequal}, [](const WideSearch&) { return -1; })
        .peer("Brim", brimSearch,
              [](const Search<BrimString>& s) { return Util::CaseInsensitiveCompare(s.text, s.pattern); })
        .peer("Wcscasecmp", wideSearch,
              [](const WideSearch& s) { return sign(::wcscasecmp(s.text.c_str(), s.pattern.c_str())); })
        .peer("Icu", icuPair, [](const Search<icu::UnicodeString>& s) {
            return static_cast<int>(s.text.caseCompare(s.pattern, 0));
        });

    row("ToLowerCase", name, Texts{text}, [](const std::wstring& s) { return mapped(s, lower); })
        .peer("Brim", brim, [](const BrimString& s) { return Util::ToLowerCase(s); })
        .peer(
            "Icu", icuText,
            [](const icu::UnicodeString& s) { return icu::UnicodeString(s).toLower(icu::Locale::getRoot()); })
        .peer("Loop", plain, [](const std::wstring& s) { return mapped(s, lower); });
    row("ToUpperCase", name, Texts{text}, [](const std::wstring& s) { return mapped(s, upper); })
        .peer("Brim", brim, [](const BrimString& s) { return Util::ToUpperCase(s); })
        .peer(
            "Icu", icuText,
            [](const icu::UnicodeString& s) { return icu::UnicodeString(s).toUpper(icu::Locale::getRoot()); })
        .peer("Loop", plain, [](const std::wstring& s) { return mapped(s, upper); });
}

// ---- Patterns, tokens, replacing --------------------------------------------------------------------------

void addWildcards() {
    const struct {
        const char* name;
        const wchar_t* text;
        const wchar_t* pattern;
    } rows[] = {
        {"whole", L"Report-2024.TXT", L"report-2024.txt"},
        {"prefix", L"Server.Storage.Pages.Cache", L"server.storage.*"},
        {"suffix", L"the quarterly Report of the year 2024.TXT", L"*.txt"},
        {"middle", L"a rather long name with the word in its middle", L"*WORD*"},
        {"three_stars", L"/var/log/Server/pages/Cache/2024-05-06.log", L"/VAR/*/cache/*-05-*.LOG"},
        {"question_marks", L"page-0042-of-0100.png", L"page-?\?\?\?-of-?\?\?\?.*"},
        {"miss", L"a rather long name with the word in its middle", L"*wort*in*"},
    };
    for (const auto& given : rows) {
        const WideSearch search{given.text, given.pattern};
        const auto expected = [](const WideSearch& s) {
            return ::fnmatch(narrow(s.pattern).c_str(), narrow(s.text).c_str(), FNM_CASEFOLD) == 0;
        };
        row("Wildcard", given.name, std::vector{search}, expected)
            .peer("Brim", brimSearch,
                  [](const Search<BrimString>& s) {
                      return Util::IsWildcardCaseInsensitiveMatch(s.text, s.pattern);
                  })
            .peer(
                "Fnmatch",
                [](const WideSearch& s) {
                    return Search<std::string>{narrow(s.text), narrow(s.pattern)};
                },
                [](const Search<std::string>& s) {
                    return ::fnmatch(s.pattern.c_str(), s.text.c_str(), FNM_CASEFOLD) == 0;
                })
            .peer( // knows no folding: given lower-case texts
                "Glib",
                [](const WideSearch& s) {
                    return Search<std::string>{narrow(mapped(s.text, lower)),
                                               narrow(mapped(s.pattern, lower))};
                },
                [](const Search<std::string>& s) {
                    return ::g_pattern_match_simple(s.pattern.c_str(), s.text.c_str()) != 0;
                });
    }
    // No peer gets through these.
    const std::wstring run(100000, L'a');
    for (const auto& [name, pattern] :
         {std::pair("hostile_stars", std::wstring(L"*a*a*a*a*a*b")),
          std::pair("hostile_marks", L"*" + repeatedTo(50000, L"a?") + L"b*")}) {
        row("Wildcard", name, std::vector{WideSearch{run, pattern}}, [](const WideSearch&) {
            return false;
        }).peer("Brim", brimSearch, [](const Search<BrimString>& s) {
            return Util::IsWildcardCaseInsensitiveMatch(s.text, s.pattern);
        });
    }
}

Texts tokensByLoop(const WideSearch& s) {
    Texts tokens;
    for (std::size_t from = 0; from < s.text.size();) {
        const std::size_t to = std::min(s.text.find_first_of(s.pattern, from), s.text.size());
        if (to != from) {
            tokens.push_back(s.text.substr(from, to - from));
        }
        from = to + 1;
    }
    return tokens;
}

std::wstring replacedByLoop(const std::wstring& text, const std::wstring& from, const std::wstring& to) {
    std::wstring result;
    std::size_t copied = 0;
    for (std::size_t hit; (hit = text.find(from, copied)) != std::wstring::npos;) {
        result.append(text, copied, hit - copied).append(to);
        copied = hit + from.size();
    }
    return result.append(text, copied);
}

void addTokensAndReplacing() {
    std::wstring csv;
    for (int i = 0; i < 1000; ++i) {
        csv += std::to_wstring(i * 7919 % 100000) + L',';
    }
    const std::pair<const char*, WideSearch> texts[] = {
        {"path_of_9", {L"/usr/share/doc/server/examples/pages/cache/2024/index", L"/"}},
        {"csv_of_1000", {csv, L","}},
        {"prose", {proseOr("ascii", 4096, kSentence), L" \n\t.,;"}},
    };
    for (const auto& [name, text] : texts) {
        auto tokens = row("Tokenize", name, std::vector{text}, tokensByLoop);
        tokens
            .peer("Brim", brimSearch,
                  [](const Search<BrimString>& s) {
                      BrimStringVector split;
                      Util::Tokenize(s.text, s.pattern, split, false, false);
                      return split;
                  })
            .peer("Loop", wideSearch, tokensByLoop);
        if (text.pattern.size() == 1) { // sets of delimiters it knows as regular expressions only
            tokens.peer(
                "Qt",
                [](const WideSearch& s) {
                    return Search<QString>{qtText(s.text), qtText(s.pattern)};
                },
                [](const Search<QString>& s) { return s.text.split(s.pattern[0], Qt::SkipEmptyParts); });
        }
    }

    const auto trimByLoop = [](const std::wstring& s) {
        const auto isBlank = [](wchar_t c) { return std::iswspace(static_cast<std::wint_t>(c)) != 0; };
        const auto first = std::find_if_not(s.begin(), s.end(), isBlank);
        const auto last = std::find_if_not(s.rbegin(), std::make_reverse_iterator(first), isBlank).base();
        return std::wstring(first, last);
    };
    row("TrimBoth", "38", Texts{L"  \t the text of thirty-eight letters \n"}, trimByLoop)
        .peer("Brim", brim, [](const BrimString& s) { return Util::TrimBoth(s); })
        .peer("Qt", qtText, [](const QString& s) { return s.trimmed(); })
        .peer("Loop", plain, trimByLoop);

    const std::wstring ascii = proseOr("ascii", kLongText, kSentence);
    row("Replace", "64K", Texts{ascii},
        [](const std::wstring& s) { return replacedByLoop(s, L"the", L"that"); })
        .peer("Brim", brim,
              [from = BrimString(L"the"), to = BrimString(L"that")](const BrimString& s) {
                  BrimString text(s);
                  Util::ReplaceSubstring(text, from, to, true, false);
                  return text;
              })
        .peer("Loop", plain, [](const std::wstring& s) { return replacedByLoop(s, L"the", L"that"); });
}

// ---- Numbers ----------------------------------------------------------------------------------------------

// Of up to as many bits.
std::vector<long> integersOfBits(int bits) {
    std::mt19937_64 random(20);
    std::vector<long> numbers(1024);
    for (long& number : numbers) {
        const auto magnitude = static_cast<long>(random() >> 1 >> (64 - bits));
        number = (random() & 1) != 0 ? magnitude : -magnitude;
    }
    return numbers;
}

template <class... Format>
std::wstring toWide(const wchar_t* format, Format... values) {
    wchar_t text[64];
    return std::wstring(text,
                        static_cast<std::size_t>(std::swprintf(text, std::size(text), format, values...)));
}

template <class... Format>
std::wstring byToChars(Format... values) {
    char text[64];
    const char* const end = std::to_chars(std::begin(text), std::end(text), values...).ptr;
    std::wstring wide(static_cast<const char*>(text), end);
    std::replace(wide.begin(), wide.end(), L'e', L'E');
    return wide;
}

const auto kSelf = [](auto number) { return number; };

void addNumbersToText() {
    for (const int bits : {7, 32, 64}) {
        row("IntegerToText", std::to_string(bits), integersOfBits(bits),
            [](long number) { return toWide(L"%ld", number); })
            .peer("Brim", kSelf, [](long number) { return Util::StringFrom(number); })
            .peer("Printf", kSelf, [](long number) { return toWide(L"%ld", number); })
            .peer("Chars", kSelf, [](long number) { return byToChars(number); })
            .peer("Fmt", kSelf, [](long number) { return fmt::format(FMT_COMPILE(L"{}"), number); });
    }
    std::mt19937_64 random(21);
    std::vector<double> prices(1024);
    std::vector<double> units(1024);
    std::vector<double> any(1024);
    for (std::size_t i = 0; i < prices.size(); ++i) {
        prices[i] = static_cast<double>(random() % 1000000) / 100;
        units[i] = static_cast<double>(random() >> 11) * 0x1p-53;
        do {
            const std::uint64_t bits = random();
            std::memcpy(&any[i], &bits, sizeof(bits));
        } while (any[i] != any[i]);
    }
    for (const auto& [name, numbers] :
         {std::pair("prices", prices), std::pair("units", units), std::pair("any", any)}) {
        row("DoubleToText", name, numbers, [](double number) { return toWide(L"%.15G", number); })
            .peer("Brim", kSelf, [](double number) { return Util::ShortStringFrom(number); })
            .peer("Printf", kSelf, [](double number) { return toWide(L"%.15G", number); })
            .peer("Chars", kSelf,
                  [](double number) { return byToChars(number, std::chars_format::general, 15); })
            .peer("Fmt", kSelf, [](double number) { return fmt::format(FMT_COMPILE(L"{:.15G}"), number); });

        Texts texts;
        for (const double number : numbers) {
            texts.push_back(toWide(L"%.17g", number));
        }
        row("TextToDouble", name, texts,
            [](const std::wstring& s) { return std::wcstod(s.c_str(), nullptr); })
            .peer("Brim", brim, [](const BrimString& s) { return Util::FloatFrom(s); })
            .peer("Scanf", plain,
                  [](const std::wstring& s) {
                      double number = 0;
                      std::swscanf(s.c_str(), L" %lf", &number);
                      return number;
                  })
            .peer("Wcstod", plain, [](const std::wstring& s) { return std::wcstod(s.c_str(), nullptr); })
            .peer("Chars", narrow, [](const std::string& s) {
                double number = 0;
                std::from_chars(s.data(), s.data() + s.size(), number);
                return number;
            });
    }
}

void addTextToIntegers() {
    for (const int digits : {3, 10, 19}) {
        std::mt19937_64 random(22);
        Texts texts(1024);
        for (std::wstring& text : texts) {
            text = L'1' + static_cast<wchar_t>(random() % 8);
            while (text.size() < static_cast<std::size_t>(digits)) {
                text += static_cast<wchar_t>(L'0' + random() % 10);
            }
        }
        const auto cut = [](long number) { return static_cast<int>(number); };
        const auto byWcstol = [cut](const std::wstring& s) {
            return cut(std::wcstol(s.c_str(), nullptr, 10));
        };
        row("TextToInteger", std::to_string(digits), texts, byWcstol)
            .peer("Brim", brim, [](const BrimString& s) { return Util::IntFrom(s); })
            .peer("Scanf", plain,
                  [cut](const std::wstring& s) {
                      long number = 0;
                      std::swscanf(s.c_str(), L" %ld", &number);
                      return cut(number);
                  })
            .peer("Wcstol", plain, byWcstol)
            .peer("Chars", narrow, [cut](const std::string& s) {
                long number = 0;
                std::from_chars(s.data(), s.data() + s.size(), number);
                return cut(number);
            });
    }
}

// ---- Escapes ----------------------------------------------------------------------------------------------

std::wstring uriByLoop(const std::wstring& text) {
    static constexpr wchar_t kDigits[] = L"0123456789ABCDEF";
    std::wstring out;
    for (const wchar_t c : text) {
        if (std::iswalnum(static_cast<std::wint_t>(c)) != 0 || std::wcschr(L"-.!'()*_~", c) != nullptr) {
            out += c;
        } else if (std::iswspace(static_cast<std::wint_t>(c)) != 0) {
            out += L'+';
        } else {
            out += L'%';
            out += kDigits[c >> 4 & 0xF];
            out += kDigits[c & 0xF];
        }
    }
    return out;
}

QByteArray qtBytes(const std::wstring& text) { return qtText(text).toLatin1(); }

// It escapes blanks like other characters.
struct QtEncoded {
    QByteArray bytes;
};
bool same(const QtEncoded& answer, const std::wstring& expected) {
    QByteArray bytes(answer.bytes);
    for (const char* const blank : {"%20", "%0A", "%09", "%0D"}) {
        bytes.replace(blank, "+");
    }
    return same(bytes, expected);
}

std::wstring xmlByLoop(const std::wstring& text) {
    std::wstring out;
    out.reserve(text.size());
    for (const wchar_t c : text) {
        switch (c) {
        case L'"':
            out += L"&quot;";
            break;
        case L'\'':
            out += L"&apos;";
            break;
        case L'&':
            out += L"&amp;";
            break;
        case L'<':
            out += L"&lt;";
            break;
        case L'>':
            out += L"&gt;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

void addEscapes() {
    const std::wstring ascii = proseOr("ascii", kLongText, kSentence);
    const std::pair<const char*, std::wstring> uris[] = {
        {"66", L"name=Report & totals/2024; path=/srv/data/pages?id=42#top of page"},
        {"prose_4K", ascii.substr(0, 4096)},
    };
    for (const auto& [name, text] : uris) {
        row("UriEncode", name, Texts{text}, uriByLoop)
            .peer("Brim", brim, [](const BrimString& s) { return Util::UriEncode(s); })
            .peer("Qt", qtBytes, [](const QByteArray& s) { return QtEncoded{s.toPercentEncoding("!'()*")}; })
            .peer("Loop", plain, uriByLoop);
        const std::wstring expected = mapped(
            text, [](wchar_t c) { return std::iswspace(static_cast<std::wint_t>(c)) != 0 ? L' ' : c; });
        Row<std::wstring, std::wstring>("UriDecode", name, {uriByLoop(text)}, {expected})
            .peer("Brim", brim, [](const BrimString& s) { return Util::UriDecode(s, false); })
            .peer(
                "Qt", [](const std::wstring& s) { return qtBytes(s).replace('+', "%20"); },
                [](const QByteArray& s) { return QByteArray::fromPercentEncoding(s); });
    }
    const std::pair<const char*, std::wstring> xml[] = {
        {"plain_64", repeatedTo(64, kSentence)},
        {"markup_60", L"<a href=\"x\">one & two</a> <b class='y'>three</b> <br/> <i>4</i>"},
        {"prose_64K", ascii},
    };
    for (const auto& [name, text] : xml) {
        row("EscapeXml", name, Texts{text}, xmlByLoop)
            .peer("Brim", brim, [](const BrimString& s) { return Util::EscapeXMLChars(s); })
            .peer("Loop", plain, xmlByLoop);
    }
    for (const std::size_t size : {std::size_t{30}, std::size_t{1024}, kLongText}) {
        std::mt19937_64 random(23);
        Bytes data(size);
        std::generate(data.begin(), data.end(), [&] { return static_cast<unsigned char>(random()); });
        const BrimString encoded = Util::EncodeBase64(data, false);
        const std::wstring text(encoded.begin(), encoded.end());
        Row<Bytes, std::wstring>("EncodeBase64", std::to_string(size), {data}, {text})
            .peer("Brim", kSelf, [](const Bytes& bytes) { return Util::EncodeBase64(bytes, false); })
            .peer(
                "Absl", [](const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); },
                [](const std::string& bytes) { return absl::Base64Escape(bytes); });
        Row<std::wstring, Bytes>("DecodeBase64", std::to_string(size), {text}, {data})
            .peer("Brim", narrow,
                  [](std::string& s) {
                      Bytes bytes;
                      Util::Base64Decode(reinterpret_cast<unsigned char*>(s.data()),
                                         static_cast<int>(s.size()), bytes);
                      return bytes;
                  })
            .peer("Absl", narrow, [](const std::string& s) {
                std::string bytes;
                absl::Base64Unescape(s, &bytes);
                return bytes;
            });
    }
}

// An allocator library that is linked in would serve the peers too.
void requireMallocOfTheCLibrary() {
    Dl_info owner = {};
    dladdr(dlsym(RTLD_DEFAULT, "malloc"), &owner);
    if (owner.dli_fname == nullptr || std::strstr(owner.dli_fname, "libc.so") == nullptr) {
        std::fprintf(stderr, "malloc is not the C library's\n");
        std::exit(1);
    }
}

} // namespace

int main(int argc, char** argv) {
    requireMallocOfTheCLibrary();
    // The "C" locale knows no case beyond ASCII.
    if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) {
        std::fprintf(stderr, "there is no locale C.UTF-8\n");
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    addSearches();
    addCharacterSets();
    for (const std::size_t length : {16U, 64U, 4096U}) {
        addCase("ascii", kSentence, length);
        addCase("russian", kRussian, length);
    }
    addWildcards();
    addTokensAndReplacing();
    addNumbersToText();
    addTextToIntegers();
    addEscapes();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
