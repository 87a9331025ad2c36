// The string types beside those of the standard library: views both ways, hashes, and output to streams. It
// only adds; nothing here changes the types themselves. SUPStringFmt.h does the same for {fmt}.
#pragma once

#include "Utility/Generic/Portable/RefString.h"
#include "Utility/Generic/Portable/SUPBString.h"
#include "Utility/Generic/Portable/SUPString.h"
#include "Utility/Generic/Portable/StringBufferBase.h"

#include <cstddef>
#include <functional>
#include <ostream>
#include <string_view>
#if __has_include(<version>)
#    include <version>
#endif
#ifdef __cpp_lib_format
#    include <format>
#endif

namespace sup {

/// A view of the characters, valid as long as they are.
template <class T>
std::basic_string_view<T> toStringView(const String<T>& s) noexcept {
    return {s.begin(), s.length()};
}
template <class T>
std::basic_string_view<T> toStringView(const RefStringTemplate<T>& ref) noexcept {
    return {ref.begin(), ref.length()};
}
template <class T>
std::basic_string_view<T> toStringView(const StringBufferBaseTemplate<T>& buffer) noexcept {
    return {buffer.begin(), buffer.length()};
}

/// The other way.
template <class T>
RefStringTemplate<T> toRefString(std::basic_string_view<T> view) noexcept {
    return RefStringTemplate<T>(view.data(), view.size());
}
template <class T>
String<T> toString(std::basic_string_view<T> view) {
    return String<T>(view.data(), view.size());
}

/// Writes the characters as a std::basic_string_view does: width, fill and adjustment are honoured.
template <class T>
std::basic_ostream<T>& operator<<(std::basic_ostream<T>& out, const String<T>& s) {
    return out << toStringView(s);
}
template <class T>
std::basic_ostream<T>& operator<<(std::basic_ostream<T>& out, const ByteString<T>& s) {
    return out << s.toString();
}

} // namespace sup

/// The same for a view.
template <class T>
std::basic_ostream<T>& operator<<(std::basic_ostream<T>& out, const RefStringTemplate<T>& ref) {
    return out << sup::toStringView(ref);
}

namespace std {

/// Equal strings hash alike, and like the std::basic_string_view of their characters.
template <class T>
struct hash<sup::String<T>> {
    size_t operator()(const sup::String<T>& s) const noexcept {
        return hash<basic_string_view<T>>()(sup::toStringView(s));
    }
};

template <class T>
struct hash<sup::ByteString<T>> {
    size_t operator()(const sup::ByteString<T>& s) const noexcept { return s.hash(); }
};

#ifdef __cpp_lib_format

/// In formats of the same character type, with the specifications of a std::basic_string_view.
template <class T>
struct formatter<RefStringTemplate<T>, T> : formatter<basic_string_view<T>, T> {
    template <class Context>
    auto format(const RefStringTemplate<T>& ref, Context& context) const {
        return formatter<basic_string_view<T>, T>::format(sup::toStringView(ref), context);
    }
};

template <class T>
struct formatter<sup::String<T>, T> : formatter<RefStringTemplate<T>, T> {};

template <class T>
struct formatter<sup::ByteString<T>, T> : formatter<sup::String<T>, T> {
    template <class Context>
    auto format(const sup::ByteString<T>& b, Context& context) const {
        return formatter<sup::String<T>, T>::format(b.toString(), context);
    }
};

#endif

} // namespace std
