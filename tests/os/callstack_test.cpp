#include "Utility/Generic/Portable/SUPOS.h"

#include "callstack_frames.h"
#include "guarded_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

using brimtest::Frames;

namespace {

constexpr std::size_t kMuch = 64 * 1024;

std::string textOf(const CallStack& stack) {
    std::vector<char> buffer(kMuch, 'x');
    const std::size_t length = stack.ToString(buffer.data(), buffer.size());
    EXPECT_LT(length, buffer.size() - 1);
    EXPECT_EQ(buffer[length], '\0');
    return std::string(buffer.data(), length);
}

std::wstring wideTextOf(const CallStack& stack) {
    std::vector<wchar_t> buffer(kMuch, L'x');
    const std::size_t length = stack.FillToString(buffer.data(), buffer.size());
    EXPECT_LT(length, buffer.size() - 1);
    EXPECT_EQ(buffer[length], L'\0');
    return std::wstring(buffer.data(), length);
}

std::vector<std::string> linesOf(const CallStack& stack) {
    std::vector<std::string> lines;
    std::istringstream text(textOf(stack));
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The address sanitizer's own backtrace() adds its frame.
#ifdef BRIM_SANITIZED
constexpr std::size_t kMostFramesBefore = 1;
#else
constexpr std::size_t kMostFramesBefore = 0;
#endif

void capture(void* stack) { static_cast<CallStack*>(stack)->Init(); }

// "module : symbol+offset"
struct Line {
    std::string module;
    std::string symbol;
    std::string offset;
};

Line split(const std::string& text) {
    const std::size_t colon = text.find(" : ");
    const std::size_t plus = text.rfind('+');
    if (colon == std::string::npos || plus == std::string::npos || plus < colon + 3) {
        ADD_FAILURE() << "not a resolved line: " << text;
        return {};
    }
    return {text.substr(0, colon), text.substr(colon + 3, plus - colon - 3), text.substr(plus + 1)};
}

bool isHexNumber(const std::string& text) {
    return text.size() > 2 && text.compare(0, 2, "0x") == 0 &&
           text.find_first_not_of("0123456789abcdef", 2) == std::string::npos;
}

// The lines of the frames' library in a stack that `call` leads to.
template <class Call>
std::vector<Line> framesOfLibrary(Call call) {
    CallStack stack;
    call(stack);
    stack.ResolveSymbols();
    const std::vector<std::string> lines = linesOf(stack);
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(stack.GetFrameCount()));
    std::vector<Line> result;
    for (const std::string& line : lines) {
        const Line parts = split(line);
        EXPECT_TRUE(isHexNumber(parts.offset)) << line;
        if (parts.module.find("os_callstack_frames") != std::string::npos) {
            result.push_back(parts);
        }
    }
    return result;
}

TEST(CallStack, ShowsAnExportedFunctionByTheNameThatAPersonWrote) {
    const auto lines = framesOfLibrary([](CallStack& stack) { Frames::callFromMember(0, capture, &stack); });
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].module, BRIM_TEST_FRAMES);
    EXPECT_EQ(lines[0].symbol, "brimtest::Frames::callFromMember(int, void (*)(void*), void*)()");
}

TEST(CallStack, ShowsACFunctionByItsName) {
    auto lines = framesOfLibrary([](CallStack& stack) { ::brimtest_callFromC(capture, &stack); });
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].symbol, "brimtest_callFromC()");

    lines = framesOfLibrary([](CallStack& stack) { ::i(capture, &stack); });
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].symbol, "i()");
}

TEST(CallStack, ShowsAFunctionWithoutASymbolByItsOffsetOnly) {
    const auto lines = framesOfLibrary([](CallStack& stack) { Frames::callFromStatic(capture, &stack); });
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].symbol, "");
    EXPECT_EQ(lines[1].symbol, "brimtest::Frames::callFromStatic(void (*)(void*), void*)()");
}

TEST(CallStack, BeginsWithTheCallerOfInit) {
    CallStack stack;
    Frames::callFromMember(0, capture, &stack);
    stack.ResolveSymbols();
    const std::vector<std::string> lines = linesOf(stack);
    const auto member = std::find_if(lines.begin(), lines.end(), [](const std::string& line) {
        return line.find("callFromMember") != std::string::npos;
    });
    ASSERT_GT(member - lines.begin(), 0);
    EXPECT_LE(static_cast<std::size_t>(member - lines.begin()), 1 + kMostFramesBefore);
    EXPECT_NE(member[-1].find("os_test : "), std::string::npos) << member[-1]; // capture()
}

TEST(CallStack, IsFilledByTheUtilityFunctionLikewise) {
    const auto lines = framesOfLibrary([](CallStack& stack) {
        Frames::callFromMember(
            0, [](void* p) { SystemUtility::GetCurrentCallStack(*static_cast<CallStack*>(p)); }, &stack);
    });
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].symbol, "brimtest::Frames::callFromMember(int, void (*)(void*), void*)()");
}

TEST(CallStack, IsEmptyBeforeInit) {
    CallStack stack;
    EXPECT_EQ(stack.GetFrameCount(), 0);
    EXPECT_EQ(textOf(stack), "");
    EXPECT_EQ(wideTextOf(stack), L"");
    stack.ResolveSymbols();
    EXPECT_EQ(textOf(stack), "");
    EXPECT_EQ(wideTextOf(stack), L"");
}

TEST(CallStack, HasNoTextBeforeItsSymbolsAreResolved) {
    CallStack stack;
    stack.Init();
    EXPECT_GT(stack.GetFrameCount(), 0);
    EXPECT_EQ(textOf(stack), "");
    EXPECT_EQ(wideTextOf(stack), L"");
}

TEST(CallStack, KeepsTheInnermostFramesOfADeepStack) {
    CallStack stack;
    Frames::callFromDepth(200, capture, &stack);
    EXPECT_EQ(stack.GetFrameCount(), CallStack::kMostFrames);
    stack.ResolveSymbols();
    const std::vector<std::string> lines = linesOf(stack);
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(CallStack::kMostFrames));
    EXPECT_EQ(lines[0].find("callFromDepth"), std::string::npos) << lines[0];
    for (std::size_t i = 1 + kMostFramesBefore; i < lines.size(); ++i) {
        EXPECT_NE(lines[i].find("callFromDepth"), std::string::npos) << lines[i];
    }
}

TEST(CallStack, ForgetsItsLinesWithTheNextInit) {
    CallStack stack;
    Frames::callFromDepth(20, capture, &stack);
    const int deep = stack.GetFrameCount();
    stack.ResolveSymbols();
    stack.ResolveSymbols(); // once more gives no line twice
    EXPECT_EQ(linesOf(stack).size(), static_cast<std::size_t>(deep));

    Frames::callFromMember(0, capture, &stack);
    EXPECT_LT(stack.GetFrameCount(), deep);
    EXPECT_EQ(textOf(stack), "");
    stack.ResolveSymbols();
    const std::string text = textOf(stack);
    EXPECT_NE(text.find("callFromMember"), std::string::npos) << text;
    EXPECT_EQ(text.find("callFromDepth"), std::string::npos) << text;
}

TEST(CallStack, KeepsWhatItHasWhenItIsCopied) {
    CallStack stack;
    Frames::callFromMember(0, capture, &stack);
    stack.ResolveSymbols();
    const CallStack copy = stack;
    stack.Init();
    EXPECT_NE(textOf(copy).find("callFromMember"), std::string::npos);
}

TEST(CallStack, CutsItsTextAtTheBuffersSize) {
    CallStack stack;
    Frames::callFromMember(0, capture, &stack);
    stack.ResolveSymbols();
    const std::string text = textOf(stack);
    const std::wstring wide = wideTextOf(stack);
    ASSERT_EQ(wide, std::wstring(text.begin(), text.end())); // all of it is ASCII
    brimtest::GuardedBuffer<char> narrowBuffer(text.size() + 2);
    brimtest::GuardedBuffer<wchar_t> wideBuffer(text.size() + 2);
    for (std::size_t size = 0; size <= text.size() + 2; ++size) {
        SCOPED_TRACE(testing::Message() << "size " << size);
        const std::size_t expected = size == 0 ? 0 : std::min(size - 1, text.size());
        char* const narrow = narrowBuffer.lastFenced(size, '#');
        EXPECT_EQ(stack.ToString(narrow, size), expected);
        EXPECT_TRUE(narrowBuffer.fenceIsWhole(size, '#'));
        wchar_t* const widened = wideBuffer.lastFenced(size, L'#');
        EXPECT_EQ(stack.FillToString(widened, size), expected);
        EXPECT_TRUE(wideBuffer.fenceIsWhole(size, L'#'));
        if (size != 0) {
            EXPECT_EQ(std::string(narrow), text.substr(0, expected));
            EXPECT_EQ(std::wstring(widened), wide.substr(0, expected));
        }
    }
}

} // namespace
