#include "directories.h"

#include "Utility/Generic/Portable/SUPOS.h"
#include "display_text.h"

#include <algorithm>
#include <cstring>

namespace brimtool {

namespace {

constexpr Source variable(const char* name, const char* alsoVariable = nullptr) {
    return {name, nullptr, alsoVariable, false};
}
constexpr Source nonEmptyVariable(const char* name) { return {name, nullptr, nullptr, true}; }
constexpr Source under(const char* directory, const char* alsoVariable = nullptr) {
    return {nullptr, directory, alsoVariable, false};
}
constexpr Source underReal(const char* directory) { return {nullptr, directory, nullptr, true}; }

constexpr bool kFallsBack = true;

constexpr Directory kDirectories[] = {
    {"product home",
     "GetVantaHXHomeDirectory",
     SystemUtility::GetVantaHXHomeDirectory,
     {variable("HX_PRODUCT_HOME"), variable("VANTA_HX_HOME"), variable("VANTA_HOME")},
     false,
     Use::kInstalled},
    {"Vanta home",
     "GetVantaHomeDirectory",
     SystemUtility::GetVantaHomeDirectory,
     {variable("VANTA_HOME"), variable("VANTA_HX_HOME")},
     kFallsBack,
     Use::kInstalled},
    {"instance",
     "GetVantaInstanceDirectory",
     SystemUtility::GetVantaInstanceDirectory,
     {variable("VANTA_INSTANCE"), variable("TMP"), variable("TEMP"), variable("TEMPDIR")},
     false,
     Use::kData},
    {"domain home",
     "GetDomainHomeDirectory",
     SystemUtility::GetDomainHomeDirectory,
     {variable("DOMAIN_HOME"), variable("TMP"), variable("TEMP"), variable("TEMPDIR")},
     false,
     Use::kData},
    {"server programs",
     "GetServerBinDirectory",
     SystemUtility::GetServerBinDirectory,
     {under("product home")},
     false,
     Use::kInstalled},
    {"server locale",
     "GetServerLocaleDirectory",
     SystemUtility::GetServerLocaleDirectory,
     {under("product home")},
     false,
     Use::kInstalled},
    {"root",
     "GetRootDirectory",
     SystemUtility::GetRootDirectory,
     {variable("VANTA_HX_ROOTDIR"), under("product home")},
     false,
     Use::kInstalled},
    {"program",
     "GetProgramDirectory",
     SystemUtility::GetProgramDirectory,
     {under("root")},
     false,
     Use::kInstalled},
    {"time zone",
     "GetTimeZoneDirectory",
     SystemUtility::GetTimeZoneDirectory,
     {variable("TIMEZONE_PATH"), under("root")},
     false,
     Use::kInstalled},
    {"domain servers",
     "GetDomainServersDirectory",
     SystemUtility::GetDomainServersDirectory,
     {under("domain home")},
     false,
     Use::kMade},
    {"KROCCS environment",
     "GetEnvKROCCSDirectory",
     SystemUtility::GetEnvKROCCSDirectory,
     {under("domain home")},
     false,
     Use::kData},
    {"core environment",
     "GetEnvCoreDirectory",
     SystemUtility::GetEnvCoreDirectory,
     {under("domain home")},
     false,
     Use::kData},
    {"default data",
     "GetDefaultDataDirectory",
     SystemUtility::GetDefaultDataDirectory,
     {under("domain home")},
     false,
     Use::kData},
    {"configuration",
     "GetVantaHXConfigDir",
     SystemUtility::GetVantaHXConfigDir,
     {nonEmptyVariable("VANTA_HX_CONFIG_DIR"), underReal("domain home")},
     false,
     Use::kData},
    {"KROCCS configuration",
     "GetConfigKROCCSDirectory",
     SystemUtility::GetConfigKROCCSDirectory,
     {under("configuration")},
     false,
     Use::kData},
    {"shared configuration",
     "GetSharedConfigDirectory",
     SystemUtility::GetSharedConfigDirectory,
     {under("configuration")},
     false,
     Use::kMade},
    {"application group",
     "GetHXAppGroupDirectory",
     SystemUtility::GetHXAppGroupDirectory,
     {under("configuration")},
     false,
     Use::kMade},
    {"component configuration",
     "GetConfigDirectory",
     SystemUtility::GetConfigDirectory,
     {under("configuration")},
     false,
     Use::kMade},
    {"component",
     "GetComponentDirectory",
     SystemUtility::GetComponentDirectory,
     {under("domain servers", "COMPONENT_NAME")},
     false,
     Use::kMade},
    {"log", "GetLogDirectory", SystemUtility::GetLogDirectory, {under("component")}, false, Use::kMade},
    {"cache",
     "GetComponentCacheDirectory",
     SystemUtility::GetComponentCacheDirectory,
     {variable("VANTA_HX_CACHEDIR"), variable("VANTA_HX_CACHE_BASE_DIR", "COMPONENT_NAME"),
      under("component")},
     false,
     Use::kMade},
    {"temporary",
     "GetTempDirectory",
     SystemUtility::GetTempDirectory,
     {variable("VANTA_HX_TEMPDIR"), variable("VANTA_HX_TEMP_BASE_DIR", "COMPONENT_NAME"), under("component")},
     false,
     Use::kMade},
};

bool isSet(const char* name) { return SystemUtility::hasEnv(wideText(name)); }

bool isNotEmpty(const char* name) {
    BrimString value;
    return SystemUtility::Getenv(wideText(name), value) && !value.empty();
}

// Rows refer to earlier ones only.
class Resolver {
public:
    Resolver() {
        m_resolved.reserve(std::size(kDirectories)); // what derives from an element points to it
        for (const Directory& directory : kDirectories) {
            resolve(directory);
        }
    }

    std::vector<ResolvedDirectory> take() { return std::move(m_resolved); }

private:
    void resolve(const Directory& directory) {
        ResolvedDirectory row{&directory, {}, false, nullptr, {}, {}};
        row.isReal = directory.resolve(row.path);
        const Source* const source =
            directory.isBuiltInUnlessReal && !row.isReal ? nullptr : decidingSource(directory);
        if (source == nullptr) {
            row.from = row.path.empty() ? "nothing" : "built in";
        } else if (source->variable != nullptr) {
            row.variables = {source->variable};
            row.from = source->variable;
        } else {
            row.base = &find(source->directory);
            row.variables = row.base->variables;
            row.from = source->directory + (" (" + rootOf(*row.base) + ")");
        }
        if (source != nullptr && source->alsoVariable != nullptr && isSet(source->alsoVariable)) {
            row.variables.emplace_back(source->alsoVariable);
            row.from += std::string(", ") + source->alsoVariable;
        }
        m_resolved.push_back(std::move(row));
    }

    const Source* decidingSource(const Directory& directory) const {
        const auto* const found = std::find_if(directory.sources.begin(), directory.sources.end(),
                                               [this](const Source& source) { return counts(source); });
        return found == directory.sources.end() ? nullptr : found;
    }

    bool counts(const Source& source) const {
        if (source.variable != nullptr) {
            return source.mustBeReal ? isNotEmpty(source.variable) : isSet(source.variable);
        }
        return source.directory != nullptr && (!source.mustBeReal || find(source.directory).isReal);
    }

    const ResolvedDirectory& find(const char* name) const {
        return *std::find_if(m_resolved.begin(), m_resolved.end(), [name](const ResolvedDirectory& row) {
            return std::strcmp(row.directory->name, name) == 0;
        });
    }

    // What `row` comes from in the end.
    static std::string rootOf(const ResolvedDirectory& row) {
        return row.base == nullptr ? row.from : rootOf(*row.base);
    }

    std::vector<ResolvedDirectory> m_resolved;
};

} // namespace

std::string ResolvedDirectory::systemPath() const { return processText(path); }

std::span<const Directory> allDirectories() { return kDirectories; }

const std::vector<ResolvedDirectory>& resolvedDirectories() {
    static const std::vector<ResolvedDirectory> resolved = Resolver().take();
    return resolved;
}

} // namespace brimtool
