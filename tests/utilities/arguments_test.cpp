// BaseStringUtil: the arguments of a program.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/transcodercache.h"

#include "recording_allocator.h"
#include "recording_manager.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <string>
#include <vector>

using brimtest::AllocationRefusal;
using brimtest::ClientCodePage;
using brimtest::RecordingAllocator;
using brimtest::RecordingManager;

namespace {

thread_local long t_liveArrays = 0;

} // namespace

// The arguments are plain arrays: counted here.
void* operator new[](std::size_t size) {
    void* const block = ::operator new(size);
    ++t_liveArrays;
    return block;
}
void operator delete[](void* p) noexcept {
    t_liveArrays -= p != nullptr ? 1 : 0;
    ::operator delete(p);
}
void operator delete[](void* p, std::size_t) noexcept { ::operator delete[](p); }

namespace {

// Terminated texts as main() gets them; null where a text is "(null)".
std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text == "(null)" ? nullptr : text.data());
    }
    return pointers;
}

TEST(ConvertCommandArgumentsUTF8, ConvertsEachArgument) {
    std::vector<std::string> texts = {
        "program", "", "\xC3\xA9-\xE2\x82\xAC", "\xF0\x9F\x98\x80", std::string(600, 'x'), "(null)"};
    const std::vector<std::wstring> expected = {
        L"program", L"", L"\xE9-\x20AC", L"\xD83D\xDE00", std::wstring(600, L'x'), L""};
    std::vector<char*> argv = pointersTo(texts);
    const int argc = static_cast<int>(argv.size());
    wchar_t** const arguments = BaseStringUtil::ConvertCommandArgumentsUTF8(argc, argv.data());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(std::wstring(arguments[i]), expected[i]) << i;
    }
    BaseStringUtil::ReleaseCommandArgumentsUTF8(argc, arguments);
}

TEST(ConvertCommandArgumentsUTF8, EachEndsInAZeroThoughASequenceIsCut) {
    std::vector<std::string> texts = {"ab\xE2", "\xF0\x9F\x98", "ab\xF0\x9F", "\xE2"};
    const std::vector<std::wstring> expected = {L"ab", L"\xD83D\xDE00", L"ab", L""};
    std::vector<char*> argv = pointersTo(texts);
    const int argc = static_cast<int>(argv.size());
    wchar_t** const arguments = BaseStringUtil::ConvertCommandArgumentsUTF8(argc, argv.data());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(std::wstring(arguments[i]), expected[i]) << i;
    }
    BaseStringUtil::ReleaseCommandArgumentsUTF8(argc, arguments);
}

TEST(ConvertCommandArgumentsUTF8, TakesThemForUtf8WhateverTheCodePage) {
    const RecordingManager manager;
    std::vector<std::string> texts = {"\xC3\xA9"};
    std::vector<char*> argv = pointersTo(texts);
    for (const unsigned int page : {1252U, 4711U}) {
        const ClientCodePage client(page);
        wchar_t** const arguments = BaseStringUtil::ConvertCommandArgumentsUTF8(1, argv.data());
        EXPECT_EQ(std::wstring(arguments[0]), L"\xE9");
        BaseStringUtil::ReleaseCommandArgumentsUTF8(1, arguments);
    }
    EXPECT_TRUE(manager.reports().empty());
}

TEST(ReleaseCommandArgumentsUTF8, FreesEverything) {
    std::vector<std::string> texts = {"program", "", "\xC3\xA9", std::string(600, 'x')};
    std::vector<char*> argv = pointersTo(texts);
    sup::transcodeimpl::GetTranscoderCache(); // made once, and kept
    for (int argc = 0; argc <= 4; ++argc) {
        const long live = t_liveArrays;
        const long blocks = RecordingAllocator::liveBlocks();
        wchar_t** const arguments = BaseStringUtil::ConvertCommandArgumentsUTF8(argc, argv.data());
        ASSERT_NE(arguments, nullptr);
        EXPECT_EQ(t_liveArrays, live + argc + 1) << argc;
        BaseStringUtil::ReleaseCommandArgumentsUTF8(argc, arguments);
        EXPECT_EQ(t_liveArrays, live) << argc;
        EXPECT_EQ(RecordingAllocator::liveBlocks(), blocks) << argc;
    }
}

TEST(ReleaseCommandArgumentsUTF8, TakesNullAndNullElements) {
    const long live = t_liveArrays;
    BaseStringUtil::ReleaseCommandArgumentsUTF8(0, nullptr);
    BaseStringUtil::ReleaseCommandArgumentsUTF8(3, nullptr);
    auto** const arguments = new wchar_t*[3]();
    arguments[1] = new wchar_t[4]();
    BaseStringUtil::ReleaseCommandArgumentsUTF8(3, arguments);
    EXPECT_EQ(t_liveArrays, live);
}

TEST(ConvertCommandArgumentsUTF8, FreesWhatItHasWhenMemoryRunsOut) {
    std::vector<std::string> texts = {"program", std::string(5000, 'x'), "last"};
    std::vector<char*> argv = pointersTo(texts);
    const long live = t_liveArrays;
    const long blocks = RecordingAllocator::liveBlocks();
    {
        const AllocationRefusal refusal(1);
        EXPECT_THROW(BaseStringUtil::ConvertCommandArgumentsUTF8(3, argv.data()), std::bad_alloc);
        EXPECT_TRUE(refusal.happened());
    }
    EXPECT_EQ(t_liveArrays, live);
    EXPECT_EQ(RecordingAllocator::liveBlocks(), blocks);
}

} // namespace
