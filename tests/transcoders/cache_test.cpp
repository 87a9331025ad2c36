#include "Utility/Generic/Portable/transcodercache.h"

#include "Utility/Generic/Portable/SUPOSBase.h"
#include "transcodersbtable.h"
#include "transcodingimplutf16.h"
#include "transcodingimplutf8.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

using namespace sup::transcodeimpl;

namespace {

// A transcoder that does nothing but count the living.
class CountedTranscoder : public TranscoderImplBase {
public:
    explicit CountedTranscoder(std::size_t param) : m_param(param) { ++s_alive; }
    ~CountedTranscoder() override { --s_alive; }

    size_type multibyteToUnicode(const char*, size_type, wide_char*, size_type, state*) const override {
        return 0;
    }
    size_type unicodeToMultibyte(const wide_char*, size_type, char*, size_type, state*, callback,
                                 callbackParam) const override {
        return 0;
    }
    size_type getMultibyteFactor() const override { return m_param; }
    bool isUnicodeCompletelyRepresentable() const override { return false; }

    static inline int s_alive = 0;

private:
    std::size_t m_param;
};

struct FactoryCall {
    const UnicodeMultibyteMapping* table;
    std::size_t param;
    TranscoderImplBase* result;
};

class TranscoderCacheOfHandMadeRows : public ::testing::Test {
protected:
    void SetUp() override {
        s_calls.clear();
        ASSERT_EQ(CountedTranscoder::s_alive, 0);
    }
    void TearDown() override { EXPECT_EQ(CountedTranscoder::s_alive, 0); }

    static TranscoderImplBase* create(const UnicodeMultibyteMapping* table, std::size_t param) {
        TranscoderImplBase* const made = new CountedTranscoder(param);
        s_calls.push_back({table, param, made});
        return made;
    }
    static TranscoderImplBase* throwBadAlloc(const UnicodeMultibyteMapping*, std::size_t) {
        throw std::bad_alloc();
    }
    static TranscoderImplBase* throwRuntimeError(const UnicodeMultibyteMapping*, std::size_t) {
        throw std::runtime_error("factory");
    }

    static inline std::vector<FactoryCall> s_calls;
};

constexpr UnicodeMultibyteMapping kEmptyTable[] = {{0, nullptr, 0, kCP_End}};

struct Report {
    int code;
    std::optional<std::string> arg1;
    std::optional<std::string> arg2;
};

// Registered while it lives.
class RecordingManager : public UtilityPortableErrorMessageManager {
public:
    RecordingManager() { Register(this); }
    ~RecordingManager() override { Register(nullptr); }

    void ThrowErrorMessage(int code, const char* arg1, const char* arg2) override {
        Report report{code, std::nullopt, std::nullopt};
        if (arg1 != nullptr) {
            report.arg1 = arg1;
        }
        if (arg2 != nullptr) {
            report.arg2 = arg2;
        }
        reports.push_back(report);
    }

    std::vector<Report> reports;
};

class ThrowingManager : public UtilityPortableErrorMessageManager {
public:
    ThrowingManager() { Register(this); }
    ~ThrowingManager() override { Register(nullptr); }
    void ThrowErrorMessage(int, const char* arg1, const char*) override { throw std::runtime_error(arg1); }
};

struct BuiltIn {
    int codePage;
    std::size_t factor;
    bool bComplete;
};

constexpr BuiltIn kBuiltIns[] = {
    {65001, 3, true},   {1200, 2, true},   {1201, 2, true},   {28591, 1, false},
    {28592, 1, false},  {28593, 1, false}, {28596, 1, false}, {28597, 1, false},
    {285915, 1, false}, {1252, 1, false},  {38598, 1, false},
};

template <class Transcoder>
bool builtInIs(int codePage) {
    return dynamic_cast<Transcoder*>(GetTranscoderCache()->Find(codePage)) != nullptr;
}

} // namespace

TEST(UMBMDirection, HasItsValues) {
    EXPECT_EQ(kCP_Either, 0U);
    EXPECT_EQ(kCP_UnicodeToMB, 1U);
    EXPECT_EQ(kCP_MBToUnicode, 2U);
    EXPECT_EQ(kCP_End, 3U);
}

TEST(UnicodeMultibyteMapping, PutsTheLengthInTheLowestFourBitsAndTheDirectionAbove) {
    for (unsigned length = 0; length < 16; ++length) {
        for (const UMBMDirection direction : {kCP_Either, kCP_UnicodeToMB, kCP_MBToUnicode, kCP_End}) {
            UnicodeMultibyteMapping row{};
            row.nMBChars = length & 0xFU;
            row.eDirection = direction;
            std::uint32_t word = 0;
            std::memcpy(&word, reinterpret_cast<const char*>(&row) + 16, sizeof(word));
            EXPECT_EQ(word & 0xFFU, length | (static_cast<unsigned>(direction) << 4U));
        }
    }
}

TEST(UnicodeMultibyteMapping, HasTheLayoutOfARow) {
    EXPECT_EQ(offsetof(UnicodeMultibyteMapping, wUnicodeChar), 0U);
    EXPECT_EQ(offsetof(UnicodeMultibyteMapping, cMBChars), 8U);
    EXPECT_EQ(sizeof(UnicodeMultibyteMapping), 24U);
}

TEST(SUPTranscodeThreadContext, IsThirtyTwoWords) {
    EXPECT_EQ(sizeof(SUPTranscodeThreadContext), 128U);
    EXPECT_TRUE((std::is_same_v<decltype(SUPTranscodeThreadContext::nInternals), unsigned int[32]>));
}

TEST(TranscoderImplBase, DeclaresItsTypeNames) {
    EXPECT_TRUE((std::is_same_v<TranscoderImplBase::wide_char, wchar_t>));
    EXPECT_TRUE((std::is_same_v<TranscoderImplBase::narrow_char, char>));
    EXPECT_TRUE((std::is_same_v<TranscoderImplBase::size_type, std::size_t>));
    EXPECT_TRUE((std::is_same_v<TranscoderImplBase::state, SUPTranscodeThreadContext>));
    EXPECT_TRUE((std::is_same_v<TranscoderImplBase::callback, SUPTranscodeUntranslatableCharCallback>));
    EXPECT_TRUE((std::is_same_v<TranscoderImplBase::callbackParam, void*>));
    EXPECT_TRUE((std::is_base_of_v<memalloc::MemAllocNewdel, TranscoderImplBase>));
    EXPECT_TRUE(std::is_abstract_v<TranscoderImplBase>);
    EXPECT_TRUE(std::has_virtual_destructor_v<TranscoderImplBase>);
}

TEST(TranscoderImplBase, CountsReferencesFromZeroAndFreesNothing) {
    const CountedTranscoder transcoder(7);
    auto& counted = const_cast<CountedTranscoder&>(transcoder);
    EXPECT_EQ(counted.addRef(), 1U);
    EXPECT_EQ(counted.addRef(), 2U);
    EXPECT_EQ(counted.releaseRef(), 1U);
    EXPECT_EQ(counted.releaseRef(), 0U);
    EXPECT_EQ(transcoder.getMultibyteFactor(), 7U);
    EXPECT_EQ(CountedTranscoder::s_alive, 1);
}

TEST_F(TranscoderCacheOfHandMadeRows, WithCountZeroFindsNothing) {
    const SUPTranscodingTable rows[] = {{1252, L"row", kEmptyTable, create, 0}};
    const TranscoderCache cache(rows, 0);
    EXPECT_EQ(cache.Find(1252), nullptr);
    EXPECT_EQ(cache.Find(0), nullptr);
    EXPECT_TRUE(s_calls.empty());

    const TranscoderCache fromNothing(nullptr, 0);
    EXPECT_EQ(fromNothing.Find(1252), nullptr);
}

TEST_F(TranscoderCacheOfHandMadeRows, CallsEachFactoryInRowOrderWithItsTableAndParameter) {
    const SUPTranscodingTable rows[] = {{30, L"thirty", kEmptyTable, create, 3},
                                        {10, L"ten", nullptr, create, 1},
                                        {20, L"twenty", nullptr, create, 2}};
    const TranscoderCache cache(rows, 3);
    ASSERT_EQ(s_calls.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(s_calls[i].table, rows[i].pCodeMappings) << i;
        EXPECT_EQ(s_calls[i].param, rows[i].nFactoryParam) << i;
        EXPECT_EQ(s_calls[i].result, cache.Find(rows[i].nCodePage)) << i;
    }
}

TEST_F(TranscoderCacheOfHandMadeRows, BuildsNoMoreThanCountRows) {
    const SUPTranscodingTable rows[] = {{1, L"one", nullptr, create, 1}, {2, L"two", nullptr, create, 2}};
    const TranscoderCache cache(rows, 1);
    EXPECT_NE(cache.Find(1), nullptr);
    EXPECT_EQ(cache.Find(2), nullptr);
    EXPECT_EQ(s_calls.size(), 1U);
}

TEST_F(TranscoderCacheOfHandMadeRows, FindsExactKeysOnly) {
    const SUPTranscodingTable rows[] = {{INT_MIN, L"least", nullptr, create, 1},
                                        {-1, L"minus", nullptr, create, 2},
                                        {INT_MAX, L"most", nullptr, create, 3}};
    const TranscoderCache cache(rows, 3);
    EXPECT_EQ(cache.Find(INT_MIN), s_calls[0].result);
    EXPECT_EQ(cache.Find(-1), s_calls[1].result);
    EXPECT_EQ(cache.Find(INT_MAX), s_calls[2].result);
    for (const int absent : {INT_MIN + 1, -2, 0, 1, INT_MAX - 1}) {
        EXPECT_EQ(cache.Find(absent), nullptr) << absent;
        EXPECT_EQ(cache.Find(absent), nullptr) << absent << ", once more";
    }
}

TEST_F(TranscoderCacheOfHandMadeRows, KeepsTheLastOfARepeatedCodePage) {
    const SUPTranscodingTable rows[] = {{5, L"first", nullptr, create, 1},
                                        {6, L"other", nullptr, create, 2},
                                        {5, L"second", nullptr, create, 3}};
    {
        const TranscoderCache cache(rows, 3);
        ASSERT_EQ(s_calls.size(), 3U);
        EXPECT_EQ(cache.Find(5), s_calls[2].result);
        EXPECT_EQ(cache.Find(6), s_calls[1].result);
        EXPECT_EQ(CountedTranscoder::s_alive, 3);
    }
    // The object of the earlier row is nobody's.
    EXPECT_EQ(CountedTranscoder::s_alive, 1);
    delete s_calls[0].result;
}

TEST_F(TranscoderCacheOfHandMadeRows, DestroysItsTranscoders) {
    const SUPTranscodingTable rows[] = {{1, L"one", nullptr, create, 1}, {2, L"two", nullptr, create, 2}};
    {
        const TranscoderCache cache(rows, 2);
        EXPECT_EQ(CountedTranscoder::s_alive, 2);
    }
    EXPECT_EQ(CountedTranscoder::s_alive, 0);
}

TEST_F(TranscoderCacheOfHandMadeRows, DestroysWhatItBuiltWhenAFactoryThrows) {
    const SUPTranscodingTable rows[] = {{1, L"one", nullptr, create, 1},
                                        {2, L"two", nullptr, create, 2},
                                        {3, L"three", nullptr, throwBadAlloc, 3},
                                        {4, L"four", nullptr, create, 4}};
    EXPECT_THROW(TranscoderCache(rows, 4), std::bad_alloc);
    EXPECT_EQ(s_calls.size(), 2U);
    EXPECT_EQ(CountedTranscoder::s_alive, 0);
}

TEST_F(TranscoderCacheOfHandMadeRows, LetsAnyExceptionOfAFactoryThrough) {
    const SUPTranscodingTable first[] = {{1, L"one", nullptr, throwRuntimeError, 0}};
    EXPECT_THROW(TranscoderCache(first, 1), std::runtime_error);

    const SUPTranscodingTable repeated[] = {{1, L"one", nullptr, create, 0},
                                            {1, L"one", nullptr, throwRuntimeError, 0}};
    EXPECT_THROW(TranscoderCache(repeated, 2), std::runtime_error);
    EXPECT_EQ(CountedTranscoder::s_alive, 0);
}

TEST(GetTranscoderCache, ReturnsOneCacheOfElevenPages) {
    EXPECT_EQ(knTables, 11U);
    EXPECT_EQ(std::size(kBuiltIns), knTables);
    TranscoderCache* const cache = GetTranscoderCache();
    ASSERT_NE(cache, nullptr);
    EXPECT_EQ(GetTranscoderCache(), cache);
    std::vector<TranscoderImplBase*> seen;
    for (const BuiltIn& page : kBuiltIns) {
        TranscoderImplBase* const found = cache->Find(page.codePage);
        ASSERT_NE(found, nullptr) << page.codePage;
        EXPECT_EQ(std::count(seen.begin(), seen.end(), found), 0) << page.codePage;
        seen.push_back(found);
    }
}

TEST(GetTranscoderCache, HasTheTranscoderOfEachPage) {
    EXPECT_TRUE(builtInIs<TranscoderImplUTF8>(65001));
    EXPECT_TRUE(builtInIs<TranscoderImplUTF16BE>(1200));
    EXPECT_TRUE(builtInIs<TranscoderImplUTF16LE>(1201));
    EXPECT_TRUE((builtInIs<TranscoderSBTable<256, 256, false>>(28591)));
    EXPECT_TRUE((builtInIs<TranscoderSBTable<161, 734, false>>(28592)));
    EXPECT_TRUE((builtInIs<TranscoderSBTable<161, 730, false>>(28593)));
    EXPECT_TRUE((builtInIs<TranscoderSBTable<161, 1619, false>>(28596)));
    EXPECT_TRUE((builtInIs<TranscoderSBTable<161, 975, true>>(28597)));
    EXPECT_TRUE((builtInIs<TranscoderSBTable<164, 8365, false>>(285915)));
    EXPECT_TRUE((builtInIs<TranscoderSBTable<128, 733, true>>(1252)));
    EXPECT_TRUE((builtInIs<TranscoderSBTable<161, 1515, true>>(38598)));
}

TEST(GetTranscoderCache, GivesEachSingleBytePageItsOwnTable) {
    struct Sample {
        int codePage;
        char byte;
        wchar_t unit;
    };
    const Sample samples[] = {{28591, '\xA4', 0x00A4}, {28592, '\xA1', 0x0104}, {28593, '\xA1', 0x0126},
                              {28596, '\xC7', 0x0627}, {28597, '\xE1', 0x03B1}, {285915, '\xA4', 0x20AC},
                              {1252, '\x80', 0x20AC},  {38598, '\xE0', 0x05D0}};
    for (const Sample& sample : samples) {
        wchar_t unit = 0;
        EXPECT_EQ(GetTranscoderCache()
                      ->Find(sample.codePage)
                      ->multibyteToUnicode(&sample.byte, 1, &unit, 1, nullptr),
                  1U);
        EXPECT_EQ(unit, sample.unit) << sample.codePage;
    }
}

TEST(GetTranscoderCache, DoesNotTakeZeroForAPage) { EXPECT_EQ(GetTranscoderCache()->Find(0), nullptr); }

TEST(GetTranscoder, ReturnsTheCachedObjectOfEveryPageWithoutAReport) {
    const RecordingManager manager;
    for (const BuiltIn& page : kBuiltIns) {
        EXPECT_EQ(TranscoderCache::getTranscoder(page.codePage), GetTranscoderCache()->Find(page.codePage))
            << page.codePage;
    }
    EXPECT_TRUE(manager.reports.empty());
}

TEST(GetTranscoder, TakesZeroFor1252) {
    const RecordingManager manager;
    ASSERT_NE(TranscoderCache::getTranscoder(0), nullptr);
    EXPECT_EQ(TranscoderCache::getTranscoder(0), TranscoderCache::getTranscoder(1252));
    EXPECT_TRUE(manager.reports.empty());
}

TEST(GetTranscoder, ReportsAnUnknownPageEveryTimeAndReturnsNullWhenTheReportReturns) {
    struct Unknown {
        int codePage;
        const char* text;
    };
    const Unknown unknowns[] = {
        {28605, "28605"}, {-5, "-5"}, {1, "1"}, {INT_MAX, "2147483647"}, {INT_MIN, "-2147483648"}};
    for (const Unknown& unknown : unknowns) {
        const RecordingManager manager;
        for (std::size_t call = 1; call <= 2; ++call) {
            EXPECT_EQ(TranscoderCache::getTranscoder(unknown.codePage), nullptr) << unknown.text;
            ASSERT_EQ(manager.reports.size(), call) << unknown.text;
            const Report& report = manager.reports.back();
            EXPECT_EQ(report.code, -1);
            EXPECT_EQ(report.code, UtilityPortableErrorMessageManager::E_Portable_EncodingUnsupported);
            EXPECT_EQ(report.arg1, unknown.text);
            EXPECT_EQ(report.arg2, std::nullopt);
        }
        EXPECT_EQ(GetTranscoderCache()->Find(unknown.codePage), nullptr) << "no entry is added";
    }
}

TEST(GetTranscoder, LetsTheExceptionOfTheReportThrough) {
    const ThrowingManager manager;
    try {
        TranscoderCache::getTranscoder(28605);
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "28605");
    }
    EXPECT_NE(TranscoderCache::getTranscoder(285915), nullptr) << "the cache works on";
}

TEST(GetTranscoder, GivesManyThreadsAtOnceTheSameObject) {
    constexpr std::size_t kThreads = 16;
    std::vector<TranscoderImplBase*> found(kThreads);
    std::atomic<bool> bGo{false};
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([&found, &bGo, i] {
            while (!bGo.load()) {
                std::this_thread::yield();
            }
            found[i] = TranscoderCache::getTranscoder(i % 2 == 0 ? 0 : 1252);
        });
    }
    bGo.store(true);
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_NE(found[0], nullptr);
    for (const TranscoderImplBase* const transcoder : found) {
        EXPECT_EQ(transcoder, found[0]);
    }
}

TEST(GetMultibyteFactor, IsThreeTwoOrOneByPage) {
    for (const BuiltIn& page : kBuiltIns) {
        EXPECT_EQ(TranscoderCache::getTranscoder(page.codePage)->getMultibyteFactor(), page.factor)
            << page.codePage;
    }
}

TEST(IsUnicodeCompletelyRepresentable, IsTrueOfTheUnicodePagesOnly) {
    for (const BuiltIn& page : kBuiltIns) {
        EXPECT_EQ(TranscoderCache::getTranscoder(page.codePage)->isUnicodeCompletelyRepresentable(),
                  page.bComplete)
            << page.codePage;
    }
}

TEST(Conversion, OfNothingIsNothingOnEveryPage) {
    for (const BuiltIn& page : kBuiltIns) {
        const TranscoderImplBase* const transcoder = TranscoderCache::getTranscoder(page.codePage);
        char narrow = 'x';
        wchar_t wide = L'x';
        EXPECT_EQ(transcoder->multibyteToUnicode("", 0, &wide, 0, nullptr), 0U) << page.codePage;
        EXPECT_EQ(transcoder->unicodeToMultibyte(L"", 0, &narrow, 0, nullptr, nullptr, nullptr), 0U)
            << page.codePage;
        EXPECT_EQ(wide, L'x');
        EXPECT_EQ(narrow, 'x');
    }
}

TEST(Conversion, WritesNoTerminatingZeroOnAnyPage) {
    for (const BuiltIn& page : kBuiltIns) {
        const TranscoderImplBase* const transcoder = TranscoderCache::getTranscoder(page.codePage);
        char narrow[8];
        std::memset(narrow, 'x', sizeof(narrow));
        const std::size_t bytes =
            transcoder->unicodeToMultibyte(L"a", 1, narrow, 8, nullptr, nullptr, nullptr);
        ASSERT_EQ(bytes, page.factor == 2 ? 2U : 1U) << page.codePage;
        EXPECT_EQ(narrow[bytes], 'x') << page.codePage;
        wchar_t wide[2] = {L'x', L'x'};
        ASSERT_EQ(transcoder->multibyteToUnicode(narrow, bytes, wide, 2, nullptr), 1U) << page.codePage;
        EXPECT_EQ(wide[0], L'a') << page.codePage;
        EXPECT_EQ(wide[1], L'x') << page.codePage;
    }
}

TEST(Conversion, IntoTooSmallADestinationIsMinusOneOnEveryPage) {
    for (const BuiltIn& page : kBuiltIns) {
        const TranscoderImplBase* const transcoder = TranscoderCache::getTranscoder(page.codePage);
        char narrow[1];
        wchar_t wide[1];
        EXPECT_EQ(transcoder->unicodeToMultibyte(L"abc", 3, narrow, 1, nullptr, nullptr, nullptr), SIZE_MAX)
            << page.codePage;
        EXPECT_EQ(transcoder->multibyteToUnicode("abcdef", 6, wide, 1, nullptr), SIZE_MAX) << page.codePage;
    }
}
