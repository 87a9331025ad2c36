// Patterns of dates and times: a size query tells the size of the result, which fits exactly and no less;
// what is in quotes stays as it is.
#include "fuzz_input.h"

#include "Utility/Generic/Portable/SUPOSBase.h"
#include "exact_buffer.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

using Format = int (*)(unsigned int, const BrimSystemTime*, const wchar_t*, wchar_t*, int);

std::wstring formatted(Format format, const BrimSystemTime& time, const wchar_t* pattern) {
    errno = 0;
    const int needed = format(0, &time, pattern, nullptr, 0);
    if (needed == 0) {
        EXPECT_EQ(errno, EINVAL);
        return L"(failed)";
    }
    EXPECT_GT(needed, 0);
    const auto size = static_cast<std::size_t>(needed);
    ExactBuffer<wchar_t> exact(size);
    EXPECT_EQ(format(0, &time, pattern, exact.data(), needed), needed);
    EXPECT_EQ(exact.data()[size - 1], L'\0');
    if (size > 1) {
        ExactBuffer<wchar_t> shorter(size - 1);
        errno = 0;
        EXPECT_EQ(format(0, &time, pattern, shorter.data(), needed - 1), 0);
        EXPECT_EQ(errno, ERANGE);
    }
    return exact.first(size - 1);
}

// Quotes are doubled; those at the beginning would join the opening one, and so stand before it.
std::wstring quoted(const std::wstring& text) {
    const std::size_t first = std::min(text.find_first_not_of(L'\''), text.size());
    std::wstring result = std::wstring(2 * first, L'\'');
    result += first < text.size() ? L"'" : L"";
    for (const wchar_t c : text.substr(first)) {
        result += c == L'\'' ? L"''" : std::wstring(1, c);
    }
    return result + (first < text.size() ? L"'" : L"");
}

unsigned short any(FuzzInput& input, std::size_t limit) {
    return static_cast<unsigned short>(input.below(limit));
}

} // namespace

void fuzzOne(FuzzInput& input) {
    const auto year = static_cast<short>(input.below(0x10000));
    const unsigned short month = any(input, 14);
    const unsigned short dayOfWeek = any(input, 8);
    const unsigned short day = any(input, 33);
    const unsigned short hour = any(input, 25);
    const unsigned short minute = any(input, 61);
    const unsigned short second = any(input, 62);
    const BrimSystemTime time(year, month, dayOfWeek, day, hour, minute, second, any(input, 1001));
    const std::wstring text =
        (input.flip() ? input.restAsText() : input.text(L"dMyhHmsft'' :.%", 255)).c_str();
    for (const Format format : {WRAP_wgetdateformat, WRAP_wgettimeformat}) {
        formatted(format, time, nullptr);
        const bool isValid = formatted(format, time, text.c_str()) != L"(failed)";
        if (isValid && !text.empty()) {
            ASSERT_EQ(formatted(format, time, quoted(text).c_str()), text);
        }
    }
}
