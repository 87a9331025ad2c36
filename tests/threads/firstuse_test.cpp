// What is made at first use, used first by sixteen threads at once: they wait for each other and then all
// ask, in a fresh process for each thing. All must get the same. Under the thread sanitizer it looks for
// races.
#include "SUPTranscodeIconv_UNIX.h"
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPBuildMap.h"
#include "Utility/Generic/Portable/SUPDom.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/SUPPerfTimeInterval.h"
#include "Utility/Generic/Portable/SUPThreadLocalStorage.h"
#include "Utility/Generic/Portable/SUPTranscode.h"
#include "Utility/Generic/Portable/StringBuffer.h"
#include "Utility/Generic/Portable/UniversalLoggerBase.h"
#include "Utility/Generic/Portable/transcodercache.h"
#include "child_process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <functional>
#include <iterator>
#include <latch>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

using namespace brimtest;
using namespace sup::transcodeimpl;
using Util = BaseStringUtil;

// The timer is measured over a fiftieth of the time, which says as much here.
extern "C" int nanosleep(const std::timespec* time, std::timespec* rest) {
    static auto* const real =
        reinterpret_cast<int (*)(const std::timespec*, std::timespec*)>(::dlsym(RTLD_NEXT, "nanosleep"));
    const std::timespec shorter{time->tv_sec / 50, time->tv_nsec / 50};
    return real(&shorter, rest);
}

namespace {

constexpr int kThreads = 16;

using Answer = std::uint64_t;

Answer address(const void* p) { return reinterpret_cast<std::uintptr_t>(p); }

Answer sum(const BrimString& text) {
    return std::hash<std::wstring_view>()(std::wstring_view(text.begin(), text.length()));
}

template <bool (*operation)(BrimString&)>
Answer textOf() {
    BrimString text;
    const bool result = operation(text);
    return result ? sum(text) : ~sum(text);
}

struct FirstUse {
    const char* name;
    Answer (*ask)();
};

// In an iconv encoding all threads share one transcoder, whose pool is empty.
TranscoderImplBase* g_iconv = nullptr;

constexpr FirstUse kFirstUses[] = {
    {"TranscoderCache", [] { return address(GetTranscoderCache()); }},
    {"getTranscoder", [] { return address(TranscoderCache::getTranscoder(1252)); }},
    {"GetACP", [] { return Answer{SystemUtility::GetACP()}; }},
    {"GetQuayLocale2SystemLocaleMap", [] { return address(&GetQuayLocale2SystemLocaleMap()); }},
    {"GetSortLangMap", [] { return Answer{GetSortLangMap().size()}; }},
    {"iconv",
     [] {
         wchar_t wide[8];
         return Answer{g_iconv->multibyteToUnicode("abc", 3, wide, 8, nullptr)} +
                static_cast<Answer>(wide[2]);
     }},
    {"case tables", [] { return sum(Util::ToUpperCase(L"m\xFCnchen \x3B1\x432\x10D0")); }},
    {"case of another page", [] { return sum(Util::ToLowerCase(L"\x2C00\xA640\xFF21")); }},
    {"narrow case tables", [] { return Answer{Util::ToLowerCase(sup::String<char>("ABC")).length()}; }},
    {"character classes", [] { return sum(Util::TrimBoth(L"\x2003x\x2003")); }},
    {"UriEncode", [] { return sum(Util::UriEncode(L"a b%\xE4")); }},
    {"UriDecode", [] { return sum(Util::UriDecode(L"a+b%25%C3%A4", false)); }},
    {"search kernels",
     [] {
         const BrimString text(1000, L'a');
         return Answer{Util::ForwardPatternMatch(text, L"ab", 0)};
     }},
    {"UTF-8 kernels",
     [] {
         const std::string text(1000, 'a');
         return Answer{Util::StringFrom(text.c_str(), 65001).length()};
     }},
    {"single-byte kernels",
     [] {
         const std::string text(1000, 'a');
         return Answer{Util::StringFrom(text.c_str(), 28592).length()};
     }},
    {"product home", textOf<SystemUtility::GetVantaHXHomeDirectory>},
    {"instance directory",
     [] {
         BrimString path; // cleaned the first time and as it was written later: both name it
         return Answer{SystemUtility::GetVantaInstanceDirectory(path)};
     }},
    {"domain home", textOf<SystemUtility::GetDomainHomeDirectory>},
    {"component name", textOf<SystemUtility::GetComponentName>},
    {"component directory", textOf<SystemUtility::GetComponentDirectory>},
    {"temporary directory", textOf<SystemUtility::GetTempDirectory>},
    {"language",
     [] {
         BrimString language;
         SystemUtility::GetErrorMessageLang(language);
         return sum(language);
     }},
    {"managed component", [] { return Answer{SystemUtility::AreWeHaloManagedComponent()}; }},
    {"legacy mode", [] { return Answer{SystemUtility::IsLegacyInstanceMode()}; }},
    {"processors", [] { return static_cast<Answer>(SystemUtility::GetNumberOfProcessors()); }},
    {"association", [] { return SUPEnvInit::KROS_TYPE() ? sum(SUPEnvInit::getDefaultComponentName()) : 0; }},
    {"host name", [] { return sum(SystemUtility::GetHostName()); }},
    {"error manager", [] { return address(UtilityPortableErrorMessageManager::Get(nullptr, false)); }},
    {"logger", [] { return address(sup::UniversalLoggerBase::getThreadLogger()); }},
    {"values of threads",
     [] {
         ThreadLocalStorageManager* const manager = ThreadLocalStorageManager::Make();
         manager->ModifyTls(1000, manager, nullptr);
         return address(manager->GetTlsValue(1000)) + GetThreadLocalStorageKey().key;
     }},
    {"timer", [] { return Answer{PerfTimeSnap(true).Get() != 0}; }},
    {"locale of an id",
     [] {
         wchar_t text[32];
         return static_cast<Answer>(WRAP_wgetlocaleinfo(1033, kLocaleDayName, text, 32));
     }},
    {"scratch buffers", [] { return address(&sup::BStringBuffer::GetBuffer()); }},
    {"Xerces", [] { return address(&XercesInitializer::GetXercesInit()); }},
    {"documents",
     [] {
         XercesInitializer::GetXercesInit();
         xercesc::XercesDOMParser parser;
         SUPDomErrorReporter reporter;
         SUPDOMPrintFormatTarget format;
         const unsigned char text[] = "<a/>";
         return Answer{SUPDOM::ParseDocument(text, 4, parser, reporter, format) != nullptr};
     }},
    {"documents that are missing",
     [] {
         sup::SortLangMap map;
         SUPBuildMapFromXML(L"/dev/null/file.xml").PopulateSortLocaleIdToLangMap(map);
         return Answer{map.size()};
     }},
    {"allocator",
     [] {
         void* const block = memalloc::MemoryAllocatorGateway::allocateAndRemeberSize(100, nullptr, 0);
         memalloc::MemoryAllocatorGateway::readSizeAndDeallocate(block);
         return Answer{block != nullptr};
     }},
};

constexpr const char* kVariable = "BRIM_TEST_FIRST_USE";

const FreshProcess kRaces("sixteen threads", [] {
    std::setlocale(LC_ALL, "C.UTF-8");
    g_sortLangMap[1033] = "C.UTF-8";
    const char* const name = std::getenv(kVariable);
    const FirstUse* const use =
        std::find_if(std::begin(kFirstUses), std::end(kFirstUses),
                     [=](const FirstUse& one) { return std::strcmp(one.name, name) == 0; });
    const std::unique_ptr<TranscoderImplBase> iconv(
        std::strcmp(name, "iconv") == 0 ? CreateIconvTranscoder("ISO-2022-JP") : nullptr);
    g_iconv = iconv.get();
    std::latch start(kThreads);
    std::vector<Answer> answers(kThreads);
    std::vector<std::thread> threads;
    for (Answer& answer : answers) {
        threads.emplace_back([&start, &answer, use] {
            start.arrive_and_wait();
            answer = use->ask();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const bool agree = std::equal(answers.begin() + 1, answers.end(), answers.begin());
    std::puts(agree && answers[0] == use->ask() ? "agree" : "differ");
});

class FirstUseByManyThreads : public testing::TestWithParam<FirstUse> {};

TEST_P(FirstUseByManyThreads, GivesAllTheSame) {
    const ChildResult child = kRaces.run({{kVariable, GetParam().name},
                                          {"COMPONENT_NAME", "component"},
                                          {"VANTA_INSTANCE", "/instance"},
                                          {"DOMAIN_HOME", "/dev/null/domain"},
                                          {"VANTA_HX_HALOMANAGED", "on"},
                                          {"TMP", "/dev/null"}});
    EXPECT_EQ(child.exitCode(), 0) << child;
    const std::string last = "agree\n";
    EXPECT_TRUE(child.output.size() >= last.size() &&
                child.output.compare(child.output.size() - last.size(), last.size(), last) == 0)
        << child;
}

std::string nameOf(const testing::TestParamInfo<FirstUse>& info) {
    std::string name;
    bool isStart = true;
    for (const char* p = info.param.name; *p != '\0'; ++p) {
        if (std::isalnum(static_cast<unsigned char>(*p)) != 0) {
            name += isStart ? static_cast<char>(std::toupper(static_cast<unsigned char>(*p))) : *p;
        }
        isStart = std::isalnum(static_cast<unsigned char>(*p)) == 0;
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(Things, FirstUseByManyThreads, testing::ValuesIn(kFirstUses), nameOf);

} // namespace
