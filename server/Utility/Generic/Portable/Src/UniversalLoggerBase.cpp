#include "Utility/Generic/Portable/UniversalLoggerBase.h"

#include "DiagnosticOutput.h"
#include "LoadTime.h"
#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/StringBuffer.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <cwchar>

namespace sup {

namespace {

using Logger = UniversalLoggerBase;

constexpr const wchar_t* kThisFile = L"server/Utility/Generic/Portable/Src/UniversalLoggerBase.cpp";
constexpr int kProvidersLine = 163;

constexpr std::size_t kInlineText = 511;

class DefaultLoggerGetter final : public Logger::ThreadLoggerGetter {
public:
    Logger* get() override { return &m_logger; }
    bool isInitializedForTheThread() override { return true; }

private:
    Logger m_logger;
};

// Constants until a host sets them at start-up; atomic, since messages come from any thread.
constinit std::atomic<Logger::ThreadLoggerGetter*> s_pLoggerPluggableImplementation{nullptr};
constinit std::atomic<int> nStartupLogType{0};

} // namespace

UniversalLoggerBase::~UniversalLoggerBase() = default;

void UniversalLoggerBase::pushProperty(const String<wchar_t>& /*name*/, const String<wchar_t>& /*value*/) {}

void UniversalLoggerBase::popProperty(const String<wchar_t>& /*name*/) {}

bool UniversalLoggerBase::calculateEnabledProviders(LogType logTypes, MessageType type, int severity,
                                                    const wchar_t* file, unsigned int line,
                                                    LogMessageAttributes& attrs) {
    if (static_cast<int>(type) > nStartupLogType.load(std::memory_order_relaxed)) {
        return false;
    }
    populateLogMessageAttributes(attrs, file, line, logTypes, type, severity);
    return true;
}

void UniversalLoggerBase::logToEnabledProviders(LogMessageAttributes& attrs, const wchar_t* file,
                                                unsigned int line, const wchar_t* text, unsigned int length) {
    logToCout(attrs, file, static_cast<int>(line), text, length);
}

void UniversalLoggerBase::logToEnabledProviders(LogMessageAttributes& attrs, const wchar_t* file,
                                                unsigned int line, const RefStringTemplate<wchar_t>& text) {
    logToEnabledProviders(attrs, file, line, text.begin(), static_cast<unsigned int>(text.length()));
}

void UniversalLoggerBase::logString(LogType logTypes, MessageType type, int severity, const wchar_t* file,
                                    unsigned int line, const RefStringTemplate<wchar_t>& text) {
    LogMessageAttributes attrs;
    if (calculateEnabledProviders(logTypes, type, severity, file, line, attrs)) {
        logToEnabledProviders(attrs, file, line, text);
    }
}

void UniversalLoggerBase::logFmtToEnabledProviders(LogMessageAttributes& attrs, const wchar_t* file,
                                                   unsigned int line, const wchar_t* format,
                                                   unsigned int maxLength, ...) {
    StringBufferTemplate<kInlineText, wchar_t> buffer;
    wchar_t* const text = buffer.getAppendBuffer(maxLength);
    // The formatter tells nothing of a text that it cut, or gave up, so what it wrote must end in a zero.
    std::fill_n(text, maxLength + std::size_t{1}, L'\0');
    va_list args;
    va_start(args, maxLength);
    const int count = std::vswprintf(text, maxLength, format, args);
    va_end(args);
    const std::size_t length = count < 0 ? std::wcslen(text) : static_cast<std::size_t>(count);
    logToEnabledProviders(attrs, file, line, text, static_cast<unsigned int>(length));
}

UniversalLoggerBase* UniversalLoggerBase::getThreadLogger() {
    ThreadLoggerGetter* getter = s_pLoggerPluggableImplementation.load(std::memory_order_acquire);
    if (getter == nullptr) {
        // The default one stays unless a host installs another, before or meanwhile.
        ThreadLoggerGetter& fallback = getDefaultGetter();
        if (s_pLoggerPluggableImplementation.compare_exchange_strong(getter, &fallback)) {
            getter = &fallback;
        }
    }
    return getter->get();
}

UniversalLoggerBase::ThreadLoggerGetter& UniversalLoggerBase::getDefaultGetter() {
    static DefaultLoggerGetter getter;
    return getter;
}

void UniversalLoggerBase::setThreadLoggerGetter(ScaryWarning /*spelledOut*/, ThreadLoggerGetter& getter) {
    s_pLoggerPluggableImplementation.store(&getter, std::memory_order_release);
}

void UniversalLoggerBase::populateLogMessageAttributes(LogMessageAttributes& attrs, const wchar_t* file,
                                                       unsigned int line, unsigned int logTypes,
                                                       MessageType type, int severity) {
    attrs.m_FILE = file;
    attrs.m_line = line;
    attrs.m_logTypes = logTypes;
    attrs.m_MessageType = type;
    attrs.m_MessageSeverity = severity;
}

void UniversalLoggerBase::addProviderToAttrs(LogMessageAttributes& attrs,
                                             UniversalLoggerProviderBase* provider) {
    if (attrs.m_nProviders >= UNIVERSALLOGER_MAX_PROVIDERS - 1) {
        BrimAssert::handleAssert(kThisFile, kProvidersLine,
                                 L"attrs.m_nProviders < UNIVERSALLOGER_MAX_PROVIDERS-1");
        std::abort();
    }
    attrs.m_UniversalLoggerProviderBase[attrs.m_nProviders++] = provider;
}

void UniversalLoggerBase::logToCout(const LogMessageAttributes& /*attrs*/, const wchar_t* file, int line,
                                    const wchar_t* text, unsigned int length) {
    // A zero inside the text ends the line, as it would for printf.
    StringBufferTemplate<kInlineText, wchar_t> copy;
    copy.append(text, length);
    DiagnosticLine output;
    if (file != nullptr) {
        output.text(file).text(":").number(line).text(". ");
    }
    output.text(copy.c_str()).text("\n");
}

void UniversalLoggerBase::logToCout(const LogMessageAttributes& attrs, const wchar_t* file, int line,
                                    const RefStringTemplate<wchar_t>& text) {
    logToCout(attrs, file, line, text.begin(), static_cast<unsigned int>(text.length()));
}

} // namespace sup

void sup::loadtime::readLoggerThreshold() {
    nStartupLogType.store(SystemUtility::GetenvWithDefault(L"HXS_STARTUP_LOG_TYPE", 1),
                          std::memory_order_relaxed);
}
