// The checked mode. This file is compiled with BRIM_CHECKED.
#include "Utility/Generic/Portable/SUPChecked.h"

#include "calls.h"
#include "child_process.h"

#include "Utility/Generic/Portable/SUPExceptionSupport.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#ifndef BRIM_CHECKED
#    error "this file is the checked one"
#endif

namespace {

using Wide = sup::String<wchar_t>;
using Narrow = sup::String<char>;
using WideBytes = sup::ByteString<wchar_t>;
using NarrowBytes = sup::ByteString<char>;
using WideView = RefStringTemplate<wchar_t>;
using NarrowView = RefStringTemplate<char>;
using Buffer = sup::StringBufferTemplate<8, char>;

const char* const kStringFile = "server/include/Utility/Generic/Portable/SUPString.h";
const char* const kByteStringFile = "server/include/Utility/Generic/Portable/SUPBString.h";
const char* const kRefStringFile = "server/include/Utility/Generic/Portable/RefString.h";
const char* const kBufferFile = "server/include/Utility/Generic/Portable/StringBufferBase.h";
constexpr std::size_t kNPos = static_cast<std::size_t>(-1);

// Reading is all that the mistakes do; the result must be wanted by somebody.
template <class Value>
void use(const Value& value) {
    [[maybe_unused]] const volatile Value kept = value;
}

struct Mistake {
    const char* name;
    void (*make)();
    const char* condition;
    const char* file;
    int line;
};

constexpr const char* kInside = "i < length()";
constexpr const char* kNotEmpty = "!empty()";
constexpr const char* kPart = "pos <= length() && n <= length() - pos";

const Mistake kMistakes[] = {
    {"String front, null", [] { use(Wide().front()); }, kNotEmpty, kStringFile, 187},
    {"String front, cleared",
     [] {
         Narrow s("abc");
         s.clear();
         use(s.front());
     },
     kNotEmpty, kStringFile, 187},
    {"String back", [] { use(Narrow().back()); }, kNotEmpty, kStringFile, 191},
    {"String at the end", [] { use(Wide(L"abc").at(3)); }, kInside, kStringFile, 195},
    {"String at -1", [] { use(Narrow("abc").at(kNPos)); }, kInside, kStringFile, 195},
    {"null String at 0", [] { use(Wide().at(0)); }, kInside, kStringFile, 195},
    {"String behind its zero", [] { use(Wide(L"abc")[4]); }, "i <= length()", kStringFile, 199},
    {"narrow String behind its zero", [] { use(Narrow("abc")[4]); }, "i <= length()", kStringFile, 199},
    {"null String behind its zero", [] { use(Wide()[1]); }, "i <= length()", kStringFile, 199},
    {"pop_back of nothing", [] { Wide().pop_back(); }, kNotEmpty, kStringFile, 269},
    {"ByteString front", [] { use(WideBytes().front()); }, kNotEmpty, kByteStringFile, 216},
    {"ByteString front, cleared",
     [] {
         NarrowBytes b("abc");
         b.clear();
         use(b.front());
     },
     kNotEmpty, kByteStringFile, 216},
    {"ByteString back", [] { use(NarrowBytes().back()); }, kNotEmpty, kByteStringFile, 220},
    {"ByteString at the end", [] { use(WideBytes(L"abc").at(3)); }, kInside, kByteStringFile, 224},
    {"null ByteString at 0", [] { use(NarrowBytes().at(0)); }, kInside, kByteStringFile, 224},
    {"ByteString [length]", [] { use(WideBytes(L"a\x20AC")[2]); }, kInside, kByteStringFile, 228},
    {"null ByteString [0]", [] { use(NarrowBytes()[0]); }, kInside, kByteStringFile, 228},
    {"view front", [] { use(WideView().front()); }, kNotEmpty, kRefStringFile, 52},
    {"view back", [] { use(NarrowView("").back()); }, kNotEmpty, kRefStringFile, 56},
    {"view [length]", [] { use(NarrowView("abc", 2)[2]); }, kInside, kRefStringFile, 60},
    {"view at the end", [] { use(WideView(L"abc").at(3)); }, kInside, kRefStringFile, 64},
    {"view substr from behind the end", [] { use(WideView(L"abc").substr(4, 0).length()); }, kPart,
     kRefStringFile, 70},
    {"view substr beyond the end", [] { use(NarrowView("abc").substr(1, 3).length()); }, kPart,
     kRefStringFile, 70},
    {"view substr to npos", [] { use(WideView(L"abc").substr(1, kNPos).length()); }, kPart, kRefStringFile,
     70},
    {"buffer commit",
     [] {
         Buffer buffer;
         buffer.append("abc");
         buffer.getAppendBuffer(2);
         buffer.commitAppendBuffer(6);
     },
     "n <= appendBufferCapacity()", kBufferFile, 145},
};

TEST(CheckedMode, EachMistakeIsReportedAndAborts) {
    for (const Mistake& mistake : kMistakes) {
        SCOPED_TRACE(mistake.name);
        const brimtest::ChildResult result = brimtest::runInChild(mistake.make);
        EXPECT_EQ(result.signal(), SIGABRT) << result;
        EXPECT_EQ(result.output, std::string("Internal Assertion: Condition ") + mistake.condition +
                                     ", file " + mistake.file + ", line " + std::to_string(mistake.line) +
                                     "\n");
    }
}

// ---- Handlers ---------------------------------------------------------------------------------------------

enum class Reaction { kReturn, kThrow };

class Handler : public sup::SUPExceptionSupport {
public:
    explicit Handler(Reaction reaction) : m_reaction(reaction) { m_pSUPExceptionSupport = this; }

protected:
    void throwErrorMessageImpl(const wchar_t*, int, const Wide&) override {}
    void throwInternalMessageImpl(const wchar_t*, int, InternalMessageID, va_list*) override {}
    void throwAssertErrorImpl(const wchar_t*, int line, const wchar_t* condition) override {
        std::printf("handler: %d %ls\n", line, condition);
        std::fflush(stdout);
        if (m_reaction == Reaction::kThrow) {
            throw 1;
        }
    }
    void throwLogicErrorImpl(const wchar_t*, int, const Wide&) override {}

private:
    Reaction m_reaction;
};

TEST(CheckedMode, AMistakeEndsTheProcessWhateverTheHandlerDoes) {
    for (const Reaction reaction : {Reaction::kReturn, Reaction::kThrow}) {
        SCOPED_TRACE(static_cast<int>(reaction));
        const brimtest::ChildResult result = brimtest::runInChild([=] {
            const Handler handler(reaction);
            Wide().pop_back(); // a member that may throw
        });
        EXPECT_EQ(result.signal(), SIGABRT) << result;
        EXPECT_EQ(result.output, std::string("Internal Assertion: Condition !empty(), file ") + kStringFile +
                                     ", line 269\nhandler: 269 !empty()\n");
    }
}

// ---- Right positions --------------------------------------------------------------------------------------

TEST(CheckedMode, RightPositionsAreReadAsEver) {
    const Wide s(L"abc");
    EXPECT_EQ(s.front(), L'a');
    EXPECT_EQ(s.back(), L'c');
    EXPECT_EQ(s.at(2), L'c');
    EXPECT_EQ(s[0], L'a');
    EXPECT_EQ(&s[1], s.begin() + 1);
    const NarrowBytes b("abc");
    EXPECT_EQ(b.front(), 'a');
    EXPECT_EQ(b.back(), 'c');
    EXPECT_EQ(b.at(2), 'c');
    EXPECT_EQ(b[0], 'a');
    const WideView view(s);
    EXPECT_EQ(view.front(), L'a');
    EXPECT_EQ(view.back(), L'c');
    EXPECT_EQ(view.at(2), L'c');
    EXPECT_EQ(view[0], L'a');
    EXPECT_EQ(view.substr(1, 2).begin(), s.begin() + 1);
    EXPECT_EQ(view.substr(0, 3).length(), 3U);
    EXPECT_EQ(view.substr(3, 0).length(), 0U);
    EXPECT_EQ(WideView().substr(0, 0).begin(), nullptr);
    Wide popped(L"ab");
    popped.pop_back();
    EXPECT_STREQ(popped.c_str(), L"a");
    popped.pop_back();
    EXPECT_TRUE(popped.empty());
    Buffer buffer;
    buffer.commitAppendBuffer(buffer.appendBufferCapacity());
    EXPECT_EQ(buffer.length(), 8U);
}

TEST(CheckedMode, IndexOfAStringReachesTheTerminatingZero) {
    EXPECT_EQ(Wide(L"abc")[3], L'\0');
    EXPECT_EQ(Narrow()[0], '\0');
}

TEST(CheckedMode, PositionsThatAreClampedStayClamped) {
    const Wide s(L"abc");
    EXPECT_TRUE(s.substr(7, 2).empty());
    EXPECT_STREQ(s.substr(1, 100).c_str(), L"bc");
    EXPECT_TRUE(WideView(WideView(s), 7, 2).empty());
    Wide erased(s);
    erased.erase(1, 100);
    EXPECT_STREQ(erased.c_str(), L"a");
}

TEST(CheckedMode, MembersCanBeCalledThroughPointers) {
    const wchar_t& (Wide::*const at)(std::size_t) const noexcept = &Wide::at;
    const Wide s(L"abc");
    EXPECT_EQ((s.*at)(1), L'b');
}

// ---- Beside unchecked code --------------------------------------------------------------------------------

TEST(CheckedMode, UncheckedCodeOfTheSameProgramStaysUnchecked) {
    const Wide s(L"abc");
    EXPECT_EQ(brimtest::uncheckedReadsBehindTheEnd(s, WideView(L"xyz")),
              (std::vector<wchar_t>{L'\0', L'\0', L'\0', L'\0'}));
    Wide empty;
    brimtest::uncheckedPopBack(empty);
    EXPECT_TRUE(empty.empty());
    EXPECT_EQ(brimtest::runInChild([] { use(Wide(L"abc").at(3)); }).signal(), SIGABRT);
}

TEST(CheckedMode, HasTheLayoutOfUncheckedCode) {
    const std::vector<std::size_t> layout = LAYOUT;
    EXPECT_EQ(layout, brimtest::uncheckedLayout());
    EXPECT_TRUE(noexcept(std::declval<const Wide&>().at(0)));
}

} // namespace
