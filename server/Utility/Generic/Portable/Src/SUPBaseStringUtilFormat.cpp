// BaseStringUtil: formatted strings and language tags.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "Utility/Generic/Portable/SUPOS.h"

#include <cstdio>
#include <cwchar>

namespace {

constexpr std::size_t kNarrowRoom = 98304;
constexpr std::size_t kLeastWideRoom = 64;

} // namespace

void BaseStringUtil::BrimString_sprintf(String& out, const char* format, ...) {
    va_list args;
    va_start(args, format);
    BrimString_sprintfV(out, format, args);
    va_end(args);
}

void BaseStringUtil::BrimString_sprintfV(String& out, const char* format, va_list args) {
    char buffer[kNarrowRoom];
    const int length = std::vsnprintf(buffer, sizeof(buffer), format, args);
    out = length < 0 ? String() : StringFrom(buffer, SystemUtility::GetMultiByteCodePage());
}

void BaseStringUtil::BrimString_brimsprintf(String& out, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    const int needed = SystemUtility::GetTotalSizeOfVariableArgumentList(format, args);
    va_end(args);
    if (needed < 0) {
        return;
    }
    const std::size_t room = static_cast<std::size_t>(needed) + 1;
    AutoBuffer<wchar_t, kLeastWideRoom> buffer;
    buffer.growNoPreserve(room);
    va_start(args, format);
    std::vswprintf(buffer.data(), room, format, args);
    va_end(args);
    buffer.data()[room - 1] = L'\0';
    out = StringFrom(buffer.data());
}

void BaseStringUtil::FormatErrorMsgLang(String& tag) {
    BrimStringVector parts;
    if (tag.find(L'-') != tag.length()) {
        Tokenize(tag, L"-", parts, false, false);
    }
    if (parts.size() == 2) {
        tag = parts[0];
        tag.append(L'-').append(ToUpperCase(parts[1]));
    }
}
