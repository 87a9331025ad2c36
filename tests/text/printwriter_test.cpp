#include "Utility/Generic/Portable/PrintWriterBase.h"

#include "Utility/Generic/Portable/StringBuffer.h"
#include "guarded_buffer.h"
#include "print_sink.h"
#include "recording_allocator.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using namespace brimtest;
using sup::PrintWriterBase;
using sup::PrintWriterWNarrowBase;

using Sink = PrintSink<PrintWriterBase>;
using Chunks = std::vector<std::size_t>;

// Keeps the narrow text apart.
class NarrowSink : public PrintSink<PrintWriterWNarrowBase> {
public:
    using PrintSink<PrintWriterWNarrowBase>::addChars;

    void addChars(const char* chars, size_type count) override {
        ++m_narrowCalls;
        m_narrow.append(chars, count);
    }
    const std::string& narrow() const { return m_narrow; }
    int narrowCalls() const { return m_narrowCalls; }

private:
    std::string m_narrow;
    int m_narrowCalls = 0;
};

std::wstring wide(const char* text) { return std::wstring(text, text + std::strlen(text)); }

// Nothing for 0, otherwise what printf makes of the number.
template <class Number>
std::wstring printed(const char* format, Number value) {
    char text[64];
    std::snprintf(text, sizeof(text), format, value);
    return value == 0 ? std::wstring() : wide(text);
}

// ---- Interface --------------------------------------------------------------------------------------------

// The place of a virtual function in the table, counted in entries; the first two are the destructor's.
template <class Function>
std::size_t slotOf(Function function) {
    std::uintptr_t words[2];
    static_assert(sizeof(function) == sizeof(words), "a pointer to a member function is two words");
    std::memcpy(words, &function, sizeof(words));
    return (words[0] - 1) / sizeof(void*);
}

TEST(PrintWriterBase, VirtualFunctionsHaveTheirSlots) {
    EXPECT_EQ(sizeof(PrintWriterBase), sizeof(void*));
    EXPECT_TRUE(std::has_virtual_destructor<PrintWriterBase>::value);
    EXPECT_TRUE(std::is_abstract<PrintWriterBase>::value);
    using AddChars = void (PrintWriterBase::*)(const wchar_t*, PrintWriterBase::size_type);
    EXPECT_EQ(slotOf(static_cast<AddChars>(&PrintWriterBase::addChars)), 2U);
    EXPECT_EQ(slotOf(&PrintWriterBase::flush), 3U);
    EXPECT_EQ(slotOf(&PrintWriterBase::outputEndl), 4U);
    using AddNarrow = void (PrintWriterWNarrowBase::*)(const char*, PrintWriterBase::size_type);
    EXPECT_EQ(slotOf(static_cast<AddNarrow>(&PrintWriterWNarrowBase::addChars)), 5U);
    EXPECT_EQ(sizeof(PrintWriterWNarrowBase), sizeof(void*));
    EXPECT_TRUE(std::is_abstract<PrintWriterWNarrowBase>::value);
    EXPECT_TRUE((std::is_base_of<PrintWriterBase, PrintWriterWNarrowBase>::value));
}

TEST(PrintWriterBase, FlushValuesAreFixed) {
    EXPECT_EQ(static_cast<int>(PrintWriterBase::kFlush), 0);
    EXPECT_EQ(static_cast<int>(PrintWriterBase::kOptionalFlush), 1);
    EXPECT_EQ(static_cast<int>(PrintWriterBase::kNoFlush), 2);
}

TEST(PrintWriterBase, DestructorRunsThroughTheBase) {
    static int destroyed = 0;
    class Counting : public Sink {
    public:
        ~Counting() override { ++destroyed; }
    };
    PrintWriterBase* const writer = new Counting;
    delete writer;
    EXPECT_EQ(destroyed, 1);
}

TEST(PrintWriterBase, EveryOperatorReturnsTheWriter) {
    Sink sink;
    PrintWriterBase& writer = sink;
    const BrimString s(L"s");
    sup::StringBufferTemplate<16, wchar_t> buffer;
    EXPECT_EQ(&(writer << true), &writer);
    EXPECT_EQ(&(writer << s), &writer);
    EXPECT_EQ(&(writer << RefStringTemplate<wchar_t>(L"r")), &writer);
    EXPECT_EQ(&(writer << L"t"), &writer);
    EXPECT_EQ(&(writer << static_cast<const wchar_t*>(nullptr)), &writer);
    EXPECT_EQ(&(writer << buffer), &writer);
    EXPECT_EQ(&(writer << 1), &writer);
    EXPECT_EQ(&(writer << 1U), &writer);
    EXPECT_EQ(&(writer << 1L), &writer);
    EXPECT_EQ(&(writer << 1UL), &writer);
    EXPECT_EQ(&(writer << 1LL), &writer);
    EXPECT_EQ(&(writer << 1ULL), &writer);
    EXPECT_EQ(&writer.appendNumberAsDecimal(1L), &writer);
    EXPECT_EQ(&writer.appendNumberAsHex(1U), &writer);
    EXPECT_EQ(&writer.appendNumberAsHex(1UL), &writer);
    EXPECT_EQ(&writer.append(1, L'c'), &writer);
    EXPECT_EQ(&(writer << PrintWriterBase::endl), &writer);
    EXPECT_EQ(sink.text(), L"truesrt111111111c\n");
}

// ---- Bools and texts --------------------------------------------------------------------------------------

TEST(PrintWriterBase, BoolsAreWords) {
    Sink sink;
    sink << true << false;
    EXPECT_EQ(sink.text(), L"truefalse");
    EXPECT_EQ(sink.chunks(), (Chunks{4, 5}));
}

TEST(PrintWriterBase, TextsAreHandedOnAsTheyAre) {
    Sink sink;
    sink << BrimString(L"ab\0c", 4);
    EXPECT_EQ(sink.take(), std::wstring(L"ab\0c", 4));
    sink << RefStringTemplate<wchar_t>(L"de\0fgh", 4);
    EXPECT_EQ(sink.take(), std::wstring(L"de\0f", 4));
    sink << L"gh\0i";
    EXPECT_EQ(sink.text(), L"gh");
    EXPECT_EQ(sink.chunks(), Chunks{2});
    wchar_t writable[] = L"jk";
    sink << writable;
    EXPECT_EQ(sink.take(), L"ghjk");
}

TEST(PrintWriterBase, EmptyTextsWriteNothing) {
    Sink sink;
    sink << BrimString();
    BrimString cleared(L"abc");
    cleared.clear();
    sink << cleared;
    sink << RefStringTemplate<wchar_t>();
    sink << RefStringTemplate<wchar_t>(L"abc", 0);
    sink << static_cast<const wchar_t*>(nullptr);
    EXPECT_EQ(sink.calls(), 0U);
    sink << L"" << sup::StringBufferTemplate<16, wchar_t>();
    EXPECT_EQ(sink.text(), L"");
}

TEST(PrintWriterBase, TextIsReadUpToItsZeroOnly) {
    brimtest::GuardedBuffer<wchar_t> buffer(4);
    wchar_t* const text = buffer.last(4);
    std::wmemcpy(text, L"abc", 4);
    Sink sink;
    sink << text;
    EXPECT_EQ(sink.text(), L"abc");
}

TEST(PrintWriterBase, BufferGetsAZeroAtItsEnd) {
    sup::StringBufferTemplate<16, wchar_t> buffer;
    buffer.append(L"abcdef");
    buffer.resize(3);
    ASSERT_EQ(buffer.begin()[3], L'd');
    Sink sink;
    sink << buffer;
    EXPECT_EQ(sink.text(), L"abc");
    EXPECT_EQ(buffer.begin()[3], L'\0');
    EXPECT_EQ(buffer.begin()[4], L'e');
    EXPECT_EQ(buffer.length(), 3U);
    buffer.replace(1, L"\0", 1);
    sink.clear();
    sink << static_cast<const sup::StringBufferBaseTemplate<wchar_t>&>(buffer);
    EXPECT_EQ(sink.text(), std::wstring(L"a\0c", 3));
}

// ---- Numbers ----------------------------------------------------------------------------------------------

TEST(PrintWriterBase, ZeroWritesNothingInEveryForm) {
    Sink sink;
    sink << 0 << 0U << 0L << 0UL << 0LL << 0ULL;
    sink.appendNumberAsDecimal(0L).appendNumberAsDecimal(0UL);
    sink.appendNumberAsHex(0U).appendNumberAsHex(0UL);
    EXPECT_EQ(sink.text(), L"");
}

TEST(PrintWriterBase, NumbersAreWrittenWithOneCall) {
    Sink sink;
    sink << -5;
    sink << INT_MIN;
    sink << UINT_MAX;
    sink << LONG_MIN;
    sink << ULONG_MAX;
    sink.appendNumberAsHex(255U);
    sink.appendNumberAsHex(ULONG_MAX);
    EXPECT_EQ(sink.text(), L"-5-21474836484294967295-922337203685477580818446744073709551615ff"
                           L"ffffffffffffffff");
    EXPECT_EQ(sink.chunks(), (Chunks{2, 11, 10, 20, 20, 2, 16}));
}

void expectNumber(unsigned long bits) {
    SCOPED_TRACE(bits);
    Sink sink;
    const auto check = [&sink](const std::wstring& expected) { EXPECT_EQ(sink.take(), expected); };
    sink << static_cast<int>(bits);
    check(printed("%d", static_cast<int>(bits)));
    sink << static_cast<unsigned int>(bits);
    check(printed("%u", static_cast<unsigned int>(bits)));
    sink << static_cast<long>(bits);
    check(printed("%ld", static_cast<long>(bits)));
    sink << bits;
    check(printed("%lu", bits));
    sink << static_cast<long long>(bits);
    check(printed("%lld", static_cast<long long>(bits)));
    sink << static_cast<unsigned long long>(bits);
    check(printed("%llu", static_cast<unsigned long long>(bits)));
    sink.appendNumberAsDecimal(static_cast<long>(bits));
    check(printed("%ld", static_cast<long>(bits)));
    sink.appendNumberAsDecimal(bits);
    check(printed("%lu", bits));
    sink.appendNumberAsHex(static_cast<unsigned int>(bits));
    check(printed("%x", static_cast<unsigned int>(bits)));
    sink.appendNumberAsHex(bits);
    check(printed("%lx", bits));
}

TEST(PrintWriterBase, NumbersAreThoseOfTheCLibrary) {
    for (const unsigned long bits :
         {1UL, 9UL, 10UL, 11UL, 99UL, 100UL, 1UL << 31U, (1UL << 31U) - 1, (1UL << 32U) - 1, 1UL << 32U,
          (1UL << 63U) - 1, 1UL << 63U, ULONG_MAX, ULONG_MAX - 9}) {
        expectNumber(bits);
    }
    std::mt19937_64 random(6301);
    for (int i = 0; i < 2000; ++i) {
        expectNumber(random() >> (random() % 64));
    }
}

// ---- Runs of characters -----------------------------------------------------------------------------------

TEST(PrintWriterBase, RunsAreWrittenInChunksOf64AndARest) {
    for (const std::size_t n : {0U, 1U, 5U, 63U, 64U, 65U, 127U, 128U, 129U, 1000U, 6400U}) {
        Sink sink;
        sink.append(n, L'-');
        Chunks chunks(n / 64, 64);
        chunks.push_back(n % 64);
        EXPECT_EQ(sink.chunks(), chunks) << n;
        EXPECT_EQ(sink.text(), std::wstring(n, L'-'));
    }
}

TEST(PrintWriterBase, RunOf128IsTwoChunksAndAnEmptyOne) {
    Sink sink;
    sink.append(128, L'-');
    EXPECT_EQ(sink.chunks(), (Chunks{64, 64, 0}));
}

// ---- Ends of lines ----------------------------------------------------------------------------------------

TEST(PrintWriterBase, EndOfLineFlushesUnlessToldNotTo) {
    Sink sink;
    sink.outputEndl(PrintWriterBase::kFlush);
    EXPECT_EQ(sink.flushes(), 1);
    sink.outputEndl(PrintWriterBase::kOptionalFlush);
    EXPECT_EQ(sink.flushes(), 2);
    sink.outputEndl(PrintWriterBase::kNoFlush);
    EXPECT_EQ(sink.flushes(), 2);
    EXPECT_EQ(sink.text(), L"\n\n\n");
    EXPECT_EQ(sink.chunks(), (Chunks{1, 1, 1}));
}

TEST(PrintWriterBase, NewlineComesBeforeTheFlush) {
    class Ordered : public PrintWriterBase {
    public:
        void addChars(const wchar_t* chars, size_type count) override { order.append(chars, count); }
        void flush() override { order += L'F'; }
        std::wstring order;
    };
    Ordered writer;
    writer.outputEndl(PrintWriterBase::kFlush);
    EXPECT_EQ(writer.order, L"\nF");
}

TEST(PrintWriterBase, EndlEndsTheLineAndFlushes) {
    Sink sink;
    sink << L"a" << PrintWriterBase::endl;
    EXPECT_EQ(sink.text(), L"a\n");
    EXPECT_EQ(sink.lastFlush(), static_cast<int>(PrintWriterBase::kFlush));
    EXPECT_EQ(sink.flushes(), 1);
}

// ---- No allocation ----------------------------------------------------------------------------------------

TEST(PrintWriterBase, NothingAllocates) {
    Sink sink;
    const BrimString s(L"string");
    sup::StringBufferTemplate<16, wchar_t> buffer;
    buffer.append(16, L'b');
    AllocationLog log;
    sink << true << s << RefStringTemplate<wchar_t>(s) << L"text" << buffer << -1 << 1U << LONG_MIN
         << ULONG_MAX;
    sink.appendNumberAsHex(ULONG_MAX).append(1000, L'x') << PrintWriterBase::endl;
    EXPECT_TRUE(log.empty());
}

// ---- Narrow text ------------------------------------------------------------------------------------------

TEST(PrintWriterWNarrowBase, NarrowTextGoesToTheNarrowSink) {
    NarrowSink sink;
    sup::StringBufferTemplate<16, char> buffer;
    buffer.append("buffer");
    char writable[] = "writable";
    PrintWriterWNarrowBase& writer = sink;
    EXPECT_EQ(&(writer << "text\0x"), &writer);
    EXPECT_EQ(&(writer << writable), &writer);
    EXPECT_EQ(&(writer << RefStringTemplate<char>("vi\0ew", 5)), &writer);
    EXPECT_EQ(&(writer << sup::String<char>("st\0ring", 7)), &writer);
    EXPECT_EQ(&(writer << buffer), &writer);
    EXPECT_EQ(sink.narrow(), std::string("textwritablevi\0ewst\0ringbuffer", 30));
    EXPECT_EQ(sink.narrowCalls(), 5);
    EXPECT_EQ(sink.calls(), 0U);
}

TEST(PrintWriterWNarrowBase, EmptyNarrowTextsWriteNothing) {
    NarrowSink sink;
    sink << static_cast<const char*>(nullptr) << RefStringTemplate<char>() << RefStringTemplate<char>("a", 0);
    EXPECT_EQ(sink.narrowCalls(), 0);
    sink << sup::String<char>() << sup::StringBufferTemplate<16, char>() << "";
    EXPECT_EQ(sink.narrow(), "");
    EXPECT_EQ(sink.calls(), 0U);
}

TEST(PrintWriterWNarrowBase, NarrowBufferGetsAZeroAtItsEnd) {
    sup::StringBufferTemplate<16, char> buffer;
    buffer.append("abcdef");
    buffer.resize(3);
    NarrowSink sink;
    sink << buffer;
    EXPECT_EQ(sink.narrow(), "abc");
    EXPECT_EQ(std::memcmp(buffer.begin(), "abc\0ef", 6), 0);
}

TEST(PrintWriterWNarrowBase, WideOperatorsAreNotHidden) {
    NarrowSink sink;
    const BrimString s(L"string");
    sup::StringBufferTemplate<16, wchar_t> buffer;
    buffer.append(L"buffer");
    PrintWriterWNarrowBase& writer = sink;
    writer << true;
    writer << s;
    writer << RefStringTemplate<wchar_t>(L"view");
    writer << L"text";
    writer << buffer;
    writer << -5;
    writer << 6U;
    writer << -7L;
    writer << 8UL;
    writer << -9LL;
    writer << 10ULL;
    writer.appendNumberAsHex(255U);
    writer.append(2, L'c');
    writer << PrintWriterBase::endl;
    writer.addChars(L"w", 1);
    EXPECT_EQ(sink.text(), L"truestringviewtextbuffer-56-78-910ffcc\nw");
    EXPECT_EQ(sink.narrowCalls(), 0);
    writer.addChars("n", 1);
    EXPECT_EQ(sink.narrow(), "n");
}

} // namespace
