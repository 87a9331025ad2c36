// The start and the end of a server: locale and code page, reports, component type, directories, shutdown.
//
//   server_startup
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "Utility/Generic/Portable/SUPOS.h"

#include <clocale>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace {

std::string narrow(const BrimString& text) {
    return BaseStringUtil::StringToStdString(text, SystemUtility::GetMultiByteCodePage()).c_str();
}

// Turns what must not happen into exceptions of this program.
class Handler : public sup::SUPExceptionSupport {
public:
    void install() { m_pSUPExceptionSupport = this; }

protected:
    void throwErrorMessageImpl(const wchar_t*, int, const BrimString& message) override {
        throw std::runtime_error(narrow(message));
    }
    void throwInternalMessageImpl(const wchar_t*, int, InternalMessageID, va_list* args) override {
        const long code = va_arg(*args, long);
        const wchar_t* const text = va_arg(*args, const wchar_t*);
        throw std::runtime_error("error " + std::to_string(code) + ", " + narrow(text));
    }
    void throwAssertErrorImpl(const wchar_t*, int, const wchar_t* condition) override {
        throw std::logic_error(narrow(condition));
    }
    void throwLogicErrorImpl(const wchar_t*, int, const BrimString& message) override {
        throw std::logic_error(narrow(message));
    }
};

// Sends recoverable failures to the error log.
class Manager : public UtilityPortableErrorMessageManager {
public:
    void ThrowErrorMessage(int code, const char* arg1, const char*) override {
        std::fprintf(stderr, "server_startup: failure %d: %s\n", code, arg1 == nullptr ? "" : arg1);
    }
};

class Initializer : public UtilityInitializer {
protected:
    void InitializeMapping() override {
        UtilityInitializer::InitializeMapping();
        SUPEnvInit::KROS_TYPE(); // creates the component's directories
    }
};

void sayGoodbye() { std::puts("stopped"); }

void serve() {
    BrimString logs;
    BrimString file;
    const bool isReal = SystemUtility::GetLogDirectory(logs);
    SystemUtility::GetServerLogFileName(file);
    std::printf("logs: %s/%s%s\n", narrow(logs).c_str(), narrow(file).c_str(),
                isReal ? "" : " (a fallback: set DOMAIN_HOME and COMPONENT_NAME)");
    std::printf("directory exists: %s\n", SystemUtility::IsFileExist(logs) ? "yes" : "no");
}

} // namespace

int main() {
    std::setlocale(LC_ALL, "");
    OSAbstraction::g_clientCodePage = 65001;

    static Handler handler;
    static Manager manager;
    handler.install();
    UtilityPortableErrorMessageManager::Register(&manager);

    UtilityInitializer::SetMappingInitializer(new Initializer);
    UtilityInitializer::Initialize();
    UtilityInitializer::RegisterShutdownCallback(&sayGoodbye);

    int status = 0;
    try {
        serve();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "server_startup: %s\n", error.what());
        status = 1;
    }
    UtilityInitializer::Shutdown();
    UtilityPortableErrorMessageManager::Register(nullptr);
    return status;
}
