#include "Utility/Generic/Portable/SUPTranscode.h"

#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/transcodercache.h"
#include "child_process.h"
#include "guarded_buffer.h"
#include "recording_allocator.h"
#include "recording_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <clocale>
#include <cstddef>
#include <cstdio>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

using brimtest::AllocationLog;
using brimtest::AllocationRefusal;
using brimtest::ClientCodePage;
using brimtest::FreshProcess;
using brimtest::GuardedBuffer;
using brimtest::RecordingAllocator;
using brimtest::RecordingManager;
using sup::transcodeimpl::TranscoderCache;

namespace {

constexpr unsigned int kUtf8 = 65001;
constexpr unsigned int kUtf16Be = 1200;
constexpr unsigned int kUtf16Le = 1201;
constexpr unsigned int kLatin1 = 28591;
constexpr unsigned int kUnknown = 4711;

// ---- The conversion functions
// ---------------------------------------------------------------------------------

// A text in both forms; all texts survive the way there and back.
struct Sample {
    unsigned int codePage;
    std::wstring wide;
    std::string bytes;
};

const std::vector<Sample>& samples() {
    static const std::vector<Sample> kSamples = {
        {kUtf8, L"a", "a"},
        {kUtf8, L"abcdefghijklmnopqrstuvwxyz", "abcdefghijklmnopqrstuvwxyz"},
        {kUtf8, L"z\xE9\x20AC\xD83D\xDE00z", "z\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z"},
        {kUtf8, L"\x4E2D\x6587\x4E2D\x6587", "\xE4\xB8\xAD\xE6\x96\x87\xE4\xB8\xAD\xE6\x96\x87"},
        {kUtf8, std::wstring(L"x\0y", 3), std::string("x\0y", 3)},
        {kLatin1, L"z\xE9\xFF", "z\xE9\xFF"},
        {1252, L"z\xE9\xFF", "z\xE9\xFF"},
        {kUtf16Be, L"z\x20AC", std::string("\0z\x20\xAC", 4)},
        {kUtf16Le, L"z\x20AC", std::string("z\0\xAC\x20", 4)},
    };
    return kSamples;
}

// The four conversions, one shape. kRoomForAll target units a source unit are enough for the direct way.
struct WideToBytes {
    using Source = wchar_t;
    using Target = char;
    static constexpr std::size_t kRoomForAll = 4;
    static std::vector<Source> source(const Sample& sample) {
        return {sample.wide.begin(), sample.wide.end()};
    }
    static std::vector<Target> target(const Sample& sample) {
        return {sample.bytes.begin(), sample.bytes.end()};
    }
    static int convert(const Source* src, int srcLen, Target* dst, int dstLen, unsigned int page) {
        return SystemUtility::WideCharToMultiByte(src, srcLen, dst, dstLen, page);
    }
    static int convert(const Source* src, Target* dst, int dstLen, unsigned int page) {
        return SystemUtility::WideCharToMultiByte(src, dst, dstLen, page);
    }
};
struct BytesToWide {
    using Source = char;
    using Target = wchar_t;
    static constexpr std::size_t kRoomForAll = 1;
    static std::vector<Source> source(const Sample& sample) {
        return {sample.bytes.begin(), sample.bytes.end()};
    }
    static std::vector<Target> target(const Sample& sample) {
        return {sample.wide.begin(), sample.wide.end()};
    }
    static int convert(const Source* src, int srcLen, Target* dst, int dstLen, unsigned int page) {
        return SystemUtility::MultiByteToWideChar(src, srcLen, dst, dstLen, page);
    }
    static int convert(const Source* src, Target* dst, int dstLen, unsigned int page) {
        return SystemUtility::MultiByteToWideChar(src, dst, dstLen, page);
    }
};
struct Ucs2ToBytes {
    using Source = unsigned short;
    using Target = char;
    static constexpr std::size_t kRoomForAll = 4;
    static std::vector<Source> source(const Sample& sample) {
        std::vector<Source> units;
        for (const wchar_t unit : sample.wide) {
            units.push_back(static_cast<Source>(unit));
        }
        return units;
    }
    static std::vector<Target> target(const Sample& sample) {
        return {sample.bytes.begin(), sample.bytes.end()};
    }
    static int convert(const Source* src, int srcLen, Target* dst, int dstLen, unsigned int page) {
        return SystemUtility::Ucs2ToMultiByte(src, srcLen, dst, dstLen, page);
    }
    static int convert(const Source* src, Target* dst, int dstLen, unsigned int page) {
        return SystemUtility::Ucs2ToMultiByte(src, dst, dstLen, page);
    }
};
struct BytesToUcs2 {
    using Source = char;
    using Target = unsigned short;
    static constexpr std::size_t kRoomForAll = 1;
    static std::vector<Source> source(const Sample& sample) {
        return {sample.bytes.begin(), sample.bytes.end()};
    }
    static std::vector<Target> target(const Sample& sample) { return Ucs2ToBytes::source(sample); }
    static int convert(const Source* src, int srcLen, Target* dst, int dstLen, unsigned int page) {
        return SystemUtility::MultiByteToUcs2(src, srcLen, dst, dstLen, page);
    }
    static int convert(const Source* src, Target* dst, int dstLen, unsigned int page) {
        return SystemUtility::MultiByteToUcs2(src, dst, dstLen, page);
    }
};

struct FormName {
    template <class Form>
    static std::string GetName(int) {
        return std::is_same_v<Form, WideToBytes>   ? "WideToBytes"
               : std::is_same_v<Form, BytesToWide> ? "BytesToWide"
               : std::is_same_v<Form, Ucs2ToBytes> ? "Ucs2ToBytes"
                                                   : "BytesToUcs2";
    }
};

template <class Form>
class Conversion : public testing::Test {
protected:
    using Source = typename Form::Source;
    using Target = typename Form::Target;
    using SourceText = std::vector<Source>;
    using TargetText = std::vector<Target>;
    static constexpr Target kUntouched = 0x55;

    // One call, the source and the destination each before a guard page. Returns the result and what the call
    // left in the destination.
    std::pair<int, TargetText> convert(const SourceText& text, std::size_t room, unsigned int page) {
        Source* const src = m_source.last(text.size());
        std::copy(text.begin(), text.end(), src);
        Target* const dst = m_target.lastFenced(room, kUntouched);
        const int result =
            Form::convert(src, static_cast<int>(text.size()), dst, static_cast<int>(room), page);
        EXPECT_TRUE(m_target.fenceIsWhole(room, kUntouched));
        return {result, {dst, dst + room}};
    }

    // The outcomes that the size of the destination decides on.
    void expectEveryOutcome(const SourceText& text, const TargetText& expected, std::size_t room,
                            unsigned int page) {
        const auto [result, written] = convert(text, room, page);
        const std::size_t units = std::min(room, expected.size());
        if (room != 0 && room < expected.size()) {
            ASSERT_EQ(result, 0) << "page " << page << ", room " << room;
        } else {
            ASSERT_EQ(result, static_cast<int>(expected.size())) << "page " << page << ", room " << room;
        }
        ASSERT_TRUE(std::equal(written.begin(), written.begin() + static_cast<std::ptrdiff_t>(units),
                               expected.begin()))
            << "page " << page << ", room " << room;
    }

    static SourceText terminated(SourceText text) {
        text.push_back(0);
        return text;
    }

private:
    GuardedBuffer<Source> m_source{32768};
    GuardedBuffer<Target> m_target{65536};
};

using Forms = testing::Types<WideToBytes, BytesToWide, Ucs2ToBytes, BytesToUcs2>;
TYPED_TEST_SUITE(Conversion, Forms, FormName);

// Through the direct way and through the temporary buffer the result is the same; a cut destination gets the
// beginning, and the result is 0.
TYPED_TEST(Conversion, GivesTheSameInEveryRoomThatIsEnoughAndCutsInEveryOther) {
    for (const Sample& sample : samples()) {
        const auto source = TypeParam::source(sample);
        const auto target = TypeParam::target(sample);
        const std::size_t direct = TypeParam::kRoomForAll * source.size();
        for (std::size_t room = 0; room <= std::max(direct, target.size()) + 3; ++room) {
            this->expectEveryOutcome(source, target, room, sample.codePage);
        }
    }
}

TYPED_TEST(Conversion, LengthMinusOneConvertsAndCountsTheTerminatingZero) {
    for (const Sample& sample : samples()) {
        if (sample.codePage == kUtf16Be || sample.codePage == kUtf16Le ||
            sample.wide.find(L'\0') != std::wstring::npos) {
            continue; // bytes with zeros inside
        }
        const auto source = this->terminated(TypeParam::source(sample));
        auto expected = TypeParam::target(sample);
        expected.push_back(0);
        // The second room is for the direct way.
        for (const std::size_t room : {expected.size(), TypeParam::kRoomForAll * source.size()}) {
            std::vector<typename TypeParam::Target> units(room, 0x55);
            const int n = static_cast<int>(expected.size());
            EXPECT_EQ(
                TypeParam::convert(source.data(), -1, units.data(), static_cast<int>(room), sample.codePage),
                n);
            EXPECT_TRUE(std::equal(expected.begin(), expected.end(), units.begin()));
            units.assign(room, 0x55);
            EXPECT_EQ(
                TypeParam::convert(source.data(), units.data(), static_cast<int>(room), sample.codePage), n);
            EXPECT_TRUE(std::equal(expected.begin(), expected.end(), units.begin()));
        }
        EXPECT_EQ(TypeParam::convert(source.data(), nullptr, 0, sample.codePage),
                  static_cast<int>(expected.size()));
    }
}

TYPED_TEST(Conversion, LengthMinusOneOfAnEmptyTextIsTheZero) {
    const typename TypeParam::Source zero = 0;
    typename TypeParam::Target unit = 0x55;
    EXPECT_EQ(TypeParam::convert(&zero, -1, &unit, 1, kUtf8), 1);
    EXPECT_EQ(unit, 0);
    EXPECT_EQ(TypeParam::convert(&zero, nullptr, 0, kUtf8), 1);
}

TYPED_TEST(Conversion, ALengthWithoutTheZeroConvertsNone) {
    const auto source = TypeParam::source({kUtf8, L"abcd", "abcd"});
    typename TypeParam::Target units[16] = {};
    std::fill_n(units, 16, static_cast<typename TypeParam::Target>(0x55));
    EXPECT_EQ(TypeParam::convert(source.data(), 3, units, 16, kUtf8), 3);
    EXPECT_EQ(units[2], 'c');
    std::fill_n(units, 16, static_cast<typename TypeParam::Target>(0x55));
    EXPECT_EQ(TypeParam::convert(source.data(), 3, units, 4, kUtf8), 3);
    EXPECT_EQ(units[3], 0x55);
}

TYPED_TEST(Conversion, AnEmptySourceGivesNothing) {
    const RecordingManager manager;
    const auto source = TypeParam::source({kUtf8, L"a", "a"});
    typename TypeParam::Target unit = 0x55;
    // Not even a question for the code page.
    for (const unsigned int page : {kUtf8, kUnknown}) {
        EXPECT_EQ(TypeParam::convert(source.data(), 0, &unit, 1, page), 0);
        EXPECT_EQ(TypeParam::convert(source.data(), 0, nullptr, 0, page), 0);
        EXPECT_EQ(TypeParam::convert(nullptr, 0, nullptr, 0, page), 0);
    }
    EXPECT_EQ(unit, 0x55);
    EXPECT_TRUE(manager.reports().empty());
}

TYPED_TEST(Conversion, ANullSourceGivesNothing) {
    typename TypeParam::Target unit = 0x55;
    for (const int length : {-1, 0, 5}) {
        EXPECT_EQ(TypeParam::convert(nullptr, length, &unit, 1, kUtf8), 0) << length;
    }
    EXPECT_EQ(TypeParam::convert(nullptr, &unit, 1, kUtf8), 0);
    EXPECT_EQ(unit, 0x55);
}

TYPED_TEST(Conversion, ASourceLengthBelowMinusOneGivesNothing) {
    const auto source = this->terminated(TypeParam::source({kUtf8, L"a", "a"}));
    typename TypeParam::Target units[8] = {0x55};
    for (const int length : {-2, -100, INT_MIN}) {
        EXPECT_EQ(TypeParam::convert(source.data(), length, units, 8, kUtf8), 0) << length;
    }
    EXPECT_EQ(units[0], 0x55);
}

TYPED_TEST(Conversion, WithoutADestinationTheResultIsTheSizeNeeded) {
    for (const Sample& sample : samples()) {
        const auto source = TypeParam::source(sample);
        const int n = static_cast<int>(source.size());
        const int expected = static_cast<int>(TypeParam::target(sample).size());
        typename TypeParam::Target unit = 0x55;
        EXPECT_EQ(TypeParam::convert(source.data(), n, nullptr, 0, sample.codePage), expected);
        EXPECT_EQ(TypeParam::convert(source.data(), n, nullptr, 1, sample.codePage), expected);
        EXPECT_EQ(TypeParam::convert(source.data(), n, nullptr, 4096, sample.codePage), expected);
        EXPECT_EQ(TypeParam::convert(source.data(), n, &unit, 0, sample.codePage), expected);
        EXPECT_EQ(unit, 0x55);
    }
}

TYPED_TEST(Conversion, ANegativeRoomIsNone) {
    const auto source = TypeParam::source({kUtf8, L"abc", "abc"});
    typename TypeParam::Target unit = 0x55;
    for (const int room : {-1, -100, INT_MIN}) {
        EXPECT_EQ(TypeParam::convert(source.data(), 3, &unit, room, kUtf8), 3) << room;
    }
    EXPECT_EQ(unit, 0x55);
}

TYPED_TEST(Conversion, LongTextsGoThroughTheHeapAlike) {
    for (const std::size_t characters : {64U, 65U, 256U, 257U, 600U, 5000U}) {
        Sample sample{kUtf8, {}, {}};
        for (std::size_t i = 0; i < characters; ++i) {
            sample.wide += i % 3 == 0 ? L'\x20AC' : L'a';
            sample.bytes += i % 3 == 0 ? "\xE2\x82\xAC" : "a";
        }
        const auto source = TypeParam::source(sample);
        const auto target = TypeParam::target(sample);
        const std::size_t direct = TypeParam::kRoomForAll * source.size();
        for (const std::size_t room : {std::size_t{0}, std::size_t{1}, target.size() / 2, target.size() - 1,
                                       target.size(), target.size() + 1, direct - 1, direct, direct + 1}) {
            this->expectEveryOutcome(source, target, room, kUtf8);
        }
    }
}

TYPED_TEST(Conversion, LeavesNoBlockBehind) {
    constexpr bool kUcs2 = std::is_same_v<TypeParam, Ucs2ToBytes> || std::is_same_v<TypeParam, BytesToUcs2>;
    const auto shortText = TypeParam::source({kUtf8, std::wstring(64, L'a'), std::string(64, 'a')});
    const auto longText = TypeParam::source({kUtf8, std::wstring(5000, L'a'), std::string(5000, 'a')});
    std::vector<typename TypeParam::Target> units(20000);
    TypeParam::convert(shortText.data(), 64, nullptr, 0, kUtf8); // builds the cache
    const long live = RecordingAllocator::liveBlocks();
    const AllocationLog log;
    // Short texts have room on the stack, and the direct way needs none but for 16-bit units.
    EXPECT_EQ(TypeParam::convert(shortText.data(), 64, units.data(), 64, kUtf8), 64);
    EXPECT_EQ(TypeParam::convert(shortText.data(), 64, units.data(), 63, kUtf8), 0);
    EXPECT_EQ(log.requests().size(), 0U);
    EXPECT_EQ(TypeParam::convert(longText.data(), 5000, units.data(), 20000, kUtf8), 5000);
    EXPECT_EQ(log.requests().size(), kUcs2 ? 1U : 0U);
    EXPECT_EQ(TypeParam::convert(longText.data(), 5000, units.data(), 4999, kUtf8), 0);
    EXPECT_EQ(log.requests().size(), kUcs2 ? 3U : 1U);
    EXPECT_EQ(RecordingAllocator::liveBlocks(), live);
}

TYPED_TEST(Conversion, ThrowsAndLeavesNoBlockBehindWhenMemoryIsExhausted) {
    constexpr long kBlocks =
        std::is_same_v<TypeParam, Ucs2ToBytes> || std::is_same_v<TypeParam, BytesToUcs2> ? 2 : 1;
    const auto text = TypeParam::source({kUtf8, std::wstring(5000, L'a'), std::string(5000, 'a')});
    typename TypeParam::Target unit = 0x55;
    TypeParam::convert(text.data(), 1, nullptr, 0, kUtf8); // builds the cache
    const long live = RecordingAllocator::liveBlocks();
    for (long block = 1; block <= kBlocks; ++block) {
        const AllocationRefusal refusal(block);
        EXPECT_THROW(TypeParam::convert(text.data(), 5000, &unit, 1, kUtf8), std::bad_alloc) << block;
        EXPECT_EQ(RecordingAllocator::liveBlocks(), live) << block;
    }
    EXPECT_EQ(unit, 0x55);
    EXPECT_EQ(TypeParam::convert(text.data(), 5000, &unit, 0, kUtf8), 5000);
}

TYPED_TEST(Conversion, ReportsAnUnknownCodePageAndGivesNothing) {
    struct Row {
        unsigned int page;
        const char* text;
    };
    const auto source = TypeParam::source({kUtf8, L"abc", "abc"});
    typename TypeParam::Target units[16] = {0x55};
    for (const Row& row : {Row{kUnknown, "4711"}, Row{28605, "28605"}, Row{UINT_MAX, "-1"}}) {
        // The direct way, the other, and the question for the size.
        for (const int room : {16, 1, 0}) {
            const RecordingManager manager;
            EXPECT_EQ(TypeParam::convert(source.data(), 3, units, room, row.page), 0) << row.page;
            EXPECT_EQ(manager.reports(), RecordingManager::unsupported(row.text));
        }
    }
    EXPECT_EQ(units[0], 0x55);
}

class ThrowingManager : public RecordingManager {
public:
    void ThrowErrorMessage(int, const char* arg1, const char*) override { throw std::runtime_error(arg1); }
};

TYPED_TEST(Conversion, PassesOnWhatTheManagerThrows) {
    const ThrowingManager manager;
    const auto source = TypeParam::source({kUtf8, L"abc", "abc"});
    typename TypeParam::Target units[16];
    for (const int room : {16, 1, 0}) {
        EXPECT_THROW(TypeParam::convert(source.data(), 3, units, room, kUnknown), std::runtime_error) << room;
    }
}

// ---- The wide and UTF-8 forms by name
// -------------------------------------------------------------------------

TEST(WideCharToMultiByte, ConvertsATerminatedTextWithItsZero) {
    char bytes[16];
    ASSERT_EQ(SystemUtility::WideCharToMultiByte(L"abc", -1, bytes, 16, kUtf8), 4);
    EXPECT_EQ(std::string_view(bytes, 4), std::string_view("abc\0", 4));
}

TEST(WideCharToMultiByte, CutsInsideACharacter) {
    char bytes[3] = {'x', 'x', 'x'};
    EXPECT_EQ(SystemUtility::WideCharToMultiByte(L"abc", 3, bytes, 2, kUtf8), 0);
    EXPECT_EQ(std::string_view(bytes, 3), "abx");
    EXPECT_EQ(SystemUtility::WideCharToMultiByte(L"\x20AC", 1, bytes, 2, kUtf8), 0);
    EXPECT_EQ(std::string_view(bytes, 3), "\xE2\x82x");
}

TEST(WideCharToMultiByte, TakesFourBytesAUnitForWholeCodePoints) {
    const std::wstring text(300, 0x1F600);
    EXPECT_EQ(SystemUtility::WideCharToMultiByte(text.data(), 300, nullptr, 0, kUtf8), 1200);
    std::string bytes(1200, 'x');
    EXPECT_EQ(SystemUtility::WideCharToMultiByte(text.data(), 300, bytes.data(), 1200, kUtf8), 1200);
    EXPECT_EQ(bytes.substr(1196), "\xF0\x9F\x98\x80");
    EXPECT_EQ(SystemUtility::WideCharToMultiByte(text.data(), 300, bytes.data(), 1199, kUtf8), 0);
}

TEST(MultiByteToWideChar, CutsInsideASurrogatePair) {
    wchar_t units[3] = {L'x', L'x', L'x'};
    EXPECT_EQ(SystemUtility::MultiByteToWideChar("z\xF0\x9F\x98\x80", 5, units, 2, kUtf8), 0);
    EXPECT_EQ(std::wstring_view(units, 3), L"z\xD83Dx");
}

TEST(MultiByteToWideChar, DropsACutSequenceAtTheEnd) {
    wchar_t units[8];
    for (const int room : {8, 3}) {
        EXPECT_EQ(SystemUtility::MultiByteToWideChar("abc\xE2\x82", 5, units, room, kUtf8), 3);
    }
}

TEST(WideCharToUTF8, IsTheTerminatedFormInUtf8) {
    char bytes[16];
    ASSERT_EQ(SystemUtility::WideCharToUTF8(L"z\x20AC", bytes, 16), 5);
    EXPECT_EQ(std::string_view(bytes, 5), std::string_view("z\xE2\x82\xAC\0", 5));
    EXPECT_EQ(SystemUtility::WideCharToUTF8(L"z\x20AC", nullptr, 0), 5);
    EXPECT_EQ(SystemUtility::WideCharToUTF8(L"z\x20AC", bytes, 4), 0);
    EXPECT_EQ(SystemUtility::WideCharToUTF8(nullptr, bytes, 16), 0);
}

TEST(UTF8ToWideChar, IsTheTerminatedFormInUtf8) {
    wchar_t units[16];
    ASSERT_EQ(SystemUtility::UTF8ToWideChar("z\xE2\x82\xAC", units, 16), 3);
    EXPECT_EQ(std::wstring_view(units, 3), std::wstring_view(L"z\x20AC\0", 3));
    EXPECT_EQ(SystemUtility::UTF8ToWideChar("z\xE2\x82\xAC", nullptr, 0), 3);
    EXPECT_EQ(SystemUtility::UTF8ToWideChar("z\xE2\x82\xAC", units, 2), 0);
    EXPECT_EQ(SystemUtility::UTF8ToWideChar(nullptr, units, 16), 0);
}

// ---- 16-bit units
// ---------------------------------------------------------------------------------------------

TEST(Ucs2Forms, GiveWhatTheWideFormsGive) {
    constexpr unsigned int kSeed = 4501;
    std::mt19937 random(kSeed);
    for (int round = 0; round < 400; ++round) {
        const unsigned int page = std::vector{kUtf8, kUtf16Be, kUtf16Le, kLatin1, 1252U}[random() % 5];
        std::string bytes(1 + random() % 700, '\0');
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
        const int length = static_cast<int>(bytes.size());
        // Somewhat too small, enough, more than enough.
        const int room = static_cast<int>(random() % (2 * bytes.size()));
        std::vector<wchar_t> wide(2 * bytes.size());
        std::vector<unsigned short> narrow(2 * bytes.size());
        const int result = SystemUtility::MultiByteToWideChar(bytes.data(), length, wide.data(), room, page);
        ASSERT_EQ(SystemUtility::MultiByteToUcs2(bytes.data(), length, narrow.data(), room, page), result)
            << "seed " << kSeed << ", round " << round;
        const std::ptrdiff_t written = result == 0 ? room : std::min(result, room);
        ASSERT_TRUE(std::equal(wide.begin(), wide.begin() + written, narrow.begin(),
                               [](wchar_t a, unsigned short b) { return a == b; }))
            << "seed " << kSeed << ", round " << round;

        std::vector<unsigned short> units(bytes.size());
        std::generate(units.begin(), units.end(), [&] { return static_cast<unsigned short>(random()); });
        const std::vector<wchar_t> same(units.begin(), units.end());
        const int roomForBytes = static_cast<int>(random() % (5 * units.size()));
        std::string fromUnits(5 * units.size(), 'x');
        std::string fromWide(5 * units.size(), 'x');
        const int bytesWritten =
            SystemUtility::WideCharToMultiByte(same.data(), length, fromWide.data(), roomForBytes, page);
        ASSERT_EQ(SystemUtility::Ucs2ToMultiByte(units.data(), length, fromUnits.data(), roomForBytes, page),
                  bytesWritten)
            << "seed " << kSeed << ", round " << round;
        const auto compared =
            static_cast<std::size_t>(bytesWritten == 0 ? roomForBytes : std::min(bytesWritten, roomForBytes));
        ASSERT_EQ(fromUnits.substr(0, compared), fromWide.substr(0, compared))
            << "seed " << kSeed << ", round " << round;
    }
}

TEST(MultibyteToUcs2_S, ConvertsWithoutAZero) {
    unsigned short units[8] = {};
    std::fill_n(units, 8, static_cast<unsigned short>(7));
    ASSERT_EQ(MultibyteToUcs2_S(kUtf8, "z\xE2\x82\xAC\xF0\x9F\x98\x80", 8, units, 8), 4);
    EXPECT_EQ((std::vector<unsigned short>(units, units + 5)),
              (std::vector<unsigned short>{'z', 0x20AC, 0xD83D, 0xDE00, 7}));
}

TEST(MultibyteToUcs2_S, GivesMinusOneWhenTheDestinationIsTooSmall) {
    unsigned short units[4] = {7, 7, 7, 7};
    EXPECT_EQ(MultibyteToUcs2_S(kUtf8, "abc", 3, units, 2), -1);
    EXPECT_EQ(MultibyteToUcs2_S(kUtf8, "abc", 3, units, 0), -1);
    EXPECT_EQ(MultibyteToUcs2_S(kUtf8, "abc", 3, units, -1), -1);
    EXPECT_EQ(MultibyteToUcs2_S(kUtf8, "abc", 3, nullptr, 4), -1);
    EXPECT_EQ(units[2], 7);
    EXPECT_EQ(MultibyteToUcs2_S(kUtf8, "abc", 3, units, 3), 3);
    EXPECT_EQ(units[3], 7);
}

TEST(MultibyteToUcs2_S, GivesNothingForNothing) {
    const RecordingManager manager;
    unsigned short unit = 7;
    EXPECT_EQ(MultibyteToUcs2_S(kUtf8, "abc", 0, &unit, 1), 0);
    EXPECT_EQ(MultibyteToUcs2_S(kUtf8, "abc", -1, &unit, 1), 0);
    EXPECT_EQ(MultibyteToUcs2_S(kUtf8, nullptr, 3, &unit, 1), 0);
    EXPECT_EQ(MultibyteToUcs2_S(kUnknown, "abc", 0, &unit, 1), 0);
    EXPECT_TRUE(manager.reports().empty());
    EXPECT_EQ(MultibyteToUcs2_S(kUnknown, "abc", 3, &unit, 1), 0);
    EXPECT_EQ(manager.reports(), RecordingManager::unsupported("4711"));
    EXPECT_EQ(unit, 7);
}

TEST(MultibyteToUcs2_S, ConvertsLongTexts) {
    TranscoderCache::getTranscoder(kLatin1); // its blocks stay
    for (const std::size_t length : {256U, 257U, 5000U}) {
        const std::string bytes(length, '\xE9');
        std::vector<unsigned short> units(length);
        const long live = RecordingAllocator::liveBlocks();
        const int n = static_cast<int>(length);
        ASSERT_EQ(MultibyteToUcs2_S(kLatin1, bytes.data(), n, units.data(), n), n);
        EXPECT_EQ(std::count(units.begin(), units.end(), 0xE9), n);
        EXPECT_EQ(MultibyteToUcs2_S(kLatin1, bytes.data(), n, units.data(), n - 1), -1);
        EXPECT_EQ(RecordingAllocator::liveBlocks(), live);
    }
}

TEST(Ucs2ToMultibyte_S, ConvertsWithoutAZero) {
    const unsigned short units[] = {'z', 0x20AC, 0xD83D, 0xDE00, 0xFFFF};
    char bytes[16];
    std::fill_n(bytes, 16, 'x');
    ASSERT_EQ(Ucs2ToMultibyte_S(kUtf8, units, 5, bytes, 16), 11);
    EXPECT_EQ(std::string_view(bytes, 11), "z\xE2\x82\xAC\xF0\x9F\x98\x80\xEF\xBF\xBF");
}

TEST(Ucs2ToMultibyte_S, GivesMinusOneWhenTheDestinationIsTooSmall) {
    const unsigned short units[] = {0x20AC};
    char bytes[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(Ucs2ToMultibyte_S(kUtf8, units, 1, bytes, 2), -1);
    EXPECT_EQ(Ucs2ToMultibyte_S(kUtf8, units, 1, bytes, 0), -1);
    EXPECT_EQ(Ucs2ToMultibyte_S(kUtf8, units, 1, bytes, -1), -1);
    EXPECT_EQ(Ucs2ToMultibyte_S(kUtf8, units, 1, nullptr, 4), -1);
    EXPECT_EQ(bytes[2], 'x');
    EXPECT_EQ(Ucs2ToMultibyte_S(kUtf8, units, 1, bytes, 3), 3);
    EXPECT_EQ(std::string_view(bytes, 4), "\xE2\x82\xACx");
}

TEST(Ucs2ToMultibyte_S, GivesNothingForNothing) {
    const RecordingManager manager;
    const unsigned short units[] = {'a', 'b', 'c'};
    char byte = 'x';
    EXPECT_EQ(Ucs2ToMultibyte_S(kUtf8, units, 0, &byte, 1), 0);
    EXPECT_EQ(Ucs2ToMultibyte_S(kUtf8, units, -1, &byte, 1), 0);
    EXPECT_EQ(Ucs2ToMultibyte_S(kUtf8, nullptr, 3, &byte, 1), 0);
    EXPECT_EQ(Ucs2ToMultibyte_S(kUnknown, units, 0, &byte, 1), 0);
    EXPECT_TRUE(manager.reports().empty());
    EXPECT_EQ(Ucs2ToMultibyte_S(kUnknown, units, 3, &byte, 1), 0);
    EXPECT_EQ(manager.reports(), RecordingManager::unsupported("4711"));
    EXPECT_EQ(byte, 'x');
}

TEST(Ucs2ToMultibyte_S, ConvertsLongTexts) {
    TranscoderCache::getTranscoder(kLatin1); // its blocks stay
    for (const std::size_t length : {256U, 257U, 5000U}) {
        const std::vector<unsigned short> units(length, 0xE9);
        std::string bytes(length, '\0');
        const long live = RecordingAllocator::liveBlocks();
        const int n = static_cast<int>(length);
        ASSERT_EQ(Ucs2ToMultibyte_S(kLatin1, units.data(), n, bytes.data(), n), n);
        EXPECT_EQ(bytes, std::string(length, '\xE9'));
        EXPECT_EQ(RecordingAllocator::liveBlocks(), live);
    }
}

TEST(UCS2Strlen, CountsTheUnitsBeforeTheFirstZero) {
    const unsigned short empty[] = {0, 'a'};
    const unsigned short units[] = {'a', 0x0100, 0x00FF, 0xFFFF, 0x8000, 0, 'b', 0};
    EXPECT_EQ(UCS2Strlen(empty), 0U);
    EXPECT_EQ(UCS2Strlen(units), 5U);
    std::vector<unsigned short> longText(5000, 0x4E2D);
    longText.push_back(0);
    EXPECT_EQ(UCS2Strlen(longText.data()), 5000U);
}

// ---- The process's code pages
// ---------------------------------------------------------------------------------

void printCodePages() {
    std::printf("%d ", SystemUtility::GetCodePageFromString(L"ANSI"));
    std::printf("%u ", SystemUtility::GetACP());
    std::printf("%d", SystemUtility::GetCodePageFromString(L"ansi"));
}

const FreshProcess kWithItsLocale("code pages with its locale", [] {
    std::setlocale(LC_ALL, "");
    printCodePages();
    // Too late.
    std::setlocale(LC_ALL, std::setlocale(LC_ALL, nullptr)[1] == '\0' ? "C.UTF-8" : "C");
    std::printf(" %u", SystemUtility::GetACP());
});
const FreshProcess kWithoutSetlocale("code pages without setlocale", [] { printCodePages(); });
const FreshProcess kWithCtypeOnly("code pages with LC_CTYPE only", [] {
    std::setlocale(LC_CTYPE, "C.UTF-8");
    printCodePages();
});

TEST(GetACP, IsThatOfTheLocaleAtTheFirstCall) {
    // First "ANSI" before the call, which does not compute it.
    EXPECT_EQ(kWithItsLocale.run({{"LC_ALL", "C.UTF-8"}}).output, "0 65001 65001 65001");
    EXPECT_EQ(kWithItsLocale.run({{"LC_ALL", "C"}}).output, "0 1252 1252 1252");
}

TEST(GetACP, FollowsTheProcessAndNotItsEnvironment) {
    EXPECT_EQ(kWithoutSetlocale.run({{"LC_ALL", "C.UTF-8"}}).output, "0 1252 1252");
}

TEST(GetACP, FollowsTheCharacterClassesAlone) {
    EXPECT_EQ(kWithCtypeOnly.run({{"LC_ALL", "C"}}).output, "0 65001 65001");
}

TEST(GetACP, IsTheSameForThreadsThatAskAtOnce) {
    unsigned int pages[4] = {};
    std::vector<std::thread> threads;
    for (unsigned int& page : pages) {
        threads.emplace_back([&page] {
            wchar_t unit = 0;
            page = SystemUtility::MultiByteToWideChar("\xE9", 1, &unit, 1, 0) == 1 && unit == 0xE9
                       ? SystemUtility::GetACP()
                       : 0;
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const unsigned int page : pages) {
        EXPECT_EQ(page, 1252U);
    }
}

// In UTF-8, since 0 on its own would mean 1252 to the transcoders.
const FreshProcess kConvertsInCodePageZero("conversions in code page 0", [] {
    std::setlocale(LC_CTYPE, "C.UTF-8");
    const unsigned short ucs2[] = {0x20AC};
    char bytes[16];
    wchar_t units[16];
    unsigned short shorts[16];
    // Direct, through the temporary buffer, and asking for the size.
    for (const int room : {16, 3, 0}) {
        std::printf("%d %d ", SystemUtility::WideCharToMultiByte(L"\x20AC", 1, bytes, room, 0),
                    SystemUtility::Ucs2ToMultiByte(ucs2, 1, bytes, room, 0));
    }
    for (const int room : {16, 1, 0}) {
        std::printf("%d %d ", SystemUtility::MultiByteToWideChar("\xE2\x82\xAC", 3, units, room, 0),
                    SystemUtility::MultiByteToUcs2("\xE2\x82\xAC", 3, shorts, room, 0));
    }
    std::printf("%d %d", MultibyteToUcs2_S(0, "\xE2\x82\xAC", 3, shorts, 16),
                Ucs2ToMultibyte_S(0, ucs2, 1, bytes, 16));
});

TEST(CodePageZero, StandsForThatOfTheProcess) {
    EXPECT_EQ(kConvertsInCodePageZero.run().output, "3 3 3 3 3 3 1 1 1 1 1 1 1 3");
}

TEST(GetMultiByteCodePage, IsTheClientCodePage) {
    EXPECT_EQ(SystemUtility::GetMultiByteCodePage(), 0U);
    for (const unsigned int page : {kUtf8, kUnknown, UINT_MAX}) {
        const ClientCodePage client(page);
        EXPECT_EQ(SystemUtility::GetMultiByteCodePage(), page);
    }
    EXPECT_EQ(SystemUtility::GetMultiByteCodePage(), 0U);
}

TEST(GetCodePageFromString, KnowsTwoNamesInAnyCase) {
    const int systemPage = static_cast<int>(SystemUtility::GetACP());
    for (const wchar_t* name : {L"ANSI", L"ansi", L"Ansi", L"aNSi"}) {
        EXPECT_EQ(SystemUtility::GetCodePageFromString(name), systemPage);
    }
    for (const wchar_t* name : {L"UTF8", L"utf8", L"Utf8"}) {
        EXPECT_EQ(SystemUtility::GetCodePageFromString(name), 65001);
    }
    for (const wchar_t* name : {L"", L"UTF-8", L"UTF", L"UTF88", L" UTF8", L"UTF8 ", L"ANS", L"ANSIX",
                                L"1252", L"65001", L"0", L"\xFF35TF8"}) {
        EXPECT_EQ(SystemUtility::GetCodePageFromString(name), -1)
            << testing::PrintToString(std::wstring(name));
    }
}

TEST(IsValidCodePage, KnowsTwoNamesInAnyCase) {
    for (const char* name : {"ANSI", "ansi", "Ansi", "UTF8", "utf8", "uTF8"}) {
        EXPECT_TRUE(SystemUtility::IsValidCodePage(name)) << name;
    }
    for (const char* name : {"", "UTF-8", "UTF", "UTF88", " ANSI", "ANSI ", "ANS", "1252", "65001"}) {
        EXPECT_FALSE(SystemUtility::IsValidCodePage(name)) << name;
    }
    EXPECT_FALSE(SystemUtility::IsValidCodePage(nullptr));
}

TEST(Locale2CodePage, GoesByTheCodeSet) {
    struct Row {
        const char* locale;
        unsigned int page;
    };
    for (const Row& row :
         {Row{"C.UTF-8", 65001}, Row{"C.utf8", 65001}, Row{"en_US.UTF-8", 65001}, Row{"en_US.utf8", 65001},
          Row{"de_DE.UTF-8@euro", 65001}, Row{".UTF-8", 65001}, Row{"de_DE.ISO-8859-1", 28591},
          Row{"pl_PL.ISO-8859-2", 28592}, Row{"mt_MT.iso88593", 28593}, Row{"ar_EG.ISO-8859-6", 28596},
          Row{"el_GR.iso88597", 28597}, Row{"he_IL.ISO-8859-8", 38598}, Row{"de_DE.ISO-8859-15@euro", 285915},
          Row{"en_US.ANSI_X3.4-1968", 1252}, Row{"en_US.CP1252", 1252}}) {
        EXPECT_EQ(Locale2CodePage(row.locale), row.page) << row.locale;
    }
}

TEST(Locale2CodePage, IsTheDefaultPageWithoutAKnownCodeSet) {
    const std::string longName = "en_US." + std::string(10000, 'x');
    for (const char* locale :
         {"C", "POSIX", "", "en_US", "de_DE@euro", "en_US.", "ru_RU.KOI8-R", "ja_JP.eucJP", "UTF-8",
          "de_DE@x.UTF-8", "en_US.UTF-8.UTF-16", ".", "@", longName.c_str()}) {
        EXPECT_EQ(Locale2CodePage(locale), 1252U) << locale;
    }
    EXPECT_EQ(Locale2CodePage(nullptr), 1252U);
}

} // namespace
