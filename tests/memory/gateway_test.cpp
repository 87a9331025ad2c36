#include "Utility/Generic/Portable/memoryallocatorgateway.h"

#include "Utility/Generic/Portable/BrimNodeAlloc.h"
#include "child_process.h"
#include "recording_allocator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <barrier>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

using brimtest::AllocationLog;
using brimtest::AllocationRefusal;
using brimtest::AllocationRelease;
using brimtest::AllocationRequest;
using brimtest::RecordingAllocator;
using memalloc::MemoryAllocatorGateway;
using memalloc::MemoryAllocatorHeap;
using testing::ElementsAre;

namespace {

// What the rest of the allocator is asked for, and what it answers.
struct ThreadCalls {
    std::vector<std::string> names;
    int quotaAnswer = 0;
};
ThreadCalls g_threadCalls;

struct Report {
    std::vector<std::string> pieces;
    std::size_t length = 0; // as told to the callback
    bool bNullPiece = false;
    bool bNullContext = false;
};
Report g_report;

} // namespace

extern "C" {

void fenmem_800_compact() noexcept { g_threadCalls.names.emplace_back("compact"); }
void fenmem_800_associate() noexcept { g_threadCalls.names.emplace_back("associate"); }
void fenmem_800_disassociate() noexcept { g_threadCalls.names.emplace_back("disassociate"); }
void fenmem_800_flush() noexcept { g_threadCalls.names.emplace_back("flush"); }
int fenmem_800_thread_alloc_enable_default_quota() noexcept {
    g_threadCalls.names.emplace_back("enable quota");
    return g_threadCalls.quotaAnswer;
}
int fenmem_800_thread_alloc_disable_quota() noexcept {
    g_threadCalls.names.emplace_back("disable quota");
    return g_threadCalls.quotaAnswer;
}
void fenmem_800_log_diagnostics_information(void* context, void (*callback)(void* context, const char* text,
                                                                            std::size_t length)) noexcept {
    g_report.bNullContext = context == nullptr;
    for (const std::string& piece : g_report.pieces) {
        callback(context, piece.c_str(), g_report.length);
    }
    if (g_report.bNullPiece) {
        callback(context, nullptr, g_report.length);
    }
}

} // extern "C"

namespace {

constexpr const char* kFile = "some/source.cpp";
constexpr int kLine = 1234;

std::size_t headerOf(const void* block) {
    std::size_t total = 0;
    std::memcpy(&total, block, sizeof(total));
    return total;
}

// ---- allocate and deallocate

TEST(MemoryAllocatorGateway, CannotBeMade) {
    EXPECT_FALSE(std::is_default_constructible_v<MemoryAllocatorGateway>);
    EXPECT_FALSE(std::is_default_constructible_v<memalloc::MemoryUtils>);
    EXPECT_FALSE(std::is_default_constructible_v<MemoryAllocatorHeap>);
}

TEST(MemoryAllocatorGateway, AllocatePassesSizeAndSiteThrough) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{18}, std::size_t{4096}}) {
        AllocationLog log;
        void* const p = MemoryAllocatorGateway::allocate(size, kFile, kLine);
        ASSERT_EQ(log.requests().size(), 1U) << size;
        const AllocationRequest request = log.requests()[0];
        EXPECT_EQ(request.block, p);
        EXPECT_EQ(request.size, size);
        EXPECT_EQ(request.file, kFile) << "the pointer itself";
        EXPECT_EQ(request.line, kLine);
        MemoryAllocatorGateway::deallocate(p, size);
    }
}

TEST(MemoryAllocatorGateway, AllocateTakesANullSite) {
    AllocationLog log;
    void* const p = MemoryAllocatorGateway::allocate(8, nullptr, -1);
    ASSERT_EQ(log.requests().size(), 1U);
    EXPECT_EQ(log.requests()[0].file, nullptr);
    EXPECT_EQ(log.requests()[0].line, -1);
    MemoryAllocatorGateway::deallocate(p, 8);
}

TEST(MemoryAllocatorGateway, AllocateThrowsBadAllocWhenTheAllocatorRefuses) {
    AllocationLog log;
    {
        const AllocationRefusal refusal(1);
        EXPECT_THROW(MemoryAllocatorGateway::allocate(1, kFile, kLine), std::bad_alloc);
        EXPECT_TRUE(refusal.happened());
    }
    EXPECT_THROW(MemoryAllocatorGateway::allocate(std::numeric_limits<std::size_t>::max(), kFile, kLine),
                 std::bad_alloc);
    ASSERT_EQ(log.requests().size(), 2U);
    EXPECT_EQ(log.requests()[1].size, std::numeric_limits<std::size_t>::max());
}

TEST(MemoryAllocatorGateway, DeallocatePassesBlockAndSizeThrough) {
    void* const p = MemoryAllocatorGateway::allocate(77, kFile, kLine);
    AllocationLog log;
    MemoryAllocatorGateway::deallocate(p, 77);
    EXPECT_TRUE(log.requests().empty());
    ASSERT_EQ(log.releases().size(), 1U);
    EXPECT_EQ(log.releases()[0].block, p);
    EXPECT_EQ(log.releases()[0].size, 77U);
}

TEST(MemoryAllocatorGateway, DeallocatePassesNullThroughToo) {
    AllocationLog log;
    MemoryAllocatorGateway::deallocate(nullptr, 5);
    ASSERT_EQ(log.releases().size(), 1U);
    EXPECT_EQ(log.releases()[0].block, nullptr);
    EXPECT_EQ(log.releases()[0].size, 5U);
}

// ---- the size-remembering pair, without padding

// The tests of this process expect the variable to be unset.
class SizeRemembering : public testing::Test {
protected:
    void SetUp() override {
        if (std::getenv("VANTA_HX_ALLOCATION_PADDING") != nullptr) {
            GTEST_SKIP() << "VANTA_HX_ALLOCATION_PADDING is set";
        }
    }
};

TEST_F(SizeRemembering, TenBytesAreEighteenAndFreedAsEighteen) {
    AllocationLog log;
    void* const p = MemoryAllocatorGateway::allocateAndRemeberSize(10, kFile, kLine);
    ASSERT_EQ(log.requests().size(), 1U);
    const AllocationRequest made = log.requests()[0];
    EXPECT_EQ(made.size, 18U);
    EXPECT_EQ(made.file, kFile);
    EXPECT_EQ(made.line, kLine);
    EXPECT_EQ(p, static_cast<char*>(made.block) + 8);
    EXPECT_EQ(headerOf(made.block), 18U);

    MemoryAllocatorGateway::readSizeAndDeallocate(p);
    ASSERT_EQ(log.releases().size(), 1U);
    EXPECT_EQ(log.releases()[0].block, made.block);
    EXPECT_EQ(log.releases()[0].size, 18U);
}

TEST_F(SizeRemembering, WritesNothingButTheHeader) {
    for (std::size_t size = 0; size < 130; ++size) {
        auto* const p =
            static_cast<unsigned char*>(MemoryAllocatorGateway::allocateAndRemeberSize(size, kFile, kLine));
        for (std::size_t i = 0; i < size; ++i) {
            ASSERT_EQ(p[i], brimtest::kFreshByte) << size << " at " << i;
        }
        MemoryAllocatorGateway::readSizeAndDeallocate(p);
    }
}

TEST_F(SizeRemembering, FreesWhatAnyoneLaidOutAlike) {
    const std::size_t total = 40;
    char* const block = static_cast<char*>(MemoryAllocatorGateway::allocate(total, kFile, kLine));
    std::memcpy(block, &total, sizeof(total));
    AllocationLog log;
    MemoryAllocatorGateway::readSizeAndDeallocate(block + 8);
    ASSERT_EQ(log.releases().size(), 1U);
    EXPECT_EQ(log.releases()[0].block, block);
    EXPECT_EQ(log.releases()[0].size, total);
}

TEST(MemoryAllocatorGateway, ReadSizeAndDeallocateIgnoresNull) {
    AllocationLog log;
    MemoryAllocatorGateway::readSizeAndDeallocate(nullptr);
    EXPECT_TRUE(log.empty());
}

TEST_F(SizeRemembering, ThrowsBadAllocWhenTheAllocatorRefuses) {
    AllocationLog log;
    const AllocationRefusal refusal(1);
    EXPECT_THROW(MemoryAllocatorGateway::allocateAndRemeberSize(10, kFile, kLine), std::bad_alloc);
    ASSERT_EQ(log.requests().size(), 1U);
    EXPECT_EQ(log.requests()[0].size, 18U);
    EXPECT_EQ(log.requests()[0].block, nullptr);
    EXPECT_TRUE(log.releases().empty());
}

TEST_F(SizeRemembering, ATotalThatWouldWrapIsBadAllocWithoutARequest) {
    constexpr std::size_t kMax = std::numeric_limits<std::size_t>::max();
    AllocationLog log;
    for (const std::size_t size : {kMax, kMax - 1, kMax - 7}) {
        EXPECT_THROW(MemoryAllocatorGateway::allocateAndRemeberSize(size, kFile, kLine), std::bad_alloc);
    }
    EXPECT_TRUE(log.empty());

    EXPECT_THROW(MemoryAllocatorGateway::allocateAndRemeberSize(kMax - 8, kFile, kLine), std::bad_alloc);
    ASSERT_EQ(log.requests().size(), 1U) << "the largest total is the allocator's to refuse";
    EXPECT_EQ(log.requests()[0].size, kMax);
}

TEST_F(SizeRemembering, KeepsTheContentsOfManyBlocks) {
    constexpr unsigned kSeed = 20;
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    std::mt19937 random(kSeed);
    AllocationLog log;
    std::map<unsigned char*, std::pair<std::size_t, unsigned char>> blocks;
    const auto release = [&blocks](auto it) {
        for (std::size_t i = 0; i < it->second.first; ++i) {
            ASSERT_EQ(it->first[i], it->second.second);
        }
        MemoryAllocatorGateway::readSizeAndDeallocate(it->first);
        blocks.erase(it);
    };
    for (int step = 0; step < 3000; ++step) {
        if (blocks.empty() || random() % 3 != 0) {
            const std::size_t size = random() % 300;
            const auto fill = static_cast<unsigned char>(random());
            void* const p = MemoryAllocatorGateway::allocateAndRemeberSize(size, kFile, step);
            std::memset(p, fill, size);
            blocks[static_cast<unsigned char*>(p)] = {size, fill};
        } else {
            release(std::next(blocks.begin(), static_cast<long>(random() % blocks.size())));
        }
    }
    while (!blocks.empty()) {
        release(blocks.begin());
    }
    EXPECT_EQ(log.requests().size(), log.releases().size());
}

TEST_F(SizeRemembering, BlocksMayBeFreedByOtherThreads) {
    constexpr std::size_t kThreads = 4;
    constexpr std::size_t kBlocks = 500;
    const long live = RecordingAllocator::liveBlocks();
    std::vector<std::vector<unsigned char*>> blocks(kThreads);
    std::barrier allMade(static_cast<std::ptrdiff_t>(kThreads));
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            for (std::size_t size = 1; size <= kBlocks; ++size) {
                void* const p = MemoryAllocatorGateway::allocateAndRemeberSize(size, kFile, kLine);
                std::memset(p, static_cast<int>(i), size);
                blocks[i].push_back(static_cast<unsigned char*>(p));
            }
            allMade.arrive_and_wait();
            const std::size_t other = (i + 1) % kThreads;
            for (std::size_t size = 1; size <= kBlocks; ++size) {
                unsigned char* const p = blocks[other][size - 1];
                EXPECT_EQ(p[size - 1], other);
                MemoryAllocatorGateway::readSizeAndDeallocate(p);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(RecordingAllocator::liveBlocks(), live);
}

TEST_F(SizeRemembering, MemoryAllocatorHeapIsThePairUnderOtherNames) {
    AllocationLog log;
    void* const p = MemoryAllocatorHeap::allocate(10, kFile, kLine);
    ASSERT_EQ(log.requests().size(), 1U);
    EXPECT_EQ(log.requests()[0].size, 18U);
    EXPECT_EQ(log.requests()[0].file, kFile);
    EXPECT_EQ(log.requests()[0].line, kLine);
    MemoryAllocatorHeap::deallocate(p);
    ASSERT_EQ(log.releases().size(), 1U);
    EXPECT_EQ(log.releases()[0].size, 18U);
    MemoryAllocatorHeap::deallocate(nullptr);
    EXPECT_EQ(log.releases().size(), 1U);

    const AllocationRefusal refusal(1);
    EXPECT_THROW(MemoryAllocatorHeap::allocate(10, kFile, kLine), std::bad_alloc);
}

// ---- the padding, in a fresh process a value

constexpr const char* kVariable = "VANTA_HX_ALLOCATION_PADDING";
constexpr std::size_t kAsked = 10;

// Prints one line about a request of ten bytes: what the allocator was asked for, where the pointer lies in
// the block, whether header and guards are as they should be, and what was freed.
void printOneRequest() {
    AllocationLog log;
    try {
        auto* const p =
            static_cast<unsigned char*>(MemoryAllocatorGateway::allocateAndRemeberSize(kAsked, kFile, kLine));
        const AllocationRequest made = log.requests().back();
        const auto* const block = static_cast<const unsigned char*>(made.block);
        const auto offset = static_cast<std::size_t>(p - block);
        std::memset(p, 0x11, kAsked);
        bool bUntouched = headerOf(block) == made.size;
        for (std::size_t i = 8; i < made.size; ++i) {
            const bool bCallers = i >= offset && i < offset + kAsked;
            bUntouched = bUntouched && block[i] == (bCallers ? 0x11 : brimtest::kFreshByte);
        }
        MemoryAllocatorGateway::readSizeAndDeallocate(p);
        const AllocationRelease freed = log.releases().back();
        std::printf("size %zu, offset %zu, freed %zu%s%s\n", made.size, offset, freed.size,
                    bUntouched ? "" : ", contents wrong", freed.block == made.block ? "" : ", block wrong");
    } catch (const std::bad_alloc&) {
        if (log.empty()) {
            std::puts("bad_alloc, nothing requested");
        } else {
            std::printf("bad_alloc, requested %zu\n", log.requests().back().size);
        }
    }
}

const brimtest::FreshProcess kRequest("Request", printOneRequest);

std::string granted(std::size_t size, std::size_t offset) {
    return "size " + std::to_string(size) + ", offset " + std::to_string(offset) + ", freed " +
           std::to_string(size) + "\n";
}

std::string requestWith(const char* value) {
    const brimtest::ChildResult result = kRequest.run({{kVariable, value}});
    EXPECT_EQ(result.exitCode(), 0) << result;
    return result.output;
}

TEST(AllocationPadding, IsZeroWithoutAUsableNumber) {
    const std::string plain = granted(18, 8);
    EXPECT_EQ(requestWith(nullptr), plain) << "unset";
    for (const char* const value :
         {"0", "", "abc", "x5", "-", "+", "0x10", "0.9", " ", "00", "-0", "abc5", "\n"}) {
        EXPECT_EQ(requestWith(value), plain) << value;
    }
}

TEST(AllocationPadding, IsRoundedUpToAMultipleOfEightAndStandsOnBothSides) {
    struct {
        const char* value;
        std::size_t padding;
    } const cases[] = {{"1", 8},   {"5", 8},   {"7", 8},     {"8", 8},       {"9", 16},       {"16", 16},
                       {"17", 24}, {"64", 64}, {"+5", 8},    {" \t5", 8},    {"010", 16},     {"12kb", 16},
                       {"5 ", 8},  {"5,9", 8}, {"100", 104}, {"4096", 4096}, {"10000", 10000}};
    for (const auto& [value, padding] : cases) {
        EXPECT_EQ(requestWith(value), granted(kAsked + 2 * padding + 8, padding + 8)) << value;
    }
}

TEST(AllocationPadding, IsTruncatedToThirtyTwoBits) {
    struct {
        const char* value;
        std::size_t padding;
    } const cases[] = {{"4294967296", 0},             // 2^32
                       {"4294967301", 8},             // 2^32 + 5
                       {"-4294967291", 8},            // 5 - 2^32
                       {"-9223372036854775808", 0},   // the least long
                       {"-99999999999999999999", 0}}; // below it
    for (const auto& [value, padding] : cases) {
        EXPECT_EQ(requestWith(value), granted(kAsked + 2 * padding + 8, padding + 8)) << value;
    }
}

TEST(AllocationPadding, RoundsTheLargestValuesUpToZero) {
    for (const char* const value :
         {"-1", "-2", "-7", "4294967289", "4294967295", "9223372036854775807", "99999999999999999999"}) {
        EXPECT_EQ(requestWith(value), granted(18, 8)) << value;
    }
}

TEST(AllocationPadding, ThatWrappedMakesEveryRequestBadAlloc) {
    for (const char* const value : {"-8", "-9", "-16", "-17", "-100", "4294967288", "4294967280",
                                    "2147483648", "2147483641", "-2147483648", "3000000000"}) {
        EXPECT_EQ(requestWith(value), "bad_alloc, nothing requested\n") << value;
    }
}

TEST(AllocationPadding, ThatIsJustUsableIsAskedFor) {
    // 2 * 2147483640 + 8 is the largest size of 32 bits; the allocator refuses it.
    EXPECT_EQ(requestWith("2147483640"), "bad_alloc, requested 4294967298\n");
    EXPECT_EQ(requestWith("2147483633"), "bad_alloc, requested 4294967298\n");
    EXPECT_EQ(requestWith("2147483632"), "bad_alloc, requested 4294967282\n");
}

TEST(AllocationPadding, FollowsItsThirtyTwoBitArithmeticForAnyValue) {
    constexpr unsigned kSeed = 2203;
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    std::mt19937_64 random(kSeed);
    for (int i = 0; i < 60; ++i) {
        // Of every magnitude, and of both signs.
        const auto value = static_cast<std::int64_t>(random()) >> (random() % 63);
        const std::uint32_t rounded = (static_cast<std::uint32_t>(value) + 7U) & ~7U;
        const std::uint32_t offset = rounded + 8U;
        const std::uint32_t size = 2U * rounded + 8U;
        if (size > (1U << 14U) && size <= RecordingAllocator::kLargestSize) {
            continue; // loading the library makes thousands of blocks, each with this padding
        }
        std::string expected;
        if (offset < 8 || offset > size) {
            expected = "bad_alloc, nothing requested\n";
        } else if (kAsked + size > RecordingAllocator::kLargestSize) {
            expected = "bad_alloc, requested " + std::to_string(kAsked + size) + "\n";
        } else {
            expected = granted(kAsked + size, offset);
        }
        EXPECT_EQ(requestWith(std::to_string(value).c_str()), expected) << value;
    }
}

// A wrapped padding is the business of the size-remembering pair alone.
const brimtest::FreshProcess kPlainPair("PlainPair", [] {
    void* const p = MemoryAllocatorGateway::allocate(10, kFile, kLine);
    MemoryAllocatorGateway::deallocate(p, 10);
    MemoryAllocatorGateway::readSizeAndDeallocate(nullptr);
    std::puts("done");
});

TEST(AllocationPadding, ThatWrappedLeavesThePlainPairAlone) {
    const brimtest::ChildResult result = kPlainPair.run({{kVariable, "-8"}});
    EXPECT_EQ(result.exitCode(), 0) << result;
    EXPECT_EQ(result.output, "done\n");
}

// Later changes of the variable, as two requests show.
const brimtest::FreshProcess kChangeAfterLoad("ChangeAfterLoad", [] {
    ::setenv(kVariable, "100", 1);
    printOneRequest();
    ::unsetenv(kVariable);
    printOneRequest();
});

TEST(AllocationPadding, IsReadWhenTheLibraryIsLoaded) {
    EXPECT_EQ(kChangeAfterLoad.run({{kVariable, nullptr}}).output, granted(18, 8) + granted(18, 8));
    EXPECT_EQ(kChangeAfterLoad.run({{kVariable, "5"}}).output, granted(34, 16) + granted(34, 16));
}

TEST(AllocationPadding, WithAnOffsetOfZeroIsReadAgain) {
    // -8 wraps to an offset of 0, which stands for not yet computed.
    const std::string withHundred = granted(226, 112);
    EXPECT_EQ(kChangeAfterLoad.run({{kVariable, "-8"}}).output, withHundred + withHundred);
    // Any other wrapped value stays for good.
    EXPECT_EQ(kChangeAfterLoad.run({{kVariable, "-16"}}).output,
              "bad_alloc, nothing requested\nbad_alloc, nothing requested\n");
}

// ---- thread binding, flushing, quotas

TEST(MemoryAllocatorGateway, ForwardsTheThreadCalls) {
    g_threadCalls = {};
    MemoryAllocatorGateway::associateCurrentThread();
    MemoryAllocatorGateway::flushCurrentThread();
    MemoryAllocatorGateway::compact();
    MemoryAllocatorGateway::disassociateCurrentThread();
    EXPECT_THAT(g_threadCalls.names, ElementsAre("associate", "flush", "compact", "disassociate"));
}

TEST(MemoryAllocatorGateway, QuotaSwitchesReturnTheAllocatorsVerdict) {
    for (const int answer : {0, 1, -1, 2, 256, std::numeric_limits<int>::min()}) {
        g_threadCalls = {};
        g_threadCalls.quotaAnswer = answer;
        EXPECT_EQ(MemoryAllocatorGateway::enableDefaultThreadAllocationQuota(), answer != 0) << answer;
        EXPECT_EQ(MemoryAllocatorGateway::disableThreadAllocationQuota(), answer != 0) << answer;
        EXPECT_THAT(g_threadCalls.names, ElementsAre("enable quota", "disable quota"));
    }
}

// ---- the report

std::string dumpOf(const std::vector<std::string>& pieces, std::size_t length) {
    const brimtest::ChildResult result = brimtest::runInChild([&] {
        g_report = {};
        g_report.pieces = pieces;
        g_report.length = length;
        memalloc::MemoryUtils::dumpMemoryProfileToCout();
    });
    EXPECT_EQ(result.exitCode(), 0) << result;
    return result.output;
}

TEST(DumpMemoryProfileToCout, PrintsThePiecesInOrderAndFlushes) {
    EXPECT_EQ(dumpOf({"first line\n", "second ", "half\n", "", "no line end"}, 3),
              "first line\nsecond half\nno line end");
}

TEST(DumpMemoryProfileToCout, IgnoresTheLength) {
    for (const std::size_t length : {std::size_t{0}, std::size_t{2}, std::size_t{1000}}) {
        EXPECT_EQ(dumpOf({"text\n"}, length), "text\n") << length;
        EXPECT_EQ(dumpOf({"100%%\n"}, length), "100%\n") << length;
        EXPECT_EQ(dumpOf({"100%d\n"}, length), "100%d\n") << length;
    }
}

TEST(DumpMemoryProfileToCout, TakesAPieceForAPrintfFormatWhenThatReadsNoArgument) {
    struct {
        const char* piece;
        const char* printed;
    } const cases[] = {
        {"100%%", "100%"},
        {"%%", "%"},
        {"%%%%", "%%"},
        {"%%d", "%d"},
        {"a%%b%%c", "a%b%c"},
        {"%", "%"},
        {"100%", "100%"},
        {"%%%", "%%%"},
        {"%d", "%d"},
        {"%s%%", "%s%%"},
        {"%%%d", "%%%d"},
        {"%%s%s", "%%s%s"},
        {"100% sure", "100% sure"},
        {"%n", "%n"},
        {"%5%", "%5%"},
        {"%-d %%\n", "%-d %%\n"},
        {"%1$s", "%1$s"},
        {"plain", "plain"},
        {"\\%%n", "\\%n"},
        {"", ""},
    };
    for (const auto& [piece, printed] : cases) {
        EXPECT_EQ(dumpOf({piece}, std::strlen(piece)), printed) << piece;
    }
}

TEST(DumpMemoryProfileToCout, PrintsLongPiecesWhole) {
    const std::string text(100000, 'x');
    EXPECT_EQ(dumpOf({text + "\n"}, 0), text + "\n");
    EXPECT_EQ(dumpOf({text + "%%\n"}, 0), text + "%\n");
}

TEST(DumpMemoryProfileToCout, SkipsANullPiece) {
    const brimtest::ChildResult result = brimtest::runInChild([] {
        g_report = {};
        g_report.bNullPiece = true;
        memalloc::MemoryUtils::dumpMemoryProfileToCout();
    });
    EXPECT_EQ(result.exitCode(), 0) << result;
    EXPECT_EQ(result.output, "");
}

TEST(DumpMemoryProfileToCout, PassesANullContext) {
    g_report = {};
    memalloc::MemoryUtils::dumpMemoryProfileToCout();
    EXPECT_TRUE(g_report.bNullContext);
}

TEST(DumpMemoryProfileToCout, FlushesWhatWasPrintedBefore) {
    const brimtest::ChildResult result = brimtest::runInChild([] {
        g_report = {};
        std::printf("before ");
        memalloc::MemoryUtils::dumpMemoryProfileToCout();
    });
    EXPECT_EQ(result.output, "before ");
}

// ---- the sized node allocator

TEST(BrimNodeAlloc, GoesThroughTheGateway) {
    AllocationLog log;
    void* const p = BrimNodeAlloc::allocate(33, kFile, kLine);
    BrimNodeAlloc::deallocate(p, 33);
    ASSERT_EQ(log.requests().size(), 1U);
    ASSERT_EQ(log.releases().size(), 1U);
    EXPECT_EQ(log.requests()[0].block, p);
    EXPECT_EQ(log.requests()[0].size, 33U) << "no header";
    EXPECT_EQ(log.requests()[0].file, kFile);
    EXPECT_EQ(log.requests()[0].line, kLine);
    EXPECT_EQ(log.releases()[0].block, p);
    EXPECT_EQ(log.releases()[0].size, 33U);

    const AllocationRefusal refusal(1);
    EXPECT_THROW(BrimNodeAlloc::allocate(33, kFile, kLine), std::bad_alloc);
}

TEST(BrimStlAllocator, ServesContainersThroughTheGateway) {
    AllocationLog log;
    {
        std::vector<int, BrimStlAllocator<int>> numbers(5, 7);
        ASSERT_EQ(log.requests().size(), 1U);
        EXPECT_EQ(log.requests()[0].size, 5 * sizeof(int));
        EXPECT_STREQ(log.requests()[0].file, "server/include/Utility/Generic/Portable/BrimNodeAlloc.h");
        EXPECT_EQ(log.requests()[0].line, 44);
        for (int i = 0; i < 1000; ++i) {
            numbers.push_back(i);
        }
        EXPECT_EQ(numbers[0], 7);
        EXPECT_EQ(numbers.back(), 999);
    }
    {
        std::map<int, std::string, std::less<int>, BrimStlAllocator<std::pair<const int, std::string>>> names;
        names[1] = "one";
        names[2] = "two";
        EXPECT_EQ(names.at(2), "two");
        EXPECT_GT(log.requests().size(), log.releases().size() + 1);
    }
    EXPECT_EQ(log.requests().size(), log.releases().size());
}

TEST(BrimStlAllocator, IsBadAllocWhenTheSizeWouldWrap) {
    AllocationLog log;
    BrimStlAllocator<double> allocator;
    constexpr std::size_t kMax = std::numeric_limits<std::size_t>::max();
    for (const std::size_t n : {kMax, kMax / 2, kMax / sizeof(double) + 1}) {
        EXPECT_THROW(allocator.allocate(n), std::bad_alloc) << n;
    }
    EXPECT_TRUE(log.empty());
    const AllocationRefusal refusal(1);
    EXPECT_THROW(allocator.allocate(1), std::bad_alloc);
}

TEST(BrimStlAllocator, HasNoState) {
    EXPECT_TRUE(std::is_empty_v<BrimStlAllocator<int>>);
    const BrimStlAllocator<int> ints;
    const BrimStlAllocator<char> chars(ints);
    EXPECT_TRUE(ints == chars);
    EXPECT_FALSE(ints != chars);
    EXPECT_TRUE(std::allocator_traits<BrimStlAllocator<int>>::is_always_equal::value);
}

} // namespace
