// The operating-system layer without memory: files, processes, locales of the wrappers, reports, logging,
// thread-local storage, the dynamic loader, the resolver, start and stop.
#include "fault_injection.h"

#include "Utility/Generic/Portable/SUPDynamicLoader.h"
#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/SUPPerfTimeInterval.h"
#include "Utility/Generic/Portable/SUPThreadLocalStorage.h"
#include "Utility/Generic/Portable/UniversalLoggerBase.h"
#include "scratch.h"
#include "wide_texts.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <locale.h>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace brimtest;

// ---- The system: the program's definitions win over the C library's for the library under test ------------

namespace {

constinit int g_liveLocales = 0;

template <class F>
F* next(const char* name) {
    return reinterpret_cast<F*>(::dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

locale_t newlocale(int mask, const char* name, locale_t base) noexcept {
    static const auto real = next<locale_t(int, const char*, locale_t)>("newlocale");
    const locale_t made = real(mask, name, base);
    g_liveLocales += made != nullptr ? 1 : 0;
    return made;
}

void freelocale(locale_t locale) noexcept {
    static const auto real = next<void(locale_t)>("freelocale");
    --g_liveLocales;
    real(locale);
}

// An address, so that nobody is asked about it.
int gethostname(char* name, std::size_t length) noexcept {
    std::strncpy(name, "127.0.0.1", length);
    return 0;
}
}

namespace {

// ---- Files ------------------------------------------------------------------------------------------------

struct Files {
    Files() {
        ++s_count;
        fresh = s_scratch->wide("fresh" + std::to_string(s_count));
    }

    static inline int s_count = 0;
    static inline const Scratch* s_scratch = nullptr;

    BrimString file = s_scratch->wide("file");
    BrimString directory = s_scratch->wide("directory");
    BrimString fresh; // does not exist
    BrimString out{L"before"};
    int result = -7;
};

// Where the process is, and what it holds open, too.
std::string picture(const Files& f) {
    return std::to_string(f.result) + testing::PrintToString(plain(f.out)) +
           std::filesystem::current_path().string() + std::to_string(openDescriptors());
}

class FilesWithoutMemory : public testing::Test {
protected:
    FilesWithoutMemory() {
        Files::s_scratch = &m_scratch;
        m_scratch.addFile("file", std::string(5000, 'x') + "\nsecond line");
        std::filesystem::create_directory(m_scratch / "directory");
        EXPECT_EQ(::chdir(m_scratch.path().c_str()), 0);
    }
    ~FilesWithoutMemory() override { EXPECT_EQ(::chdir("/"), 0); }

    const Scratch m_scratch;
};

TEST_F(FilesWithoutMemory, AreLeftAloneWithTheWorkingDirectory) {
    expectHarmlessRefusals<Files>({
        // The way back can do without memory.
        {"IsValidDirectory",
         [](Files& f) { f.result = SystemUtility::IsValidDirectory(f.directory) ? 1 : 2; }, Promise::served},
        {"GetFullDirectoryPath",
         [](Files& f) { f.result = SystemUtility::GetFullDirectoryPath(f.directory, f.out) ? 1 : 2; },
         Promise::served},
        {"MakeDirectory", [](Files& f) { f.result = SystemUtility::MakeDirectory(f.fresh) ? 1 : 2; },
         Promise::served},
        {"MakeDirectories",
         [](Files& f) {
             f.result = SystemUtility::MakeDirectories(BrimString(f.fresh).append(L"/b/c")) ? 1 : 2;
         },
         Promise::served},
        {"IsFileExist", [](Files& f) { f.result = SystemUtility::IsFileExist(f.file) ? 1 : 2; }},
        {"GetCurrentWorkingDirectory",
         [](Files& f) { f.result = SystemUtility::GetCurrentWorkingDirectory(f.out) ? 1 : 2; }},
        {"ChangeCurrentWorkingDirectory",
         [](Files& f) { f.result = SystemUtility::ChangeCurrentWorkingDirectory(L".") ? 1 : 2; }},
        {"GetFileSize", [](Files& f) { f.result = static_cast<int>(SystemUtility::GetFileSize(f.file)); }},
        {"GetBlockSize", [](Files& f) { f.result = SystemUtility::GetBlockSize(f.file) != 0 ? 1 : 2; }},
        {"CopyFile", [](Files& f) { f.result = SystemUtility::CopyFile(f.file, f.fresh, true) ? 1 : 2; }},
        {"GetFirstLineFromFile",
         [](Files& f) { f.out = SystemUtility::GetFirstLineFromFile(f.file, false); }},
        {"GetFirstLineFromFile, a pipe",
         [](Files& f) { f.out = SystemUtility::GetFirstLineFromFile(L"echo line", true); }},
        {"GetFirstLineFromExecutable",
         [](Files& f) { f.out = SystemUtility::GetFirstLineFromExecutable(L"echo line", 2000); }},
    });
}

TEST_F(FilesWithoutMemory, WrappersCallNothing) {
    testing::internal::CaptureStderr();
    expectHarmlessRefusals<Files>({
        {"WRAP_wopen",
         [](Files& f) {
             const int descriptor = WRAP_wopen(f.file.c_str(), O_RDONLY, 0);
             f.result = descriptor >= 0 ? 1 : 2;
             ::close(descriptor);
         }},
        {"WRAP_wfopen",
         [](Files& f) {
             std::FILE* const file = WRAP_wfopen(f.file.c_str(), L"r");
             f.result = file != nullptr ? 1 : 2;
             std::fclose(file);
         }},
        {"WRAP_wremove", [](Files& f) { f.result = WRAP_wremove(f.fresh.c_str()); }},
        {"WRAP_wrmdir", [](Files& f) { f.result = WRAP_wrmdir(f.fresh.c_str()); }},
        {"WRAP_wstat",
         [](Files& f) {
             struct stat record;
             f.result = WRAP_wstat(f.file.c_str(), &record);
         }},
        {"WRAP_wgetcwd",
         [](Files& f) {
             wchar_t path[4096];
             f.result = WRAP_wgetcwd(path, 4096) != nullptr ? 1 : 2;
         },
         Promise::served},
        {"WRAP_wchdir", [](Files& f) { f.result = WRAP_wchdir(L"."); }},
        {"WRAP_wlogerror", [](Files&) { WRAP_wlogerror(false, L"to standard error"); }},
    });
    testing::internal::GetCapturedStderr();
}

// ---- Processes, locales, reports --------------------------------------------------------------------------

struct Texts {
    BrimString out{L"before"};
    BrimString error{L"before"};
    BrimStringVector list;
    int result = -7;
    CallStack stack;
    std::vector<unsigned char> address;
};

std::string picture(const Texts& t) {
    return std::to_string(t.result) + testing::PrintToString(plain(t.out)) +
           testing::PrintToString(plain(t.error)) + std::to_string(t.list.size()) +
           testing::PrintToString(t.address) + std::to_string(g_liveLocales);
}

TEST(ProcessesWithoutMemory, AreAsBefore) {
    expectHarmlessRefusals<Texts>({
        {"GetCurrentProcessName", [](Texts& t) { t.out = SystemUtility::GetCurrentProcessName(); }},
        {"GetOSLoginName",
         [](Texts& t) { t.result = SystemUtility::GetOSLoginName(t.out, t.error, 20) ? 1 : 2; }},
        {"GetSystemErrorString", [](Texts& t) { SystemUtility::GetSystemErrorString(2, t.out); }},
        {"GetLastSystemErrorString", [](Texts& t) { t.out = SystemUtility::GetLastSystemErrorString(); }},
        {"CallStack",
         [](Texts& t) {
             SystemUtility::GetCurrentCallStack(t.stack);
             t.stack.ResolveSymbols();
         },
         Promise::usable},
        {"CallStack::FillToString",
         [](Texts& t) {
             t.stack.Init();
             t.stack.ResolveSymbols();
             wchar_t text[4000];
             t.stack.FillToString(text, 4000);
         },
         Promise::usable},
        {"Wcsftime",
         [](Texts& t) {
             const std::tm time{};
             wchar_t text[600];
             t.result = static_cast<int>(SystemUtility::Wcsftime(text, 600, "%Y and more", &time));
         }},
        {"figures",
         [](Texts& t) {
             SUMemStat memory{};
             SystemUtility::GetMemStat(memory);
             t.result = SystemUtility::GetCurrentProcessID() != 0 ? 1 : 2;
             SystemUtility::GetElapsedTime(0);
             SystemUtility::GetLastSystemError();
             SystemUtility::BrimRand_to_rand_r();
             SystemUtility::GetNumberOfLogicalProcessors();
         },
         Promise::noRequest},
    });
}

constexpr unsigned int kLocaleId = 1033;
const BrimSystemTime kTime(2024, 2, 4, 29, 13, 5, 9, 7);

template <int (*Format)(unsigned int, const BrimSystemTime*, const wchar_t*, wchar_t*, int)>
void format(Texts& t, const wchar_t* pattern) {
    wchar_t text[100];
    const int length = Format(kLocaleId, &kTime, pattern, text, 100);
    t.out = text;
    t.result = length;
}

const std::wstring kLong(600, L'a');

void compare(Texts& t) { t.result = WRAP_wcomparestring(true, kLong.c_str(), -1, kLong.c_str(), -1); }
void compareNarrow(Texts& t) {
    static const std::string kNarrow(600, 'a');
    t.result = WRAP_ncomparestring(true, kNarrow.c_str(), -1, kNarrow.c_str(), -1);
}
void tellDay(Texts& t) {
    wchar_t text[100];
    const int length = WRAP_wgetlocaleinfo(kLocaleId, kLocaleDayName, text, 100);
    t.out = text;
    t.result = length;
}

TEST(LocaleWrappersWithoutMemory, GiveNoText) {
    g_sortLangMap[kLocaleId] = "C.UTF-8";
    // The locale is kept for the process from its first use on: one, and never two.
    const int before = g_liveLocales;
    for (long n = 1;; ++n) {
        Texts texts;
        const RefusedRun run(n, [&] { tellDay(texts); });
        EXPECT_EQ(run.isBadAlloc, run.isRefused) << n;
        EXPECT_LE(g_liveLocales, before + 1) << n;
        if (!run.isRefused) {
            EXPECT_GT(n, 1);
            break;
        }
    }
    expectHarmlessRefusals<Texts>({
        {"WRAP_wgetlocaleinfo", tellDay},
        {"WRAP_wgetdateformat",
         [](Texts& t) { format<WRAP_wgetdateformat>(t, L"dddd d MMMM yyyy 'and' dd.MM.yy"); }},
        {"WRAP_wgetdateformat, the locale's own", [](Texts& t) { format<WRAP_wgetdateformat>(t, nullptr); }},
        {"WRAP_wgettimeformat", [](Texts& t) { format<WRAP_wgettimeformat>(t, L"hh:mm:ss tt fff"); }},
        {"WRAP_wgettimeformat, the locale's own", [](Texts& t) { format<WRAP_wgettimeformat>(t, nullptr); }},
        {"WRAP_wcomparestring", compare},
        {"WRAP_ncomparestring", compareNarrow},
    });
    g_sortLangMap.erase(kLocaleId);
}

// A host's handler that returns.
class Handler : public sup::SUPExceptionSupport {
public:
    Handler() { m_pSUPExceptionSupport = this; }
    ~Handler() { m_pSUPExceptionSupport = nullptr; }
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;

private:
    void throwErrorMessageImpl(const wchar_t*, int, const BrimString&) override {}
    void throwInternalMessageImpl(const wchar_t*, int, InternalMessageID, va_list*) override {}
    void throwAssertErrorImpl(const wchar_t*, int, const wchar_t*) override {}
    void throwLogicErrorImpl(const wchar_t*, int, const BrimString&) override {}
};

TEST(ReportsWithoutMemory, AreMade) {
    const Handler handler;
    const CapturedOutput lines;
    static const BrimString kMessage(L"message");
    expectHarmlessRefusals<Texts>({
        {"ThrowErrorMessage",
         [](Texts&) {
             UtilityPortableErrorMessageManager::Get(nullptr, false)->ThrowErrorMessage(-3, "one", "two");
         },
         Promise::noRequest},
        {"handleAssert", [](Texts&) { BrimAssert::handleAssert(L"file", 5, L"condition"); },
         Promise::noRequest},
        {"handleLogicError", [](Texts&) { BrimAssert::handleLogicError(L"file", 5, kMessage); },
         Promise::noRequest},
        {"handleOSError", [](Texts&) { BrimAssert::handleOSError(L"file", 5, kMessage); },
         Promise::noRequest},
        {"handleOSError with the system's text",
         [](Texts&) { BrimAssert::handleOSError(L"file", 5, BrimString()); }},
        {"PrintMultiByteString", [](Texts&) { SystemUtility::PrintMultiByteString("text", true, true); },
         Promise::noRequest},
        {"dumpMemoryProfileToCout", [](Texts&) { memalloc::MemoryUtils::dumpMemoryProfileToCout(); },
         Promise::noRequest},
    });
}

using Logger = sup::UniversalLoggerBase;

TEST(LoggerWithoutMemory, LosesTheMessageOnly) {
    const CapturedOutput lines;
    expectHarmlessRefusals<Texts>({
        {"logString",
         [](Texts&) {
             Logger::getThreadLogger()->logString(Logger::kLogServer, Logger::MESSAGE_TYPE_ERROR, 1, L"file",
                                                  5, RefStringTemplate<wchar_t>(kLong.c_str()));
         }},
        {"logFmtToEnabledProviders",
         [](Texts&) {
             Logger::LogMessageAttributes attrs;
             Logger::getThreadLogger()->logFmtToEnabledProviders(attrs, L"file", 5, L"%ls", 700,
                                                                 kLong.c_str());
         }},
        {"a short message",
         [](Texts&) {
             Logger::LogMessageAttributes attrs;
             Logger::getThreadLogger()->logFmtToEnabledProviders(attrs, L"file", 5, L"%d", 20, 5);
         },
         Promise::noRequest},
    });
}

// ---- Loader and resolver ----------------------------------------------------------------------------------

TEST(LoaderWithoutMemory, LoadsOrNot) {
    const Handler handler;
    expectHarmlessRefusals<Texts>({
        {"makeLibName", [](Texts& t) { t.out = DynamicLoader::makeLibName(L"NAME", true, L"", true); }},
        {"loadLib that fails",
         [](Texts& t) {
             static const BrimString kMissing(L"/nonexistent/libmissing.so");
             t.result =
                 DynamicLoader::loadLib(kMissing, false, false, DynamicLoader::kOnErrorReturn) == nullptr;
         },
         Promise::noRequest},
        {"loadLib that reports",
         [](Texts& t) {
             static const BrimString kMissing(L"/nonexistent/libmissing.so");
             t.result =
                 DynamicLoader::loadLib(kMissing, false, false, DynamicLoader::kThrowException) == nullptr;
         }},
        {"findSymbol that fails",
         [](Texts& t) {
             t.result =
                 DynamicLoader::findSymbol("no_such_symbol", DynamicLoader::kThrowException) == nullptr;
         }},
        {"loadLib and loadSymbol",
         [](Texts& t) {
             static const BrimString kLibrary(L"libc.so.6");
             void* const library =
                 DynamicLoader::loadLib(kLibrary, false, false, DynamicLoader::kOnErrorReturn);
             t.result = DynamicLoader::loadSymbol(library, "puts", DynamicLoader::kOnErrorReturn) != nullptr;
             DynamicLoader::unloadLib(library);
         },
         Promise::noRequest},
        {"lastError",
         [](Texts& t) {
             DynamicLoader::findSymbol("no_such_symbol", DynamicLoader::kOnErrorReturn);
             wchar_t text[1000];
             t.result = DynamicLoader::lastError(text, 1000) > 1 ? 1 : 2;
         },
         Promise::usable},
    });
}

TEST(ResolverWithoutMemory, FindsOrNot) {
    expectHarmlessRefusals<Texts>({
        {"GetHostName", [](Texts& t) { t.out = SystemUtility::GetHostName(); }},
        {"GetFullyQualifiedDomainName",
         [](Texts& t) { t.out = SystemUtility::GetFullyQualifiedDomainName(); }},
        {"GetHostNameFromFQDN", [](Texts& t) { t.out = SystemUtility::GetHostNameFromFQDN(L"host.domain"); }},
        {"IsIPv4Address", [](Texts& t) { t.result = SystemUtility::IsIPv4Address(L"127.0.0.1") ? 1 : 2; }},
        {"IsFullyQualifiedDomainName",
         [](Texts& t) { t.result = SystemUtility::IsFullyQualifiedDomainName(L"host.domain") ? 1 : 2; }},
        {"ExtractHostAndPort",
         [](Texts& t) {
             t.result = SystemUtility::ExtractHostAndPort(L"[::1]:8080", t.out, t.error) ? 1 : 2;
         }},
        {"GetHostIPAddresses",
         [](Texts& t) { SystemUtility::GetHostIPAddresses(AF_UNSPEC, L"127.0.0.1", t.list); }},
        {"MachineIP",
         [](Texts& t) {
             MachineIP machine;
             machine.RetrievingIP();
             machine.GetIP(t.address);
         }},
    });
}

// ---- Thread-local storage, start and stop -----------------------------------------------------------------

// A thread's map, gone afterwards; the values that callbacks got.
struct Slots {
    ~Slots() {
        FreeThreadScopeStorageKey2PtrThreadLocalStorageMap();
        EXPECT_EQ(s_cleaned, s_stored);
        s_cleaned = s_stored = 0;
    }

    static void clean(void*) { ++s_cleaned; }
    void stored() {
        ++s_stored;
        isStored = true;
    }

    static inline int s_stored = 0;
    static inline int s_cleaned = 0;
    bool isStored = false;
};

std::string picture(const Slots& s) { return s.isStored ? "stored" : "none"; }

ThreadLocalStorageManager& manager() { return *ThreadLocalStorageManager::Make(); }

// A map that was made stays with the thread when the slot could not be.
TEST(ThreadLocalStorageWithoutMemory, StoresOrNot) {
    expectHarmlessRefusals<Slots>({
        {"CreateTls",
         [](Slots& s) {
             manager().CreateTls(&s, Slots::clean);
             s.stored();
         },
         Promise::usable},
        {"ModifyTls",
         [](Slots& s) {
             manager().ModifyTls(5, &s, Slots::clean);
             s.stored();
         },
         Promise::usable},
        {"InsertTls",
         [](Slots& s) {
             std::unique_ptr<BrimThreadLocalStorage> slot(new BrimThreadLocalStorage(5, &s, nullptr));
             manager().InsertTls(5, slot.get());
             slot.release()->SetCleanupCallBack(Slots::clean);
             s.stored();
         },
         Promise::usable},
        {"the map alone", [](Slots&) { GetThreadScopeStorageKey2PtrThreadLocalStorageMap(true); },
         Promise::usable},
        {"look-ups",
         [](Slots&) {
             manager().GetTls(5);
             manager().GetTlsValue(5);
             manager().IsTlsExisted(5);
             manager().DeleteTls(5);
         },
         Promise::noRequest},
    });
}

void callback() {}

TEST(StartWithoutMemory, StartsOrNot) {
    expectHarmlessRefusals<Texts>({
        {"Initialize",
         [](Texts& t) {
             UtilityInitializer::Initialize();
             t.result = UtilityInitializer::IsInitialized() ? 1 : 2;
             UtilityInitializer::Shutdown();
         }},
        {"SetMappingInitializer",
         [](Texts&) {
             UtilityInitializer::SetMappingInitializer(new UtilityInitializer);
             UtilityInitializer::SetMappingInitializer(nullptr);
         }},
        {"RegisterShutdownCallback",
         [](Texts&) {
             UtilityInitializer::RegisterShutdownCallback(callback);
             UtilityInitializer::UnregisterShutdownCallback(callback);
         }},
    });
}

TEST(TimerWithoutMemory, LooksAtTheEnvironmentAtFirstUse) {
    ::setenv("KROS_CPUID_LOGGING", "off", 1);
    expectHarmlessRefusalsAtFirstUse<Texts>({
        {"CpuId::initLogging", [](Texts& t) { t.result = CpuId::initLogging(); }},
        {"CpuId::isRdtscpSupported", [](Texts& t) { t.result = CpuId::isRdtscpSupported() ? 1 : 2; }},
        {"PerfTimeSnap", [](Texts& t) { t.result = PerfTimeSnap(true).Get() != 0 ? 1 : 2; }},
    });
}

} // namespace
