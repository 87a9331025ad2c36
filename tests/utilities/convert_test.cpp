// BaseStringUtil between narrow and wide text.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/transcodercache.h"

#include "Utility/Generic/Portable/SUPOS.h"
#include "child_process.h"
#include "guarded_buffer.h"
#include "recording_allocator.h"
#include "recording_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <new>
#include <random>
#include <string>
#include <string_view>
#include <vector>

using brimtest::AllocationLog;
using brimtest::AllocationRefusal;
using brimtest::GuardedBuffer;
using brimtest::RecordingAllocator;
using brimtest::RecordingManager;
using NarrowString = sup::String<char>;
using WideString = sup::String<wchar_t>;

namespace {

constexpr unsigned int kUtf8 = 65001;
constexpr unsigned int kUtf16Be = 1200;
constexpr unsigned int kUnknown = 4711;
constexpr unsigned int kTerminated = 0xFFFFFFFF;

std::wstring_view viewOf(const WideString& s) { return {s.begin(), s.length()}; }
std::string_view viewOf(const NarrowString& s) { return {s.begin(), s.length()}; }
unsigned int asUnsigned(std::size_t n) { return static_cast<unsigned int>(n); }

// ---- The entry points, each in one shape -----------------------------------------------------------------

struct ToWide {
    const char* name;
    WideString (*convert)(const char* src, unsigned int page);
};
constexpr ToWide kToWide[] = {
    {"StringFrom", [](const char* src, unsigned int page) { return BaseStringUtil::StringFrom(src, page); }},
    {"text to out",
     [](const char* src, unsigned int page) {
         WideString out(L"before");
         BaseStringUtil::StdStringToString(src, out, page);
         return out;
     }},
    {"text of a length to out",
     [](const char* src, unsigned int page) {
         WideString out(L"before");
         BaseStringUtil::StdStringToString(src, src == nullptr ? 5 : asUnsigned(std::string_view(src).size()),
                                           out, page);
         return out;
     }},
    {"terminated text by its length to out",
     [](const char* src, unsigned int page) {
         WideString out(L"before");
         BaseStringUtil::StdStringToString(src, kTerminated, out, page);
         return out;
     }},
    {"string to out",
     [](const char* src, unsigned int page) {
         WideString out(L"before");
         BaseStringUtil::StdStringToString(NarrowString(src), out, page);
         return out;
     }},
    {"string", [](const char* src,
                  unsigned int page) { return BaseStringUtil::StdStringToString(NarrowString(src), page); }},
};

struct ToNarrow {
    const char* name;
    NarrowString (*convert)(const wchar_t* src, unsigned int page);
};
constexpr ToNarrow kToNarrow[] = {
    {"text",
     [](const wchar_t* src, unsigned int page) { return BaseStringUtil::StringToStdString(src, page); }},
    {"string", [](const wchar_t* src,
                  unsigned int page) { return BaseStringUtil::StringToStdString(WideString(src), page); }},
    {"string, or false",
     [](const wchar_t* src, unsigned int page) {
         NarrowString out("before");
         EXPECT_TRUE(BaseStringUtil::TryStringToStdString(WideString(src), out, page));
         return out;
     }},
};

struct FillWide {
    const char* name;
    void (*fill)(const char* src, wchar_t* dst, unsigned int capacity, unsigned int page);
};
constexpr FillWide kFillWide[] = {
    {"text", [](const char* src, wchar_t* dst, unsigned int capacity,
                unsigned int page) { BaseStringUtil::StdStringToString(src, dst, capacity, page); }},
    {"text of a length",
     [](const char* src, wchar_t* dst, unsigned int capacity, unsigned int page) {
         BaseStringUtil::StdStringToString(src, src == nullptr ? 5 : asUnsigned(std::string_view(src).size()),
                                           dst, capacity, page);
     }},
    {"terminated text by its length",
     [](const char* src, wchar_t* dst, unsigned int capacity, unsigned int page) {
         BaseStringUtil::StdStringToString(src, kTerminated, dst, capacity, page);
     }},
    {"string",
     [](const char* src, wchar_t* dst, unsigned int capacity, unsigned int page) {
         BaseStringUtil::StdStringToString(NarrowString(src), dst, capacity, page);
     }},
};

struct FillNarrow {
    const char* name;
    void (*fill)(const wchar_t* src, char* dst, unsigned int capacity, unsigned int page);
};
constexpr FillNarrow kFillNarrow[] = {
    {"text", [](const wchar_t* src, char* dst, unsigned int capacity,
                unsigned int page) { BaseStringUtil::StringToStdString(src, dst, capacity, page); }},
    {"string",
     [](const wchar_t* src, char* dst, unsigned int capacity, unsigned int page) {
         BaseStringUtil::StringToStdString(WideString(src), dst, capacity, page);
     }},
};

// ---- Texts -----------------------------------------------------------------------------------------------

struct Sample {
    unsigned int page;
    std::string bytes;
    std::wstring units;
};

// Lengths about those that the inline buffers hold, and beyond.
const std::vector<Sample>& samples() {
    static const std::vector<Sample> kSamples = [] {
        std::vector<Sample> made = {
            {kUtf8, "", L""},
            {kUtf8, "a", L"a"},
            {kUtf8, "z\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z", L"z\xE9\x20AC\xD83D\xDE00z"},
            {1252, "z\xE9\x80z", L"z\xE9\x20ACz"},
            {28591, "\xE9\xFF", L"\xE9\xFF"},
        };
        for (const std::size_t length : {127U, 128U, 170U, 171U, 511U, 512U, 513U, 514U, 600U, 5000U}) {
            made.push_back({1252, std::string(length, '\xE9'), std::wstring(length, L'\xE9')});
            std::string bytes;
            for (std::size_t i = 0; i < length; ++i) {
                bytes += "\xE2\x82\xAC";
            }
            made.push_back({kUtf8, bytes, std::wstring(length, L'\x20AC')});
        }
        return made;
    }();
    return kSamples;
}

TEST(ToWideString, IsTheTextInEveryForm) {
    for (const ToWide& form : kToWide) {
        for (const Sample& sample : samples()) {
            EXPECT_EQ(viewOf(form.convert(sample.bytes.c_str(), sample.page)), sample.units) << form.name;
        }
    }
}

TEST(ToNarrowString, IsTheTextInEveryForm) {
    for (const ToNarrow& form : kToNarrow) {
        for (const Sample& sample : samples()) {
            EXPECT_EQ(viewOf(form.convert(sample.units.c_str(), sample.page)), sample.bytes) << form.name;
        }
    }
}

TEST(ToWideString, IsWhatTheCodePageLayerGivesForAnyBytes) {
    constexpr unsigned int kSeed = 3401;
    std::mt19937 random(kSeed);
    for (int round = 0; round < 300; ++round) {
        std::string bytes(random() % 700, '\0');
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(1 + random() % 255); });
        const unsigned int page = std::vector{kUtf8, 1252U, 28591U}[random() % 3];
        for (const ToWide& form : kToWide) {
            // Only a terminated text converts its terminator too, which tells that the text before is cut.
            const bool hasLength = form.name == std::string_view("text of a length to out");
            const int length = static_cast<int>(bytes.size());
            std::wstring units(bytes.size() + 1, L'x');
            const int n = SystemUtility::MultiByteToWideChar(bytes.c_str(), hasLength ? length : -1,
                                                             units.data(), length + 1, page);
            units.resize(static_cast<std::size_t>(hasLength ? n : n - 1));
            ASSERT_EQ(viewOf(form.convert(bytes.c_str(), page)), units)
                << form.name << ", seed " << kSeed << ", round " << round;
        }
    }
}

TEST(ToWideString, IsEmptyForNull) {
    const RecordingManager manager;
    for (const ToWide& form : kToWide) {
        EXPECT_TRUE(form.convert(nullptr, kUnknown).empty()) << form.name;
    }
    EXPECT_TRUE(BaseStringUtil::StringFrom(nullptr).empty());
    EXPECT_TRUE(manager.reports().empty());
}

TEST(ToNarrowString, IsEmptyForNull) {
    const RecordingManager manager;
    for (const ToNarrow& form : kToNarrow) {
        EXPECT_TRUE(form.convert(nullptr, kUnknown).empty()) << form.name;
    }
    EXPECT_TRUE(manager.reports().empty());
}

TEST(ToWideString, OfWideTextIsACopy) {
    EXPECT_EQ(viewOf(BaseStringUtil::StringFrom(L"a\x20AC")), L"a\x20AC");
    EXPECT_EQ(viewOf(BaseStringUtil::StringFrom(L"")), L"");
    EXPECT_EQ(viewOf(BaseStringUtil::StringFrom(std::wstring(5000, L'x').c_str())), std::wstring(5000, L'x'));
}

TEST(ToWideString, KeepsZerosWhereALengthIsGiven) {
    const std::string bytes("a\0\xE2\x82\xAC\0", 6);
    WideString out;
    BaseStringUtil::StdStringToString(bytes.data(), 6, out, kUtf8);
    EXPECT_EQ(viewOf(out), std::wstring_view(L"a\0\x20AC\0", 4));
    BaseStringUtil::StdStringToString(bytes.data(), 1, out, kUtf8);
    EXPECT_EQ(viewOf(out), L"a");
}

TEST(ToWideString, EndsAtTheFirstZeroWhereNoLengthIsGiven) {
    WideString out;
    BaseStringUtil::StdStringToString(NarrowString("a\0b", 3), out, kUtf8);
    EXPECT_EQ(viewOf(out), L"a");
    EXPECT_EQ(viewOf(BaseStringUtil::StdStringToString(NarrowString("\0b", 2), kUtf8)), L"");
    EXPECT_EQ(viewOf(BaseStringUtil::StringToStdString(WideString(L"a\0b", 3), kUtf8)), "a");
}

// The result's length is the count less one, whatever became of the terminator.
TEST(ToWideString, LosesACharacterWhereACutSequenceTookTheTerminator) {
    EXPECT_EQ(viewOf(BaseStringUtil::StringFrom("ab\xE2", kUtf8)), L"a");
    EXPECT_EQ(viewOf(BaseStringUtil::StringFrom("ab\xE2\x82", kUtf8)), L"ab");
    EXPECT_EQ(viewOf(BaseStringUtil::StringFrom("\xE2", kUtf8)), L"");
    EXPECT_EQ(viewOf(BaseStringUtil::StdStringToString(NarrowString("ab\xE2"), kUtf8)), L"a");
    WideString out;
    BaseStringUtil::StdStringToString("ab\xE2", 3, out, kUtf8);
    EXPECT_EQ(viewOf(out), L"ab") << "a length has no terminator";
}

TEST(ToWideString, AsksNoConverterForALengthOfZeroOrAnEmptyString) {
    const RecordingManager manager;
    WideString out(L"before");
    BaseStringUtil::StdStringToString("abc", 0, out, kUnknown);
    EXPECT_TRUE(out.empty());
    out = L"before";
    BaseStringUtil::StdStringToString(NarrowString(), out, kUnknown);
    EXPECT_TRUE(out.empty());
    EXPECT_TRUE(BaseStringUtil::StdStringToString(NarrowString(), kUnknown).empty());
    EXPECT_TRUE(BaseStringUtil::StringToStdString(WideString(), kUnknown).empty());
    EXPECT_TRUE(manager.reports().empty());
}

TEST(ToWideString, IsEmptyForALengthThatNoTextHas) {
    for (const unsigned int length : {0x80000000U, 0xFFFFFFFEU}) {
        WideString out(L"before");
        BaseStringUtil::StdStringToString("abc", length, out, kUtf8);
        EXPECT_TRUE(out.empty()) << length;
    }
}

// The result's length is the count less one, whatever a terminator takes.
TEST(ToNarrowString, KeepsHalfTheTerminatorOfTwoByteUnits) {
    EXPECT_EQ(viewOf(BaseStringUtil::StringToStdString(L"ab", kUtf16Be)), std::string_view("\0a\0b\0", 5));
    EXPECT_EQ(viewOf(BaseStringUtil::StringToStdString(WideString(L"ab"), kUtf16Be)),
              std::string_view("\0a\0b\0", 5));
}

// ---- Unknown pages, unconvertible texts ------------------------------------------------------------------

TEST(ToWideString, IsEmptyForAnUnknownPageWhichIsReportedOnce) {
    for (const ToWide& form : kToWide) {
        const RecordingManager manager;
        EXPECT_TRUE(form.convert("abc", kUnknown).empty()) << form.name;
        EXPECT_EQ(manager.reports(), RecordingManager::unsupported("4711")) << form.name;
    }
}

TEST(ToNarrowString, OfTextIsEmptyForAnUnknownPageWhichIsReportedOnce) {
    const RecordingManager manager;
    EXPECT_TRUE(BaseStringUtil::StringToStdString(L"abc", kUnknown).empty());
    EXPECT_EQ(manager.reports(), RecordingManager::unsupported("4711"));
}

// Whole code points above U+FFFF take four bytes where there is room for three, and three more.
const std::wstring kMostWhole(2, L'\x1F600');
const std::wstring kTooManyWhole(3, L'\x1F600');

constexpr std::string_view kAssertion = "Internal Assertion: Condition false, file "
                                        "server/Utility/Generic/Portable/Src/SUPBaseStringUtilConvert.cpp, "
                                        "line 23\n";

TEST(ToNarrowString, OfAStringAssertsThatItCanBeConverted) {
    const brimtest::ChildResult unknownPage = brimtest::runInChild(
        [] { static_cast<void>(BaseStringUtil::StringToStdString(WideString(L"abc"), kUnknown)); });
    EXPECT_EQ(unknownPage.signal(), SIGABRT);
    EXPECT_EQ(unknownPage.output, "Encoding not supported error number -1, 4711\n" + std::string(kAssertion));

    const brimtest::ChildResult tooLong = brimtest::runInChild([] {
        static_cast<void>(BaseStringUtil::StringToStdString(WideString(kTooManyWhole.c_str()), kUtf8));
    });
    EXPECT_EQ(tooLong.signal(), SIGABRT);
    EXPECT_EQ(tooLong.output, kAssertion);
}

TEST(ToNarrowString, HoldsThreeBytesACharacterAndThreeMore) {
    const WideString most(kMostWhole.c_str());
    EXPECT_EQ(BaseStringUtil::StringToStdString(most, kUtf8).length(), 8U);
    // Without that limit:
    EXPECT_EQ(BaseStringUtil::StringToStdString(kTooManyWhole.c_str(), kUtf8).length(), 12U);
}

TEST(TryStringToStdString, IsFalseWithNothingForWhatCannotBeConverted) {
    const RecordingManager manager;
    NarrowString out("before");
    EXPECT_FALSE(BaseStringUtil::TryStringToStdString(L"abc", out, kUnknown));
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(manager.reports(), RecordingManager::unsupported("4711"));
    out = "before";
    EXPECT_FALSE(BaseStringUtil::TryStringToStdString(kTooManyWhole.c_str(), out, kUtf8));
    EXPECT_TRUE(out.empty());
    out = "before";
    EXPECT_TRUE(BaseStringUtil::TryStringToStdString(L"", out, kUnknown));
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(manager.reports().size(), 1U);
}

// ---- A caller's buffer -----------------------------------------------------------------------------------

template <class Form, class Source, class Target>
void expectWholeOrEmpty(const Form& form, const Source& src, const Target& text, unsigned int page) {
    using T = typename Target::value_type;
    const auto fill = static_cast<T>('x');
    GuardedBuffer<T> buffer(text.size() + 8);
    for (std::size_t capacity = 0; capacity <= text.size() + 8; ++capacity) {
        T* const dst = buffer.lastFenced(capacity, fill);
        form.fill(src.c_str(), dst, asUnsigned(capacity), page);
        if (capacity != 0) {
            ASSERT_EQ(Target(dst), capacity > text.size() ? text : Target()) << form.name << ' ' << capacity;
        }
        ASSERT_TRUE(buffer.fenceIsWhole(capacity, fill)) << form.name << ' ' << capacity;
    }
}

TEST(FillingABuffer, GivesTheTextWithItsZeroOrTheEmptyText) {
    for (const Sample& sample : samples()) {
        if (sample.bytes.size() > 200) {
            continue;
        }
        for (const FillWide& form : kFillWide) {
            expectWholeOrEmpty(form, sample.bytes, sample.units, sample.page);
        }
        for (const FillNarrow& form : kFillNarrow) {
            expectWholeOrEmpty(form, sample.units, sample.bytes, sample.page);
        }
    }
}

// Sequences that the end cuts, and the text of each with the terminator that it took.
const struct {
    const char* bytes;
    const wchar_t* units;
} kCutTexts[] = {
    {"ab\xE2", L"ab"}, {"ab\xF0\x9F", L"ab"},  {"ab\xE2\x82", L"ab\x2080"}, {"\xF0\x9F\x98", L"\xD83D\xDE00"},
    {"\xE2", L""},     {"ab\xC3", L"ab\xFFFD"}};

TEST(FillingABuffer, EndsInAZeroWhereACutSequenceTookTheTerminator) {
    for (const auto& row : kCutTexts) {
        const std::wstring units = row.units;
        for (std::size_t capacity = 1; capacity <= 8; ++capacity) {
            GuardedBuffer<wchar_t> buffer(8);
            wchar_t* const dst = buffer.lastFenced(capacity, L'x');
            BaseStringUtil::StdStringToString(row.bytes, dst, asUnsigned(capacity), kUtf8);
            ASSERT_EQ(std::wstring(dst), capacity > units.size() ? units : L"") << capacity;
            BaseStringUtil::StdStringToString(NarrowString(row.bytes), dst, asUnsigned(capacity), kUtf8);
            ASSERT_EQ(std::wstring(dst), capacity > units.size() ? units : L"") << capacity;
        }
    }
}

TEST(FillingABuffer, TakesLongTexts) {
    std::vector<wchar_t> units(6000);
    std::vector<char> bytes(20000);
    for (const Sample& sample : samples()) {
        for (const FillWide& form : kFillWide) {
            form.fill(sample.bytes.c_str(), units.data(), asUnsigned(units.size()), sample.page);
            EXPECT_EQ(std::wstring_view(units.data()), sample.units) << form.name;
        }
        for (const FillNarrow& form : kFillNarrow) {
            form.fill(sample.units.c_str(), bytes.data(), asUnsigned(bytes.size()), sample.page);
            EXPECT_EQ(std::string_view(bytes.data()), sample.bytes) << form.name;
        }
    }
}

TEST(FillingABuffer, GivesTheEmptyTextForNullAndForAnUnknownPage) {
    const RecordingManager manager;
    std::size_t reports = 0;
    for (const char* const src : {static_cast<const char*>(nullptr), "abc"}) {
        for (const FillWide& form : kFillWide) {
            wchar_t dst[] = L"xxxxxxx";
            form.fill(src, dst, 8, kUnknown);
            EXPECT_EQ(dst[0], L'\0') << form.name;
            reports += src == nullptr ? 0 : 1;
        }
    }
    for (const FillNarrow& form : kFillNarrow) {
        char dst[] = "xxxxxxx";
        form.fill(L"abc", dst, 8, kUnknown);
        EXPECT_EQ(dst[0], '\0') << form.name;
        ++reports;
    }
    char dst[] = "xxxxxxx";
    BaseStringUtil::StringToStdString(static_cast<const wchar_t*>(nullptr), dst, 8, kUtf8);
    EXPECT_EQ(dst[0], '\0');
    const RecordingManager::Reports all = manager.reports();
    EXPECT_GE(all.size(), reports);
    EXPECT_EQ(std::count(all.begin(), all.end(), RecordingManager::unsupported("4711")[0]),
              static_cast<std::ptrdiff_t>(all.size()));
}

TEST(FillingABuffer, WritesNothingAtACapacityOfZeroOrWithoutABuffer) {
    wchar_t unit = L'x';
    char byte = 'x';
    for (const FillWide& form : kFillWide) {
        for (const char* const src : {static_cast<const char*>(nullptr), "", "abc"}) {
            form.fill(src, &unit, 0, kUtf8);
            form.fill(src, nullptr, 0, kUtf8);
            form.fill(src, nullptr, 8, kUtf8);
        }
    }
    for (const FillNarrow& form : kFillNarrow) {
        for (const wchar_t* const src : {static_cast<const wchar_t*>(nullptr), L"", L"abc"}) {
            form.fill(src, &byte, 0, kUtf8);
            form.fill(src, nullptr, 0, kUtf8);
            form.fill(src, nullptr, 8, kUtf8);
        }
    }
    EXPECT_EQ(unit, L'x');
    EXPECT_EQ(byte, 'x');
}

TEST(FillingABuffer, KeepsZerosWhereALengthIsGiven) {
    wchar_t units[] = L"xxxxx";
    BaseStringUtil::StdStringToString("a\0b\0", 4, units, 6, kUtf8);
    EXPECT_EQ(std::wstring_view(units, 6), std::wstring_view(L"a\0b\0\0\0", 6));
    BaseStringUtil::StdStringToString("abc", 0, units, 6, kUtf8);
    EXPECT_EQ(units[0], L'\0');
    BaseStringUtil::StdStringToString("abc", 0x80000000U, units, 6, kUtf8);
    EXPECT_EQ(units[0], L'\0');
}

// ---- Memory ----------------------------------------------------------------------------------------------

// Bytes of narrow text, units of wide text.
TEST(Conversion, OfUpTo512CharactersAllocatesNothingBesidesTheResult) {
    sup::transcodeimpl::GetTranscoderCache(); // made once, and kept
    for (const Sample& sample : samples()) {
        const std::size_t length = sample.units.size();
        if (length == 0 || length > 512) {
            continue;
        }
        const WideString wide(sample.units.c_str());
        const NarrowString narrow(sample.bytes.c_str());
        wchar_t units[2000];
        char bytes[2100];
        int conversion = 0;
        AllocationLog log;
        const auto count = [&](std::size_t results) {
            EXPECT_EQ(log.requests().size(), results)
                << "conversion " << conversion << ", length " << length << ", page " << sample.page;
            ++conversion;
            log.clear();
        };
        static_cast<void>(BaseStringUtil::StringToStdString(sample.units.c_str(), sample.page));
        count(1);
        static_cast<void>(BaseStringUtil::StringToStdString(wide, sample.page));
        count(1);
        BaseStringUtil::StringToStdString(sample.units.c_str(), bytes, 2100, sample.page);
        BaseStringUtil::StringToStdString(wide, bytes, 2100, sample.page);
        count(0);
        if (sample.bytes.size() > 512) {
            continue;
        }
        static_cast<void>(BaseStringUtil::StringFrom(sample.bytes.c_str(), sample.page));
        count(1);
        {
            WideString out;
            BaseStringUtil::StdStringToString(sample.bytes.c_str(), out, sample.page);
        }
        count(1);
        {
            WideString out;
            const unsigned int bytesLength = asUnsigned(sample.bytes.size());
            BaseStringUtil::StdStringToString(sample.bytes.c_str(), bytesLength, out, sample.page);
        }
        count(1);
        static_cast<void>(BaseStringUtil::StdStringToString(narrow, sample.page));
        count(1);
        BaseStringUtil::StdStringToString(sample.bytes.c_str(), units, 2000, sample.page);
        BaseStringUtil::StdStringToString(narrow, units, 2000, sample.page);
        count(0);
    }
}

TEST(Conversion, ReleasesItsBuffersWhenMemoryRunsOut) {
    sup::transcodeimpl::GetTranscoderCache(); // made once, and kept
    const Sample& sample = samples().back();
    const auto expectNoLeak = [](const char* name, const auto& convert) {
        for (long n = 1;; ++n) {
            const long live = RecordingAllocator::liveBlocks();
            const AllocationRefusal refusal(n);
            try {
                convert();
            } catch (const std::bad_alloc&) {
            }
            ASSERT_EQ(RecordingAllocator::liveBlocks(), live) << name << ", request " << n;
            if (!refusal.happened()) {
                EXPECT_GT(n, 1) << name << " asks for the result, and may ask for a buffer";
                return;
            }
        }
    };
    for (const ToWide& form : kToWide) {
        expectNoLeak(form.name, [&] { form.convert(sample.bytes.c_str(), sample.page); });
    }
    for (const ToNarrow& form : kToNarrow) {
        expectNoLeak(form.name, [&] { form.convert(sample.units.c_str(), sample.page); });
    }
}

// ---- Code page 0 -----------------------------------------------------------------------------------------

const brimtest::FreshProcess kConvertsInCodePageZero("string conversions in code page 0", [] {
    std::setlocale(LC_CTYPE, "C.utf8");
    std::printf("body:");
    for (const ToWide& form : kToWide) {
        std::printf(" %x", static_cast<unsigned int>(form.convert("\xE2\x82\xAC", 0)[0]));
    }
    for (const ToNarrow& form : kToNarrow) {
        std::printf(" %s", form.convert(L"\x20AC", 0).c_str());
    }
});

TEST(Conversion, TakesPageZeroForTheProcessesOwn) {
    const brimtest::ChildResult result = kConvertsInCodePageZero.run({{"HX_PRODUCT_HOME", "/no/such/h"}});
    EXPECT_EQ(result.output.substr(std::min(result.output.find("body:"), result.output.size())),
              "body: 20ac 20ac 20ac 20ac 20ac 20ac \xE2\x82\xAC \xE2\x82\xAC \xE2\x82\xAC");
}

} // namespace
