#include "DiagnosticOutput.h"

#include "child_process.h"
#include "malloc_count.h"
#include "recording_allocator.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

using brimtest::runInChild;
using sup::DiagnosticLine;

namespace {

static_assert(!std::is_copy_constructible_v<DiagnosticLine>);
static_assert(!std::is_copy_assignable_v<DiagnosticLine>);

constexpr const char* kLocales[] = {"C", "C.UTF-8"};

// What `body` prints in a child under `locale`.
template <class Body>
std::string printed(const char* locale, Body body) {
    const brimtest::ChildResult result = runInChild([&] {
        if (std::setlocale(LC_ALL, locale) == nullptr) {
            ::_exit(97);
        }
        body();
    });
    EXPECT_EQ(result.exitCode(), 0) << locale << ": " << result;
    return result.output;
}

void formatLine(const char* format, ...) {
    va_list args;
    va_start(args, format);
    DiagnosticLine().format(format, args);
    va_end(args);
}

template <class... Args>
std::string formatted(const char* locale, const char* format, Args... args) {
    return printed(locale, [&] { formatLine(format, args...); });
}

// ---- texts and numbers

TEST(DiagnosticLine, JoinsItsPieces) {
    EXPECT_EQ(
        printed("C",
                [] { DiagnosticLine().text("File ").text(L"a.cpp").text(", line ").number(7).text("\n"); }),
        "File a.cpp, line 7\n");
    EXPECT_EQ(printed("C", [] { DiagnosticLine(); }), "");
    EXPECT_EQ(printed("C", [] { DiagnosticLine().text("").text(L""); }), "");
}

TEST(DiagnosticLine, PrintsNumbers) {
    for (const long value :
         {0L, 1L, -1L, 2147483647L, -2147483648L, 9223372036854775807L, -9223372036854775807L - 1}) {
        EXPECT_EQ(printed("C", [value] { DiagnosticLine().number(value); }), std::to_string(value));
    }
}

TEST(DiagnosticLine, PrintsNullAsAWord) {
    for (const char* const locale : kLocales) {
        EXPECT_EQ(printed(locale,
                          [] {
                              DiagnosticLine()
                                  .text(static_cast<const char*>(nullptr))
                                  .text(static_cast<const wchar_t*>(nullptr));
                          }),
                  "(null)(null)");
    }
}

TEST(DiagnosticLine, DoesNotTakeTextForAFormat) {
    EXPECT_EQ(printed("C", [] { DiagnosticLine().text("%d %s %%\n").text(L"%n %ls\n"); }),
              "%d %s %%\n%n %ls\n");
}

TEST(DiagnosticLine, PrintsNarrowBytesAsTheyAre) {
    for (const char* const locale : kLocales) {
        EXPECT_EQ(printed(locale, [] { DiagnosticLine().text("\xFF\xC3\x28\xE2\x82"); }),
                  "\xFF\xC3\x28\xE2\x82");
    }
}

struct WideText {
    const wchar_t* text;
    const char* inC;
    const char* inUtf8;
};

constexpr WideText kWideTexts[] = {
    {L"plain", "plain", "plain"},
    {L"\x7F\x80\xFF", "\x7F??", "\x7F\xC2\x80\xC3\xBF"},
    {L"gr\xFC\xDF", "gr??", "gr\xC3\xBC\xC3\x9F"},
    {L"a\x20AC"
     L"b",
     "a?b",
     "a\xE2\x82\xAC"
     "b"},
    {L"\xFFFD\xFFFF", "??", "\xEF\xBF\xBD\xEF\xBF\xBF"},
    {L"\x1F600", "?", "\xF0\x9F\x98\x80"},      // one unit, as the C library has it
    {L"\xD83D\xDE00", "?", "\xF0\x9F\x98\x80"}, // a pair, as the library has it
    {L"\xD800\xDC00", "?", "\xF0\x90\x80\x80"}, // the first pair
    {L"\xDBFF\xDFFF", "?", "\xF4\x8F\xBF\xBF"}, // the last one
    {L"\xD83D", "?", "?"},                      // halves alone
    {L"\xDE00", "?", "?"},
    {L"a\xD83D"
     L"b",
     "a?b", "a?b"},
    {L"\xDE00\xD83D", "??", "??"},
    {L"\xD83D\xD83D\xDE00", "??", "?\xF0\x9F\x98\x80"},
    {L"\xD83D\xDE00\xDE00", "??", "\xF0\x9F\x98\x80?"},
    {L"\xD7FF\xE000", "??", "\xED\x9F\xBF\xEE\x80\x80"},
    {L"\xFFFFFFFF"
     L"x",
     "?x", "?x"},
    {L"\x80000000"
     L"x",
     "?x", "?x"},
};

TEST(DiagnosticLine, JoinsPairsAndShowsWhatTheLocaleCannotAsAQuestionMark) {
    for (const WideText& wide : kWideTexts) {
        const auto print = [&wide] { DiagnosticLine().text("<").text(wide.text).text(">\n"); };
        EXPECT_EQ(printed("C", print), std::string("<") + wide.inC + ">\n");
        EXPECT_EQ(printed("C.UTF-8", print), std::string("<") + wide.inUtf8 + ">\n");
    }
}

TEST(DiagnosticLine, FormatsWideTextLikewise) {
    for (const WideText& wide : kWideTexts) {
        for (const char* const format : {"<%ls>%d\n", "<%S>%d\n"}) {
            EXPECT_EQ(formatted("C", format, wide.text, 5), std::string("<") + wide.inC + ">5\n");
            EXPECT_EQ(formatted("C.UTF-8", format, wide.text, 5), std::string("<") + wide.inUtf8 + ">5\n");
        }
    }
}

TEST(DiagnosticLine, PrintsAnyWideTextWhole) {
    constexpr unsigned kSeed = 61;
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    std::mt19937 random(kSeed);
    constexpr wchar_t kUnits[] = {L'a',   L'Z',   L'%',    L'\n',   0x80,     0xE9,   0x7FF,  0x800,
                                  0x20AC, 0xD7FF, 0xD800,  0xD83D,  0xDBFF,   0xDC00, 0xDE00, 0xDFFF,
                                  0xE000, 0xFFFF, 0x10000, 0x1F600, 0x10FFFF, L' '};
    std::wstring text;
    for (int i = 0; i < 20000; ++i) {
        text += kUnits[random() % std::size(kUnits)];
    }
    std::string inC;
    std::string inUtf8;
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto c = static_cast<char32_t>(text[i]);
        const auto next = i + 1 < text.size() ? static_cast<char32_t>(text[i + 1]) : U'\0';
        bool bShown = c < 0xD800 || c > 0xDFFF;
        if (c >= 0xD800 && c <= 0xDBFF && next >= 0xDC00 && next <= 0xDFFF) {
            c = 0x10000 + (c - 0xD800) * 0x400 + (next - 0xDC00);
            bShown = true;
            ++i;
        }
        inC += c < 0x80 ? static_cast<char>(c) : '?';
        if (!bShown) {
            inUtf8 += '?';
        } else if (c < 0x80) {
            inUtf8 += static_cast<char>(c);
        } else if (c < 0x800) {
            inUtf8 += {static_cast<char>(0xC0 | c >> 6), static_cast<char>(0x80 | (c & 0x3F))};
        } else if (c < 0x10000) {
            inUtf8 += {static_cast<char>(0xE0 | c >> 12), static_cast<char>(0x80 | (c >> 6 & 0x3F)),
                       static_cast<char>(0x80 | (c & 0x3F))};
        } else {
            inUtf8 += {static_cast<char>(0xF0 | c >> 18), static_cast<char>(0x80 | (c >> 12 & 0x3F)),
                       static_cast<char>(0x80 | (c >> 6 & 0x3F)), static_cast<char>(0x80 | (c & 0x3F))};
        }
    }
    EXPECT_EQ(printed("C", [&] { DiagnosticLine().text(text.c_str()); }), inC);
    EXPECT_EQ(printed("C.UTF-8", [&] { DiagnosticLine().text(text.c_str()); }), inUtf8);
    EXPECT_EQ(printed("C.UTF-8", [&] { formatLine("%ls", text.c_str()); }), inUtf8);
}

// ---- widths and precisions of wide text that printf cannot print

TEST(DiagnosticLine, CountsBytesInWidthAndPrecisionAndNeverCutsACharacter) {
    constexpr const wchar_t* kFace = L"\xD83D\xDE00";
    EXPECT_EQ(formatted("C.UTF-8", "[%6ls]", kFace), "[  \xF0\x9F\x98\x80]");
    EXPECT_EQ(formatted("C.UTF-8", "[%-6ls]", kFace), "[\xF0\x9F\x98\x80  ]");
    EXPECT_EQ(formatted("C.UTF-8", "[%*ls]", -6, kFace), "[\xF0\x9F\x98\x80  ]");
    EXPECT_EQ(formatted("C.UTF-8", "[%3ls]", kFace), "[\xF0\x9F\x98\x80]");
    EXPECT_EQ(formatted("C.UTF-8", "[%.3ls]", kFace), "[]");
    EXPECT_EQ(formatted("C.UTF-8", "[%.4ls]", kFace), "[\xF0\x9F\x98\x80]");
    EXPECT_EQ(formatted("C.UTF-8", "[%.5ls]", L"\xD83D\xDE00\xE9"), "[\xF0\x9F\x98\x80]");
    EXPECT_EQ(formatted("C.UTF-8", "[%.6ls]", L"\xD83D\xDE00\xE9"), "[\xF0\x9F\x98\x80\xC3\xA9]");
    EXPECT_EQ(formatted("C.UTF-8", "[%6.3ls]", kFace), "[      ]");
    EXPECT_EQ(formatted("C.UTF-8", "[%.1ls]", L"\xD83D"), "[?]");
    EXPECT_EQ(formatted("C", "[%3ls]", kFace), "[  ?]");
    EXPECT_EQ(formatted("C", "[%.2ls]", L"\x20AC\x20AC\x20AC"), "[??]");
    EXPECT_EQ(formatted("C", "[%-4ls]", L"\x20AC"), "[?   ]");
}

TEST(DiagnosticLine, ShowsASingleWideCharacterLikewise) {
    for (const char* const format : {"[%3lc]", "[%3C]"}) {
        EXPECT_EQ(formatted("C", format, static_cast<std::wint_t>(L'\x20AC')), "[  ?]");
        EXPECT_EQ(formatted("C.UTF-8", format, static_cast<std::wint_t>(L'\x20AC')), "[\xE2\x82\xAC]");
        EXPECT_EQ(formatted("C.UTF-8", format, static_cast<std::wint_t>(0xD83D)), "[  ?]") << "half a pair";
    }
}

TEST(DiagnosticLine, ReadsNoFurtherThanThePrecision) {
    // Exactly sized and not terminated, for the address sanitizer to see.
    const auto text = std::make_unique<wchar_t[]>(3);
    text[0] = L'a';
    text[1] = L'b';
    text[2] = L'c';
    for (const char* const locale : kLocales) {
        EXPECT_EQ(formatted(locale, "[%.3ls]", text.get()), "[abc]");
        EXPECT_EQ(formatted(locale, "[%.2ls]", text.get()), "[ab]");
        EXPECT_EQ(formatted(locale, "[%.0ls]", text.get()), "[]");
    }
}

// ---- everything else, against the C library

struct Case {
    std::string format;
    std::function<void()> print;
    std::function<std::optional<std::string>()> expected; // nothing when the C library gives up
};

std::optional<std::string> libraryFormat(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::vector<char> buffer(100000);
    const int length = std::vsnprintf(buffer.data(), buffer.size(), format, args);
    va_end(args);
    if (length < 0) {
        return std::nullopt;
    }
    EXPECT_LT(static_cast<std::size_t>(length), buffer.size());
    return std::string(buffer.data(), static_cast<std::size_t>(length));
}

template <class... Args>
Case makeCase(const std::string& format, Args... args) {
    return {format, [=] { formatLine(format.c_str(), args...); },
            [=] { return libraryFormat(format.c_str(), args...); }};
}

// Runs all cases in one child, which `prepare` may change, and compares them one by one; returns how many
// were compared.
std::size_t compareWithTheLibrary(
    const std::vector<Case>& cases, const char* locale, void (*prepare)() = [] {}) {
    constexpr const char* kEnd = "\n<<end of case>>\n";
    const std::string output = printed(locale, [&] {
        prepare();
        for (const Case& one : cases) {
            one.print();
            DiagnosticLine().text(kEnd);
        }
    });
    const std::string previous = std::setlocale(LC_ALL, nullptr);
    std::setlocale(LC_ALL, locale);
    std::size_t compared = 0;
    std::size_t from = 0;
    for (const Case& one : cases) {
        const std::size_t to = output.find(kEnd, from);
        if (to == std::string::npos) {
            ADD_FAILURE() << "the output ends in " << one.format;
            break;
        }
        if (const std::optional<std::string> expected = one.expected()) {
            EXPECT_EQ(output.substr(from, to - from), *expected)
                << locale << ", format \"" << one.format << '"';
            ++compared;
        }
        from = to + std::strlen(kEnd);
    }
    std::setlocale(LC_ALL, previous.c_str());
    return compared;
}

class RandomFormats {
public:
    explicit RandomFormats(unsigned seed) : m_random(seed) {}

    std::size_t below(std::size_t n) { return m_random() % n; }
    template <class T, std::size_t N>
    const T& oneOf(const T (&values)[N]) {
        return values[below(N)];
    }

    // "%" and flags.
    std::string start() {
        std::string text = "%";
        for (const char flag : {'-', '+', ' ', '#', '0', '\''}) {
            if (below(5) == 0) {
                text += flag;
            }
        }
        return text;
    }
    std::string width() { return below(2) == 0 ? "" : std::to_string(1 + below(25)); }
    std::string precision() {
        std::string text;
        if (below(2) == 0) {
            text += '.';
            text += below(5) == 0 ? std::string() : std::to_string(below(25));
        }
        return text;
    }
    std::string plain() {
        constexpr const char* kTexts[] = {"", "", "x", " and ", "100%%", "\n", ": ", "\xC3\xA9"};
        return oneOf(kTexts);
    }
    std::string directive(const char* conversion) { return start() + width() + precision() + conversion; }

    // One directive between plain texts, its width and precision in the format or as arguments.
    template <class T>
    Case single(const char* conversion, T value) {
        const std::string before = plain() + start();
        const std::string after = std::string(conversion) + plain();
        const int w = static_cast<int>(below(40)) - 20;
        const int p = static_cast<int>(below(25)) - 5;
        switch (below(4)) {
        case 0:
            return makeCase(before + width() + precision() + after, value);
        case 1:
            return makeCase(before + "*" + precision() + after, w, value);
        case 2:
            return makeCase(before + width() + ".*" + after, p, value);
        default:
            return makeCase(before + "*.*" + after, w, p, value);
        }
    }

private:
    std::mt19937 m_random;
};

constexpr const char* kIntegers[] = {"d", "i", "u", "o", "x", "X", "hd", "hhd", "hu", "hhx"};
constexpr const char* kLongs[] = {"ld",  "li", "lu", "lo", "lx", "lX", "lld",
                                  "llu", "jd", "zu", "td", "qd", "jx"};
constexpr const char* kDoubles[] = {"f", "F", "e", "E", "g", "G", "a", "A"};
constexpr const char* kLongDoubles[] = {"Lf", "Le", "Lg", "La"};
constexpr const char* kWideStrings[] = {"ls", "S"};
constexpr const char* kWideCharacters[] = {"lc", "C"};

constexpr int kIntegerValues[] = {0, 1, -1, 42, 1234567, -98765, 2147483647, -2147483647 - 1};
constexpr long kLongValues[] = {0, 1, -1, 4294967296, 9223372036854775807, -9223372036854775807 - 1};
constexpr double kDoubleValues[] = {0.0, -0.0, 1.0, -1.5, 3.14159265, 1e300, -1e-300, 123456.789, 0.1};
constexpr long double kLongDoubleValues[] = {0.0L, 1.5L, -2.25e100L, 1e-10L};
constexpr const char* kStringValues[] = {"",     "a", "narrow text", "50% of it", "\xC3\xA4\xE2\x82\xAC",
                                         nullptr};
constexpr const wchar_t* kWideValues[] = {L"",
                                          L"w",
                                          L"wide text",
                                          L"50% of it",
                                          L"\xE4\xF6\xFC",
                                          L"a\x20AC"
                                          L"b\x20AC",
                                          L"\x65E5\x672C\x8A9E",
                                          L"\x1F600 and so on",
                                          L"plain at first, then \x20AC",
                                          nullptr};
constexpr std::wint_t kWideCharacterValues[] = {L'a', L' ', L'%', L'~', 0xE9, 0x20AC, 0x1F600, 0};

TEST(DiagnosticLineFormat, PrintsTheBytesOfPrintfForAnyDirective) {
    constexpr unsigned kSeed = 6001;
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    RandomFormats random(kSeed);
    std::vector<Case> cases;
    for (int i = 0; i < 400; ++i) {
        cases.push_back(random.single(random.oneOf(kIntegers), random.oneOf(kIntegerValues)));
        cases.push_back(random.single(random.oneOf(kLongs), random.oneOf(kLongValues)));
        cases.push_back(random.single(random.oneOf(kDoubles), random.oneOf(kDoubleValues)));
        cases.push_back(random.single(random.oneOf(kLongDoubles), random.oneOf(kLongDoubleValues)));
        cases.push_back(random.single("s", random.oneOf(kStringValues)));
        cases.push_back(random.single("c", static_cast<int>(random.below(256))));
        cases.push_back(random.single(random.oneOf(kWideStrings), random.oneOf(kWideValues)));
        cases.push_back(random.single(random.oneOf(kWideStrings), random.oneOf(kWideValues)));
        cases.push_back(random.single(random.oneOf(kWideCharacters), random.oneOf(kWideCharacterValues)));
        cases.push_back(random.single("p", static_cast<const void*>(random.oneOf(kStringValues))));
        cases.push_back(makeCase(random.plain() + random.start() + random.width() + "%" + random.plain(), 0));
    }
    // The C locale cannot show much of the wide text, and printf gives up on it.
    EXPECT_GT(compareWithTheLibrary(cases, "C"), cases.size() * 8 / 10);
    EXPECT_EQ(compareWithTheLibrary(cases, "C.UTF-8"), cases.size());
}

TEST(DiagnosticLineFormat, WalksThroughManyArgumentsAsPrintfDoes) {
    constexpr unsigned kSeed = 6002;
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    RandomFormats random(kSeed);
    std::vector<Case> cases;
    for (int i = 0; i < 500; ++i) {
        // More of each kind than registers hold.
        std::string format = random.plain();
        const auto add = [&](const char* conversion) {
            format += random.directive(conversion) + random.plain();
        };
        add(random.oneOf(kIntegers));
        add(random.oneOf(kWideStrings));
        add(random.oneOf(kDoubles));
        add(random.oneOf(kLongs));
        add("s");
        add(random.oneOf(kWideCharacters));
        add(random.oneOf(kLongDoubles));
        for (int k = 0; k < 5; ++k) {
            add(random.oneOf(kDoubles));
            add(random.oneOf(kLongs));
        }
        add(random.oneOf(kWideStrings));
        for (int k = 0; k < 5; ++k) {
            add(random.oneOf(kDoubles));
        }
        add(random.oneOf(kWideStrings));
        cases.push_back(makeCase(
            format, random.oneOf(kIntegerValues), random.oneOf(kWideValues), random.oneOf(kDoubleValues),
            random.oneOf(kLongValues), random.oneOf(kStringValues), random.oneOf(kWideCharacterValues),
            random.oneOf(kLongDoubleValues), 1.25, 1L, 2.5, 2L, 3.75, 3L, 4.0, 4L, 5.5, 5L,
            random.oneOf(kWideValues), 6.5, 7.5, 8.5, 9.5, 10.5, random.oneOf(kWideValues)));
    }
    EXPECT_GT(compareWithTheLibrary(cases, "C"), 20U);
    EXPECT_EQ(compareWithTheLibrary(cases, "C.UTF-8"), cases.size());
}

TEST(DiagnosticLineFormat, PrintsTheBytesOfPrintfForDirectivesOfNote) {
    const wchar_t* const noWide = nullptr;
    const char* const noNarrow = nullptr;
    const std::vector<Case> cases = {
        makeCase("", 0),
        makeCase("no directive", 0),
        makeCase("%%", 0),
        makeCase("%%%d%%", 5),
        makeCase("%ls", noWide),
        makeCase("%.5ls|%.6ls|%8ls|%-8ls|", noWide, noWide, noWide, noWide),
        makeCase("%s|%.3s|%.6s", noNarrow, noNarrow, noNarrow),
        makeCase("[%lc]", static_cast<std::wint_t>(0)),
        makeCase("[%3lc][%-3lc]", static_cast<std::wint_t>(0), static_cast<std::wint_t>(0)),
        makeCase("[%c]", 0),
        makeCase("[%.0lc]", static_cast<std::wint_t>(L'a')),
        makeCase("[%05ls][%05lc]", L"ab", static_cast<std::wint_t>(L'a')),
        makeCase("[%-----5ls][%005d]", L"ab", 7),
        makeCase("[%*ls][%*d]", -5, L"ab", -5, 7),
        makeCase("[%.*ls]", -1, L"abc"),
        makeCase("[%.ls]", L"abc"),
        makeCase("%.100f|%300ls|%-300d|", 0.1, L"a", 5),
        // Positions are left to printf.
        makeCase("%2$ls %1$d", 5, L"five"),
        makeCase("%1$d %1$d %2$s", 5, "five"),
        // The format of operating-system errors.
        makeCase("Operating system error. code: %ld, message: %ls", 2L, L"No such file or directory"),
    };
    for (const char* const locale : kLocales) {
        EXPECT_EQ(compareWithTheLibrary(cases, locale), cases.size());
    }
}

TEST(DiagnosticLineFormat, PrintsTheErrorOfTheCallEvenAfterATextThatFails) {
    EXPECT_EQ(printed("C",
                      [] {
                          errno = ENOENT;
                          formatLine("%m; %ls: %m", L"\x20AC");
                      }),
              "No such file or directory; ?: No such file or directory");
}

TEST(DiagnosticLineFormat, PrintsTheRestAsItStandsFromAnUnknownDirectiveOn) {
    EXPECT_EQ(formatted("C", "%d %k %d %ls\n", 1, 2, L"three"), "1 %k %d %ls\n");
    EXPECT_EQ(formatted("C", "%d 50%", 1), "1 50%");
    EXPECT_EQ(formatted("C", "%ls %n\n", L"a", nullptr), "a %n\n")
        << "nothing is written through an argument";
}

TEST(DiagnosticLineFormat, LeavesTheCallersArgumentsAlone) {
    const auto twice = [](const char* format, ...) {
        va_list args;
        va_start(args, format);
        DiagnosticLine().format(format, args).format(format, args);
        va_end(args);
    };
    EXPECT_EQ(printed("C", [&] { twice("%d %ls\n", 5, L"five"); }), "5 five\n5 five\n");
}

// ---- the stream

const brimtest::FreshProcess kOrientation("Orientation", [] {
    DiagnosticLine().text(L"wide ").text("narrow ");
    formatLine("%ls %d\n", L"format", 5);
    std::printf("host %d\n", std::fwide(stdout, 0) <= 0 ? 1 : 0);
});

TEST(DiagnosticLine, LeavesTheStreamNarrow) {
    const brimtest::ChildResult result = kOrientation.run();
    EXPECT_EQ(result.exitCode(), 0) << result;
    EXPECT_EQ(result.output, "wide narrow format 5\nhost 1\n");
}

// What `body` prints in a child whose standard output the host made wide.
template <class Body>
std::string printedWide(const char* locale, Body body) {
    return printed(locale, [&] {
        brimtest::renewStandardOutput();
        std::fwide(stdout, 1);
        body();
        std::fflush(stdout);
    });
}

TEST(DiagnosticLine, AppearsInOrderOnAStreamThatTheHostMadeWide) {
    for (const char* const locale : kLocales) {
        const std::string output = printedWide(locale, [] {
            std::wprintf(L"before ");
            DiagnosticLine().text("narrow \xC3\xA9 ").text(L"wide ").number(-5).text("\n");
            std::wprintf(L"between ");
            formatLine("%d %ls %s\n", 7, L"wide", "narrow");
            std::wprintf(L"after %d", std::fwide(stdout, 0) > 0 ? 1 : 0);
        });
        EXPECT_EQ(output, "before narrow \xC3\xA9 wide -5\nbetween 7 wide narrow\nafter 1");
    }
}

TEST(DiagnosticLine, ShowsTheSameTextsOnAWideStream) {
    for (const WideText& wide : kWideTexts) {
        const auto print = [&wide] {
            DiagnosticLine().text("<").text(wide.text).text(">");
            formatLine("<%ls|%S>", wide.text, wide.text);
        };
        for (const char* const locale : kLocales) {
            EXPECT_EQ(printedWide(locale, print), printed(locale, print));
        }
    }
}

TEST(DiagnosticLineFormat, PrintsTheBytesOfPrintfOnAWideStreamToo) {
    constexpr const char* kTextConversions[] = {"s"};
    std::vector<Case> cases;
    const auto add = [&](const auto& conversions, const auto& values) {
        for (const char* const conversion : conversions) {
            for (const auto value : values) {
                const std::string end = std::string(conversion) + "]";
                cases.push_back(makeCase("[%" + end, value));
                cases.push_back(makeCase("[%-20" + end, value));
                cases.push_back(makeCase("[%*.*" + end, 12, 7, value));
            }
        }
    };
    add(kIntegers, kIntegerValues);
    add(kLongs, kLongValues);
    add(kDoubles, kDoubleValues);
    add(kLongDoubles, kLongDoubleValues);
    add(kTextConversions, kStringValues);
    add(kWideStrings, kWideValues);
    add(kWideCharacters, kWideCharacterValues);
    cases.push_back(makeCase("[%c][%3c]", 'c', 0));
    cases.push_back(makeCase("[%p][%20p]", static_cast<const void*>(kLocales), static_cast<void*>(nullptr)));
    cases.push_back(makeCase("[%%] no directive", 0));
    cases.push_back(makeCase("%2$ls %1$d", 5, L"five"));
    const auto renew = [] {
        brimtest::renewStandardOutput();
        std::fwide(stdout, 1);
    };
    EXPECT_GT(compareWithTheLibrary(cases, "C", renew), cases.size() * 8 / 10);
    EXPECT_EQ(compareWithTheLibrary(cases, "C.UTF-8", renew), cases.size());
}

TEST(DiagnosticLineFormat, PrintsTheErrorOfTheCallOnAWideStreamToo) {
    EXPECT_EQ(printedWide("C",
                          [] {
                              std::wprintf(L"before ");
                              errno = ENOENT;
                              formatLine("%s %m", "first:");
                          }),
              "before first: No such file or directory");
}

TEST(DiagnosticLine, IsFlushedTogetherWithWhatWasPrintedBefore) {
    const brimtest::ChildResult result = runInChild([] {
        std::printf("host ");
        DiagnosticLine().text(L"line\n");
        std::abort();
    });
    EXPECT_EQ(result.signal(), SIGABRT) << result;
    EXPECT_EQ(result.output, "host line\n");
}

TEST(DiagnosticLine, MayBeMadeInsideAnother) {
    EXPECT_EQ(printed("C",
                      [] {
                          DiagnosticLine outer;
                          outer.text("a");
                          DiagnosticLine().text("b");
                          outer.text("c");
                      }),
              "abc");
}

const brimtest::FreshProcess kManyThreads("ManyThreads", [] {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            for (int k = 0; k < 500; ++k) {
                if (i == 3) {
                    std::printf("host,%d,%d\n", i, k);
                } else if (k % 2 == 0) {
                    DiagnosticLine().text("text,").number(i).text(L",").number(k).text(L"\n");
                } else {
                    formatLine("%ls,%d,%s%d%lc", L"text", i, "", k, static_cast<std::wint_t>(L'\n'));
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
});

TEST(DiagnosticLine, OfManyThreadsComesOutWhole) {
    const brimtest::ChildResult result = kManyThreads.run();
    ASSERT_EQ(result.exitCode(), 0) << result;
    std::map<std::string, int> lines;
    std::istringstream stream(result.output);
    for (std::string line; std::getline(stream, line);) {
        ++lines[line];
    }
    EXPECT_EQ(lines.size(), 2000U);
    for (int i = 0; i < 4; ++i) {
        for (int k = 0; k < 500; ++k) {
            const std::string line =
                std::string(i == 3 ? "host," : "text,") + std::to_string(i) + "," + std::to_string(k);
            EXPECT_EQ(lines[line], 1) << line;
        }
    }
}

TEST(DiagnosticLine, AsksTheAllocatorForNothing) {
    const std::string output = printed("C.UTF-8", [] {
        brimtest::AllocationLog log;
        DiagnosticLine().text("a").text(L"\xD83D\xDE00").number(5);
        formatLine("%ls %s %d %f", L"\x20AC", "b", 7, 1.5);
        std::printf(" %d", log.empty() ? 1 : 0);
        std::fflush(stdout);
    });
    EXPECT_EQ(output, "a\xF0\x9F\x98\x80"
                      "5\xE2\x82\xAC b 7 1.500000 1");
}

#ifndef BRIM_SANITIZED
TEST(DiagnosticLine, TakesNothingFromTheHeap) {
    for (const char* const locale : kLocales) {
        const std::string text(20000, 'n');
        const std::wstring wide(20000, L'w');
        const std::string output = printed(locale, [&] {
            // The C library takes the stream's buffer and the locale's tables at the first use.
            DiagnosticLine().text("x").text(L"\x20AC");
            const long before = brimtest::t_mallocCalls;
            DiagnosticLine().text(text.c_str()).text(wide.c_str()).text(L"\xD83D\xDE00").number(5);
            formatLine("%ls %s %d %f %lc %30ls", wide.c_str(), text.c_str(), 7, 1.5,
                       static_cast<std::wint_t>(0x20AC), L"\xD83D");
            const long calls = brimtest::t_mallocCalls - before;
            std::printf("|%ld", calls);
            std::fflush(stdout);
        });
        EXPECT_EQ(output.substr(output.rfind('|') + 1), "0") << locale;
        EXPECT_GT(output.size(), 80000U);
    }
}
#endif

} // namespace
