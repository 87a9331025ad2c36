// BaseStringUtil: narrow and wide text. The conversions themselves are SystemUtility's.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "TerminatedText.h"
#include "UnfilledString.h"
#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "Utility/Generic/Portable/SUPOS.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <limits>

namespace {

using String = BaseStringUtil::String;
using NarrowString = BaseStringUtil::NarrowString;

constexpr const wchar_t* kThisFile = L"server/Utility/Generic/Portable/Src/SUPBaseStringUtilConvert.cpp";
constexpr int kUnconvertibleLine = 23;
constexpr std::size_t kInline = 513;
constexpr unsigned int kUtf8 = 65001;

// Capacities and lengths travel as int.
constexpr std::size_t kLongest = std::numeric_limits<int>::max();
int asInt(std::size_t n) { return static_cast<int>(std::min(n, kLongest)); }

// A conversion's count includes the zero.
std::size_t lengthOf(int converted) { return converted < 1 ? 0 : static_cast<std::size_t>(converted) - 1; }

// The string of the characters that `convert` writes and counts, `most` at most. Short ones are written on
// the stack, so that nothing is allocated besides the string; long ones where they stay, unless that is far
// too much room for them.
template <class T, class Convert>
sup::String<T> builtBy(std::size_t most, Convert convert) {
    constexpr std::size_t kOnStack = kInline * sizeof(wchar_t) / sizeof(T);
    if (most <= kOnStack) {
        T text[kOnStack];
        return sup::String<T>(text, convert(text));
    }
    sup::BasicUnfilledString<T> text(most);
    const std::size_t length = convert(text.begin());
    return length < most / 5 * 2 ? sup::String<T>(text.begin(), length) : text.take(length);
}

// What `length` bytes become, their zero with them.
String widenedWithZero(const char* src, std::size_t length, unsigned int codePage) {
    if (length > kLongest) {
        return String();
    }
    return builtBy<wchar_t>(length, [&](wchar_t* dst) {
        return lengthOf(SystemUtility::MultiByteToWideChar(src, asInt(length), dst, asInt(length), codePage));
    });
}

// What the terminated `src` becomes in `room` bytes; false when it does not.
bool narrowTerminated(const wchar_t* src, std::size_t length, std::size_t room, unsigned int codePage,
                      NarrowString& out) {
    const int units = length < kLongest ? asInt(length + 1) : 0;
    int converted = 0;
    out = builtBy<char>(room, [&](char* dst) {
        converted = SystemUtility::WideCharToMultiByte(src, units, dst, asInt(room), codePage);
        return lengthOf(converted);
    });
    return converted >= 1;
}

} // namespace

void BaseStringUtil::StdStringToString(const char* src, unsigned int srcLength, wchar_t* dst,
                                       unsigned int capacity, unsigned int codePage) {
    if (dst == nullptr || capacity == 0) {
        return;
    }
    *dst = L'\0';
    const int length = static_cast<int>(srcLength); // 0xFFFFFFFF is -1: a terminated source
    if (src == nullptr || length == 0) {
        return;
    }
    if (length == -1) {
        sup::widenTerminated(src, dst, asInt(capacity), codePage);
        return;
    }
    const int converted = SystemUtility::MultiByteToWideChar(src, length, dst, asInt(capacity), codePage);
    // Without a terminator so far.
    const bool fits = converted > 0 && static_cast<unsigned int>(converted) < capacity;
    dst[fits ? converted : 0] = L'\0';
}

void BaseStringUtil::StdStringToString(const char* src, wchar_t* dst, unsigned int capacity,
                                       unsigned int codePage) {
    StdStringToString(src, std::numeric_limits<unsigned int>::max(), dst, capacity, codePage);
}

void BaseStringUtil::StdStringToString(const NarrowString& src, wchar_t* dst, unsigned int capacity,
                                       unsigned int codePage) {
    StdStringToString(src.c_str(), dst, capacity, codePage);
}

void BaseStringUtil::StringToStdString(const wchar_t* src, char* dst, unsigned int capacity,
                                       unsigned int codePage) {
    if (dst != nullptr && capacity != 0) {
        if (SystemUtility::WideCharToMultiByte(src, dst, asInt(capacity), codePage) < 1) {
            *dst = '\0';
        }
    }
}

void BaseStringUtil::StringToStdString(const String& src, char* dst, unsigned int capacity,
                                       unsigned int codePage) {
    StringToStdString(src.c_str(), dst, capacity, codePage);
}

String BaseStringUtil::StringFrom(const char* src, unsigned int codePage) {
    String result;
    StdStringToString(src, result, codePage);
    return result;
}

String BaseStringUtil::StringFrom(const wchar_t* src) { return String(src); }

void BaseStringUtil::StdStringToString(const char* src, String& out, unsigned int codePage) {
    if (src == nullptr) {
        out.clear();
    } else {
        out = widenedWithZero(src, std::strlen(src) + 1, codePage);
    }
}

void BaseStringUtil::StdStringToString(const char* src, unsigned int srcLength, String& out,
                                       unsigned int codePage) {
    const int length = static_cast<int>(srcLength);
    if (src == nullptr || length <= 0) {
        if (src != nullptr && length == -1) {
            StdStringToString(src, out, codePage);
        } else {
            out.clear();
        }
        return;
    }
    out = builtBy<wchar_t>(srcLength, [&](wchar_t* dst) {
        const int converted = SystemUtility::MultiByteToWideChar(src, length, dst, length, codePage);
        return converted < 1 ? 0 : static_cast<std::size_t>(converted);
    });
}

void BaseStringUtil::StdStringToString(const NarrowString& src, String& out, unsigned int codePage) {
    if (src.empty()) {
        out.clear();
    } else {
        StdStringToString(src.c_str(), out, codePage);
    }
}

String BaseStringUtil::StdStringToString(const NarrowString& src, unsigned int codePage) {
    String result;
    StdStringToString(src, result, codePage);
    return result;
}

NarrowString BaseStringUtil::StringToStdString(const wchar_t* src, unsigned int codePage) {
    if (src == nullptr) {
        return NarrowString();
    }
    NarrowString result;
    const std::size_t length = std::wcslen(src);
    narrowTerminated(src, length, std::min(4 * length + 4, kLongest), codePage, result);
    return result;
}

NarrowString BaseStringUtil::StringToStdString(const String& src, unsigned int codePage) {
    NarrowString result;
    if (!TryStringToStdString(src, result, codePage)) {
        BrimAssert::handleAssert(kThisFile, kUnconvertibleLine, L"false");
        std::abort();
    }
    return result;
}

bool BaseStringUtil::TryStringToStdString(const String& src, NarrowString& out, unsigned int codePage) {
    out.clear();
    if (src.empty()) {
        return true;
    }
    // 3 bytes a character hold everything but whole code points above U+FFFF.
    const std::size_t room = std::min(3 * src.length() + 3, kLongest);
    const wchar_t* const text = src.c_str();
    return narrowTerminated(text, std::wcslen(text), room, codePage, out);
}

wchar_t** BaseStringUtil::ConvertCommandArgumentsUTF8(int argc, char** argv) {
    const std::size_t count = argc < 0 ? 0 : static_cast<std::size_t>(argc);
    wchar_t** const arguments = new wchar_t*[count]();
    try {
        for (std::size_t i = 0; i < count; ++i) {
            // One more, for the zero of an argument that is cut inside a sequence.
            const int room = SystemUtility::MultiByteToWideChar(argv[i], nullptr, 0, kUtf8) + 1;
            arguments[i] = new wchar_t[static_cast<std::size_t>(room)]();
            sup::widenTerminated(argv[i], arguments[i], room, kUtf8);
        }
    } catch (...) {
        ReleaseCommandArgumentsUTF8(argc, arguments);
        throw;
    }
    return arguments;
}

void BaseStringUtil::ReleaseCommandArgumentsUTF8(int argc, wchar_t** argv) {
    if (argv == nullptr) {
        return;
    }
    for (int i = 0; i < argc; ++i) {
        delete[] argv[i];
    }
    delete[] argv;
}
