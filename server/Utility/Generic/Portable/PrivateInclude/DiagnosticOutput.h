// Lines on standard output for diagnostics, with wide text in them.
//
// printf("%ls") gives up in the middle of a line at the first character that the locale cannot show, and at
// every surrogate pair. DiagnosticLine writes the same bytes wherever that works, joins pairs, and shows "?"
// for the rest. It neither allocates nor changes the stream's orientation (a wide one would swallow every
// later narrow print of the host), and its lines appear on a wide stream too.
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"

#include <cstdarg>

namespace sup {

/// One line, or several, that other threads' output cannot break: the stream is locked while the object
/// lives. The destructor flushes, so the line is seen even when abort() follows.
class BRIMPORTABLE_API DiagnosticLine {
public:
    DiagnosticLine() noexcept;
    ~DiagnosticLine();
    DiagnosticLine(const DiagnosticLine&) = delete;
    DiagnosticLine& operator=(const DiagnosticLine&) = delete;

    /// Null prints as "(null)".
    DiagnosticLine& text(const char* text) noexcept;
    DiagnosticLine& text(const wchar_t* text) noexcept;
    DiagnosticLine& number(long value) noexcept;
    /// As vprintf, with "%ls" as above. Directives with argument positions ("%1$d") are left to vprintf.
    DiagnosticLine& format(const char* format, va_list args) noexcept __attribute__((format(printf, 2, 0)));
};

} // namespace sup
