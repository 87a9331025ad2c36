#include "Utility/Generic/Portable/SUPExceptionSupport.h"

#include "DiagnosticOutput.h"
#include "LastSystemError.h"

#include <cstdlib>

namespace sup {

SUPExceptionSupport* SUPExceptionSupport::m_pSUPExceptionSupport = nullptr;

void SUPExceptionSupport::throwErrorMessage(const wchar_t* file, int line, const String<wchar_t>& message) {
    if (m_pSUPExceptionSupport == nullptr) {
        DiagnosticLine()
            .text("File ")
            .text(file)
            .text(", line ")
            .number(line)
            .text(". Error during static initilaization. Aborting\n")
            .text(message.c_str())
            .text("\n");
        std::abort();
    }
    m_pSUPExceptionSupport->throwErrorMessageImpl(file, line, message);
}

void SUPExceptionSupport::throwErrorMessage(const wchar_t* file, int line, const char* format,
                                            InternalMessageID id, ...) {
    va_list args;
// The enumerator is passed as the int that it promotes to.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wvarargs"
    va_start(args, id);
#pragma GCC diagnostic pop
    if (m_pSUPExceptionSupport == nullptr) {
        DiagnosticLine().text("File ").text(file).text(", line ").number(line).text(
            ". Error during static initilaization.\n");
        if (format != nullptr) {
            DiagnosticLine().format(format, args);
            std::abort();
        }
        DiagnosticLine().text("\bAborting.\n");
        // The dispatch below has no handler to go to: the process ends in a fault, here by intent, since a
        // call through the null pointer may be compiled away.
        __builtin_trap();
    }
    try {
        m_pSUPExceptionSupport->throwInternalMessageImpl(file, line, id, &args);
    } catch (...) {
        va_end(args);
        throw;
    }
    va_end(args);
}

void SUPExceptionSupport::throwAssertError(const wchar_t* file, int line, const wchar_t* condition) {
    DiagnosticLine()
        .text("Internal Assertion: Condition ")
        .text(condition)
        .text(", file ")
        .text(file)
        .text(", line ")
        .number(line)
        .text("\n");
    if (m_pSUPExceptionSupport == nullptr) {
        std::abort();
    }
    m_pSUPExceptionSupport->throwAssertErrorImpl(file, line, condition);
}

void SUPExceptionSupport::throwLogicError(const wchar_t* file, int line, const String<wchar_t>& message) {
    if (m_pSUPExceptionSupport == nullptr) {
        std::abort();
    }
    m_pSUPExceptionSupport->throwLogicErrorImpl(file, line, message);
}

} // namespace sup

namespace {

bool global_bRunningAsSystemService = false;

} // namespace

void BrimAssert::handleAssert(const wchar_t* file, int line, const wchar_t* condition) {
    sup::SUPExceptionSupport::throwAssertError(file, line, condition);
}

void BrimAssert::handleLogicError(const wchar_t* file, int line, const sup::String<wchar_t>& message) {
    sup::SUPExceptionSupport::throwLogicError(file, line, message);
}

void BrimAssert::handleOSError(const wchar_t* file, int line, const sup::String<wchar_t>& message) {
    const int code = sup::lastSystemError();
    sup::String<wchar_t> text(message);
    if (text.empty()) {
        text = sup::systemErrorText(code);
    }
    // The code goes out as its 32 bits without a sign: a negative one prints as a large positive number.
    sup::SUPExceptionSupport::throwErrorMessage(file, line, "Operating system error. code: %ld, message: %ls",
                                                sup::SUPExceptionSupport::k_E_Utility_OperatingSystemError,
                                                static_cast<long>(static_cast<unsigned int>(code)),
                                                text.c_str());
}

void BrimAssert::InitAsSystemServiceMode() noexcept { global_bRunningAsSystemService = true; }

bool BrimAssert::IsSystemServiceMode() noexcept { return global_bRunningAsSystemService; }
