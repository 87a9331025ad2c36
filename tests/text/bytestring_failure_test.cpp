// sup::ByteString where it fails: the assertion of fill, texts and blocks that are too large, refused memory.
#include "Utility/Generic/Portable/SUPBString.h"

#include "bytestring_test_support.h"

#include "Utility/Generic/Portable/SUPExceptionSupport.h"

#include "child_process.h"

#include <gtest/gtest.h>

#include <sys/mman.h>

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <limits>
#include <new>
#include <vector>

namespace {

using namespace brimtest;

// ---- fill of the null string ------------------------------------------------------------------------------

template <class T>
class ByteStringFillOfNull : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(ByteStringFillOfNull, CharacterTypes, CharacterTypeNames);

constexpr const char* kFillLine = "Internal Assertion: Condition m_rep, file "
                                  "server/include/Utility/Generic/Portable/SUPBString.h, line 290\n";

void put(const char* text) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}

class Handler : public sup::SUPExceptionSupport {
public:
    struct Assertion {
        std::wstring file;
        int line;
        std::wstring condition;
    };

    explicit Handler(bool throws) : m_throws(throws) { m_pSUPExceptionSupport = this; }
    ~Handler() { m_pSUPExceptionSupport = nullptr; }
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;

protected:
    void throwErrorMessageImpl(const wchar_t*, int, const sup::String<wchar_t>&) override {
        put("message\n");
    }
    void throwInternalMessageImpl(const wchar_t*, int, InternalMessageID, va_list*) override {
        put("internal\n");
    }
    void throwAssertErrorImpl(const wchar_t* file, int line, const wchar_t* condition) override {
        put("handler\n");
        if (m_throws) {
            throw Assertion{file, line, condition};
        }
    }
    void throwLogicErrorImpl(const wchar_t*, int, const sup::String<wchar_t>&) override { put("logic\n"); }

private:
    bool m_throws;
};

TYPED_TEST(ByteStringFillOfNull, FailsTheAssertionAndAborts) {
    const brimtest::ChildResult result = brimtest::runInChild([] {
        TypeParam out[2] = {};
        sup::ByteString<TypeParam>().fill(out);
        put("returned\n");
    });
    EXPECT_EQ(result.output, kFillLine);
    EXPECT_EQ(result.signal(), SIGABRT) << result;
}

TYPED_TEST(ByteStringFillOfNull, AbortsWhenTheHandlerReturns) {
    const brimtest::ChildResult result = brimtest::runInChild([] {
        const Handler handler(false);
        TypeParam out[2] = {};
        sup::ByteString<TypeParam>().fill(out);
        put("returned\n");
    });
    EXPECT_EQ(result.output, std::string(kFillLine) + "handler\n");
    EXPECT_EQ(result.signal(), SIGABRT) << result;
}

TYPED_TEST(ByteStringFillOfNull, AHandlerThatThrowsLeavesTheTargetAlone) {
    const brimtest::ChildResult result = brimtest::runInChild([] {
        const Handler handler(true);
        TypeParam out[2] = {CHARACTER('x'), CHARACTER('y')};
        try {
            sup::ByteString<TypeParam>().fill(out);
        } catch (const Handler::Assertion& assertion) {
            const bool right = assertion.condition == L"m_rep" && assertion.line == 290 &&
                               assertion.file == L"server/include/Utility/Generic/Portable/SUPBString.h" &&
                               out[0] == CHARACTER('x') && out[1] == CHARACTER('y');
            put(right ? "as expected\n" : "something else\n");
        }
    });
    EXPECT_EQ(result.output, std::string(kFillLine) + "handler\nas expected\n");
    EXPECT_EQ(result.exitCode(), 0) << result;
}

// ---- Blocks that are too large ----------------------------------------------------------------------------

constexpr std::size_t kLargest32 = std::numeric_limits<std::uint32_t>::max();

// The largest capacity whose block size fits 32 bits.
constexpr std::size_t largestCapacity(unsigned int width) {
    return width == 1 ? kLargest32 - 32 : (kLargest32 - 35) / 4;
}

// Where a sanitizer has a handler for the fault, its report ends the process.
::testing::AssertionResult stopsTheProcess(const std::function<void()>& body) {
    const brimtest::ChildResult result = brimtest::runInChild([&] {
        try {
            body();
        } catch (const std::bad_alloc&) {
            ::_exit(97);
        }
    });
#if defined(BRIM_SANITIZED)
    const int code = result.exitCode();
    const bool stopped = result.signal() != 0 || (code != 0 && code != 97 && code != 99);
#else
    const bool stopped = result.signal() == SIGSEGV;
#endif
    return stopped ? ::testing::AssertionSuccess() : ::testing::AssertionFailure() << result;
}

template <class T>
class ByteStringTooLarge : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(ByteStringTooLarge, CharacterTypes, CharacterTypeNames);

TYPED_TEST(ByteStringTooLarge, LargestBlocksAreRequested) {
    using B = sup::ByteString<TypeParam>;
    B b(TEXT("abc"));
    AllocationLog log;
    EXPECT_THROW(B(largestCapacity(1), CHARACTER('x')), std::bad_alloc);
    EXPECT_THROW(B(largestCapacity(1), 1), std::bad_alloc);
    EXPECT_THROW(b.reserve(largestCapacity(1)), std::bad_alloc);
    ASSERT_EQ(byteStringBlocks(log), 3U);
    for (const AllocationRequest& request : log.requests()) {
        EXPECT_EQ(request.size, kLargest32);
    }
    EXPECT_TRUE(isBlockOf(b, FULL_TEXT("abc"), 1, 3));
}

// Not only the size that wraps to 0.
TYPED_TEST(ByteStringTooLarge, SizesThatWrapStopTheProcess) {
    using B = sup::ByteString<TypeParam>;
    for (const std::size_t n : {largestCapacity(1) + 1, largestCapacity(1) + 2, kLargest32 - 1, kLargest32}) {
        EXPECT_TRUE(stopsTheProcess([=] { B(n, CHARACTER('x')); })) << n;
        EXPECT_TRUE(stopsTheProcess([=] { B(n, 1); })) << n;
        EXPECT_TRUE(stopsTheProcess([=] { B().reserve(n); })) << n;
        EXPECT_TRUE(stopsTheProcess([=] { B(TEXT("abc")).reserve(n); })) << n;
        EXPECT_TRUE(stopsTheProcess([=] { B(TEXT("abc")).append(n, CHARACTER('x')); })) << n;
    }
}

TYPED_TEST(ByteStringTooLarge, LengthsBeyond32BitsAreBadAllocBeforeAnythingIsRequested) {
    using B = sup::ByteString<TypeParam>;
    for (const std::size_t n : {kLargest32 + 1, kLargest32 + 2, std::size_t{1} << 62, B::npos}) {
        B unique(TEXT("abc"));
        B shared(TEXT("def"));
        const B other(shared);
        B null;
        AllocationLog log;
        for (B* const b : {&unique, &shared, &null}) {
            const auto* const block = b->diagnosticGetSharedRepresentation();
            EXPECT_THROW(b->append(n, CHARACTER('x')), std::bad_alloc) << n;
            EXPECT_THROW(b->reserve(n), std::bad_alloc) << n;
            EXPECT_EQ(b->diagnosticGetSharedRepresentation(), block);
        }
        EXPECT_THROW(B(n, CHARACTER('x')), std::bad_alloc) << n;
        EXPECT_THROW(B(n, 1), std::bad_alloc) << n;
        EXPECT_THROW(B(n, sizeof(TypeParam)), std::bad_alloc) << n;
        EXPECT_TRUE(log.empty());
        EXPECT_TRUE(isBlockOf(unique, FULL_TEXT("abc"), 1, 3));
        EXPECT_TRUE(isBlockOf(shared, FULL_TEXT("def"), 1, 3, 2));
        EXPECT_TRUE(isNull(null));
    }
}

// The characters are not there: reading one of them past the text would fault.
TYPED_TEST(ByteStringTooLarge, TextsBeyond32BitsAreRefusedUnread) {
    using B = sup::ByteString<TypeParam>;
    void* const nobodyMayRead = ::mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(nobodyMayRead, MAP_FAILED);
    const auto* const text = static_cast<const TypeParam*>(nobodyMayRead);
    for (const std::size_t n : {kLargest32 + 1, B::npos / sizeof(TypeParam)}) {
        B b(TEXT("abc"));
        AllocationLog log;
        EXPECT_THROW(B(text, n), std::bad_alloc) << n;
        EXPECT_THROW(b.assign(text, n), std::bad_alloc) << n;
        EXPECT_THROW(b.append(text, n), std::bad_alloc) << n;
        EXPECT_TRUE(log.empty());
        EXPECT_TRUE(isBlockOf(b, FULL_TEXT("abc"), 1, 3));
    }
    ::munmap(nobodyMayRead, 4096);
}

// Gives a string the length of a text that is not there; appending looks at lengths before characters.
template <class T>
class PretendedLength {
public:
    PretendedLength(const sup::ByteString<T>& b, std::size_t length)
        : m_block(const_cast<sup::string_details::ByteStringData<T>*>(b.diagnosticGetSharedRepresentation())),
          m_length(m_block->m_nLength) {
        m_block->m_nLength = static_cast<std::uint32_t>(length);
    }
    ~PretendedLength() { m_block->m_nLength = m_length; }
    PretendedLength(const PretendedLength&) = delete;
    PretendedLength& operator=(const PretendedLength&) = delete;

private:
    sup::string_details::ByteStringData<T>* m_block;
    std::uint32_t m_length;
};

TYPED_TEST(ByteStringTooLarge, SumsOfLengthsBeyond32BitsAreRefusedBeforeCopying) {
    using B = sup::ByteString<TypeParam>;
    B a(TEXT("abc"));
    const B b(TEXT("defgh"));
    const auto* const block = a.diagnosticGetSharedRepresentation();
    AllocationLog log;
    for (const std::size_t length : {kLargest32 - 4, kLargest32}) {
        const PretendedLength<TypeParam> pretended(a, length);
        EXPECT_THROW(a.append(b), std::bad_alloc) << length;
        EXPECT_THROW(a += a, std::bad_alloc) << length;
    }
    {
        const PretendedLength<TypeParam> pretended(b, kLargest32);
        EXPECT_THROW(a.append(b), std::bad_alloc);
    }
    EXPECT_EQ(a.diagnosticGetSharedRepresentation(), block);
    EXPECT_TRUE(isBlockOf(a, FULL_TEXT("abc"), 1, 3));
    EXPECT_TRUE(isBlockOf(b, FULL_TEXT("defgh"), 1, 5));
    EXPECT_TRUE(log.empty());
    const PretendedLength<TypeParam> pretended(a, kLargest32 - 5);
    EXPECT_TRUE(stopsTheProcess([&] { a.append(b); }));
}

class ByteStringTooLargeWide : public WideByteStringTest {};

TEST_F(ByteStringTooLargeWide, LargestBlocksOfFourByteCharactersAreRequested) {
    AllocationLog log;
    EXPECT_THROW(B(largestCapacity(4), wchar_t{0x20AC}), std::bad_alloc);
    EXPECT_THROW(B(largestCapacity(4), 4), std::bad_alloc);
    ASSERT_EQ(byteStringBlocks(log), 2U);
    EXPECT_EQ(log.requests()[0].size, kLargest32);
    EXPECT_EQ(log.requests()[1].size, kLargest32);
}

TEST_F(ByteStringTooLargeWide, SizesOfFourByteCharactersWrapNearTwoToThe30) {
    constexpr std::size_t kFirst = largestCapacity(4) + 1;
    for (const std::size_t n : {kFirst, kFirst + 1, std::size_t{1} << 30U, (std::size_t{1} << 30U) + 5,
                                std::size_t{3} << 30U, kLargest32}) {
        EXPECT_TRUE(stopsTheProcess([=] { B(n, wchar_t{0x20AC}); })) << n;
        EXPECT_TRUE(stopsTheProcess([=] { B(n, wchar_t{-1}); })) << n;
        EXPECT_TRUE(stopsTheProcess([=] { B(n, 4); })) << n;
        EXPECT_TRUE(stopsTheProcess([=] { B(wchar_t{0x20AC}).reserve(n); })) << n;
        EXPECT_TRUE(stopsTheProcess([=] { B(L"abc").append(n, wchar_t{0x20AC}); })) << n;
    }
}

// As many characters that fit a byte are no matter.
TEST_F(ByteStringTooLargeWide, OneByteCharactersNearTwoToThe30AreRequested) {
    AllocationLog log;
    EXPECT_THROW(B(std::size_t{1} << 30U, L'x'), std::bad_alloc);
    ASSERT_EQ(byteStringBlocks(log), 1U);
    EXPECT_EQ(log.requests()[0].size, (std::size_t{1} << 30U) + 32);
}

TEST_F(ByteStringTooLargeWide, AnAppendedWideCharacterCountsForAllOthers) {
    B a(L"abc");
    const B b(L"\x20AC");
    const PretendedLength<wchar_t> pretended(a, largestCapacity(4));
    EXPECT_TRUE(stopsTheProcess([&] { a.append(b); }));
}

// ---- Refused memory ---------------------------------------------------------------------------------------

template <class T>
struct Operation {
    const char* name;
    std::function<void(sup::ByteString<T>&)> run;
};

template <class T>
std::vector<Operation<T>> allocatingOperations() {
    using TypeParam = T;
    using B = sup::ByteString<T>;
    using S = sup::String<T>;
    const T* const text = TEXT("a text of some length");
    const auto wide = static_cast<T>(0x20AC);
    return {
        {"= text", [=](B& b) { b = text; }},
        {"assign(text)", [=](B& b) { b.assign(text); }},
        {"assign(text, count)", [=](B& b) { b.assign(text, 5); }},
        {"assign(range)", [=](B& b) { b.assign(text, text + 5); }},
        {"assign(b, n)", [=](B& b) { b.assign(B(text), 5); }},
        {"assign(self, n)", [](B& b) { b.assign(b, 2); }},
        {"assign(String)", [=](B& b) { b.assign(S(text)); }},
        {"= String", [=](B& b) { b = S(text); }},
        {"= String of it", [](B& b) { b = b.toString(); }},
        {"append(b)", [=](B& b) { b.append(B(text)); }},
        {"append(self)", [](B& b) { b.append(b); }},
        {"append(text)", [=](B& b) { b.append(text); }},
        {"append(text, count)", [=](B& b) { b.append(text, 5); }},
        {"append(range)", [=](B& b) { b.append(text, text + 5); }},
        {"append(c)", [=](B& b) { b.append(wide); }},
        {"append(n, c)", [=](B& b) { b.append(7, wide); }},
        {"+= b", [=](B& b) { b += B(text); }},
        {"+= text", [=](B& b) { b += text; }},
        {"+= c", [=](B& b) { b += wide; }},
        {"push_back", [=](B& b) { b.push_back(wide); }},
        {"reserve", [](B& b) { b.reserve(50); }},
        {"= substr", [](B& b) { b = b.substr(1, 2); }},
        {"= B(n, c)", [=](B& b) { b = B(7, wide); }},
        {"= B(capacity, width)", [](B& b) { b = B(7, 1); }},
        {"getAutoArray", [](B& b) { b.getAutoArray(); }},
        {"toString", [](B& b) { b.toString(); }},
        {"new", [](B& b) { delete new B(b, 2); }},
    };
}

template <class T>
class ByteStringRefusedMemory : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(ByteStringRefusedMemory, CharacterTypes, CharacterTypeNames);

// Each request of each operation is refused in turn, for strings in each state.
TYPED_TEST(ByteStringRefusedMemory, LeavesTheStringAsItWasAndLosesNothing) {
    using B = sup::ByteString<TypeParam>;
    const auto narrow = FULL_TEXT("ab\0c\xE9");
    const auto wide = FULL_TEXT("abc") + static_cast<TypeParam>(0x20AC);
    B reserved(TEXT("abc"));
    reserved.reserve(40);
    const B states[] = {B(),      byteString(narrow),         byteString(wide), inFullWidth(narrow),
                        reserved, emptyWithBlock<TypeParam>()};
    long refusals = 0;
    for (const auto& operation : allocatingOperations<TypeParam>()) {
        for (const B& state : states) {
            for (const bool isShared : {false, true}) {
                for (long n = 1;; ++n) {
                    // A private copy of the state, or one that shares with it.
                    B b(state);
                    if (!isShared) {
                        b.reserve(state.capacity());
                    }
                    const auto* const block = b.diagnosticGetSharedRepresentation();
                    const auto text = copyOf(b);
                    const std::size_t capacity = b.capacity();
                    const unsigned int width = b.getBytesPerChar();
                    const int references = block == nullptr ? 0 : block->m_refCount.get();
                    const long live = RecordingAllocator::liveBlocks();
                    bool threw = false;
                    bool refused = false;
                    {
                        const AllocationRefusal refusal(n);
                        try {
                            operation.run(b);
                        } catch (const std::bad_alloc&) {
                            threw = true;
                        }
                        refused = refusal.happened();
                    }
                    ASSERT_EQ(threw, refused) << operation.name << " " << n;
                    if (!refused) {
                        break;
                    }
                    ++refusals;
                    ASSERT_EQ(b.diagnosticGetSharedRepresentation(), block) << operation.name << " " << n;
                    if (block != nullptr) {
                        ASSERT_TRUE(isBlockOf(b, text, width, capacity, references))
                            << operation.name << " " << n;
                    }
                    ASSERT_EQ(RecordingAllocator::liveBlocks(), live) << operation.name << " " << n;
                }
            }
        }
    }
    EXPECT_GT(refusals, 200);
}

TYPED_TEST(ByteStringRefusedMemory, LeavesAStringThatTakesTheTextAsItWas) {
    using B = sup::ByteString<TypeParam>;
    using S = sup::String<TypeParam>;
    const B b(50, CHARACTER('x'));
    S unique(TEXT("abc"));
    S shared(TEXT("def"));
    const S other(shared);
    S null;
    for (S* const s : {&unique, &shared, &null}) {
        const auto* const block = s->diagnosticGetSharedRepresentation();
        const auto text = copyOf(*s);
        const AllocationRefusal refusal(1);
        EXPECT_THROW(s->assign(b), std::bad_alloc);
        EXPECT_TRUE(refusal.happened());
        EXPECT_EQ(s->diagnosticGetSharedRepresentation(), block);
        EXPECT_EQ(show(*s), show(text));
    }
    const AllocationRefusal refusal(1);
    EXPECT_THROW(static_cast<void>(unique.toByteString()), std::bad_alloc);
    EXPECT_TRUE(b.isUnique());
}

TYPED_TEST(ByteStringRefusedMemory, OperationsThatRequestNothingCannotFail) {
    using B = sup::ByteString<TypeParam>;
    B a(TEXT("abc"));
    B b(TEXT("defgh"));
    const AllocationRefusal refusal(1);
    const B copy(a); // NOLINT(performance-unnecessary-copy-initialization)
    const B all(a, 3);
    b = a;
    b.assign(copy, 9);
    b.append(B());
    B null;
    null.append(a);
    null.clear();
    EXPECT_FALSE(refusal.happened());
}

} // namespace
