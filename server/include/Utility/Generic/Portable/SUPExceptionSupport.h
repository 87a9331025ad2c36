// Reports of what must not happen: assertions, logic errors and operating-system errors. They go to a handler
// that the host installs; while there is none they end the process.
//
// All lines go to standard output and are flushed before the process may end. A character that the current
// locale cannot show is printed as "?".
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"

#include <cstdarg>

namespace sup {

template <class T>
class String;

/// The handler. A host derives a class, implements the four operations and stores an instance in
/// m_pSUPExceptionSupport once at start-up; the library never writes the pointer and never deletes the
/// handler.
///
///   class Handler : public sup::SUPExceptionSupport {
///   public:
///       void install() { m_pSUPExceptionSupport = this; }
///       ...
///
/// `file` is the wide source path, `line` the source line. An operation may throw. The library calls abort()
/// when the one for assertions or logic errors returns.
class BRIMPORTABLE_API SUPExceptionSupport {
public:
    /// Messages that the handler formats by itself.
    enum InternalMessageID : int {
        /// Arguments: long, the error code; const wchar_t*, the message.
        k_E_Utility_OperatingSystemError = 0
    };

    /// Without a handler: prints the message and aborts.
    static void throwErrorMessage(const wchar_t* file, int line, const String<wchar_t>& message);
    /// The arguments after `id` go to the handler as a va_list, the format does not. Without a handler:
    /// prints the message through `format`, a printf format, and aborts; a null format faults.
    static void throwErrorMessage(const wchar_t* file, int line, const char* format, InternalMessageID id,
                                  ...) __attribute__((format(printf, 3, 5)));
    /// Prints its line, then calls the handler; without one it aborts.
    static void throwAssertError(const wchar_t* file, int line, const wchar_t* condition);
    /// Without a handler: aborts without a word.
    static void throwLogicError(const wchar_t* file, int line, const String<wchar_t>& message);

protected:
    /// What the host does with an error message, finished or with the arguments of `id`.
    virtual void throwErrorMessageImpl(const wchar_t* file, int line, const String<wchar_t>& message) = 0;
    virtual void throwInternalMessageImpl(const wchar_t* file, int line, InternalMessageID id,
                                          va_list* args) = 0;
    /// What the host does with a failed assertion, and with a logic error; abort() follows its return.
    virtual void throwAssertErrorImpl(const wchar_t* file, int line, const wchar_t* condition) = 0;
    virtual void throwLogicErrorImpl(const wchar_t* file, int line, const String<wchar_t>& message) = 0;

    ~SUPExceptionSupport() = default;

    /// The handler; null while there is none.
    static SUPExceptionSupport* m_pSUPExceptionSupport;
};

} // namespace sup

/// The front end that code calls. A broken precondition is reported so:
///
///   if (!condition) {
///       BrimAssert::handleAssert(kFile, kLine, L"condition");
///       abort();
///   }
///
/// and an impossible state by handleLogicError and abort(). Any thread may call.
class BRIMPORTABLE_API BrimAssert {
public:
    BrimAssert() = delete;

    /// Reports a broken precondition; the caller aborts when it returns.
    static void handleAssert(const wchar_t* file, int line, const wchar_t* condition);
    /// Reports an impossible state; the caller aborts when it returns.
    static void handleLogicError(const wchar_t* file, int line, const sup::String<wchar_t>& message);
    /// Reports the thread's current errno; an empty `message` is replaced by the system's text for it.
    /// Returns when the handler returns.
    static void handleOSError(const wchar_t* file, int line, const sup::String<wchar_t>& message);

    /// A process-wide switch for the host's own reporting; the library does not read it.
    static void InitAsSystemServiceMode() noexcept;
    static bool IsSystemServiceMode() noexcept;
};

// Last, since in the checked mode the strings need this header.
#include "Utility/Generic/Portable/SUPString.h"
