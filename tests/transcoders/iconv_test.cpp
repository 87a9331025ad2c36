#include "SUPTranscodeIconv_UNIX.h"

#include "Utility/Generic/Portable/transcodercache.h"
#include "guarded_buffer.h"
#include "recording_manager.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

using namespace sup::transcodeimpl;
using brimtest::GuardedBuffer;
using brimtest::RecordingManager;

namespace {

constexpr std::size_t kTooSmall = static_cast<std::size_t>(-1);

thread_local int t_forcedError = 0;

} // namespace

// Stands in front of the platform's, which fails with an error of the test's choice when there is one.
extern "C" std::size_t iconv(iconv_t converter, char** in, std::size_t* inLeft, char** out,
                             std::size_t* outLeft) {
    using Function = std::size_t (*)(iconv_t, char**, std::size_t*, char**, std::size_t*);
    static const auto platform = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "iconv"));
    if (t_forcedError != 0 && in != nullptr) {
        errno = t_forcedError;
        return static_cast<std::size_t>(-1);
    }
    return platform(converter, in, inLeft, out, outLeft);
}

namespace {

class ForcedError {
public:
    explicit ForcedError(int error) { t_forcedError = error; }
    ~ForcedError() { t_forcedError = 0; }
    ForcedError(const ForcedError&) = delete;
    ForcedError& operator=(const ForcedError&) = delete;
};

std::unique_ptr<TranscoderImplBase> create(const char* name) {
    return std::unique_ptr<TranscoderImplBase>(CreateIconvTranscoder(name));
}

RecordingManager::Reports reportsOf(const char* name, const std::vector<int>& codes) {
    RecordingManager::Reports reports;
    for (const int code : codes) {
        reports.push_back({code, name, "(null)"});
    }
    return reports;
}

// Conversions with room enough.
std::wstring decoded(const TranscoderImplBase& transcoder, std::string_view bytes) {
    std::wstring units(bytes.size() + 8, L'x');
    units.resize(
        transcoder.multibyteToUnicode(bytes.data(), bytes.size(), units.data(), units.size(), nullptr));
    return units;
}

std::string encoded(const TranscoderImplBase& transcoder, std::wstring_view units,
                    TranscoderImplBase::callback cb = nullptr, void* param = nullptr) {
    std::string bytes(units.size() * transcoder.getMultibyteFactor(), 'x');
    bytes.resize(transcoder.unicodeToMultibyte(units.data(), units.size(), bytes.data(), bytes.size(),
                                               nullptr, cb, param));
    return bytes;
}

struct Sample {
    const char* name;
    std::wstring units;
    std::string bytes;
};

const std::vector<Sample>& samples() {
    static const std::vector<Sample> kSamples = {
        {"CP932", L"z\x65E5\x672Cz", "z\x93\xFA\x96\x7Bz"},
        {"GB18030", L"\xD83D\xDE00z\x20AC", "\x94\x39\xFC\x36z\xA2\xE3"},
        {"KOI8-R", L"\x0434\x0430", "\xC4\xC1"},
        {"ISO-2022-JP", L"z\x304Bz\x304B", "z\x1B$B$+\x1B(Bz\x1B$B$+\x1B(B"},
        {"UTF-16BE", std::wstring(L"a\0b", 3), std::string("\0a\0\0\0b", 6)},
    };
    return kSamples;
}

TEST(TranscoderIconv, ConvertsBothWaysWithoutAReport) {
    const RecordingManager manager;
    for (const Sample& sample : samples()) {
        const auto transcoder = create(sample.name);
        ASSERT_NE(transcoder, nullptr) << sample.name;
        EXPECT_EQ(decoded(*transcoder, sample.bytes), sample.units) << sample.name;
        EXPECT_EQ(encoded(*transcoder, sample.units), sample.bytes) << sample.name;
        EXPECT_EQ(transcoder->multibyteToUnicode("a", 0, nullptr, 0, nullptr), 0U);
        EXPECT_EQ(transcoder->unicodeToMultibyte(L"a", 0, nullptr, 0, nullptr, nullptr, nullptr), 0U);
        EXPECT_EQ(transcoder->getMultibyteFactor(), 8U);
        EXPECT_FALSE(transcoder->isUnicodeCompletelyRepresentable());
    }
    EXPECT_TRUE(manager.reports().empty());
}

TEST(TranscoderIconv, EncodesAWholeCodePointLikeItsPair) {
    EXPECT_EQ(encoded(*create("GB18030"), L"\x1F600"), "\x94\x39\xFC\x36");
}

TEST(TranscoderIconv, ConvertsLongTexts) {
    constexpr unsigned int kSeed = 4403;
    std::mt19937 random(kSeed);
    const std::pair<wchar_t, std::string> characters[] = {
        {L'z', "z"}, {0x65E5, "\x93\xFA"}, {0x672C, "\x96\x7B"}, {0xFF71, "\xB1"}};
    const auto transcoder = create("CP932");
    for (const std::size_t length : {511U, 512U, 513U, 1023U, 1024U, 1025U, 2048U, 9000U}) {
        std::wstring units;
        std::string bytes;
        for (std::size_t i = 0; i < length; ++i) {
            const auto& character = characters[random() % std::size(characters)];
            units += character.first;
            bytes += character.second;
        }
        ASSERT_EQ(decoded(*transcoder, bytes), units) << "seed " << kSeed << ", length " << length;
        ASSERT_EQ(encoded(*transcoder, units), bytes) << "seed " << kSeed << ", length " << length;
    }
}

TEST(TranscoderIconv, KeepsPairsTogetherInLongTexts) {
    const auto transcoder = create("GB18030");
    for (std::size_t before = 505; before < 515; ++before) {
        const std::wstring units = std::wstring(before, L'z') + L"\xD83D\xDE00z";
        const std::string bytes = std::string(before, 'z') + "\x94\x39\xFC\x36z";
        ASSERT_EQ(encoded(*transcoder, units), bytes) << before;
        ASSERT_EQ(decoded(*transcoder, bytes), units) << before;
    }
}

// ---- Malformed and unrepresentable -----------------------------------------------------------------------

TEST(TranscoderIconv, DecodesMalformedBytesToReplacementsAndReportsThemOnceACall) {
    const RecordingManager manager;
    const auto transcoder = create("CP932");
    EXPECT_EQ(decoded(*transcoder, "a\xFF\xFFz\xFF"), L"a\xFFFD\xFFFDz\xFFFD");
    EXPECT_EQ(manager.reports(), reportsOf("CP932", {-5}));
    EXPECT_EQ(decoded(*transcoder, "\xFF"), L"\xFFFD");
    EXPECT_EQ(manager.reports(), reportsOf("CP932", {-5, -5}));
}

TEST(TranscoderIconv, StaysInStepAfterAFaultInWideUnits) {
    const RecordingManager manager;
    EXPECT_EQ(decoded(*create("UTF-16BE"), std::string("\xDC\x00\x00z", 4)), L"\xFFFDz");
    EXPECT_EQ(decoded(*create("UTF-32LE"), std::string("\x00\x00\x11\x00z\x00\x00\x00", 8)), L"\xFFFDz");
    EXPECT_EQ(decoded(*create("UCS-4BE"), std::string("\x80\x00\x00\x00\x00\x00\x00z", 8)), L"\xFFFDz");
}

TEST(TranscoderIconv, DecodesACutCharacterToAReplacementAndReportsIt) {
    const RecordingManager manager;
    EXPECT_EQ(decoded(*create("CP932"), "a\x93"), L"a\xFFFD");
    EXPECT_EQ(decoded(*create("GB18030"), "a\x94\x39\xFC"), L"a\xFFFD");
    RecordingManager::Reports expected = reportsOf("CP932", {-4});
    expected.push_back({-4, "GB18030", "(null)"});
    EXPECT_EQ(manager.reports(), expected);
}

TEST(TranscoderIconv, ReportsEachKindOfFailureOnceACall) {
    const RecordingManager manager;
    EXPECT_EQ(decoded(*create("CP932"), "\xFF\xFF\x93"), L"\xFFFD\xFFFD\xFFFD");
    EXPECT_EQ(manager.reports(), reportsOf("CP932", {-5, -4}));
}

TEST(TranscoderIconv, LosesNothingBeforeMalformedBytes) {
    const RecordingManager manager;
    const auto transcoder = create("CP932");
    for (std::size_t before = 1020; before < 1030; ++before) {
        for (const std::string_view rest : {"\xFFz", "\xFF\xFFz"}) {
            ASSERT_EQ(decoded(*transcoder, std::string(before, 'a') + std::string(rest)),
                      std::wstring(before, L'a') + std::wstring(rest.size() - 1, L'\xFFFD') + L"z")
                << before;
        }
        ASSERT_EQ(decoded(*transcoder, std::string(before, 'a') + "\x93"),
                  std::wstring(before, L'a') + L"\xFFFD")
            << before;
    }
}

// Letters wait for the mark that may follow them.
TEST(TranscoderIconv, DecodesTheLastCharacterThatWaitsForAnother) {
    const RecordingManager manager;
    const auto transcoder = create("CP1255");
    EXPECT_EQ(decoded(*transcoder, "\xE0"), L"\x05D0");
    EXPECT_EQ(decoded(*transcoder, "\xE0\xE1"), L"\x05D0\x05D1");
    EXPECT_EQ(decoded(*transcoder, "a"), L"a") << "nothing is left over for the next call";
    EXPECT_EQ(decoded(*create("BIG5-HKSCS"), "\x88\x66"), L"\xCA");
    wchar_t unit = L'x';
    EXPECT_EQ(transcoder->multibyteToUnicode("\xE0", 1, &unit, 0, nullptr), kTooSmall);
    EXPECT_EQ(unit, L'x');
    EXPECT_EQ(manager.reports(), reportsOf("CP1255", {0}));
}

TEST(TranscoderIconv, EncodesUnrepresentableCharactersAsQuestionMarksAndReportsThemOnceACall) {
    const std::pair<std::wstring, std::string> rows[] = {
        {L"a\x0430z", "a?z"},        {L"\xD83D\xDE00", "?"},
        {L"\x1F600", "?"},           {L"\xD83D", "?"},
        {L"\xD83Dz", "?z"},          {L"\xDE00z", "?z"},
        {L"\xDE00\xD83D", "??"},     {L"\xD83D\xD83D\xDE00z", "??z"},
        {L"\x110000z", "?z"},        {{-1, L'z'}, "?z"},
        {{L'a', -0x41}, "a?"},       {L"\x7FFFFFFF\x7FFFFFFF", "??"},
        {L"\xD83D\x110000", "\?\?"},
    };
    const auto transcoder = create("ISO-8859-1");
    for (const auto& [units, bytes] : rows) {
        const RecordingManager manager;
        EXPECT_EQ(encoded(*transcoder, units), bytes) << testing::PrintToString(units);
        EXPECT_EQ(manager.reports(), reportsOf("ISO-8859-1", {-5}));
    }
}

TEST(TranscoderIconv, FindsUnrepresentableCharactersAnywhereInALongText) {
    const RecordingManager manager;
    const auto transcoder = create("ISO-8859-1");
    for (std::size_t before = 508; before < 516; ++before) {
        for (const std::wstring_view bad : {L"\xD83D", L"\xD83D\xDE00", L"\xDE00", L"\x110000"}) {
            ASSERT_EQ(encoded(*transcoder, std::wstring(before, L'a').append(bad).append(600, L'z')),
                      std::string(before, 'a') + "?" + std::string(600, 'z'))
                << before;
        }
    }
}

TEST(TranscoderIconv, WritesItsQuestionMarkInTheShiftStateThatShowsIt) {
    const RecordingManager manager;
    EXPECT_EQ(encoded(*create("ISO-2022-JP"), L"\x304B\xD800\x304B"), "\x1B$B$+\x1B(B?\x1B$B$+\x1B(B");
}

// ---- The callback ----------------------------------------------------------------------------------------

struct Recorder {
    std::string answer;
    std::vector<std::wstring> asked;

    static std::size_t call(void* param, const wchar_t* src, std::size_t srcLen, char* dst,
                            std::size_t dstLen) {
        auto& self = *static_cast<Recorder*>(param);
        self.asked.emplace_back(src, srcLen);
        if (self.answer.size() > dstLen) {
            return kTooSmall;
        }
        std::copy(self.answer.begin(), self.answer.end(), dst);
        return self.answer.size();
    }
};

TEST(TranscoderIconv, AsksTheCallbackForEachUnrepresentableCharacter) {
    const RecordingManager manager;
    Recorder recorder{"<>", {}};
    EXPECT_EQ(encoded(*create("ISO-8859-1"), L"a\xD83D\xDE00z\x0430\x1F600\xD83D-\x110000", Recorder::call,
                      &recorder),
              "a<>z<><><>-<>");
    EXPECT_EQ(recorder.asked,
              (std::vector<std::wstring>{L"\xD83D\xDE00", L"\x0430", L"\x1F600", L"\xD83D", L"\x110000"}));
    EXPECT_TRUE(manager.reports().empty()) << "the callback is the report";
}

TEST(TranscoderIconv, PutsTheCallbacksBytesBehindTheTextBeforeThem) {
    Recorder recorder{"<>", {}};
    EXPECT_EQ(encoded(*create("ISO-2022-JP"), L"\x304B\xD800\x304B", Recorder::call, &recorder),
              "\x1B$B$+\x1B(B<>\x1B$B$+\x1B(B");
    // The first character waits for the mark that may follow it.
    EXPECT_EQ(encoded(*create("BIG5-HKSCS"), L"\xCA\xD800z", Recorder::call, &recorder), "\x88\x66<>z");
}

TEST(TranscoderIconv, EndsWhenTheCallbackSaysSo) {
    const RecordingManager manager;
    Recorder recorder{std::string(100, '!'), {}};
    char bytes[64];
    EXPECT_EQ(create("ISO-8859-1")
                  ->unicodeToMultibyte(L"a\x0430\x0430", 3, bytes, 64, nullptr, Recorder::call, &recorder),
              kTooSmall);
    EXPECT_EQ(recorder.asked.size(), 1U);
    const auto tooMuch = [](void*, const wchar_t*, std::size_t, char*, std::size_t room) { return room + 1; };
    EXPECT_EQ(create("ISO-8859-1")->unicodeToMultibyte(L"\x0430z", 2, bytes, 64, nullptr, tooMuch, nullptr),
              kTooSmall);
}

// ---- Room ------------------------------------------------------------------------------------------------

TEST(TranscoderIconv, ReportsADestinationThatIsTooSmall) {
    for (const Sample& sample : samples()) {
        const auto transcoder = create(sample.name);
        GuardedBuffer<wchar_t> units(64);
        for (std::size_t room = 0; room <= sample.units.size(); ++room) {
            const RecordingManager manager;
            const bool fits = room == sample.units.size();
            wchar_t* const dst = units.lastFenced(room, L'x');
            EXPECT_EQ(
                transcoder->multibyteToUnicode(sample.bytes.data(), sample.bytes.size(), dst, room, nullptr),
                fits ? room : kTooSmall);
            EXPECT_TRUE(units.fenceIsWhole(room, L'x'));
            EXPECT_EQ(manager.reports(), fits ? RecordingManager::Reports() : reportsOf(sample.name, {0}));
        }
        GuardedBuffer<char> bytes(64);
        for (std::size_t room = 0; room <= sample.bytes.size(); ++room) {
            const RecordingManager manager;
            const bool fits = room == sample.bytes.size();
            char* const dst = bytes.lastFenced(room, 'x');
            EXPECT_EQ(transcoder->unicodeToMultibyte(sample.units.data(), sample.units.size(), dst, room,
                                                     nullptr, nullptr, nullptr),
                      fits ? room : kTooSmall)
                << sample.name << ' ' << room;
            EXPECT_TRUE(bytes.fenceIsWhole(room, 'x'));
            EXPECT_EQ(manager.reports(), fits ? RecordingManager::Reports() : reportsOf(sample.name, {0}));
        }
    }
}

TEST(TranscoderIconv, NeverWritesPastTheEndWhenItReplaces) {
    const auto transcoder = create("ISO-8859-1");
    GuardedBuffer<char> bytes(16);
    for (std::size_t room = 0; room <= 8; ++room) {
        for (const bool asks : {false, true}) {
            const RecordingManager manager;
            Recorder recorder{"?", {}};
            char* const dst = bytes.lastFenced(room, 'x');
            EXPECT_EQ(transcoder->unicodeToMultibyte(L"a\x0430\x0430z", 4, dst, room, nullptr,
                                                     asks ? Recorder::call : nullptr, &recorder),
                      room < 4 ? kTooSmall : 4);
            EXPECT_TRUE(bytes.fenceIsWhole(room, 'x'));
        }
    }
}

// ---- Converters ------------------------------------------------------------------------------------------

TEST(TranscoderIconv, StartsEveryCallInTheFirstShiftState) {
    const auto transcoder = create("ISO-2022-JP");
    EXPECT_EQ(decoded(*transcoder, "\x1B$B$+"), L"\x304B");
    EXPECT_EQ(decoded(*transcoder, "$+"), L"$+");
    char bytes[8];
    ASSERT_EQ(transcoder->unicodeToMultibyte(L"\x304B", 1, bytes, 6, nullptr, nullptr, nullptr), kTooSmall);
    EXPECT_EQ(encoded(*transcoder, L"z"), "z");
}

TEST(TranscoderIconv, ReportsAConverterThatCannotBeOpened) {
    const RecordingManager manager;
    const TranscoderIconv transcoder("no-such-encoding");
    wchar_t unit = L'x';
    char byte = 'x';
    EXPECT_EQ(transcoder.multibyteToUnicode("a", 1, &unit, 1, nullptr), 0U);
    EXPECT_EQ(transcoder.unicodeToMultibyte(L"a", 1, &byte, 1, nullptr, nullptr, nullptr), 0U);
    EXPECT_EQ(manager.reports(), reportsOf("no-such-encoding", {-6, -6}));
    EXPECT_EQ(unit, L'x');
    EXPECT_EQ(byte, 'x');
}

TEST(TranscoderIconv, ReportsWhatElseTheConverterSays) {
    const auto transcoder = create("CP932");
    for (const auto& [error, code] :
         {std::pair(EBADF, -6), std::pair(EIO, -7), std::pair(ENOMEM, -7), std::pair(9999, -7)}) {
        const RecordingManager manager;
        wchar_t units[8];
        char bytes[8];
        const ForcedError forced(error);
        transcoder->multibyteToUnicode("abc", 3, units, 8, nullptr);
        EXPECT_EQ(manager.reports(), reportsOf("CP932", {code})) << error;
        transcoder->unicodeToMultibyte(L"abc", 3, bytes, 8, nullptr, nullptr, nullptr);
        EXPECT_EQ(manager.reports(), reportsOf("CP932", {code, code})) << error;
    }
    EXPECT_EQ(decoded(*transcoder, "abc"), L"abc") << "it works on";
}

class ThrowingManager : public UtilityPortableErrorMessageManager {
public:
    ThrowingManager() { Register(this); }
    ~ThrowingManager() override { Register(nullptr); }
    void ThrowErrorMessage(int, const char* arg1, const char*) override { throw std::runtime_error(arg1); }
};

TEST(TranscoderIconv, LetsTheExceptionOfAReportThroughAndWorksOn) {
    const auto transcoder = create("ISO-2022-JP");
    {
        const ThrowingManager manager;
        EXPECT_THROW(decoded(*transcoder, "\x1B$B$+\xFF"), std::runtime_error);
        EXPECT_THROW(encoded(*transcoder, L"\x304B\xD800"), std::runtime_error);
        EXPECT_THROW(CreateIconvTranscoder("no-such-encoding"), std::runtime_error);
    }
    EXPECT_EQ(decoded(*transcoder, "$+"), L"$+");
    EXPECT_EQ(encoded(*transcoder, L"z"), "z");
}

TEST(TranscoderIconv, ServesThreadsAtOnce) {
    const auto transcoder = create("ISO-2022-JP");
    std::vector<std::thread> threads;
    std::vector<int> wrong(4);
    for (std::size_t i = 0; i < wrong.size(); ++i) {
        threads.emplace_back([&transcoder, &wrong, i] {
            const std::wstring units = std::wstring(i, L'z') + L"\x304B" + std::wstring(i, L'\x65E5');
            for (int round = 0; round < 200; ++round) {
                wrong[i] += decoded(*transcoder, encoded(*transcoder, units)) == units ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, std::vector<int>(wrong.size()));
}

// ---- Creating --------------------------------------------------------------------------------------------

TEST(CreateIconvTranscoder, KnowsEncodingNumbersByTheirName) {
    const std::unique_ptr<TranscoderImplBase> transcoder(CreateIconvTranscoder(932));
    ASSERT_NE(transcoder, nullptr);
    EXPECT_EQ(decoded(*transcoder, "\x93\xFA"), L"\x65E5");
    const RecordingManager manager;
    EXPECT_EQ(decoded(*transcoder, "\xFF"), L"\xFFFD");
    EXPECT_EQ(manager.reports(), reportsOf("CP932", {-5}));
}

TEST(CreateIconvTranscoder, ReportsAnUnknownEncodingAndGivesNull) {
    const RecordingManager manager;
    EXPECT_EQ(CreateIconvTranscoder("no-such-encoding"), nullptr);
    EXPECT_EQ(manager.reports(), reportsOf("no-such-encoding", {-1}));
    EXPECT_EQ(CreateIconvTranscoder(424242), nullptr);
    EXPECT_EQ(CreateIconvTranscoder(-1), nullptr);
    ASSERT_EQ(manager.reports().size(), 3U);
    EXPECT_EQ(manager.reports()[1], (RecordingManager::Report{-1, "CP424242", "(null)"}));
    EXPECT_EQ(manager.reports()[2], (RecordingManager::Report{-1, "CP-1", "(null)"}));
}

TEST(CreateIconvTranscoder, AddsNothingToTheRegistry) {
    const RecordingManager manager;
    const std::unique_ptr<TranscoderImplBase> transcoder(CreateIconvTranscoder(932));
    EXPECT_EQ(TranscoderCache::getTranscoder(932), nullptr);
    EXPECT_EQ(manager.reports(), RecordingManager::unsupported("932"));
}

} // namespace
