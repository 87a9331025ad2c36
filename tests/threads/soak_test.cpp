// Everything that any thread may call, called by many threads at once at random, each result checked. It
// takes two seconds; BRIM_SOAK_SECONDS grants more. Under the thread sanitizer it looks for races.
#include "SUPTranscodeIconv_UNIX.h"
#include "Utility/Generic/Portable/RefString.h"
#include "Utility/Generic/Portable/SUPBString.h"
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPBuildMap.h"
#include "Utility/Generic/Portable/SUPDynamicLoader.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/SUPPerfTimeInterval.h"
#include "Utility/Generic/Portable/SUPThreadLocalStorage.h"
#include "Utility/Generic/Portable/SUPTranscode.h"
#include "Utility/Generic/Portable/StringBuffer.h"
#include "Utility/Generic/Portable/UniversalLoggerBase.h"
#include "Utility/Generic/Portable/memoryallocatorgateway.h"
#include "Utility/Generic/Portable/transcodercache.h"
#include "child_process.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <cwctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

using namespace brimtest;
using namespace sup::transcodeimpl;
using Util = BaseStringUtil;
using Logger = sup::UniversalLoggerBase;

namespace {

constexpr unsigned int kUtf8 = 65001;
constexpr unsigned int kThreads = 8;
constexpr unsigned int kLocaleId = 1033;

// What all threads share. Made before they start, and only read by them but for what is said to be theirs.
struct Shared {
    std::string directory;
    BrimString text{L"a text that many threads share \x20AC"};
    sup::ByteString<wchar_t> bytes{L"bytes that many threads share"};
    std::unique_ptr<TranscoderImplBase> iconv{CreateIconvTranscoder("ISO-2022-JP")};
    int key = ThreadLocalStorageManager::Make()->CreateTls(nullptr, nullptr);

    // Blocks on their way from one thread to another.
    std::mutex mutex;
    std::vector<std::pair<void*, std::size_t>> blocks;

    std::atomic<long> slotsCleaned{0};
    std::atomic<long> slotsStored{0};
};
Shared* g_shared = nullptr;

// One thread.
struct Worker {
    explicit Worker(unsigned int n) : number(n), random(n) {}

    BrimString path(const std::string& name) const {
        return Util::StringFrom((g_shared->directory + "/" + std::to_string(number) + name).c_str(), kUtf8);
    }

    unsigned int number;
    RandomTexts random;
};

struct Job {
    const char* name;
    bool (*isRight)(Worker&);
};

// ---- Texts ------------------------------------------------------------------------------------------------

bool sharesStrings(Worker& worker) {
    BrimString copy(g_shared->text);
    copy.append(L'!').replace(0, 1, L"the");
    sup::ByteString<wchar_t> bytes(g_shared->bytes);
    bytes.append(static_cast<wchar_t>(L'a' + worker.random.below(26)));
    const BrimString back = bytes.toString();
    return copy.length() == g_shared->text.length() + 3 && g_shared->text.begin()[0] == L'a' &&
           back.length() == g_shared->bytes.length() + 1;
}

// Case tables are filled page by page, by whoever comes first.
bool foldsCase(Worker& worker) {
    const auto c = static_cast<wchar_t>(0x100 + worker.random.below(0x2000));
    const wchar_t text[] = {c, 0};
    return Util::ToLowerCase(BrimString(text))[0] ==
               static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c))) &&
           Util::IsCaseInsensitiveMatch(L"M\xDCNCHEN", L"m\xFCnchen");
}

bool searchesAndSplits(Worker& worker) {
    const std::wstring needle = worker.random.textOf(L"ab", 5);
    const BrimString text = brim(worker.random.text(L"ab", 300) + needle);
    BrimStringVector parts;
    Util::Tokenize(L"one two three", L" ", parts, false, false);
    return Util::ForwardPatternMatch(text, brim(needle), 0) + 5 <= text.length() && parts.size() == 3 &&
           Util::IsWildcardCaseInsensitiveMatch(text, brim(L"*" + needle)) &&
           plain(Util::ReplacePatternInString(L"a-b-c", L"-", L"+")) == L"a+b+c";
}

bool escapes(Worker& worker) {
    const std::wstring text = worker.random.text(L"ab %<&\xE4", 100);
    return plain(Util::UriDecode(Util::UriEncode(brim(text)), false)).size() <= text.size() &&
           Util::EscapeXMLChars(brim(text)).length() >= text.size() && plain(Util::TrimBoth(L"  x ")) == L"x";
}

bool convertsNumbers(Worker& worker) {
    const int number = static_cast<int>(worker.random.below(1000000));
    const BrimString text = Util::StringFrom(number);
    return Util::IntFrom(text) == number &&
           Util::FloatFrom(Util::ShortStringFrom(number + 0.5)) == number + 0.5 &&
           Util::BooleanFrom(L"yes", false);
}

bool formats(Worker& worker) {
    BrimString text;
    Util::BrimString_brimsprintf(text, L"%d-%ls", worker.number, L"text");
    sup::StringBufferTemplate<16, wchar_t> buffer;
    buffer.appendFormatted(300, L"%0200d", 5).appendNumberAsHex(255U);
    return plain(text) == std::to_wstring(worker.number) + L"-text" && buffer.length() == 202;
}

// ---- Code pages -------------------------------------------------------------------------------------------

bool convertsByEachPage(Worker& worker) {
    constexpr int kPages[] = {0, 65001, 1200, 1201, 28591, 28592, 28593, 28596, 28597, 285915, 1252, 38598};
    const int page = kPages[worker.random.below(std::size(kPages))];
    const TranscoderImplBase* const transcoder = TranscoderCache::getTranscoder(page);
    char bytes[64];
    wchar_t wide[64];
    const std::size_t n = transcoder->unicodeToMultibyte(L"plain", 5, bytes, 64, nullptr, nullptr, nullptr);
    return transcoder->multibyteToUnicode(bytes, n, wide, 64, nullptr) == 5 &&
           std::wstring(wide, 5) == L"plain";
}

bool convertsByIconv(Worker&) {
    wchar_t wide[16];
    char bytes[64];
    const std::size_t n =
        g_shared->iconv->unicodeToMultibyte(L"a\x3042", 2, bytes, 64, nullptr, nullptr, nullptr);
    return g_shared->iconv->multibyteToUnicode(bytes, n, wide, 16, nullptr) == 2 && wide[1] == 0x3042;
}

bool convertsLongTexts(Worker& worker) {
    const std::wstring text = worker.random.text(L"a\xE4\x20AC", 2000);
    const BrimString source = brim(text);
    return plain(Util::StdStringToString(Util::StringToStdString(source.c_str(), kUtf8), kUtf8)) == text &&
           SystemUtility::GetACP() == 65001 && SystemUtility::WideCharToUTF8(L"abc", nullptr, 0) == 4;
}

// Reported to the manager, which prints a line.
bool asksForAnUnknownPage(Worker&) {
    return SystemUtility::WideCharToMultiByte(L"abc", nullptr, 0, 4711) == 0;
}

bool looksLocalesUp(Worker& worker) {
    wchar_t text[64];
    const BrimSystemTime time(2024, 2, 4, 29, 13, 5, 9, 7);
    return WRAP_wgetlocaleinfo(worker.random.flip() ? kLocaleId : 0, kLocaleDayName, text, 64) == 7 &&
           WRAP_wgetdateformat(kLocaleId, &time, L"yyyy-MM-dd", text, 64) == 11 &&
           WRAP_wcomparestring(true, L"ABC", -1, L"abc", -1) == 0 && Locale2CodePage("xx.UTF-8") == 65001 &&
           GetQuayLocale2SystemLocaleMap().size() == 1 &&
           !SystemUtility::GetSystemLocaleFromCodePage(1252).empty();
}

bool readsDocuments(Worker& worker) {
    sup::SortLangMap languages;
    const bool isThere = worker.random.flip();
    const std::string file = g_shared->directory + (isThere ? "/locale.xml" : "/missing.xml");
    SUPBuildMapFromXML(Util::StringFrom(file.c_str(), kUtf8)).PopulateSortLocaleIdToLangMap(languages);
    return languages.size() == (isThere ? 1U : 0U);
}

// ---- The system -------------------------------------------------------------------------------------------

bool readsTheEnvironment(Worker&) {
    BrimString value;
    int number = 0;
    return SystemUtility::Getenv(L"BRIM_SOAK_NUMBER", number) && number == 17 &&
           SystemUtility::Getenv(L"HX_PRODUCT_HOME", value) && !value.empty() &&
           SystemUtility::GetRPCTimeoutSeconds() == 540 && SystemUtility::GetMaximumFileHandles() > 0 &&
           UtilityInitializer::DumpEnvVariablesToString().length() > 100;
}

bool knowsTheDirectories(Worker&) {
    BrimString path;
    SystemUtility::GetServerLocaleDirectory(path);
    const bool isLocale = !path.empty();
    SystemUtility::GetComponentDirectory(path);
    SystemUtility::GetTempDirectory(path);
    SystemUtility::GetVantaInstanceDirectory(path);
    SystemUtility::GetSharedConfigDirectory(path);
    return isLocale && SystemUtility::GetNumberOfProcessors() > 0 && !SystemUtility::IsLegacyInstanceMode() &&
           !SystemUtility::AreWeHaloManagedComponent();
}

bool changesTheLanguage(Worker& worker) {
    BrimString language(worker.random.flip() ? L"en" : L"zh-CN");
    SystemUtility::SetErrorMessageLang(language);
    SystemUtility::GetErrorMessageLang(language);
    return plain(language) == L"en" || plain(language) == L"zh-CN";
}

bool visitsDirectories(Worker& worker) {
    BrimString path;
    const BrimString directory = worker.path("directory");
    return SystemUtility::MakeDirectories(BrimString(directory).append(L"/a/b")) &&
           SystemUtility::IsValidDirectory(directory) &&
           SystemUtility::GetFullDirectoryPath(directory, path) && path == directory &&
           !SystemUtility::IsValidDirectory(worker.path("missing"));
}

bool copiesFiles(Worker& worker) {
    const BrimString source = Util::StringFrom((g_shared->directory + "/locale.xml").c_str(), kUtf8);
    const BrimString target = worker.path("copy");
    return SystemUtility::CopyFile(source, target, true) &&
           SystemUtility::GetFileSize(target) == SystemUtility::GetFileSize(source) &&
           SystemUtility::GetFirstLineFromFile(target, false).length() > 5 &&
           WRAP_wremove(target.c_str()) == 0 && !SystemUtility::IsFileExist(target);
}

bool failsWithItsOwnError(Worker& worker) {
    const bool isMissing = worker.random.flip();
    SystemUtility::ChangeCurrentWorkingDirectory(isMissing ? L"/dev/missing" : L"/dev/null");
    const int error = SystemUtility::GetLastSystemError();
    return error == (isMissing ? ENOENT : ENOTDIR) && !SystemUtility::GetSystemErrorString(error).empty();
}

bool looksAtClocks(Worker&) {
    const PerfTimeSnap start(true);
    const PerfTimeSnap end(true);
    const PerfTimeInterval interval(end, start);
    std::timespec absolute{};
    SystemUtility::RelativeTime2AbsoluteTime(5, &absolute);
    wchar_t text[16];
    const std::tm time{};
    return interval.getIntervalTimeInSecs() < 1000 && absolute.tv_sec > 0 &&
           SystemUtility::GetTimeInMilliSeconds() < 86400000 &&
           SystemUtility::Wcsftime(text, 16, "%M", &time) == 2 && SystemUtility::BrimRand_to_rand_r() >= 0;
}

bool looksAtItself(Worker&) {
    CallStack stack;
    stack.Init();
    stack.ResolveSymbols();
    char text[2000];
    SUMemStat memory{};
    return stack.ToString(text, sizeof(text)) > 0 && SystemUtility::GetMemStat(memory) &&
           !SystemUtility::GetCurrentProcessName().empty();
}

bool resolvesNames(Worker&) {
    BrimStringVector addresses;
    SystemUtility::GetHostIPAddresses(AF_INET, L"127.0.0.1", addresses);
    BrimString host;
    BrimString port;
    return addresses.size() == 1 && !SystemUtility::GetHostName().empty() &&
           SystemUtility::ExtractHostAndPort(L"[::1]:80", host, port) && plain(host) == L"::1" &&
           SystemUtility::IsIPv4Address(L"10.0.0.1");
}

bool loadsLibraries(Worker& worker) {
    const BrimString missing = worker.path("missing.so");
    if (DynamicLoader::loadLib(missing, false, false, DynamicLoader::kOnErrorReturn) != nullptr) {
        return false;
    }
    wchar_t error[500];
    DynamicLoader::lastError(error, 500); // this thread's, which names its file
    void* const library = DynamicLoader::loadLib(L"libc.so.6", false, false, DynamicLoader::kOnErrorReturn);
    const bool found = DynamicLoader::loadSymbol(library, "puts", DynamicLoader::kOnErrorReturn) != nullptr;
    return std::wcsstr(error, missing.c_str()) != nullptr && found && DynamicLoader::unloadLib(library);
}

// ---- Memory, values of threads, reports -------------------------------------------------------------------

bool handsBlocksOn(Worker& worker) {
    const std::size_t size = 1 + worker.random.below(5000);
    void* const made = memalloc::MemoryAllocatorGateway::allocate(size, nullptr, 0);
    std::memset(made, static_cast<int>(size % 256), size);
    std::pair<void*, std::size_t> taken;
    {
        const std::lock_guard<std::mutex> lock(g_shared->mutex);
        g_shared->blocks.emplace_back(made, size);
        taken = g_shared->blocks[worker.random.below(g_shared->blocks.size())];
        std::swap(*std::find(g_shared->blocks.begin(), g_shared->blocks.end(), taken),
                  g_shared->blocks.back());
        g_shared->blocks.pop_back();
    }
    const auto* const bytes = static_cast<const unsigned char*>(taken.first);
    const bool isWhole = bytes[0] == taken.second % 256 && bytes[taken.second - 1] == taken.second % 256;
    memalloc::MemoryAllocatorGateway::deallocate(taken.first, taken.second);
    if (worker.random.below(50) == 0) {
        memalloc::MemoryAllocatorGateway::flushCurrentThread();
    }
    return isWhole;
}

void cleanSlot(void*) { ++g_shared->slotsCleaned; }

bool keepsValues(Worker& worker) {
    ThreadLocalStorageManager& manager = *ThreadLocalStorageManager::Make();
    manager.ModifyTls(g_shared->key, &worker, nullptr);
    const bool isOwn = manager.GetTlsValue(g_shared->key) == &worker;
    manager.DeleteTls(g_shared->key);
    const int key = manager.CreateTls(&worker, cleanSlot);
    ++g_shared->slotsStored;
    return isOwn && !manager.IsTlsExisted(g_shared->key) && manager.DeleteTls(key);
}

bool endsThreads(Worker&) {
    std::thread([] {
        ThreadLocalStorageManager::Make()->CreateTls(g_shared, cleanSlot);
        ++g_shared->slotsStored;
        memalloc::MemoryAllocatorGateway::associateCurrentThread();
        const BrimString text(g_shared->text);
        memalloc::MemoryAllocatorGateway::disassociateCurrentThread();
    }).join();
    return true;
}

bool logs(Worker& worker) {
    Logger* const logger = Logger::getThreadLogger();
    logger->logString(Logger::kLogServer, Logger::MESSAGE_TYPE_TRACE, 1, L"file", 5, L"not wanted");
    if (worker.random.below(20) == 0) {
        logger->logString(Logger::kLogServer, Logger::MESSAGE_TYPE_ERROR, 1, L"file", 5, L"wanted");
    }
    return logger != nullptr;
}

constexpr Job kJobs[] = {
    {"sharesStrings", sharesStrings},
    {"foldsCase", foldsCase},
    {"searchesAndSplits", searchesAndSplits},
    {"escapes", escapes},
    {"convertsNumbers", convertsNumbers},
    {"formats", formats},
    {"convertsByEachPage", convertsByEachPage},
    {"convertsByIconv", convertsByIconv},
    {"convertsLongTexts", convertsLongTexts},
    {"asksForAnUnknownPage", asksForAnUnknownPage},
    {"looksLocalesUp", looksLocalesUp},
    {"readsDocuments", readsDocuments},
    {"readsTheEnvironment", readsTheEnvironment},
    {"knowsTheDirectories", knowsTheDirectories},
    {"changesTheLanguage", changesTheLanguage},
    {"visitsDirectories", visitsDirectories},
    {"copiesFiles", copiesFiles},
    {"failsWithItsOwnError", failsWithItsOwnError},
    {"looksAtClocks", looksAtClocks},
    {"looksAtItself", looksAtItself},
    {"resolvesNames", resolvesNames},
    {"loadsLibraries", loadsLibraries},
    {"handsBlocksOn", handsBlocksOn},
    {"keepsValues", keepsValues},
    {"endsThreads", endsThreads},
    {"logs", logs},
};

void work(Worker& worker, std::chrono::steady_clock::time_point end) {
    while (std::chrono::steady_clock::now() < end && !testing::Test::HasFailure()) {
        const Job& job = kJobs[worker.random.below(std::size(kJobs))];
        EXPECT_TRUE(job.isRight(worker)) << job.name << " in thread " << worker.number;
    }
}

// In a process of its own: what it prints is many lines, and the caches are cold at the start.
void soak(const std::string& directory, int seconds) {
    std::setlocale(LC_ALL, "C.UTF-8");
    g_sortLangMap[kLocaleId] = "C.UTF-8";
    Shared shared;
    g_shared = &shared;
    shared.directory = directory;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    std::vector<std::thread> threads;
    for (unsigned int n = 0; n < kThreads; ++n) {
        threads.emplace_back([n, end] {
            Worker worker(n);
            work(worker, end);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const auto& block : shared.blocks) {
        memalloc::MemoryAllocatorGateway::deallocate(block.first, block.second);
    }
    EXPECT_EQ(shared.slotsCleaned, shared.slotsStored);
    EXPECT_GT(shared.slotsStored, 0);
}

TEST(Soak, WhatAnyThreadMayCallIsRightInAllThreads) {
    const char* const asked = std::getenv("BRIM_SOAK_SECONDS");
    const int seconds = asked == nullptr ? 2 : std::atoi(asked);
    std::string directory =
        std::filesystem::canonical(std::filesystem::temp_directory_path()) / "brim-soak-XXXXXX";
    ASSERT_NE(::mkdtemp(directory.data()), nullptr);
    std::ofstream(directory + "/locale.xml")
        << "<r><SortLangs><SortLang Name='x'><SortId>5</SortId></SortLang></SortLangs></r>\n";
    ::setenv("BRIM_SOAK_NUMBER", "17", 1);
    const ChildResult child = runInChild([&] {
        soak(directory, seconds);
        std::fflush(stdout);
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
    });
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
    EXPECT_EQ(child.exitCode(), 0)
        << child.output.substr(0, child.output.find("Stack trace")).substr(0, 5000);
}

} // namespace
