#include "Utility/Generic/Portable/SUPOS.h"

#include "recording_manager.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <thread>

namespace {

std::wstring wide(const sup::String<wchar_t>& text) { return {text.c_str(), text.length()}; }

// The C library's text, which is ASCII in the "C" locale of a test.
std::wstring textOf(int code) {
    const std::string narrow = std::strerror(code);
    return {narrow.begin(), narrow.end()};
}

TEST(GetSystemErrorString, GivesTheSystemsTextForEveryKnownNumber) {
    for (int code = 0; code <= 140; ++code) {
        EXPECT_EQ(wide(SystemUtility::GetSystemErrorString(code)), textOf(code)) << code;
    }
    EXPECT_EQ(wide(SystemUtility::GetSystemErrorString(ENOENT)), L"No such file or directory");
}

TEST(GetSystemErrorString, GivesTheSystemsTextForUnknownNumbers) {
    for (const int code : {100000, INT_MAX, -1, INT_MIN}) {
        EXPECT_EQ(wide(SystemUtility::GetSystemErrorString(code)), textOf(code)) << code;
    }
    EXPECT_EQ(wide(SystemUtility::GetSystemErrorString(100000)), L"Unknown error 100000");
}

TEST(GetSystemErrorString, ReplacesWhatTheTextHeld) {
    sup::String<wchar_t> text(L"a longer text than the one to come, which must not show through");
    SystemUtility::GetSystemErrorString(EACCES, text);
    EXPECT_EQ(wide(text), textOf(EACCES));
    SystemUtility::GetSystemErrorString(-7, text);
    EXPECT_EQ(wide(text), textOf(-7));
}

TEST(GetSystemErrorString, ReadsTheSystemsTextInTheClientCodePage) {
    const brimtest::ClientCodePage page(65001);
    EXPECT_EQ(wide(SystemUtility::GetSystemErrorString(EPERM)), textOf(EPERM));

    const brimtest::ClientCodePage unknown(4711);
    brimtest::RecordingManager manager;
    EXPECT_EQ(wide(SystemUtility::GetSystemErrorString(EPERM)), L"");
    EXPECT_EQ(manager.reports(), brimtest::RecordingManager::unsupported("4711"));
}

TEST(GetLastSystemError, IsTheThreadsErrno) {
    errno = EBADF;
    int ofOther = -1;
    std::thread([&ofOther] {
        errno = EINTR;
        ofOther = SystemUtility::GetLastSystemError();
    }).join();
    EXPECT_EQ(ofOther, EINTR);
    errno = EBADF;
    EXPECT_EQ(SystemUtility::GetLastSystemError(), EBADF);
    EXPECT_EQ(errno, EBADF);
    errno = 0;
    EXPECT_EQ(SystemUtility::GetLastSystemError(), 0);
}

} // namespace
