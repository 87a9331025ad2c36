#include "Utility/Generic/Portable/DireStraitsPrintWriter.h"

#include "DigitsText.h"
#include "Utility/Generic/Portable/StringBuffer.h"
#include "child_process.h"
#include "print_sink.h"
#include "recording_allocator.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

int g_readError = 0;         // what process_vm_readv() fails with; 0 when the kernel is asked
long g_readCalls = 0;        // how often it was called
bool g_heapUnusable = false; // malloc() and its kin give nothing
long g_heapCalls = 0;        // how often they were called meanwhile

} // namespace

// The library reaches these through the dynamic linker, so it gets them in place of the C library's.
extern "C" ssize_t process_vm_readv(pid_t pid, const iovec* local, unsigned long locals, const iovec* remote,
                                    unsigned long remotes, unsigned long flags) noexcept {
    ++g_readCalls;
    if (g_readError != 0) {
        errno = g_readError;
        return -1;
    }
    return ::syscall(SYS_process_vm_readv, pid, local, locals, remote, remotes, flags);
}

#ifndef BRIM_SANITIZED // sanitizers have a heap of their own
extern "C" {
void* __libc_malloc(std::size_t size) noexcept;
void* __libc_calloc(std::size_t n, std::size_t size) noexcept;
void* __libc_realloc(void* p, std::size_t size) noexcept;

void* malloc(std::size_t size) noexcept {
    if (g_heapUnusable) {
        ++g_heapCalls;
        return nullptr;
    }
    return __libc_malloc(size);
}
void* calloc(std::size_t n, std::size_t size) noexcept {
    if (g_heapUnusable) {
        ++g_heapCalls;
        return nullptr;
    }
    return __libc_calloc(n, size);
}
void* realloc(void* p, std::size_t size) noexcept {
    if (g_heapUnusable) {
        ++g_heapCalls;
        return nullptr;
    }
    return __libc_realloc(p, size);
}
}
#endif

namespace {

using namespace brimtest;
using brimtest::ChildResult;
using brimtest::runInChild;
using sup::DireStraitsPrintWriter;
using sup::PrintWriterBase;

using Sink = PrintSink<PrintWriterBase>;
using View = RefStringTemplate<wchar_t>;
using BufferBase = sup::StringBufferBaseTemplate<wchar_t>;
using Chunks = std::vector<std::size_t>;

constexpr auto kCalmSeas = DireStraitsPrintWriter::kCalmSeas;
constexpr auto kDireStraits = DireStraitsPrintWriter::kDireStraits;
constexpr std::size_t kPage = 4096;
constexpr std::uintptr_t kTop = std::numeric_limits<std::uintptr_t>::max();

// An address that the compiler knows nothing about.
const void* address(std::uintptr_t value) {
    const volatile std::uintptr_t hidden = value;
    return reinterpret_cast<const void*>(hidden);
}

// The object that the bytes at `p` pretend to be.
template <class Object>
const Object& pretended(const void* p) {
    return *static_cast<const Object*>(p);
}

// Pages that can be used up to edge(), and pages behind it that are gone.
enum class Gone { kProtected, kUnmapped, kBehindTheFile };
constexpr Gone kEveryWayToBeGone[] = {Gone::kProtected, Gone::kUnmapped, Gone::kBehindTheFile};

class Precipice {
public:
    explicit Precipice(Gone gone) {
        int file = -1;
        int flags = MAP_PRIVATE | MAP_ANONYMOUS;
        if (gone == Gone::kBehindTheFile) {
            file = ::memfd_create("precipice", 0);
            flags = MAP_SHARED;
            if (file == -1 || ::ftruncate(file, static_cast<off_t>(kUsable)) != 0) {
                std::abort();
            }
        }
        void* const mapped = ::mmap(nullptr, kMapped, PROT_READ | PROT_WRITE, flags, file, 0);
        if (mapped == MAP_FAILED) {
            std::abort();
        }
        m_base = static_cast<unsigned char*>(mapped);
        if (file != -1) {
            ::close(file);
        }
        if (gone == Gone::kProtected) {
            ::mprotect(edge(), kMapped - kUsable, PROT_NONE);
        } else if (gone == Gone::kUnmapped) {
            ::munmap(edge(), kMapped - kUsable);
            m_length = kUsable;
        }
    }
    ~Precipice() { ::munmap(m_base, m_length); }
    Precipice(const Precipice&) = delete;
    Precipice& operator=(const Precipice&) = delete;

    unsigned char* base() const { return m_base; }
    /// The first byte that is gone.
    unsigned char* edge() const { return m_base + kUsable; }
    /// `bytes` in front of the edge.
    template <class Object = wchar_t>
    Object* before(std::size_t bytes) const {
        return reinterpret_cast<Object*>(edge() - bytes);
    }
    /// As many characters `c` as lie between edge() - bytes and the edge.
    wchar_t* charactersBefore(std::size_t bytes, wchar_t c = L'x') const {
        std::wmemset(before(bytes), c, bytes / sizeof(wchar_t));
        return before(bytes);
    }

private:
    static constexpr std::size_t kUsable = 4 * kPage;
    static constexpr std::size_t kMapped = 8 * kPage;

    unsigned char* m_base = nullptr;
    std::size_t m_length = kMapped;
};

// What the 24 bytes in front of a string's characters are.
struct Representation {
    std::size_t references;
    std::size_t capacity;
    const void* finish;
};

// The four fields of a string buffer.
struct BufferFields {
    const void* pStatic;
    const void* pBuffer;
    const void* pPos;
    std::size_t capacity;
};

struct ViewFields {
    const void* first;
    const void* last;
};

std::vector<int> openDescriptors() {
    std::vector<int> open;
    DIR* const directory = ::opendir("/proc/self/fd");
    if (directory == nullptr) {
        ADD_FAILURE() << "no /proc/self/fd";
        return open;
    }
    while (const dirent* const entry = ::readdir(directory)) {
        const int descriptor = std::atoi(entry->d_name);
        if (entry->d_name[0] != '.' && descriptor != ::dirfd(directory)) {
            open.push_back(descriptor);
        }
    }
    ::closedir(directory);
    std::sort(open.begin(), open.end());
    return open;
}

// The undefined-behaviour sanitizer looks at objects through a pipe, and takes them for damaged without one.
#if defined(BRIM_SANITIZED) && !defined(__SANITIZE_THREAD__)
constexpr bool kSanitizerNeedsDescriptors = true;
#else
constexpr bool kSanitizerNeedsDescriptors = false;
#endif

void forbidNewDescriptors() {
    const rlimit none = {0, 0};
    if (::setrlimit(RLIMIT_NOFILE, &none) != 0) {
        ::_exit(90);
    }
}

void printAscii(const Sink& sink) {
    const std::wstring text = sink.text();
    const std::string narrow(text.begin(), text.end());
    if (::write(STDOUT_FILENO, narrow.data(), narrow.size()) != static_cast<ssize_t>(narrow.size())) {
        ::_exit(91);
    }
}

// Every operation that writes, each with something that can be read.
struct Operation {
    const char* name;
    std::function<void(DireStraitsPrintWriter&)> run;
};

const BrimString& sampleString() {
    static const BrimString string(L"string");
    return string;
}
const BufferBase& sampleBuffer() {
    static const sup::StringBufferTemplate<16, wchar_t> buffer = [] {
        sup::StringBufferTemplate<16, wchar_t> made;
        made.append(L"buffer");
        return made;
    }();
    return buffer;
}

const std::vector<Operation>& writingOperations() {
    static const std::vector<Operation> operations = {
        {"int", [](DireStraitsPrintWriter& w) { w << 1; }},
        {"unsigned int", [](DireStraitsPrintWriter& w) { w << 2U; }},
        {"long", [](DireStraitsPrintWriter& w) { w << 3L; }},
        {"unsigned long", [](DireStraitsPrintWriter& w) { w << 4UL; }},
        {"long long", [](DireStraitsPrintWriter& w) { w << 5LL; }},
        {"unsigned long long", [](DireStraitsPrintWriter& w) { w << 6ULL; }},
        {"bool", [](DireStraitsPrintWriter& w) { w << true; }},
        {"string", [](DireStraitsPrintWriter& w) { w << sampleString(); }},
        {"view", [](DireStraitsPrintWriter& w) { w << View(L"view"); }},
        {"text", [](DireStraitsPrintWriter& w) { w << L"a text that is longer than sixteen"; }},
        {"buffer", [](DireStraitsPrintWriter& w) { w << sampleBuffer(); }},
        {"hex unsigned int", [](DireStraitsPrintWriter& w) { w.appendNumberAsHex(10U); }},
        {"hex int", [](DireStraitsPrintWriter& w) { w.appendNumberAsHex(-1); }},
        {"hex unsigned long", [](DireStraitsPrintWriter& w) { w.appendNumberAsHex(12UL); }},
        {"hex long", [](DireStraitsPrintWriter& w) { w.appendNumberAsHex(-1L); }},
        {"append", [](DireStraitsPrintWriter& w) { w.append(3, L'c'); }},
        {"outputEndl", [](DireStraitsPrintWriter& w) { w.outputEndl(); }},
    };
    return operations;
}

constexpr wchar_t kEverything[] = L"123456truestringviewa text that is longer than sixteenbuffer"
                                  L"affffffffcffffffffffffffffccc\n";

// ---- Both modes -------------------------------------------------------------------------------------------

class DireStraitsPrintWriterInBothModes : public ::testing::TestWithParam<DireStraitsPrintWriter::Mode> {};
INSTANTIATE_TEST_SUITE_P(Modes, DireStraitsPrintWriterInBothModes, ::testing::Values(kCalmSeas, kDireStraits),
                         [](const auto& test) {
                             return std::string(test.param == kCalmSeas ? "CalmSeas" : "DireStraits");
                         });

TEST_P(DireStraitsPrintWriterInBothModes, EveryKindIsWritten) {
    Sink sink;
    DireStraitsPrintWriter writer(GetParam(), sink, 1000);
    for (const Operation& operation : writingOperations()) {
        operation.run(writer);
    }
    EXPECT_EQ(sink.text(), kEverything);
}

TEST_P(DireStraitsPrintWriterInBothModes, EveryOperatorReturnsTheWriter) {
    Sink sink;
    DireStraitsPrintWriter writer(GetParam(), sink, 1000);
    DireStraitsPrintWriter& result =
        (writer << 1 << 2U << 3L << 4UL << 5LL << 6ULL << true << sampleString() << View(L"view")
                << L"a text that is longer than sixteen" << sampleBuffer())
            .appendNumberAsHex(10U)
            .appendNumberAsHex(-1)
            .appendNumberAsHex(12UL)
            .appendNumberAsHex(-1L)
            .append(3, L'c');
    EXPECT_EQ(&result, &writer);
    writer.outputEndl();
    EXPECT_EQ(sink.text(), kEverything);
}

TEST_P(DireStraitsPrintWriterInBothModes, WithoutCapacityOnlyFlushIsHeard) {
    for (const int capacity : {0, -1, INT_MIN}) {
        Sink sink;
        DireStraitsPrintWriter writer(GetParam(), sink, capacity);
        for (const Operation& operation : writingOperations()) {
            operation.run(writer);
            ASSERT_EQ(sink.calls(), 0U) << operation.name << ", capacity " << capacity;
            ASSERT_EQ(sink.flushes(), 0) << operation.name << ", capacity " << capacity;
            ASSERT_EQ(sink.lastFlush(), -1) << operation.name << ", capacity " << capacity;
        }
        writer << static_cast<const wchar_t*>(nullptr) << BrimString() << View();
        writer.flush();
        EXPECT_EQ(sink.flushes(), 1) << capacity;
        EXPECT_EQ(sink.calls(), 0U) << capacity;
    }
}

TEST_P(DireStraitsPrintWriterInBothModes, TextIsCutAtTheCapacityAndMarked) {
    Sink sink;
    DireStraitsPrintWriter writer(GetParam(), sink, 5);
    writer << L"abcdefgh and enough behind it";
    EXPECT_EQ(sink.text(), L"abcde\n...");
    EXPECT_EQ(sink.chunks(), (Chunks{5, 4}));
    for (const Operation& operation : writingOperations()) {
        operation.run(writer);
    }
    EXPECT_EQ(sink.text(), L"abcde\n...");
    writer.flush();
    EXPECT_EQ(sink.flushes(), 1);
}

// Capacities about the length of the text, for each kind of text.
TEST_P(DireStraitsPrintWriterInBothModes, EveryKindOfTextIsCharged) {
    const wchar_t* const text = L"abcdefghijklmnopqrstuvwxyz";
    const BrimString string(text);
    sup::StringBufferTemplate<64, wchar_t> buffer;
    buffer.append(text);
    const Operation kinds[] = {
        {"text", [&](DireStraitsPrintWriter& w) { w << text; }},
        {"string", [&](DireStraitsPrintWriter& w) { w << string; }},
        {"view", [&](DireStraitsPrintWriter& w) { w << View(text); }},
        {"buffer", [&](DireStraitsPrintWriter& w) { w << static_cast<const BufferBase&>(buffer); }},
    };
    for (const Operation& kind : kinds) {
        for (int capacity = 1; capacity < 60; ++capacity) {
            Sink sink;
            DireStraitsPrintWriter writer(GetParam(), sink, capacity);
            std::wstring expected;
            int left = capacity;
            for (int i = 0; i < 3; ++i) {
                kind.run(writer);
                if (left >= 26) {
                    expected += text;
                    left -= 26;
                } else if (left >= 1) {
                    expected.append(text, static_cast<std::size_t>(left));
                    expected += L"\n...";
                    left = 0;
                }
            }
            ASSERT_EQ(sink.text(), expected) << kind.name << ", capacity " << capacity;
        }
    }
}

TEST_P(DireStraitsPrintWriterInBothModes, TextThatJustFitsIsNotMarkedAndEndsTheOutput) {
    Sink sink;
    DireStraitsPrintWriter writer(GetParam(), sink, 6);
    writer << sampleString();
    EXPECT_EQ(sink.text(), L"string");
    for (const Operation& operation : writingOperations()) {
        operation.run(writer);
    }
    EXPECT_EQ(sink.text(), L"string");
}

TEST_P(DireStraitsPrintWriterInBothModes, WhatIsNotATextIsNotCharged) {
    Sink sink;
    DireStraitsPrintWriter writer(GetParam(), sink, 1);
    writer << INT_MIN << UINT_MAX << LONG_MIN << ULONG_MAX << LLONG_MIN << ULLONG_MAX << false;
    writer.appendNumberAsHex(UINT_MAX).appendNumberAsHex(ULONG_MAX).append(100, L'-');
    writer.outputEndl();
    EXPECT_EQ(sink.take(), L"-21474836484294967295-922337203685477580818446744073709551615"
                           L"-922337203685477580818446744073709551615falseffffffffffffffffffffffff" +
                               std::wstring(100, L'-') + L"\n");
    writer << View(L"x") << 1;
    EXPECT_EQ(sink.text(), L"x");
}

TEST_P(DireStraitsPrintWriterInBothModes, EmptyTextsCostNothing) {
    static const wchar_t nothing[16] = {};
    Sink sink;
    DireStraitsPrintWriter writer(GetParam(), sink, 1);
    sup::StringBufferTemplate<16, wchar_t> buffer;
    BrimString cleared(L"abc");
    cleared.clear();
    writer << BrimString() << cleared << View() << View(L"abc", 0) << nothing
           << static_cast<const BufferBase&>(buffer);
    EXPECT_EQ(sink.text(), L"");
    writer << View(L"x");
    EXPECT_EQ(sink.text(), L"x");
}

TEST_P(DireStraitsPrintWriterInBothModes, ZeroStillWritesNothing) {
    Sink sink;
    DireStraitsPrintWriter writer(GetParam(), sink, 10);
    writer << 0 << 0U << 0L << 0UL << 0LL << 0ULL;
    writer.appendNumberAsHex(0).appendNumberAsHex(0U).appendNumberAsHex(0L).appendNumberAsHex(0UL);
    EXPECT_EQ(sink.text(), L"");
}

TEST_P(DireStraitsPrintWriterInBothModes, ZerosInsideATextAreWritten) {
    Sink sink;
    DireStraitsPrintWriter writer(GetParam(), sink, 10);
    sup::StringBufferTemplate<16, wchar_t> buffer;
    buffer.append(L"e\0f", 3);
    writer << BrimString(L"a\0b", 3) << View(L"c\0d", 3) << static_cast<const BufferBase&>(buffer);
    EXPECT_EQ(sink.text(), std::wstring(L"a\0bc\0de\0f", 9));
}

TEST_P(DireStraitsPrintWriterInBothModes, BufferGetsAZeroAtItsEnd) {
    sup::StringBufferTemplate<16, wchar_t> buffer;
    buffer.append(L"abcdef");
    buffer.resize(3);
    Sink sink;
    DireStraitsPrintWriter(GetParam(), sink, 10) << static_cast<const BufferBase&>(buffer);
    EXPECT_EQ(sink.text(), L"abc");
    EXPECT_EQ(buffer.begin()[3], L'\0');
    EXPECT_EQ(buffer.begin()[4], L'e');
}

TEST_P(DireStraitsPrintWriterInBothModes, RunsAreForwardedInTheirChunks) {
    Sink sink;
    DireStraitsPrintWriter writer(GetParam(), sink, 1);
    writer.append(128, L'-').append(0, L'x');
    EXPECT_EQ(sink.chunks(), (Chunks{64, 64, 0, 0}));
}

TEST_P(DireStraitsPrintWriterInBothModes, EndOfLineFlushesInDireStraitsAndMayInCalmSeas) {
    Sink sink;
    DireStraitsPrintWriter writer(GetParam(), sink, 1);
    writer.outputEndl();
    EXPECT_EQ(sink.lastFlush(),
              static_cast<int>(GetParam() == kDireStraits ? PrintWriterBase::kFlush
                                                          : PrintWriterBase::kOptionalFlush));
    EXPECT_EQ(sink.text(), L"\n");
    EXPECT_EQ(sink.flushes(), 1);
}

TEST_P(DireStraitsPrintWriterInBothModes, TextIsLookedAtNoFurtherThanTheCapacityReaches) {
    const Precipice precipice(Gone::kProtected);
    for (const std::size_t characters : {16U, 100U, 1500U}) {
        const wchar_t* const text = precipice.charactersBefore(characters * sizeof(wchar_t)); // and no zero
        for (const int capacity : {1, 10, static_cast<int>(characters) - 1}) {
            Sink sink;
            DireStraitsPrintWriter(GetParam(), sink, capacity) << text;
            EXPECT_EQ(sink.text(), std::wstring(static_cast<std::size_t>(capacity), L'x') + L"\n...");
        }
    }
}

TEST_P(DireStraitsPrintWriterInBothModes, LongTextIsWrittenWhole) {
    const std::wstring text(10000, L'x'); // over several pages
    const BrimString string(text.c_str());
    Sink sink;
    DireStraitsPrintWriter writer(GetParam(), sink, INT_MAX);
    writer << text.c_str();
    EXPECT_EQ(sink.take(), text);
    writer << string;
    EXPECT_EQ(sink.take(), text);
    writer << View(text.c_str());
    EXPECT_EQ(sink.take(), text);
}

// No heap, whoever asks for it.
TEST_P(DireStraitsPrintWriterInBothModes, WorksWithoutAHeap) {
    for (const int error : {0, EPERM}) {
        const ChildResult result = runInChild([&] {
            const Precipice precipice(Gone::kProtected);
            const std::vector<Operation>& operations = writingOperations();
            sampleString();
            sampleBuffer();
            static Sink sink;
            AllocationLog log;
            g_readError = error;
            g_heapUnusable = true;
            {
                DireStraitsPrintWriter writer(GetParam(), sink, 1000);
                for (const Operation& operation : operations) {
                    operation.run(writer);
                }
                if (GetParam() == kDireStraits) {
                    writer << pretended<int>(precipice.edge()) << pretended<BrimString>(precipice.edge());
                }
            }
            DireStraitsPrintWriter(GetParam(), sink, 2) << sampleString();
            g_heapUnusable = false;
            const std::wstring expected =
                std::wstring(kEverything) +
                (GetParam() == kDireStraits ? L"<unreadable><unreadable BrimWString>" : L"") + L"st\n...";
            ::_exit(g_heapCalls == 0 && log.empty() && sink.text() == expected ? 0 : 1);
        });
        EXPECT_EQ(result.exitCode(), 0) << result;
    }
}

#ifndef BRIM_SANITIZED
TEST(DireStraitsPrintWriter, HeapOfTheTestCanBeMadeUnusable) {
    g_heapUnusable = true;
    void* volatile const p = std::malloc(10);
    g_heapUnusable = false;
    EXPECT_EQ(p, nullptr);
    EXPECT_EQ(g_heapCalls, 1);
    g_heapCalls = 0;
}
#endif

// ---- Layout and life --------------------------------------------------------------------------------------

TEST(DireStraitsPrintWriter, HasFourFields) {
    Sink sink;
    const DireStraitsPrintWriter writer(kDireStraits, sink, 77);
    struct {
        const PrintWriterBase* subWriter;
        int mode;
        int capacity;
        int descriptor;
        int padding;
    } fields;
    ASSERT_EQ(sizeof(writer), sizeof(fields));
    std::memcpy(&fields, static_cast<const void*>(&writer), sizeof(fields));
    EXPECT_EQ(fields.subWriter, &sink);
    EXPECT_EQ(fields.mode, 1);
    EXPECT_EQ(fields.capacity, 77);
    EXPECT_GE(fields.descriptor, 0);
    EXPECT_EQ(static_cast<int>(kCalmSeas), 0);
    EXPECT_FALSE((std::is_base_of<PrintWriterBase, DireStraitsPrintWriter>::value));
}

TEST(DireStraitsPrintWriter, DigitsAndMarkAreOneText) {
    EXPECT_EQ(std::wstring(sup::kDigitsAndTruncationMark), L"0123456789abcdef\n...");
}

TEST(DireStraitsPrintWriter, HoldsTheNullDeviceOpenInDireStraitsOnly) {
    const std::vector<int> before = openDescriptors();
    Sink sink;
    {
        const DireStraitsPrintWriter calm(kCalmSeas, sink, 10);
        EXPECT_EQ(openDescriptors(), before);
    }
    EXPECT_EQ(openDescriptors(), before);
    {
        const DireStraitsPrintWriter dire(kDireStraits, sink, 0);
        std::vector<int> fresh;
        const std::vector<int> now = openDescriptors();
        std::set_difference(now.begin(), now.end(), before.begin(), before.end(), std::back_inserter(fresh));
        ASSERT_EQ(fresh.size(), 1U);
        char target[64] = {};
        ASSERT_GT(::readlink(("/proc/self/fd/" + std::to_string(fresh[0])).c_str(), target, 63), 0);
        EXPECT_STREQ(target, "/dev/null");
        EXPECT_EQ(::fcntl(fresh[0], F_GETFL) & O_ACCMODE, O_WRONLY);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(DireStraitsPrintWriter, LeaksNoDescriptor) {
    const Precipice precipice(Gone::kProtected);
    const std::vector<int> before = openDescriptors();
    for (const int error : {0, EPERM}) {
        g_readError = error;
        for (int i = 0; i < 100; ++i) {
            Sink sink;
            DireStraitsPrintWriter writer(kDireStraits, sink, 10);
            writer << 5 << pretended<int>(precipice.edge()) << L"a text that is longer than sixteen";
        }
        g_readError = 0;
        EXPECT_EQ(openDescriptors(), before);
    }
}

// ---- Calm seas --------------------------------------------------------------------------------------------

TEST(DireStraitsPrintWriter, CalmSeasMakeNoCheck) {
    Sink sink;
    DireStraitsPrintWriter writer(kCalmSeas, sink, 1000);
    g_readCalls = 0;
    for (const Operation& operation : writingOperations()) {
        operation.run(writer);
    }
    EXPECT_TRUE(writer.isAddressReadable(address(8), 100));
    EXPECT_TRUE(writer.isAddressReadable(address(kTop), 100));
    EXPECT_TRUE(writer.isAddressReadable(nullptr, 1));
    EXPECT_EQ(g_readCalls, 0);
}

TEST(DireStraitsPrintWriter, CalmSeasTakeABackwardsViewForALongOne) {
    const wchar_t* const text = L"abcdef";
    const ViewFields fields = {text + 1, text};
    Sink sink;
    DireStraitsPrintWriter(kCalmSeas, sink, 3) << pretended<View>(&fields);
    EXPECT_EQ(sink.text(), L"bcd\n...");
}

TEST(DireStraitsPrintWriter, CalmSeasFaultAtUnreadableMemory) {
    const Precipice precipice(Gone::kProtected);
    const void* const gone = precipice.edge();
    const void* const lost = gone;
    const ViewFields view = {gone, precipice.edge() + 40};
    const Operation operations[] = {
        {"int", [&](DireStraitsPrintWriter& w) { w << pretended<int>(gone); }},
        {"text", [&](DireStraitsPrintWriter& w) { w << static_cast<const wchar_t*>(gone); }},
        {"low text", [&](DireStraitsPrintWriter& w) { w << static_cast<const wchar_t*>(address(64)); }},
        {"string", [&](DireStraitsPrintWriter& w) { w << pretended<BrimString>(gone); }},
        {"representation", [&](DireStraitsPrintWriter& w) { w << pretended<BrimString>(&lost); }},
        {"view", [&](DireStraitsPrintWriter& w) { w << pretended<View>(&view); }},
        {"buffer", [&](DireStraitsPrintWriter& w) { w << pretended<BufferBase>(gone); }},
    };
    for (const Operation& operation : operations) {
        const ChildResult result = runInChild([&] {
            std::signal(SIGSEGV, SIG_DFL);
            Sink sink;
            DireStraitsPrintWriter writer(kCalmSeas, sink, 1000);
            operation.run(writer);
        });
        EXPECT_EQ(result.signal(), SIGSEGV) << operation.name << ": " << result;
    }
}

TEST(DireStraitsPrintWriter, NullTextIsNothingInCalmSeasAndUnreadableInDireStraits) {
    Sink sink;
    DireStraitsPrintWriter(kCalmSeas, sink, 10) << static_cast<const wchar_t*>(nullptr);
    EXPECT_EQ(sink.calls(), 0U);
    DireStraitsPrintWriter(kDireStraits, sink, 10) << static_cast<const wchar_t*>(nullptr);
    EXPECT_EQ(sink.text(), L"<unreadable>");
}

// ---- Dire straits -----------------------------------------------------------------------------------------

// With the kernel's answer to process_vm_readv(), and where that call is forbidden or missing.
class DireStraits : public ::testing::TestWithParam<int> {
protected:
    DireStraits() {
        g_readError = GetParam();
        g_readCalls = 0;
    }
    ~DireStraits() override { g_readError = 0; }

    // What `run` writes.
    template <class Run>
    std::wstring written(Run run, int capacity = 1000) {
        m_sink.clear();
        DireStraitsPrintWriter writer(kDireStraits, m_sink, capacity);
        run(writer);
        return m_sink.take();
    }
    template <class Value>
    std::wstring shown(const Value& value) {
        return written([&](DireStraitsPrintWriter& w) { w << value; });
    }

    Sink m_sink;
};
INSTANTIATE_TEST_SUITE_P(Answers, DireStraits, ::testing::Values(0, EPERM, ENOSYS), [](const auto& test) {
    return std::string(test.param == 0       ? "KernelAsked"
                       : test.param == EPERM ? "CallForbidden"
                                             : "CallMissing");
});

TEST_P(DireStraits, KernelIsAsked) {
    EXPECT_EQ(shown(5), L"5");
    EXPECT_GT(g_readCalls, 0);
}

TEST_P(DireStraits, AddressesBelow4096AreUnreadableWithoutAsking) {
    const DireStraitsPrintWriter writer(kDireStraits, m_sink, 10);
    for (const std::uintptr_t low : {0U, 1U, 8U, 64U, 4000U, 4095U}) {
        EXPECT_FALSE(writer.isAddressReadable(address(low), 1)) << low;
        EXPECT_FALSE(writer.isAddressReadable(address(low), 100)) << low;
    }
    EXPECT_EQ(g_readCalls, 0);
    EXPECT_FALSE(writer.isAddressReadable(address(4096), 1)) << "nothing is mapped there";
}

TEST_P(DireStraits, NoBytesAreReadableAnywhere) {
    const DireStraitsPrintWriter writer(kDireStraits, m_sink, 10);
    for (const std::uintptr_t at : {std::uintptr_t{0}, std::uintptr_t{64}, kTop / 2, kTop}) {
        EXPECT_TRUE(writer.isAddressReadable(address(at), 0)) << at;
    }
}

TEST_P(DireStraits, RangesThatNoMemoryCanHaveAreUnreadable) {
    const Precipice precipice(Gone::kProtected);
    const DireStraitsPrintWriter writer(kDireStraits, m_sink, 10);
    const void* const readable = precipice.base();
    const std::size_t toTheTop = kTop - reinterpret_cast<std::uintptr_t>(readable);
    EXPECT_FALSE(writer.isAddressReadable(readable, kTop)) << "around the end of the address space";
    EXPECT_FALSE(writer.isAddressReadable(readable, toTheTop + 2)) << "one byte around it";
    EXPECT_FALSE(writer.isAddressReadable(readable, toTheTop + 1)) << "up to the last address";
    EXPECT_FALSE(writer.isAddressReadable(readable, kTop / 2));
    for (const std::uintptr_t at : {kTop, kTop - 1, kTop - 4095, kTop - 4096, std::uintptr_t{1} << 47U,
                                    std::uintptr_t{1} << 63U, std::uintptr_t{0xFFFF800000000000}}) {
        for (const std::size_t length : {std::size_t{1}, std::size_t{2}, kPage, kPage + 1, kTop}) {
            EXPECT_FALSE(writer.isAddressReadable(address(at), length)) << at << ", " << length;
        }
    }
}

TEST_P(DireStraits, EdgeOfReadableMemoryIsFoundToTheByte) {
    for (const Gone gone : kEveryWayToBeGone) {
        const Precipice precipice(gone);
        const DireStraitsPrintWriter writer(kDireStraits, m_sink, 10);
        const unsigned char* const edge = precipice.edge();
        for (const std::size_t before : {std::size_t{1}, std::size_t{2}, std::size_t{8}, kPage - 1, kPage,
                                         kPage + 1, 2 * kPage, 3 * kPage + 5}) {
            EXPECT_TRUE(writer.isAddressReadable(edge - before, 1)) << before;
            EXPECT_TRUE(writer.isAddressReadable(edge - before, before)) << before;
            EXPECT_FALSE(writer.isAddressReadable(edge - before, before + 1)) << before;
            EXPECT_FALSE(writer.isAddressReadable(edge - before, before + kPage)) << before;
            EXPECT_FALSE(writer.isAddressReadable(edge + before - 1, 1)) << before;
        }
    }
}

TEST_P(DireStraits, EveryPageOfARangeIsAskedFor) {
    constexpr std::size_t kPages = 6;
    const Precipice precipice(Gone::kProtected); // its own first four pages, and two that are gone
    std::mt19937 random(6302);
    const DireStraitsPrintWriter writer(kDireStraits, m_sink, 10);
    for (int round = 0; round < 20; ++round) {
        bool readable[kPages] = {};
        for (std::size_t page = 0; page < kPages; ++page) {
            readable[page] = random() % 3 != 0;
            ASSERT_EQ(
                ::mprotect(precipice.base() + page * kPage, kPage, readable[page] ? PROT_READ : PROT_NONE),
                0);
        }
        for (int i = 0; i < 50; ++i) {
            const std::size_t first = random() % (kPages * kPage);
            const std::size_t length = 1 + random() % (kPages * kPage - first);
            const bool expected =
                std::all_of(readable + first / kPage, readable + (first + length - 1) / kPage + 1,
                            [](bool page) { return page; });
            ASSERT_EQ(writer.isAddressReadable(precipice.base() + first, length), expected)
                << "round " << round << ": " << first << ", " << length;
        }
    }
}

TEST_P(DireStraits, ValuesThatCannotBeReadAreMarked) {
    for (const Gone gone : kEveryWayToBeGone) {
        const Precipice precipice(gone);
        for (const void* const at :
             {static_cast<const void*>(precipice.edge()), address(64), address(4088)}) {
            EXPECT_EQ(shown(pretended<int>(at)), L"<unreadable>");
            EXPECT_EQ(shown(pretended<unsigned int>(at)), L"<unreadable>");
            EXPECT_EQ(shown(pretended<long>(at)), L"<unreadable>");
            EXPECT_EQ(shown(pretended<unsigned long>(at)), L"<unreadable>");
            EXPECT_EQ(shown(pretended<long long>(at)), L"<unreadable>");
            EXPECT_EQ(shown(pretended<unsigned long long>(at)), L"<unreadable>");
            EXPECT_EQ(shown(pretended<bool>(at)), L"<unreadable>");
            const auto hex = [&](const auto& value) {
                return written([&](DireStraitsPrintWriter& w) { w.appendNumberAsHex(value); });
            };
            EXPECT_EQ(hex(pretended<int>(at)), L"<unreadable>");
            EXPECT_EQ(hex(pretended<unsigned int>(at)), L"<unreadable>");
            EXPECT_EQ(hex(pretended<long>(at)), L"<unreadable>");
            EXPECT_EQ(hex(pretended<unsigned long>(at)), L"<unreadable>");
        }
    }
}

TEST_P(DireStraits, ValuesAtTheEdgeAreRead) {
    const Precipice precipice(Gone::kUnmapped);
    *precipice.before<int>(4) = -7;
    EXPECT_EQ(shown(*precipice.before<int>(4)), L"-7");
    *precipice.before<unsigned long>(8) = 12;
    EXPECT_EQ(shown(*precipice.before<unsigned long>(8)), L"12");
    *precipice.before<bool>(1) = true;
    EXPECT_EQ(shown(*precipice.before<bool>(1)), L"true");
}

TEST_P(DireStraits, MarksAreNotCharged) {
    EXPECT_EQ(written(
                  [](DireStraitsPrintWriter& w) {
                      w << pretended<int>(address(64)) << pretended<BrimString>(address(64))
                        << pretended<View>(address(64)) << pretended<BufferBase>(address(64)) << View(L"x")
                        << pretended<int>(address(64));
                  },
                  1),
              L"<unreadable><unreadable BrimWString><unreadable RefString><unreadable>x");
}

// ---- Dire straits: zero-terminated texts ------------------------------------------------------------------

TEST_P(DireStraits, TextsThatCannotBeReadAreMarked) {
    for (const Gone gone : kEveryWayToBeGone) {
        const Precipice precipice(gone);
        const auto text = [](const void* p) { return static_cast<const wchar_t*>(p); };
        EXPECT_EQ(shown(text(precipice.edge())), L"<unreadable>");
        EXPECT_EQ(shown(text(precipice.edge() + 64)), L"<unreadable>");
        EXPECT_EQ(shown(text(address(4))), L"<unreadable>");
        EXPECT_EQ(shown(text(address(4092))), L"<unreadable>");
        EXPECT_EQ(shown(text(address(kTop - 3))), L"<unreadable>") << "its first 64 bytes wrap around";
        EXPECT_EQ(shown(text(address(kTop - 63))), L"<unreadable>");
    }
}

TEST_P(DireStraits, ShortTextWithin64BytesOfUnreadableMemoryIsMarked) {
    const Precipice precipice(Gone::kProtected);
    for (const std::size_t bytes : {16U, 32U, 60U}) {
        std::wmemcpy(precipice.before(bytes), L"abc", 4);
        EXPECT_EQ(shown(static_cast<const wchar_t*>(precipice.before(bytes))), L"<unreadable>") << bytes;
    }
    std::wmemcpy(precipice.before(64), L"abc", 4);
    EXPECT_EQ(shown(static_cast<const wchar_t*>(precipice.before(64))), L"abc");
}

TEST_P(DireStraits, TextThatRunsIntoUnreadableMemoryIsMarked) {
    for (const Gone gone : kEveryWayToBeGone) {
        const Precipice precipice(gone);
        for (const std::size_t bytes : {std::size_t{64}, std::size_t{400}, kPage, 2 * kPage + 4}) {
            wchar_t* const text = precipice.charactersBefore(bytes);
            const wchar_t* const constant = text;
            const std::size_t characters = bytes / sizeof(wchar_t);
            const auto with = [&](std::size_t capacity) {
                return written([&](DireStraitsPrintWriter& w) { w << constant; }, static_cast<int>(capacity));
            };
            EXPECT_EQ(with(10000), L"<unreadable>") << bytes;
            EXPECT_EQ(with(characters), L"<unreadable>") << bytes << ": where it ends is not known";
            EXPECT_EQ(with(characters - 1), std::wstring(characters - 1, L'x') + L"\n...") << bytes;
            text[characters - 1] = L'\0';
            EXPECT_EQ(with(10000), std::wstring(characters - 1, L'x')) << bytes;
        }
    }
}

// ---- Dire straits: strings --------------------------------------------------------------------------------

constexpr const wchar_t* kBadString = L"<unreadable BrimWString>";

TEST_P(DireStraits, StringObjectsThatCannotBeReadAreMarked) {
    for (const Gone gone : kEveryWayToBeGone) {
        const Precipice precipice(gone);
        EXPECT_EQ(shown(pretended<BrimString>(precipice.edge())), kBadString);
    }
    EXPECT_EQ(shown(pretended<BrimString>(address(64))), kBadString);
}

TEST_P(DireStraits, StringsWithAnUnreadableRepresentationAreMarked) {
    for (const Gone gone : kEveryWayToBeGone) {
        const Precipice precipice(gone);
        std::memset(precipice.edge() - 64, 0, 64);
        // Gone as a whole, or from some byte of it on.
        for (const void* const representation :
             {static_cast<const void*>(precipice.edge()), static_cast<const void*>(precipice.edge() - 8),
              static_cast<const void*>(precipice.edge() - 16), address(8), address(4088),
              address(std::uintptr_t{1} << 63U), address(kTop - 7)}) {
            EXPECT_EQ(shown(pretended<BrimString>(&representation)), kBadString) << representation;
        }
    }
}

TEST_P(DireStraits, StringsWithADamagedEndAreMarked) {
    const Precipice precipice(Gone::kProtected);
    Representation* const representation = precipice.before<Representation>(sizeof(Representation) + 64);
    precipice.charactersBefore(64);
    *representation = {1, 15, nullptr};
    const auto end = [&](const void* finish) {
        representation->finish = finish;
        const void* const pointer = representation;
        return shown(pretended<BrimString>(&pointer));
    };
    EXPECT_EQ(end(precipice.edge()), std::wstring(16, L'x')) << "up to the last readable byte";
    EXPECT_EQ(end(precipice.edge() - 64), L"");
    EXPECT_EQ(end(precipice.edge() - 60), L"x");
    EXPECT_EQ(end(precipice.edge() + 4), kBadString);
    EXPECT_EQ(end(precipice.edge() + kPage), kBadString);
    EXPECT_EQ(end(precipice.edge() - 68), kBadString) << "in front of the first character";
    EXPECT_EQ(end(nullptr), kBadString);
    EXPECT_EQ(end(address(64)), kBadString);
    EXPECT_EQ(end(address(std::uintptr_t{1} << 46U)), kBadString);
    EXPECT_EQ(end(address(kTop - 3)), kBadString);
}

TEST_P(DireStraits, LongStringIsCheckedBeyondWhatIsWritten) {
    const Precipice precipice(Gone::kUnmapped);
    Representation* const representation = precipice.before<Representation>(sizeof(Representation) + 64);
    precipice.charactersBefore(64);
    *representation = {1, 15, precipice.edge() + 4};
    const void* const pointer = representation;
    const auto two = [&] {
        return written([&](DireStraitsPrintWriter& w) { w << pretended<BrimString>(&pointer); }, 2);
    };
    EXPECT_EQ(two(), kBadString);
    representation->finish = precipice.edge();
    EXPECT_EQ(two(), L"xx\n...");
}

// ---- Dire straits: views ----------------------------------------------------------------------------------

constexpr const wchar_t* kBadView = L"<unreadable RefString>";

TEST_P(DireStraits, ViewsThatCannotBeReadAreMarked) {
    for (const Gone gone : kEveryWayToBeGone) {
        const Precipice precipice(gone);
        EXPECT_EQ(shown(pretended<View>(precipice.edge())), kBadView);
        std::memset(precipice.edge() - 8, 0, 8);
        EXPECT_EQ(shown(pretended<View>(precipice.edge() - 8)), kBadView) << "half of it can be read";
    }
    EXPECT_EQ(shown(pretended<View>(address(64))), kBadView);
}

TEST_P(DireStraits, ViewsOfUnreadableCharactersAreMarked) {
    const Precipice precipice(Gone::kProtected);
    unsigned char* const edge = precipice.edge();
    precipice.charactersBefore(64);
    const struct {
        const void* first;
        const void* last;
        std::wstring expected;
    } rows[] = {
        {edge - 64, edge, std::wstring(16, L'x')},
        {edge - 4, edge, L"x"},
        {edge - 4, edge + 4, kBadView},
        {edge, edge + 4, kBadView},
        {edge - 64, edge + kPage, kBadView},
        {edge, edge - 4, kBadView},              // backwards
        {edge - 4, edge - 64, kBadView},         // backwards
        {edge - 4, nullptr, kBadView},           // backwards
        {nullptr, nullptr, L""},                 // empty
        {edge + 64, edge + 64, L""},             // empty
        {address(64), address(64), L""},         // empty
        {nullptr, edge, kBadView},               // from below 4096
        {address(64), address(68), kBadView},    // below 4096
        {edge - 4, address(kTop - 3), kBadView}, // to the end of the address space
    };
    for (const auto& row : rows) {
        const ViewFields fields = {row.first, row.last};
        EXPECT_EQ(shown(pretended<View>(&fields)), row.expected) << row.first << ", " << row.last;
    }
}

TEST_P(DireStraits, ViewOverAHoleIsMarked) {
    const Precipice precipice(Gone::kProtected);
    precipice.charactersBefore(4 * kPage);
    const auto* const text = reinterpret_cast<const wchar_t*>(precipice.base());
    const View view(text, 4 * kPage / sizeof(wchar_t));
    EXPECT_EQ(shown(view), std::wstring(10, L'x').append(1000 - 10, L'x') + L"\n...");
    ASSERT_EQ(::mprotect(precipice.base() + 2 * kPage, kPage, PROT_NONE), 0);
    EXPECT_EQ(shown(view), kBadView);
}

// ---- Dire straits: string buffers -------------------------------------------------------------------------

TEST_P(DireStraits, BuffersThatCannotBeReadAreMarked) {
    for (const Gone gone : kEveryWayToBeGone) {
        const Precipice precipice(gone);
        std::memset(precipice.edge() - 64, 0, 64);
        for (const std::size_t readable : {0U, 8U, 16U, 24U}) {
            EXPECT_EQ(shown(pretended<BufferBase>(precipice.edge() - readable)), L"<unreadable>") << readable;
        }
    }
    EXPECT_EQ(shown(pretended<BufferBase>(address(64))), L"<unreadable>");
}

TEST_P(DireStraits, BuffersWithDamagedPointersAreMarked) {
    const Precipice precipice(Gone::kProtected);
    unsigned char* const edge = precipice.edge();
    const struct {
        const void* first;
        const void* last;
        std::wstring expected;
    } rows[] = {
        {edge - 64, edge - 4, std::wstring(15, L'x')},
        {edge - 4, edge - 4, L""},
        {edge - 64, edge, L"<unreadable>"}, // no place for the zero
        {edge, edge, L"<unreadable>"},
        {edge - 4, edge + 4, L"<unreadable>"},
        {edge - 64, edge + kPage, L"<unreadable>"},
        {edge - 4, edge - 64, L"<unreadable>"}, // backwards
        {nullptr, nullptr, L"<unreadable>"},    // a zeroed object
        {address(64), address(64), L"<unreadable>"},
        {nullptr, edge - 4, L"<unreadable>"},
        {edge - 64, address(kTop - 3), L"<unreadable>"},
    };
    for (const auto& row : rows) {
        precipice.charactersBefore(64);
        const BufferFields fields = {row.first, row.first, row.last, 1000};
        EXPECT_EQ(shown(pretended<BufferBase>(&fields)), row.expected) << row.first << ", " << row.last;
    }
}

// ---- Dire straits without their means ---------------------------------------------------------------------

// Everything that has storage to be read.
constexpr const char* kEverythingUnreadable =
    "<unreadable><unreadable><unreadable><unreadable><unreadable><unreadable><unreadable>"
    "<unreadable BrimWString><unreadable RefString><unreadable><unreadable>"
    "<unreadable><unreadable><unreadable><unreadable>ccc\n";

TEST_P(DireStraits, EverythingIsUnreadableWithoutADescriptor) {
    if (kSanitizerNeedsDescriptors) {
        GTEST_SKIP() << "the sanitizer needs descriptors of its own";
    }
    const ChildResult result = runInChild([this] {
        forbidNewDescriptors();
        {
            DireStraitsPrintWriter writer(kDireStraits, m_sink, 1000);
            for (const Operation& operation : writingOperations()) {
                operation.run(writer);
            }
            writer.flush();
            if (!writer.isAddressReadable(&m_sink, 0) || writer.isAddressReadable(&m_sink, 1)) {
                ::_exit(1);
            }
        }
        printAscii(m_sink); // standard output was not closed
        ::_exit(m_sink.flushes() == 2 && g_readCalls == 0 ? 0 : 2);
    });
    EXPECT_EQ(result.exitCode(), 0) << result;
    EXPECT_EQ(result.output, kEverythingUnreadable);
}

TEST_P(DireStraits, CalmSeasNeedNoDescriptor) {
    if (kSanitizerNeedsDescriptors) {
        GTEST_SKIP() << "the sanitizer needs descriptors of its own";
    }
    const ChildResult result = runInChild([this] {
        forbidNewDescriptors();
        DireStraitsPrintWriter writer(kCalmSeas, m_sink, 1000);
        for (const Operation& operation : writingOperations()) {
            operation.run(writer);
        }
        printAscii(m_sink);
    });
    const std::wstring expected = kEverything;
    EXPECT_EQ(result.output, std::string(expected.begin(), expected.end()));
}

TEST_P(DireStraits, WithTheCallForbiddenAndNoDescriptorsLeftEverythingIsUnreadable) {
    if (kSanitizerNeedsDescriptors) {
        GTEST_SKIP() << "the sanitizer needs descriptors of its own";
    }
    const ChildResult result = runInChild([this] {
        DireStraitsPrintWriter writer(kDireStraits, m_sink, 1000);
        forbidNewDescriptors();
        for (const Operation& operation : writingOperations()) {
            operation.run(writer);
        }
        printAscii(m_sink);
    });
    const std::wstring all = kEverything;
    EXPECT_EQ(result.output,
              GetParam() == 0 ? std::string(all.begin(), all.end()) : std::string(kEverythingUnreadable));
}

TEST(DireStraitsPrintWriter, WorksInASandboxThatForbidsTheCall) {
    constexpr int kNoSandbox = 77;
    const ChildResult result = runInChild([] {
        sock_filter code[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_process_vm_readv, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        };
        const sock_fprog program = {sizeof(code) / sizeof(code[0]), code};
        if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
            ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0) != 0) {
            ::_exit(kNoSandbox);
        }
        const Precipice precipice(Gone::kProtected);
        Sink sink;
        DireStraitsPrintWriter writer(kDireStraits, sink, 1000);
        for (const Operation& operation : writingOperations()) {
            operation.run(writer);
        }
        writer << pretended<int>(precipice.edge());
        printAscii(sink);
    });
    if (result.exitCode() == kNoSandbox) {
        GTEST_SKIP() << "no sandbox can be set up here";
    }
    const std::wstring expected = std::wstring(kEverything) + L"<unreadable>";
    EXPECT_EQ(result.output, std::string(expected.begin(), expected.end()));
}

} // namespace
