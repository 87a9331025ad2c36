// BaseStringUtil: narrow and wide text. The conversions themselves are SystemUtility's.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "TerminatedText.h"
#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "Utility/Generic/Portable/SUPOS.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace {

using String = BaseStringUtil::String;
using NarrowString = BaseStringUtil::NarrowString;

constexpr const wchar_t* kThisFile = L"server/Utility/Generic/Portable/Src/SUPBaseStringUtilConvert.cpp";
constexpr int kUnconvertibleLine = 23;
constexpr std::size_t kInline = 513;
constexpr unsigned int kUtf8 = 65001;

// Capacities and lengths travel as int.
int asInt(std::size_t n) {
    return static_cast<int>(std::min(n, static_cast<std::size_t>(std::numeric_limits<int>::max())));
}

// A conversion's count includes the zero.
std::size_t lengthOf(int converted) { return converted < 1 ? 0 : static_cast<std::size_t>(converted) - 1; }

// 3 bytes a character hold everything but whole code points above U+FFFF. 0 when that is not enough.
int convertAll(const String& src, AutoBuffer<char, 3 * kInline>& buffer, unsigned int codePage) {
    const std::size_t room = 3 * src.length() + 3;
    buffer.growNoPreserve(room);
    return SystemUtility::WideCharToMultiByte(src.c_str(), buffer.data(), asInt(room), codePage);
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
    const int needed = SystemUtility::MultiByteToWideChar(src, nullptr, 0, codePage);
    AutoBuffer<wchar_t, kInline> buffer;
    buffer.growNoPreserve(static_cast<std::size_t>(needed));
    const int converted =
        needed == 0 ? 0 : SystemUtility::MultiByteToWideChar(src, buffer.data(), needed, codePage);
    out.assign(buffer.data(), lengthOf(converted));
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
    AutoBuffer<wchar_t, kInline> buffer;
    buffer.growNoPreserve(std::size_t{srcLength} + 1);
    const int converted = SystemUtility::MultiByteToWideChar(src, length, buffer.data(),
                                                             asInt(std::size_t{srcLength} + 1), codePage);
    out.assign(buffer.data(), converted < 1 ? 0 : static_cast<std::size_t>(converted));
}

void BaseStringUtil::StdStringToString(const NarrowString& src, String& out, unsigned int codePage) {
    if (src.empty()) {
        out.clear();
        return;
    }
    AutoBuffer<wchar_t, kInline> buffer;
    buffer.growNoPreserve(src.length() + 1);
    const int converted =
        SystemUtility::MultiByteToWideChar(src.c_str(), buffer.data(), asInt(src.length() + 1), codePage);
    out.assign(buffer.data(), lengthOf(converted));
}

String BaseStringUtil::StdStringToString(const NarrowString& src, unsigned int codePage) {
    String result;
    StdStringToString(src, result, codePage);
    return result;
}

NarrowString BaseStringUtil::StringToStdString(const wchar_t* src, unsigned int codePage) {
    const int needed = SystemUtility::WideCharToMultiByte(src, nullptr, 0, codePage);
    AutoBuffer<char, 4 * kInline> buffer;
    buffer.growNoPreserve(static_cast<std::size_t>(needed));
    const int converted =
        needed == 0 ? 0 : SystemUtility::WideCharToMultiByte(src, buffer.data(), needed, codePage);
    return NarrowString(buffer.data(), lengthOf(converted));
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
    AutoBuffer<char, 3 * kInline> buffer;
    const int converted = convertAll(src, buffer, codePage);
    if (converted < 1) {
        return false;
    }
    out.assign(buffer.data(), lengthOf(converted));
    return true;
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
