// The library is loaded while memory runs out: at its first request, at its second, and so on. Whoever loads
// it gets it, and what could not be made at load is made at first use or left at its default.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPBuildMap.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/SUPPerfTimeInterval.h"
#include "Utility/Generic/Portable/SUPThreadLocalStorage.h"
#include "child_process.h"
#include "recording_allocator.h"
#include "scratch.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <filesystem>
#include <new>
#include <string>

using namespace brimtest;

namespace {

constexpr const char* kVariable = "BRIM_TEST_REFUSED_AT_LOAD=";

alignas(AllocationRefusal) unsigned char g_refusal[sizeof(AllocationRefusal)];
constinit bool g_isRefused = false;

// Before any library is initialised.
void beginRefusal(int /*argc*/, char** /*argv*/, char** environment) {
    for (; *environment != nullptr; ++environment) {
        if (std::strncmp(*environment, kVariable, std::strlen(kVariable)) == 0) {
            new (g_refusal) AllocationRefusal(std::atol(*environment + std::strlen(kVariable)));
        }
    }
}
__attribute__((section(".preinit_array"), used)) void (*const g_beginRefusal)(int, char**,
                                                                              char**) = beginRefusal;

// After them, before this program.
__attribute__((constructor(101))) void endRefusal() {
    auto* const refusal = std::launder(reinterpret_cast<AllocationRefusal*>(g_refusal));
    g_isRefused = refusal->happened();
    refusal->~AllocationRefusal();
}

} // namespace

// The timer is measured over a fiftieth of the time, which says as much here.
extern "C" int nanosleep(const std::timespec* time, std::timespec* rest) {
    static auto* const real =
        reinterpret_cast<int (*)(const std::timespec*, std::timespec*)>(::dlsym(RTLD_NEXT, "nanosleep"));
    const std::timespec shorter{time->tv_sec / 50, time->tv_nsec / 50};
    return real(&shorter, rest);
}

namespace {

void print(const char* what, bool works) { std::printf("%s%s", works ? "" : "no ", what); }

const FreshProcess kUsesTheLibrary("uses what was loaded", [] {
    print("refusal; ", g_isRefused);
    print("text; ", plain(BaseStringUtil::StringFrom("gr\xC3\xBC\xC3\x9F", 65001)) == L"gr\xFC\xDF");
    print("code page; ", SystemUtility::GetACP() == 1252);
    print("map; ", !GetQuayLocale2SystemLocaleMap().empty());
    print("processors; ", SystemUtility::GetNumberOfProcessors() > 0);
    print("timer; ", PerfTimeInterval::s_inited && PerfTimeSnap(true).Get() != 0);
    int value = 0;
    const int key = ThreadLocalStorageManager::Make()->CreateTls(&value, nullptr);
    print("value; ", ThreadLocalStorageManager::Make()->GetTlsValue(key) == &value);
    BrimString file;
    SystemUtility::GetServerLocaleDirectory(file);
    sup::SortLangMap languages;
    SUPBuildMapFromXML(file.append(L"/BrimLocale.xml")).PopulateSortLocaleIdToLangMap(languages);
    print("document", languages.size() == 2);
});

TEST(LoadingWithoutMemory, LeavesALibraryThatWorks) {
    const Scratch home;
    std::filesystem::create_directories(home / "hxfoundation/server/locale");
    std::filesystem::copy_file(BRIM_TEST_SMALL_LOCALE_FILE,
                               home / "hxfoundation/server/locale/BrimLocale.xml");
    for (long n = 1;; n += 1 + n / 8) {
        const ChildResult child =
            kUsesTheLibrary.run({{"HX_PRODUCT_HOME", home.path().c_str()},
                                 {"BRIM_TEST_REFUSED_AT_LOAD", std::to_string(n).c_str()}});
        ASSERT_EQ(child.exitCode(), 0) << "request " << n << ": " << child << child.atLoad;
        const bool isRefused = child.output.rfind("no refusal", 0) != 0;
        ASSERT_EQ(child.output.substr(isRefused ? 0 : 3),
                  "refusal; text; code page; map; processors; timer; value; document")
            << "request " << n;
        if (!isRefused) {
            EXPECT_EQ(child.atLoad, "");
            break;
        }
    }
}

} // namespace
