// Calls with wrong formats; only ever compiled, one at a time, for the warning.
#include "DiagnosticOutput.h"
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "Utility/Generic/Portable/StringBuffer.h"

#include <cstdarg>

void wrong(sup::StringBufferTemplate<511, char>& buffer, sup::String<wchar_t>& s, va_list args) {
#ifdef CALL_appendFormatted
    buffer.appendFormatted(100, "%d", "text");
#endif
#ifdef CALL_BrimString_sprintf
    BaseStringUtil::BrimString_sprintf(s, "%d", "text");
#endif
#ifdef CALL_BrimString_sprintfV
    BaseStringUtil::BrimString_sprintfV(s, "%!", args); // no such directive
#endif
#ifdef CALL_throwErrorMessage
    sup::SUPExceptionSupport::throwErrorMessage(
        L"file", 1, "%d", sup::SUPExceptionSupport::k_E_Utility_OperatingSystemError, "text");
#endif
#ifdef CALL_DiagnosticLine
    sup::DiagnosticLine().format("%!", args); // no such directive
#endif
    static_cast<void>(buffer);
    static_cast<void>(s);
    static_cast<void>(args);
}
