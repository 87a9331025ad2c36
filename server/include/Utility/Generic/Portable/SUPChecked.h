// The checked mode, which finds callers' mistakes with positions. It is off unless a program defines
// BRIM_CHECKED before it includes the library's headers, for all of its translation units or for some:
//
//   c++ -DBRIM_CHECKED ...
//
// Checked then are `front`, `back`, `at` and `operator[]` of String, ByteString and RefStringTemplate,
// `pop_back` of String, `substr` of RefStringTemplate and `commitAppendBuffer` of string buffers. Positions
// run to length() - 1; `operator[]` of String also reaches the terminating zero. A mistake goes to
// BrimAssert::handleAssert, with the condition that does not hold, and always ends the process: by abort()
// when the handler returns, by std::terminate() when it throws.
//
// Layout, exported symbols and the library's own code are the same with and without, so checked and unchecked
// translation units may be linked together. The members that check are always inlined into their checked
// callers: no copy of theirs is left that the linker could take for an unchecked one, or the other way round.
// Called through a pointer to member they may be unchecked, and an inline function of the program that is
// compiled both ways is one or the other.
#pragma once

#ifdef BRIM_CHECKED

#    define BRIM_CHECKED_MEMBER __attribute__((always_inline))
#    define BRIM_CHECK(file, line, condition)                                                                \
        ((condition) ? static_cast<void>(0) : ::sup::string_details::failCheck(file, line, L"" #condition))

namespace sup {
namespace string_details {

[[noreturn]] inline void failCheck(const wchar_t* file, int line, const wchar_t* condition) noexcept;

} // namespace string_details
} // namespace sup

// After what it needs, since it includes the strings.
#    include "Utility/Generic/Portable/SUPExceptionSupport.h"

#    include <cstdlib>

inline void sup::string_details::failCheck(const wchar_t* file, int line, const wchar_t* condition) noexcept {
    BrimAssert::handleAssert(file, line, condition);
    std::abort();
}

#else

/// For the library's own headers: marks a member that checks.
#    define BRIM_CHECKED_MEMBER
/// For the library's own headers: the check, nothing here.
#    define BRIM_CHECK(file, line, condition) static_cast<void>(0)

#endif
