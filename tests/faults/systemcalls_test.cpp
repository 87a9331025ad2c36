// System calls that fail: each operation runs with its first call refused, with its second, and so on. What
// must hold of every one: the working directory, the descriptors and the files that are none of its business
// are as before, and a failure tells the system's own error.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPDom.h"
#include "Utility/Generic/Portable/SUPDynamicLoader.h"
#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "child_process.h"
#include "recording_manager.h"
#include "scratch.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <netdb.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <xercesc/dom/DOMElement.hpp>

using namespace brimtest;

// ---- The system: the program's definitions win over the C library's for the library under test ------------

namespace {

// The `n`-th call of this thread fails with `error`; before it, and after, the system answers.
struct Refusal {
    static inline constinit thread_local int callsLeft = 0;
    static inline constinit thread_local int error = 0;
    // Reads and writes move a byte at a time, and each is interrupted first.
    static inline constinit thread_local bool isSlow = false;
    static inline constinit thread_local bool isInterrupted = false;

    static bool happens() {
        if (callsLeft == 0 || --callsLeft != 0) {
            return false;
        }
        errno = error;
        return true;
    }
    static bool interrupts() {
        isInterrupted = isSlow && !isInterrupted;
        if (isInterrupted) {
            errno = EINTR;
        }
        return isInterrupted;
    }
};

class Refusing {
public:
    Refusing(int n, int error) {
        Refusal::callsLeft = n;
        Refusal::error = error;
    }
    ~Refusing() { Refusal::callsLeft = 0; }
    Refusing(const Refusing&) = delete;
    Refusing& operator=(const Refusing&) = delete;

    bool hasHappened() const { return Refusal::callsLeft == 0; }
};

class SlowSystem {
public:
    SlowSystem() { Refusal::isSlow = true; }
    ~SlowSystem() { Refusal::isSlow = false; }
    SlowSystem(const SlowSystem&) = delete;
    SlowSystem& operator=(const SlowSystem&) = delete;
};

template <class F>
F* next(const char* name) {
    return reinterpret_cast<F*>(::dlsym(RTLD_NEXT, name));
}

constinit const char* g_loaderError = nullptr; // what dlerror() says; the real one without it
constinit int g_resolverError = 0;

} // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    static const auto real = next<int(const char*, int, ...)>("open");
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
    va_end(args);
    return Refusal::happens() ? -1 : real(path, flags, mode);
}

ssize_t read(int descriptor, void* bytes, std::size_t count) {
    static const auto real = next<ssize_t(int, void*, std::size_t)>("read");
    if (Refusal::happens() || Refusal::interrupts()) {
        return -1;
    }
    return real(descriptor, bytes, Refusal::isSlow ? std::min<std::size_t>(count, 1) : count);
}

ssize_t write(int descriptor, const void* bytes, std::size_t count) {
    static const auto real = next<ssize_t(int, const void*, std::size_t)>("write");
    if (Refusal::happens() || Refusal::interrupts()) {
        return -1;
    }
    return real(descriptor, bytes, Refusal::isSlow ? std::min<std::size_t>(count, 1) : count);
}

int mkdir(const char* path, mode_t mode) noexcept {
    static const auto real = next<int(const char*, mode_t)>("mkdir");
    return Refusal::happens() ? -1 : real(path, mode);
}

int chdir(const char* path) noexcept {
    static const auto real = next<int(const char*)>("chdir");
    return Refusal::happens() ? -1 : real(path);
}

char* getcwd(char* buffer, std::size_t size) noexcept {
    static const auto real = next<char*(char*, std::size_t)>("getcwd");
    return Refusal::happens() ? nullptr : real(buffer, size);
}

int stat(const char* path, struct stat* record) noexcept {
    static const auto real = next<int(const char*, struct stat*)>("stat");
    return Refusal::happens() ? -1 : real(path, record);
}

int fstat(int descriptor, struct stat* record) noexcept {
    static const auto real = next<int(int, struct stat*)>("fstat");
    return Refusal::happens() ? -1 : real(descriptor, record);
}

void* dlopen(const char* name, int flags) noexcept {
    static const auto real = next<void*(const char*, int)>("dlopen");
    return g_loaderError != nullptr ? nullptr : real(name, flags);
}

char* dlerror() noexcept {
    static const auto real = next<char*()>("dlerror");
    return g_loaderError == nullptr ? real()
           : *g_loaderError == '\0' ? nullptr
                                    : const_cast<char*>(g_loaderError);
}

// A failure leaves what it likes in the result.
int getaddrinfo(const char* host, const char* service, const struct addrinfo* hints,
                struct addrinfo** result) {
    static const auto real =
        next<int(const char*, const char*, const struct addrinfo*, struct addrinfo**)>("getaddrinfo");
    if (g_resolverError != 0) {
        *result = reinterpret_cast<struct addrinfo*>(1);
        return g_resolverError;
    }
    return real(host, service, hints, result);
}
}

namespace {

// ---- Files and directories --------------------------------------------------------------------------------

struct Paths {
    BrimString file;
    BrimString other; // a file too
    BrimString directory;
    BrimString fresh; // does not exist
    int descriptor = -1;
    BrimString out{L"before"};
};

struct Operation {
    const char* name;
    bool (*succeeds)(Paths&);
};

constexpr Operation kOperations[] = {
    {"IsValidDirectory", [](Paths& p) { return SystemUtility::IsValidDirectory(p.directory); }},
    {"GetFullDirectoryPath",
     [](Paths& p) { return SystemUtility::GetFullDirectoryPath(p.directory, p.out); }},
    {"MakeDirectory", [](Paths& p) { return SystemUtility::MakeDirectory(p.fresh); }},
    {"MakeDirectory that is there", [](Paths& p) { return SystemUtility::MakeDirectory(p.directory); }},
    {"MakeDirectories",
     [](Paths& p) { return SystemUtility::MakeDirectories(BrimString(p.fresh).append(L"/b/c")); }},
    {"IsFileExist", [](Paths& p) { return SystemUtility::IsFileExist(p.file); }},
    {"GetCurrentWorkingDirectory", [](Paths& p) { return SystemUtility::GetCurrentWorkingDirectory(p.out); }},
    {"ChangeCurrentWorkingDirectory",
     [](Paths&) { return SystemUtility::ChangeCurrentWorkingDirectory(L"."); }},
    {"GetFileSize", [](Paths& p) { return SystemUtility::GetFileSize(p.file) != 0; }},
    {"GetFileSize of a descriptor", [](Paths& p) { return SystemUtility::GetFileSize(p.descriptor) != 0; }},
    {"GetBlockSize", [](Paths& p) { return SystemUtility::GetBlockSize(p.file) != 0; }},
    {"CopyFile", [](Paths& p) { return SystemUtility::CopyFile(p.file, p.fresh, false); }},
    {"CopyFile over a file", [](Paths& p) { return SystemUtility::CopyFile(p.file, p.other, true); }},
};

class SystemCallFailures : public testing::Test {
protected:
    SystemCallFailures() {
        m_scratch.addFile("file", m_content);
        m_scratch.addFile("other", "other");
        std::filesystem::create_directory(m_scratch / "directory");
        EXPECT_EQ(::chdir(m_scratch.path().c_str()), 0);
    }
    ~SystemCallFailures() override { EXPECT_EQ(::chdir("/"), 0); }

    // A run with the `n`-th call refused; false when there are fewer.
    bool refuse(const Operation& operation, int n, int error) {
        SCOPED_TRACE(testing::Message() << operation.name << ", call " << n << ", " << std::strerror(error));
        Paths paths{m_scratch.wide("file"), m_scratch.wide("other"), m_scratch.wide("directory"),
                    m_scratch.wide("fresh")};
        paths.descriptor = ::open((m_scratch / "file").c_str(), O_RDONLY);
        const std::ptrdiff_t descriptors = openDescriptors();
        bool succeeded = false;
        bool isRefused = false;
        int told = 0;
        {
            const Refusing refusing(n, error);
            errno = 0;
            succeeded = operation.succeeds(paths);
            told = SystemUtility::GetLastSystemError();
            isRefused = refusing.hasHappened();
        }
        EXPECT_TRUE(succeeded || isRefused);
        if (!succeeded) {
            EXPECT_EQ(told, error);
            EXPECT_EQ(plain(paths.out), L"before");
        }
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_EQ(std::filesystem::current_path(), m_scratch.path());
        ::close(paths.descriptor);
        std::ifstream file(m_scratch / "file", std::ios::binary);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), m_content);
        std::filesystem::remove_all(m_scratch / "fresh");
        return isRefused;
    }

    const Scratch m_scratch;
    const std::string m_content = std::string(10'000, 'x') + "end";
};

TEST_F(SystemCallFailures, AreToldAndLeaveTheRestAlone) {
    for (const int error : {EACCES, EIO, ENOMEM, EMFILE, ENOSPC, ELOOP, ESTALE}) {
        for (const Operation& operation : kOperations) {
            int n = 1;
            while (refuse(operation, n, error)) {
                ++n;
            }
            EXPECT_GT(n, 1) << operation.name << " calls nothing";
        }
    }
}

TEST_F(SystemCallFailures, InterruptedAndShortTransfersGoOn) {
    const SlowSystem slow;
    EXPECT_TRUE(SystemUtility::CopyFile(m_scratch.wide("file"), m_scratch.wide("copy"), false));
    EXPECT_EQ(SystemUtility::GetFileSize(m_scratch.wide("copy")), m_content.size());
}

// Whether the target is the source cannot be told then, and opening it would empty it.
TEST_F(SystemCallFailures, ACopyOntoItselfWhoseTargetCannotBeExaminedIsRefused) {
    const BrimString file = m_scratch.wide("file");
    for (int n = 1; n < 3; ++n) {
        const Refusing refusing(n, EIO);
        EXPECT_FALSE(SystemUtility::CopyFile(file, file, true)) << n;
    }
    EXPECT_EQ(SystemUtility::GetFileSize(file), m_content.size());
}

// ---- Reports ----------------------------------------------------------------------------------------------

TEST(ReportsOnASlowSystem, ComeOutWhole) {
    const std::wstring message(300, L'm');
    const ChildResult child = runInChild([&] {
        ::dup2(STDOUT_FILENO, STDERR_FILENO);
        const SlowSystem slow;
        WRAP_wlogerror(false, message.c_str());
    });
    EXPECT_EQ(child.exitCode(), 0);
    EXPECT_EQ(child.output, std::string(300, 'm') + "\n");
}

TEST(ReportsOnASlowSystem, ComeOutWholeOnAWideStream) {
    const ChildResult child = runInChild([] {
        renewStandardOutput();
        std::fwide(stdout, 1);
        const SlowSystem slow;
        SystemUtility::PrintMultiByteString("a text in pieces", true, true);
    });
    EXPECT_EQ(child.exitCode(), 0);
    EXPECT_EQ(child.output, "a text in pieces\n");
}

TEST(ReportsOnABrokenStandardError, AreGivenUp) {
    const ChildResult child = runInChild([] {
        const Refusing refusing(1, EPIPE);
        WRAP_wlogerror(false, L"message");
        ::_exit(refusing.hasHappened() ? 5 : 6);
    });
    EXPECT_EQ(child.exitCode(), 5) << child;
}

// ---- Commands and documents -------------------------------------------------------------------------------

constinit volatile std::sig_atomic_t g_signals = 0;

// Servers handle SIGCHLD and others without SA_RESTART.
TEST(FirstLine, SurvivesSignalsThatTheHostHandles) {
    struct sigaction count {};
    struct sigaction before {};
    count.sa_handler = [](int) { g_signals = g_signals + 1; };
    ASSERT_EQ(::sigaction(SIGUSR1, &count, &before), 0);
    for (int i = 0; i < 5; ++i) {
        const BrimString line = SystemUtility::GetFirstLineFromExecutable(
            L"printf begin; for i in 1 2 3 4 5 6 7 8 9; do kill -USR1 $PPID; done; echo ning", 100);
        EXPECT_EQ(plain(line), L"beginning");
    }
    ::sigaction(SIGUSR1, &before, nullptr);
    EXPECT_GT(g_signals, 0);
}

TEST(FirstLine, IsEmptyWithoutDescriptors) {
    const ChildResult child = runInChild([] {
        const struct rlimit none { 3, 3 };
        ::setrlimit(RLIMIT_NOFILE, &none);
        const bool isEmpty = SystemUtility::GetFirstLineFromExecutable(L"echo line", 100).empty() &&
                             SystemUtility::GetFirstLineFromFile(L"/etc/passwd", false).empty();
        ::_exit(isEmpty ? 0 : 1);
    });
    EXPECT_EQ(child.exitCode(), 0) << child;
}

// A file of which each read is interrupted once, gives a byte, and fails from `failAt` on.
struct CookieFile {
    std::string content = "<a><b>text</b></a>";
    std::size_t failAt = std::string::npos;
    std::size_t at = 0;
    bool isInterrupted = false;
    int closed = 0;
};
constinit CookieFile* g_cookieFile = nullptr;

std::FILE* openCookie(const wchar_t*, const wchar_t*) {
    cookie_io_functions_t functions{};
    functions.read = [](void* cookie, char* bytes, std::size_t count) -> ssize_t {
        auto& file = *static_cast<CookieFile*>(cookie);
        file.isInterrupted = !file.isInterrupted;
        if (file.isInterrupted || file.at >= file.failAt) {
            errno = file.at >= file.failAt ? EIO : EINTR;
            return -1;
        }
        const std::size_t n = std::min({count, std::size_t{1}, file.content.size() - file.at});
        file.content.copy(bytes, n, file.at);
        file.at += n;
        return static_cast<ssize_t>(n);
    };
    functions.close = [](void* cookie) {
        ++static_cast<CookieFile*>(cookie)->closed;
        return 0;
    };
    return ::fopencookie(g_cookieFile, "r", functions);
}

class DocumentsOfASlowFile : public testing::Test {
protected:
    DocumentsOfASlowFile() {
        g_cookieFile = &m_file;
        OSAbstraction::g_wfopenFuncPtr = openCookie;
        OSAbstraction::g_wstatFuncPtr = [](const wchar_t*, struct stat*) { return 0; };
    }
    ~DocumentsOfASlowFile() override {
        OSAbstraction::g_wfopenFuncPtr = WRAP_wfopen;
        OSAbstraction::g_wstatFuncPtr = WRAP_wstat;
    }

    std::string textOfB() {
        XercesInitializer::GetXercesInit();
        xercesc::XercesDOMParser parser;
        SUPDomErrorReporter reporter;
        SUPDOMPrintFormatTarget format;
        format.Initialize();
        testing::internal::CaptureStdout();
        xercesc::DOMDocument* const document = SUPDOM::ParseDocument(L"/file", parser, reporter, format);
        m_printed = testing::internal::GetCapturedStdout();
        const BrimString text =
            document == nullptr
                ? BrimString(L"none")
                : SUPDomHelperFunctions::GetChildText(document->getDocumentElement(), L"b", format);
        return BaseStringUtil::StringToStdString(text, 65001).c_str();
    }

    CookieFile m_file;
    std::string m_printed;
};

TEST_F(DocumentsOfASlowFile, AreReadWhole) {
    EXPECT_EQ(textOfB(), "text");
    EXPECT_EQ(m_file.closed, 1);
}

TEST_F(DocumentsOfASlowFile, AreRefusedWhereverTheFileFails) {
    const std::size_t size = m_file.content.size();
    for (std::size_t at = 0; at < size; ++at) {
        m_file = CookieFile();
        m_file.failAt = at;
        EXPECT_EQ(textOfB(), "none") << at;
        EXPECT_NE(m_printed.find("Xml File Parse error number -10"), std::string::npos) << at;
        EXPECT_EQ(m_file.closed, 1) << at;
    }
}

// ---- Loader and resolver ----------------------------------------------------------------------------------

class Handler : public sup::SUPExceptionSupport {
public:
    Handler() { m_pSUPExceptionSupport = this; }
    ~Handler() { m_pSUPExceptionSupport = nullptr; }
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;

    std::wstring text;

private:
    void throwErrorMessageImpl(const wchar_t*, int, const BrimString&) override {}
    void throwInternalMessageImpl(const wchar_t*, int, InternalMessageID, va_list* args) override {
        va_arg(*args, long);
        text = va_arg(*args, const wchar_t*);
    }
    void throwAssertErrorImpl(const wchar_t*, int, const wchar_t*) override {}
    void throwLogicErrorImpl(const wchar_t*, int, const BrimString&) override {}
};

TEST(LoaderThatFails, TellsItsTextWhateverItIs) {
    const ClientCodePage utf8(65001);
    const std::string tooLong(5000, 'e');
    const struct {
        const char* told;
        std::wstring reported;
    } kRows[] = {{"out of memory", L"/lib.so. out of memory"},
                 {"%s%n%d 100%", L"/lib.so. %s%n%d 100%"},
                 {"a\nb\xFF", L"/lib.so. a\nb\xFFFD"},
                 {"", L"/lib.so. "}, // nothing is told
                 {tooLong.c_str(), L"/lib.so. " + std::wstring(1023, L'e')}};
    for (const auto& row : kRows) {
        Handler handler;
        g_loaderError = row.told;
        EXPECT_EQ(DynamicLoader::loadLib(L"/lib.so", false, false, DynamicLoader::kThrowException), nullptr);
        EXPECT_EQ(DynamicLoader::loadLib(L"/lib.so", false, true, DynamicLoader::kOnErrorReturn), nullptr);
        g_loaderError = nullptr;
        EXPECT_EQ(handler.text, row.reported);
    }
}

TEST(ResolverThatFails, GivesNothing) {
    for (const int error : {EAI_AGAIN, EAI_BADFLAGS, EAI_FAIL, EAI_FAMILY, EAI_MEMORY, EAI_NONAME,
                            EAI_SERVICE, EAI_SOCKTYPE, EAI_SYSTEM, EAI_OVERFLOW}) {
        g_resolverError = error;
        BrimStringVector addresses{BrimString(L"before")};
        SystemUtility::GetHostIPAddresses(AF_UNSPEC, L"host", addresses);
        MachineIP machine;
        machine.RetrievingIP();
        std::vector<unsigned char> bytes{1};
        machine.GetIP(bytes);
        const BrimString name = SystemUtility::GetFullyQualifiedDomainName();
        g_resolverError = 0;
        EXPECT_EQ(addresses.size(), 1U) << error;
        EXPECT_TRUE(bytes.empty()) << error;
        EXPECT_TRUE(name.empty()) << error;
    }
}

} // namespace
