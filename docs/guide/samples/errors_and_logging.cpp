#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/UniversalLoggerBase.h"
#include "Utility/Generic/Portable/transcodercache.h"

#include <cassert>
#include <cerrno>
#include <stdexcept>
#include <string>

namespace {

// Recoverable failures.
class Manager : public UtilityPortableErrorMessageManager {
public:
    void ThrowErrorMessage(int code, const char* arg1, const char*) override {
        m_code = code;
        m_text = arg1 == nullptr ? "" : arg1;
    }
    int m_code = 0;
    std::string m_text;
};

void recoverableFailures() {
    Manager manager; // must outlive every report
    UtilityPortableErrorMessageManager::Register(&manager);
    assert(sup::transcodeimpl::TranscoderCache::getTranscoder(4711) == nullptr);
    assert(manager.m_code == UtilityPortableErrorMessageManager::E_Portable_EncodingUnsupported);
    assert(manager.m_text == "4711");
    UtilityPortableErrorMessageManager::Register(nullptr); // the default one again
}

// What must not happen.
class Handler : public sup::SUPExceptionSupport {
public:
    void install() { m_pSUPExceptionSupport = this; }
    static void uninstall() { m_pSUPExceptionSupport = nullptr; }

protected:
    void throwErrorMessageImpl(const wchar_t*, int, const BrimString&) override {
        throw std::runtime_error("message");
    }
    void throwInternalMessageImpl(const wchar_t*, int, InternalMessageID, va_list* args) override {
        const long code = va_arg(*args, long);
        throw std::runtime_error("operating system error " + std::to_string(code));
    }
    void throwAssertErrorImpl(const wchar_t*, int, const wchar_t*) override {
        throw std::logic_error("assertion");
    }
    void throwLogicErrorImpl(const wchar_t*, int, const BrimString&) override {
        throw std::logic_error("logic error");
    }
};

void whatMustNotHappen() {
    Handler handler;
    handler.install();
    std::string caught;
    try {
        errno = ENOENT;
        BrimAssert::handleOSError(L"sample.cpp", 1, BrimString());
    } catch (const std::runtime_error& error) {
        caught = error.what();
    }
    assert(caught == "operating system error 2");
    Handler::uninstall();
}

// A logger that keeps the last message.
class Logger : public sup::UniversalLoggerBase {
public:
    bool calculateEnabledProviders(LogType types, MessageType type, int severity, const wchar_t* file,
                                   unsigned int line, LogMessageAttributes& attrs) override {
        if (type > MESSAGE_TYPE_WARNING) {
            return false;
        }
        populateLogMessageAttributes(attrs, file, line, types, type, severity);
        return true;
    }
    using UniversalLoggerBase::logToEnabledProviders;
    void logToEnabledProviders(LogMessageAttributes&, const wchar_t*, unsigned int, const wchar_t* text,
                               unsigned int length) override {
        m_last = BrimString(text, length);
    }
    BrimString m_last;
};

class Getter : public sup::UniversalLoggerBase::ThreadLoggerGetter {
public:
    sup::UniversalLoggerBase* get() override { return &m_logger; }
    bool isInitializedForTheThread() override { return true; }
    Logger m_logger; // one for all threads; it must be thread-safe then
};

void log() {
    static Getter getter;
    sup::UniversalLoggerBase::setThreadLoggerGetter(
        sup::UniversalLoggerBase::kThisMustBeCalledOnlyByUniversalLoggerImplInUtilityGeneric, getter);

    sup::UniversalLoggerBase* const logger = sup::UniversalLoggerBase::getThreadLogger();
    logger->logString(sup::LoggingEnums::kLogServer, sup::LoggingEnums::MESSAGE_TYPE_WARNING,
                      sup::LoggingEnums::kSeverityDefault, L"sample.cpp", 2, L"disk almost full");
    assert(getter.m_logger.m_last == L"disk almost full");
}

} // namespace

int main() {
    recoverableFailures();
    whatMustNotHappen();
    log();
}
