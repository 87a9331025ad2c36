// The string types as arguments of {fmt}: String<T>, ByteString<T> and RefStringTemplate<T> in formats of the
// same character type, with the specifications of a std::basic_string_view<T>.
//
//   fmt::format(L"{:>8}|{}", BrimString(L"right"), sup::ByteString<wchar_t>(L"left"))
//
// The one header of the library that needs {fmt}, version 9 or later; nothing else includes it. Wide text in
// a narrow format does not compile: it takes a conversion (SUPTranscode.h), whose code page the caller knows.
#pragma once

#include "Utility/Generic/Portable/SUPStringInterop.h"

#include <fmt/format.h>
#include <fmt/xchar.h>

#include <string_view>

namespace sup {
namespace string_details {

template <class T>
struct FmtFormatter : fmt::formatter<std::basic_string_view<T>, T> {
    using Base = fmt::formatter<std::basic_string_view<T>, T>;

    template <class Context>
    auto format(const RefStringTemplate<T>& ref, Context& context) const {
        return Base::format(toStringView(ref), context);
    }
    template <class Context>
    auto format(const ByteString<T>& b, Context& context) const {
        return format(b.toString(), context);
    }
};

} // namespace string_details
} // namespace sup

// Each in full: a partial specialisation would be as good as the one for ranges in <fmt/ranges.h>.
template <>
struct fmt::formatter<sup::String<wchar_t>, wchar_t> : sup::string_details::FmtFormatter<wchar_t> {};
template <>
struct fmt::formatter<sup::String<char>, char> : sup::string_details::FmtFormatter<char> {};
template <>
struct fmt::formatter<sup::ByteString<wchar_t>, wchar_t> : sup::string_details::FmtFormatter<wchar_t> {};
template <>
struct fmt::formatter<sup::ByteString<char>, char> : sup::string_details::FmtFormatter<char> {};
template <>
struct fmt::formatter<RefStringTemplate<wchar_t>, wchar_t> : sup::string_details::FmtFormatter<wchar_t> {};
template <>
struct fmt::formatter<RefStringTemplate<char>, char> : sup::string_details::FmtFormatter<char> {};
