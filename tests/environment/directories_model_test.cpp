// Random variables and directory trees: each directory operation against a small model of its own.
#include "environment_test_support.h"
#include "path_model.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

using brimtest::answers;
using brimtest::cleanedPath;
using brimtest::DirectoryOperation;
using brimtest::show;
using brimtest::Tree;
using brimtest::Variables;

namespace {

struct Answer {
    bool isReal;
    std::string path;
};

// One process: its variables, and what it keeps.
class Model {
public:
    explicit Model(const Tree& tree) : m_tree(tree) {}

    std::map<std::string, std::string> variables;
    std::optional<std::string> associatedType;
    std::string defaultName;

    Answer home() {
        if (!m_home) {
            for (const char* const name : {"HX_PRODUCT_HOME", "VANTA_HX_HOME"}) {
                if (const auto value = get(name)) {
                    return kept(m_home, {true, cleanedPath(*value)});
                }
            }
            const auto vanta = get("VANTA_HOME");
            if (!vanta || !isDirectory(*vanta + "/hx/hxfoundation/server/bin")) {
                return {false, vanta ? *vanta : "/vanta/home"};
            }
            return kept(m_home, {true, cleanedPath(*vanta + "/hx")});
        }
        return *m_home;
    }
    Answer vantaHome() {
        if (const auto vanta = get("VANTA_HOME")) {
            return isDirectory(*vanta + "/hxfoundation/server/bin") ? Answer{true, cleanedPath(*vanta)}
                                                                    : Answer{false, "/vanta/home"};
        }
        if (const auto value = get("VANTA_HX_HOME")) {
            std::string path = cleanedPath(*value);
            path.resize(path.size() > 2 ? path.size() - 3 : path.size());
            if (isDirectory(path)) {
                return {true, cleanedPath(path)};
            }
        }
        return {false, "/vanta/home"};
    }
    Answer instance() {
        if (m_instance) {
            return *m_instance;
        }
        if (const auto value = get("VANTA_INSTANCE")) {
            kept(m_instance, {true, *value});
            return {true, cleanedPath(*value)};
        }
        return {false, cleanedPath(temp() + "/vanta/instance")};
    }
    Answer domain() {
        if (m_domain) {
            return *m_domain;
        }
        const auto value = get("DOMAIN_HOME");
        return kept(m_domain, {value.has_value(), cleanedPath(value ? *value : temp())});
    }
    Answer componentName() {
        if (m_component) {
            return *m_component;
        }
        const auto value = get("COMPONENT_NAME");
        return value ? kept(m_component, {true, *value}) : Answer{false, defaultName};
    }
    Answer bin() { return {true, cleanedPath(home().path + "/hxfoundation/server/bin")}; }
    Answer locale() { return {true, cleanedPath(home().path + "/hxfoundation/server/locale")}; }
    Answer root() {
        const auto value = get("VANTA_HX_ROOTDIR");
        return value ? Answer{true, cleanedPath(*value)}
                     : Answer{false, cleanedPath(home().path + "/hxfoundation")};
    }
    Answer program() {
        const Answer base = root();
        const bool hasServer = isDirectory(base.path + "/server");
        return {base.isReal, cleanedPath(base.path + (hasServer ? "/server" : ""))};
    }
    Answer timeZone() {
        const auto value = get("TIMEZONE_PATH");
        const Answer base = value ? Answer{true, *value} : root();
        return {base.isReal, cleanedPath(base.path + "/timezone")};
    }
    Answer inDomain(const std::string& rest) {
        const Answer base = domain();
        return {base.isReal, cleanedPath(base.path + rest)};
    }
    Answer config() {
        const auto value = get("VANTA_HX_CONFIG_DIR");
        if (value && !value->empty()) {
            return {true, cleanedPath(*value)};
        }
        return domain().isReal ? inDomain("/config/plxconfig/hxconfig") : Answer{false, ""};
    }
    Answer inConfig(const std::string& rest) {
        const Answer base = config();
        return {base.isReal, cleanedPath(base.path + rest)};
    }
    Answer componentConfig() {
        const Answer base = config();
        return base.isReal && !base.path.empty() ? inConfig("/" + associatedType.value_or("default"))
                                                 : Answer{false, ""};
    }
    Answer inComponent(const std::string& rest) {
        const Answer path = inDomain("/servers/" + componentName().path + rest);
        return {path.isReal && componentName().isReal, path.path};
    }
    Answer work(const char* variable, const char* baseVariable, const std::string& name) {
        if (const auto value = get(variable)) {
            return {true, cleanedPath(*value)};
        }
        if (const auto base = get(baseVariable)) {
            return isDirectory(*base)
                       ? Answer{true, cleanedPath(*base + "/" + componentName().path + "/" + name)}
                       : Answer{false, ""};
        }
        return {true, cleanedPath(inComponent("").path + "/" + name)};
    }

private:
    std::optional<std::string> get(const char* name) const {
        const auto found = variables.find(name);
        return found == variables.end() ? std::nullopt : std::optional(found->second);
    }
    std::string temp() const {
        for (const char* const name : {"TMP", "TEMP", "TEMPDIR"}) {
            if (const auto value = get(name)) {
                return *value;
            }
        }
        return "/tmp";
    }
    bool isDirectory(const std::string& path) const {
        std::error_code failure;
        return !path.empty() && std::filesystem::is_directory(
                                    path.front() == '/' ? path : m_tree.root() + "/" + path, failure);
    }
    // The values are ASCII, so bytes are characters.
    static Answer kept(std::optional<Answer>& cache, const Answer& answer) {
        if (answer.path.size() < 2048) {
            cache = answer;
        }
        return answer;
    }

    const Tree& m_tree;
    std::optional<Answer> m_home;
    std::optional<Answer> m_instance;
    std::optional<Answer> m_domain;
    std::optional<Answer> m_component;
};

struct Operation {
    const char* name;
    DirectoryOperation library;
    std::function<Answer(Model&)> model;
};

const std::vector<Operation> kOperations = {
    {"GetVantaHXHomeDirectory", SystemUtility::GetVantaHXHomeDirectory, [](Model& m) { return m.home(); }},
    {"GetVantaHomeDirectory", SystemUtility::GetVantaHomeDirectory, [](Model& m) { return m.vantaHome(); }},
    {"GetVantaInstanceDirectory", SystemUtility::GetVantaInstanceDirectory,
     [](Model& m) { return m.instance(); }},
    {"GetDomainHomeDirectory", SystemUtility::GetDomainHomeDirectory, [](Model& m) { return m.domain(); }},
    {"GetComponentName", SystemUtility::GetComponentName, [](Model& m) { return m.componentName(); }},
    {"GetServerBinDirectory", SystemUtility::GetServerBinDirectory, [](Model& m) { return m.bin(); }},
    {"GetServerLocaleDirectory", SystemUtility::GetServerLocaleDirectory,
     [](Model& m) { return m.locale(); }},
    {"GetRootDirectory", SystemUtility::GetRootDirectory, [](Model& m) { return m.root(); }},
    {"GetProgramDirectory", SystemUtility::GetProgramDirectory, [](Model& m) { return m.program(); }},
    {"GetTimeZoneDirectory", SystemUtility::GetTimeZoneDirectory, [](Model& m) { return m.timeZone(); }},
    {"GetDomainServersDirectory", SystemUtility::GetDomainServersDirectory,
     [](Model& m) { return m.inDomain("/servers"); }},
    {"GetEnvKROCCSDirectory", SystemUtility::GetEnvKROCCSDirectory,
     [](Model& m) { return m.inDomain("/config/plxconfig/hxenv/KROCCS"); }},
    {"GetEnvCoreDirectory", SystemUtility::GetEnvCoreDirectory,
     [](Model& m) { return m.inDomain("/config/plxconfig/hxenv/core"); }},
    {"GetDefaultDataDirectory", SystemUtility::GetDefaultDataDirectory,
     [](Model& m) { return m.inDomain("/hxdata"); }},
    {"GetVantaHXConfigDir", SystemUtility::GetVantaHXConfigDir, [](Model& m) { return m.config(); }},
    {"GetConfigKROCCSDirectory", SystemUtility::GetConfigKROCCSDirectory,
     [](Model& m) { return m.inConfig("/KROCCS"); }},
    {"GetSharedConfigDirectory", SystemUtility::GetSharedConfigDirectory,
     [](Model& m) { return m.inConfig("/core"); }},
    {"GetHXAppGroupDirectory", SystemUtility::GetHXAppGroupDirectory,
     [](Model& m) { return m.inConfig("/core"); }},
    {"GetConfigDirectory", SystemUtility::GetConfigDirectory, [](Model& m) { return m.componentConfig(); }},
    {"GetComponentDirectory", SystemUtility::GetComponentDirectory,
     [](Model& m) { return m.inComponent(""); }},
    {"GetLogDirectory", SystemUtility::GetLogDirectory, [](Model& m) { return m.inComponent("/logs"); }},
    {"GetComponentCacheDirectory", SystemUtility::GetComponentCacheDirectory,
     [](Model& m) { return m.work("VANTA_HX_CACHEDIR", "VANTA_HX_CACHE_BASE_DIR", "cache"); }},
    {"GetTempDirectory", SystemUtility::GetTempDirectory,
     [](Model& m) { return m.work("VANTA_HX_TEMPDIR", "VANTA_HX_TEMP_BASE_DIR", "tmp"); }},
};

constexpr const char* kVariables[] = {"HX_PRODUCT_HOME",
                                      "VANTA_HX_HOME",
                                      "VANTA_HOME",
                                      "VANTA_HX_ROOTDIR",
                                      "VANTA_INSTANCE",
                                      "DOMAIN_HOME",
                                      "TMP",
                                      "TEMP",
                                      "TEMPDIR",
                                      "VANTA_HX_CONFIG_DIR",
                                      "COMPONENT_NAME",
                                      "TIMEZONE_PATH",
                                      "VANTA_HX_CACHEDIR",
                                      "VANTA_HX_CACHE_BASE_DIR",
                                      "VANTA_HX_TEMPDIR",
                                      "VANTA_HX_TEMP_BASE_DIR"};

constexpr const char* kDirectories[] = {
    "a/hx/hxfoundation/server/bin", "a/hxfoundation/server/bin", "b/server", "b/hx/server", "hx", "a/b"};

class Draw {
public:
    explicit Draw(unsigned int seed) : m_random(seed) {}

    bool oneIn(unsigned int n) { return below(n) == 0; }
    std::size_t below(std::size_t n) { return m_random() % n; }

    // A path made of pieces that meet the tree, with too many slashes now and then.
    std::string value() {
        static const std::vector<std::string> kPieces = {"/", "//", "///", "/a", "/b", "/hx",
                                                         "/", "a",  "x",   "hx", ".",  "/hxfoundation"};
        if (oneIn(12)) {
            return "";
        }
        if (oneIn(12)) {
            return "/" + std::string(2040 + below(16), 'l');
        }
        std::string text = oneIn(4) ? "" : "$T";
        for (std::size_t n = below(4); n != 0; --n) {
            text += kPieces[below(kPieces.size())];
        }
        return text;
    }

private:
    std::mt19937 m_random;
};

struct Step {
    const Operation* operation; // null for a change of a variable
    std::string variable;
    std::optional<std::string> value;
};

void runDraw(unsigned int seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    Draw draw(seed);
    const Tree tree;
    for (const char* const directory : kDirectories) {
        if (!draw.oneIn(3)) {
            tree.addDirectory(directory);
        }
    }
    const unsigned int rarity = static_cast<unsigned int>(1 + draw.below(4));
    Variables variables;
    Model model(tree);
    for (const char* const name : kVariables) {
        if (draw.oneIn(rarity)) {
            const std::string value = tree.expand(draw.value());
            variables.emplace_back(name, value);
            model.variables[name] = value;
        }
    }

    std::vector<Step> steps;
    std::string expected;
    const auto ask = [&](const Operation& operation) {
        steps.push_back({&operation, "", std::nullopt});
        const Answer answer = operation.model(model);
        expected += operation.name + std::string(answer.isReal ? ": true " : ": false ") + answer.path + "\n";
    };
    const bool isAssociated = draw.oneIn(2);
    if (isAssociated) { // it asks for the directories that it makes, which fills caches
        model.associatedType = "KROS";
        model.defaultName = "kros1";
        model.inComponent("");
        model.work("VANTA_HX_TEMPDIR", "VANTA_HX_TEMP_BASE_DIR", "tmp");
        model.componentConfig();
        model.inComponent("/logs");
        model.inConfig("/core");
    }
    for (int i = 0; i < 40; ++i) {
        if (draw.oneIn(4)) {
            Step step{nullptr, kVariables[draw.below(std::size(kVariables))], std::nullopt};
            if (draw.oneIn(3)) {
                model.variables.erase(step.variable);
            } else {
                step.value = tree.expand(draw.value());
                model.variables[step.variable] = *step.value;
            }
            steps.push_back(step);
        } else {
            ask(kOperations[draw.below(kOperations.size())]);
        }
    }
    for (const Operation& operation : kOperations) {
        ask(operation);
    }

    const std::string actual = answers(tree, variables, [&] {
        brimtest::SystemCalls::refuseDirectories = true;
        if (isAssociated) {
            SUPEnvInit::KROS_TYPE();
        }
        for (const Step& step : steps) {
            if (step.operation != nullptr) {
                std::printf("%s: ", step.operation->name);
                show(step.operation->library);
            } else if (step.value) {
                brimtest::setVariable(step.variable, *step.value);
            } else {
                ::unsetenv(step.variable.c_str());
            }
        }
    });
    EXPECT_EQ(actual, expected);
}

TEST(DirectoriesModel, EveryOperationAgreesOnRandomVariablesAndTrees) {
#ifdef BRIM_SANITIZED
    constexpr unsigned int kDraws = 150;
#else
    constexpr unsigned int kDraws = 1000;
#endif
    for (unsigned int seed = 1; seed <= kDraws && !HasFailure(); ++seed) {
        runDraw(seed);
    }
}

} // namespace
