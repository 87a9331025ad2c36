#include "Utility/Generic/Portable/SUPDynamicLoader.h"

#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "child_process.h"
#include "guarded_buffer.h"
#include "recording_manager.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <unistd.h>

using String = sup::String<wchar_t>;

namespace {

bool g_dlcloseFails = false;

} // namespace

extern "C" int dlclose(void* handle) {
    static auto* const real = reinterpret_cast<int (*)(void*)>(::dlsym(RTLD_NEXT, "dlclose"));
    return g_dlcloseFails ? 1 : real(handle);
}

namespace {

constexpr const char* kPlugin = BRIM_TEST_PLUGIN;
constexpr const wchar_t* kMissing = L"/nonexistent/libmissing.so";

std::wstring wide(const String& s) { return {s.begin(), s.end()}; }
std::wstring wide(const std::string& s) { return {s.begin(), s.end()}; }

String plugin() { return wide(std::string(kPlugin)).c_str(); }

// Throws what the library reports, as a host would.
class Handler : public sup::SUPExceptionSupport {
public:
    explicit Handler(bool throws = true) : m_throws(throws) { m_pSUPExceptionSupport = this; }
    ~Handler() { m_pSUPExceptionSupport = nullptr; }
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;

    int calls = 0;
    std::wstring text;

private:
    void throwErrorMessageImpl(const wchar_t*, int, const String&) override { unexpected(); }
    void throwInternalMessageImpl(const wchar_t*, int, InternalMessageID id, va_list* args) override {
        EXPECT_EQ(id, k_E_Utility_OperatingSystemError);
        va_arg(*args, long);
        text = va_arg(*args, const wchar_t*);
        ++calls;
        if (m_throws) {
            throw std::runtime_error("operating-system error");
        }
    }
    void throwAssertErrorImpl(const wchar_t*, int, const wchar_t*) override { unexpected(); }
    void throwLogicErrorImpl(const wchar_t*, int, const String&) override { unexpected(); }
    static void unexpected() { throw std::logic_error("another report"); }

    bool m_throws;
};

class LoadedPlugin {
public:
    explicit LoadedPlugin(bool global = false)
        : m_handle(DynamicLoader::loadLib(plugin(), false, global, DynamicLoader::kOnErrorReturn)) {}
    ~LoadedPlugin() { DynamicLoader::unloadLib(m_handle); }
    LoadedPlugin(const LoadedPlugin&) = delete;
    LoadedPlugin& operator=(const LoadedPlugin&) = delete;

    void* handle() const { return m_handle; }

private:
    void* m_handle;
};

std::wstring takeLastError() {
    wchar_t buffer[1024];
    const unsigned int count = DynamicLoader::lastError(buffer, 1024);
    EXPECT_EQ(count, std::wcslen(buffer) + 1);
    return buffer;
}

// ---- Names ------------------------------------------------------------------------------------------------

TEST(MakeLibName, JoinsItsParts) {
    const struct {
        const wchar_t* base;
        bool add64;
        bool lowerCase;
        const wchar_t* expected;
    } rows[] = {{L"core", false, false, L"libcore.so"}, {L"XyZ", true, true, L"libxyz64.so"},
                {L"XyZ", false, true, L"libxyz.so"},    {L"XyZ", true, false, L"libXyZ64.so"},
                {L"", false, false, L"lib.so"},         {L"\u00C4", false, false, L"lib\u00C4.so"}};
    for (const auto& row : rows) {
        EXPECT_EQ(wide(DynamicLoader::makeLibName(row.base, row.add64, L"ignored", row.lowerCase)),
                  row.expected);
    }
}

// ---- Loading ----------------------------------------------------------------------------------------------

TEST(LoadLib, GivesAHandleWhoseSymbolsWork) {
    const LoadedPlugin loaded;
    ASSERT_NE(loaded.handle(), nullptr);
    void* const answer =
        DynamicLoader::loadSymbol(loaded.handle(), "loader_plugin_answer", DynamicLoader::kOnErrorReturn);
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(reinterpret_cast<int (*)()>(answer)(), 42);
    void* const value =
        DynamicLoader::loadSymbol(loaded.handle(), "loader_plugin_value", DynamicLoader::kThrowException);
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(*static_cast<int*>(value), 7);
}

TEST(LoadLib, KeepsSymbolsLocalUnlessToldOtherwise) {
    {
        const LoadedPlugin local;
        ASSERT_NE(local.handle(), nullptr);
        EXPECT_EQ(DynamicLoader::findSymbol("loader_plugin_answer", DynamicLoader::kOnErrorReturn), nullptr);
    }
    const LoadedPlugin global(true);
    ASSERT_NE(global.handle(), nullptr);
    EXPECT_NE(DynamicLoader::findSymbol("loader_plugin_answer", DynamicLoader::kOnErrorReturn), nullptr);
}

TEST(LoadLib, ReturnsNullQuietlyAndLeavesTheText) {
    Handler handler;
    EXPECT_EQ(DynamicLoader::loadLib(kMissing, false, false, DynamicLoader::kOnErrorReturn), nullptr);
    EXPECT_EQ(handler.calls, 0);
    EXPECT_NE(takeLastError().find(kMissing), std::wstring::npos);
}

TEST(LoadLib, ReportsItsFailure) {
    Handler handler;
    EXPECT_THROW(DynamicLoader::loadLib(kMissing, false, false, DynamicLoader::kThrowException),
                 std::runtime_error);
    EXPECT_EQ(handler.text.rfind(std::wstring(kMissing) + L". " + kMissing, 0), 0U);
    EXPECT_EQ(takeLastError(), L"") << "the report takes the text";
}

TEST(LoadLib, ReturnsNullWhenTheHandlerReturns) {
    Handler handler(false);
    EXPECT_EQ(DynamicLoader::loadLib(kMissing, false, false, DynamicLoader::kThrowException), nullptr);
    EXPECT_EQ(handler.calls, 1);
}

TEST(LoadLib, EndsTheProcessWithoutAHandler) {
    const brimtest::ChildResult child = brimtest::runInChild(
        [] { DynamicLoader::loadLib(kMissing, false, false, DynamicLoader::kThrowException); });
    EXPECT_EQ(child.signal(), SIGABRT) << child;
}

TEST(LoadLib, ReportsAMessageOfAnyLength) {
    Handler handler;
    const std::wstring name = L"/" + std::wstring(2000, L'n');
    EXPECT_THROW(DynamicLoader::loadLib(name.c_str(), false, false, DynamicLoader::kThrowException),
                 std::runtime_error);
    EXPECT_EQ(handler.text.rfind(name + L". /nnn", 0), 0U);
}

TEST(LoadLib, CutsTheNameTo255Bytes) {
    // A link whose path has just 255 bytes: longer names that begin with it are cut to it.
    std::string directory = (std::filesystem::temp_directory_path() / "brimXXXXXX").string();
    ASSERT_NE(::mkdtemp(directory.data()), nullptr);
    const std::string longest = directory + "/" + std::string(254 - directory.size(), 'p');
    ASSERT_EQ(longest.size(), 255U);
    std::filesystem::create_symlink(kPlugin, longest);
    for (const char* more : {"", "x", "xyz"}) {
        void* const handle =
            DynamicLoader::loadLib(wide(longest + more).c_str(), false, false, DynamicLoader::kOnErrorReturn);
        EXPECT_NE(handle, nullptr) << more;
        EXPECT_TRUE(DynamicLoader::unloadLib(handle));
    }
    std::filesystem::remove_all(directory);
}

TEST(LoadLib, FailsForANameThatIsNotTheProgramsOwn) {
    // The system's loader takes an empty name for the program.
    for (const wchar_t* name : {L"", L"\u4E2D.so", L"\xD83D.so"}) {
        EXPECT_EQ(DynamicLoader::loadLib(name, false, false, DynamicLoader::kOnErrorReturn), nullptr);
    }
}

// ---- Symbols ----------------------------------------------------------------------------------------------

TEST(LoadSymbol, OfNoLibraryIsNullWithoutAReport) {
    Handler handler;
    EXPECT_EQ(DynamicLoader::loadSymbol(nullptr, "malloc", DynamicLoader::kThrowException), nullptr);
    EXPECT_EQ(handler.calls, 0);
}

TEST(LoadSymbol, FailureIsReportedOnRequest) {
    const LoadedPlugin loaded;
    ASSERT_NE(loaded.handle(), nullptr);
    Handler handler;
    EXPECT_EQ(DynamicLoader::loadSymbol(loaded.handle(), "missing", DynamicLoader::kOnErrorReturn), nullptr);
    EXPECT_EQ(handler.calls, 0);
    EXPECT_NE(takeLastError().find(L"missing"), std::wstring::npos);
    EXPECT_THROW(DynamicLoader::loadSymbol(loaded.handle(), "missing", DynamicLoader::kThrowException),
                 std::runtime_error);
    EXPECT_EQ(handler.text.rfind(L"missing. ", 0), 0U);
    EXPECT_GT(handler.text.size(), std::wstring(L"missing. ").size());
}

TEST(LoadSymbol, NameIsWidenedFromTheCodePage) {
    const brimtest::ClientCodePage utf8(65001);
    const LoadedPlugin loaded;
    Handler handler;
    EXPECT_THROW(
        DynamicLoader::loadSymbol(loaded.handle(), "gr\xC3\xB6\xC3\x9F", DynamicLoader::kThrowException),
        std::runtime_error);
    EXPECT_EQ(handler.text.rfind(L"gr\u00F6\u00DF. ", 0), 0U);
}

TEST(FindSymbol, LooksInTheWholeProcess) {
    EXPECT_EQ(DynamicLoader::findSymbol("getpid", DynamicLoader::kThrowException),
              ::dlsym(RTLD_DEFAULT, "getpid"));
    Handler handler;
    EXPECT_EQ(DynamicLoader::findSymbol("no_such_symbol", DynamicLoader::kOnErrorReturn), nullptr);
    EXPECT_THROW(DynamicLoader::findSymbol("no_such_symbol", DynamicLoader::kThrowException),
                 std::runtime_error);
    EXPECT_EQ(handler.text.rfind(L"no_such_symbol. ", 0), 0U);
}

// ---- Unloading --------------------------------------------------------------------------------------------

TEST(UnloadLib, OfNoLibraryIsTrue) { EXPECT_TRUE(DynamicLoader::unloadLib(nullptr)); }

TEST(UnloadLib, GivesTheLibraryBack) {
    void* const handle = DynamicLoader::loadLib(plugin(), false, false, DynamicLoader::kOnErrorReturn);
    ASSERT_NE(handle, nullptr);
    EXPECT_TRUE(DynamicLoader::unloadLib(handle));
}

TEST(UnloadLib, IsFalseWhenTheSystemRefuses) {
    const LoadedPlugin loaded;
    ASSERT_NE(loaded.handle(), nullptr);
    g_dlcloseFails = true;
    EXPECT_FALSE(DynamicLoader::unloadLib(loaded.handle()));
    g_dlcloseFails = false;
}

// ---- The text of a failure --------------------------------------------------------------------------------

TEST(LastError, IsEmptyWithoutAFailure) {
    ::dlerror();
    wchar_t buffer[4] = {L'x', L'x', L'x', L'x'};
    EXPECT_EQ(DynamicLoader::lastError(buffer, 4), 1U);
    EXPECT_STREQ(buffer, L"");
}

TEST(LastError, IsCutAndTerminatedInAShortBuffer) {
    DynamicLoader::loadLib(kMissing, false, false, DynamicLoader::kOnErrorReturn);
    wchar_t buffer[9] = {};
    buffer[8] = L'!';
    EXPECT_EQ(DynamicLoader::lastError(buffer, 8), 8U);
    EXPECT_EQ(std::wstring(buffer), std::wstring(kMissing, 7));
    EXPECT_EQ(buffer[8], L'!');
}

TEST(LastError, TellsItsLengthAtEachBoundary) {
    DynamicLoader::loadLib(kMissing, false, false, DynamicLoader::kOnErrorReturn);
    const std::wstring text = takeLastError();
    const auto length = static_cast<unsigned int>(text.size());
    for (unsigned int room : {1U, 2U, length - 1, length, length + 1, length + 2}) {
        DynamicLoader::loadLib(kMissing, false, false, DynamicLoader::kOnErrorReturn);
        std::wstring buffer(room, L'#');
        const unsigned int expected = room > length ? length + 1 : room;
        EXPECT_EQ(DynamicLoader::lastError(buffer.data(), room), expected) << room;
        EXPECT_EQ(std::wstring(buffer.c_str()), text.substr(0, expected - 1)) << room;
    }
}

TEST(LastError, WritesNothingIntoNoRoom) {
    DynamicLoader::loadLib(kMissing, false, false, DynamicLoader::kOnErrorReturn);
    wchar_t untouched = L'#';
    EXPECT_EQ(DynamicLoader::lastError(&untouched, 0), 0U);
    EXPECT_EQ(untouched, L'#');
}

} // namespace
