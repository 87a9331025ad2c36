// The provider's dynamic symbols. A stray malloc or operator new among them would replace the host's.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>

namespace {

std::set<std::string> exportedNames(const std::string& library) {
    std::set<std::string> names;
    const std::string command = std::string(FENMEM_TEST_NM) + " -D --defined-only '" + library + "'";
    FILE* const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return names;
    }
    char line[1024];
    while (std::fgets(line, sizeof line, pipe) != nullptr) {
        std::istringstream fields(line);
        std::string address;
        std::string type;
        std::string name;
        if (fields >> address >> type >> name) {
            names.insert(name);
        }
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return names;
}

TEST(ProviderExports, AreTheInterfaceAndNothingElse) {
    EXPECT_THAT(exportedNames(FENMEM_TEST_PROVIDER),
                testing::UnorderedElementsAre(
                    "fenmem_800_allocate_dbg", "fenmem_800_associate", "fenmem_800_compact",
                    "fenmem_800_disassociate", "fenmem_800_flush", "fenmem_800_free",
                    "fenmem_800_log_diagnostics_information", "fenmem_800_thread_alloc_disable_quota",
                    "fenmem_800_thread_alloc_enable_default_quota"));
}

} // namespace
