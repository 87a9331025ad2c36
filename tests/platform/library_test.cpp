// The library's file: its version text, its name, how it is linked, and that it can be unloaded.
#include <gtest/gtest.h>

#include <cstdio>
#include <dlfcn.h>
#include <fstream>
#include <iterator>
#include <string>

namespace {

constexpr const char* kLibrary = BRIM_TEST_LIBRARY;

std::string contentOf(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string outputOf(const std::string& command) {
    std::string output;
    std::FILE* const pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return output;
    }
    char buffer[4096];
    for (std::size_t n = 0; (n = std::fread(buffer, 1, sizeof(buffer), pipe)) != 0;) {
        output.append(buffer, n);
    }
    ::pclose(pipe);
    return output;
}

TEST(Library, CarriesItsVersionAndBuildDate) {
    const std::string content = contentOf(kLibrary);
    const std::string mark = "@(#)brimportable ";
    const std::size_t at = content.find(mark);
    ASSERT_NE(at, std::string::npos);
    const std::string text = content.c_str() + at + mark.size();
    int major = 0;
    int minor = 0;
    int patch = 0;
    int year = 0;
    int month = 0;
    int day = 0;
    ASSERT_EQ(std::sscanf(text.c_str(), "%d.%d.%d %d-%d-%d", &major, &minor, &patch, &year, &month, &day), 6)
        << text;
    EXPECT_EQ(major, 1) << "the version of the soname";
    EXPECT_GE(year, 1970);
}

TEST(Library, IsNamedAndBoundAsItShould) {
    const std::string dynamic = outputOf(std::string("readelf -d -W ") + kLibrary);
    EXPECT_NE(dynamic.find("soname: [libbrimportable.so.1]"), std::string::npos) << dynamic;
    EXPECT_NE(dynamic.find("[libfenmemoryallocator864.so]"), std::string::npos) << "linked dynamically\n"
                                                                                << dynamic;
    EXPECT_NE(dynamic.find("NOW"), std::string::npos) << dynamic;
    EXPECT_NE(outputOf(std::string("readelf -l -W ") + kLibrary).find("GNU_RELRO"), std::string::npos);
}

TEST(Library, KeepsNoUniqueSymbols) {
    // They would hold the library in memory after its last dlclose.
    const std::string symbols = outputOf(std::string("readelf --dyn-syms -W ") + kLibrary);
    ASSERT_NE(symbols.find("brimportable_version"), std::string::npos);
    std::size_t lines = 0;
    for (std::size_t at = symbols.find("UNIQUE"); at != std::string::npos;
         at = symbols.find("UNIQUE", at + 1)) {
        ++lines;
    }
    EXPECT_EQ(lines, 0U) << symbols;
}

TEST(Library, TellsItsVersionToAProgramThatLoadsIt) {
    const auto* const version = static_cast<const char*>(::dlsym(RTLD_DEFAULT, "brimportable_version"));
    void* const handle = version == nullptr ? ::dlopen(kLibrary, RTLD_NOW) : nullptr;
    const auto* const text =
        version != nullptr ? version : static_cast<const char*>(::dlsym(handle, "brimportable_version"));
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::string(text).rfind("@(#)brimportable ", 0), 0U) << text;
}

} // namespace
