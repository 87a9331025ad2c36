// The environment, the settings and the identity that come from it, and the directory layout.
#include "Utility/Generic/Portable/SUPOS.h"

#include "CharacterTypeLocale.h"
#include "LoadTime.h"
#include "ServerLocaleDirectory.h"
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/UniversalLoggerBase.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cwchar>
#include <iterator>
#include <limits>
#include <mutex>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using String = sup::String<wchar_t>;

constexpr const wchar_t* kThisFile = L"server/Utility/Generic/Portable/Src/SUPOS.cpp";
constexpr unsigned int kGetenvTraceLine = 237;

constexpr const wchar_t* kDefaultHome = L"/vanta/home";
constexpr const wchar_t* kApplicationGroup = L"core";
constexpr int kDefaultRpcTimeout = 540;
constexpr int kDefaultFileHandles = 125;

SynchronizationChecker g_envVarSynchChecker;

// One writer at a time, of any cache.
class CacheWriter {
public:
    CacheWriter() : m_lock(s_mutex) { g_envVarSynchChecker.acquireWriter(); }
    ~CacheWriter() { g_envVarSynchChecker.releaseWriter(); }
    CacheWriter(const CacheWriter&) = delete;
    CacheWriter& operator=(const CacheWriter&) = delete;

private:
    static inline constinit std::mutex s_mutex;
    std::lock_guard<std::mutex> m_lock;
};

// A value that does not change once it was found. Threads that race find the same; the first one's is kept.
template <class T>
class CachedValue {
public:
    bool isSet() const noexcept { return m_isSet.load(std::memory_order_acquire); }
    T get() const noexcept { return m_value.load(std::memory_order_relaxed); }
    void set(T value) {
        const CacheWriter writer;
        m_value.store(value, std::memory_order_relaxed);
        m_isSet.store(true, std::memory_order_release);
    }

private:
    std::atomic<T> m_value{};
    std::atomic<bool> m_isSet{false};
};

// The same for a path. A longer one is not kept: cut, it would name another directory.
class CachedPath {
public:
    bool get(String& path) const {
        if (!m_isSet.load(std::memory_order_acquire)) {
            return false;
        }
        path = m_text;
        return true;
    }

    void set(const String& path) {
        const CacheWriter writer;
        if (!m_isSet.load(std::memory_order_relaxed) && path.length() < std::size(m_text)) {
            std::copy_n(path.c_str(), path.length() + 1, m_text);
            m_isSet.store(true, std::memory_order_release);
        }
    }

    void forget() noexcept { m_isSet.store(false, std::memory_order_relaxed); }

private:
    wchar_t m_text[2048] = {};
    std::atomic<bool> m_isSet{false};
};

// The one cache that is written again and again.
class CachedLanguage {
public:
    bool get(String& lang) const {
        const CacheWriter noOther;
        if (m_isSet) {
            lang = m_text;
        }
        return m_isSet;
    }

    void set(const String& lang) {
        if (lang.length() < std::size(m_text)) {
            const CacheWriter writer;
            std::copy_n(lang.c_str(), lang.length() + 1, m_text);
            m_isSet = true;
        }
    }

private:
    wchar_t m_text[256] = {};
    bool m_isSet = false;
};

constinit CachedPath g_sHXHomeDir;
constinit CachedPath g_sInstanceDir;
constinit CachedPath g_sDomainHomeDir;
constinit CachedPath g_sComponentName;
constinit CachedLanguage g_sLang;
constinit CachedValue<int> g_retValue;
constinit CachedValue<bool> g_bAreWeHaloManaged;
constinit CachedValue<bool> g_bIsLegacyInstanceMode;
constinit std::atomic<bool> g_bDomainHomeReturnValue{false};    // of the cached path
constinit std::atomic<bool> g_bMissingDomainIsNoFailure{false}; // for an ODBC client

constinit std::mutex g_association;

// What load time found, for whoever looks at the process in a debugger.
int g_initProcNum = 0;

String joined(const String& directory, const wchar_t* rest) {
    String path(directory);
    path.append(rest);
    return path;
}

// The first of TMP, TEMP and TEMPDIR that is set, or "/tmp".
void getSystemTempDirectory(String& path) {
    if (!SystemUtility::Getenv(L"TMP", path) && !SystemUtility::Getenv(L"TEMP", path) &&
        !SystemUtility::Getenv(L"TEMPDIR", path)) {
        path = L"/tmp";
    }
}

bool appendCleaned(String& path, const wchar_t* rest, bool result) {
    path.append(rest);
    CleanupPath(path);
    return result;
}

using DirectoryOperation = bool (*)(String& path);

bool under(DirectoryOperation base, const wchar_t* rest, String& path) {
    const bool result = base(path);
    return appendCleaned(path, rest, result);
}

// domain/servers, the component name, and `rest`.
bool underComponent(const wchar_t* rest, String& path) {
    const bool isRealDomain = SystemUtility::GetDomainHomeDirectory(path);
    String component;
    const bool isRealName = SystemUtility::GetComponentName(component);
    path.append(L"/servers/").append(component);
    return appendCleaned(path, rest, isRealName && isRealDomain);
}

// The directory that `variable` names; else the component's part of the base directory that `baseVariable`
// names; else a part of the component directory.
bool getWorkDirectory(const wchar_t* variable, const wchar_t* baseVariable, const wchar_t* name,
                      String& path) {
    if (SystemUtility::Getenv(variable, path)) {
        CleanupPath(path);
        return true;
    }
    if (SystemUtility::Getenv(baseVariable, path)) {
        if (!SystemUtility::IsValidDirectory(path)) {
            path.clear();
            return false;
        }
        String component;
        SystemUtility::GetComponentName(component);
        path.append(L"/").append(component);
    } else {
        SystemUtility::GetComponentDirectory(path);
    }
    path.append(L"/");
    return appendCleaned(path, name, true);
}

String languageOfLocale() {
    // The one place besides start-up that sets the process's locale: its caller asks for the environment's.
    const sup::String<char> locale = sup::characterTypeLocale("");
    const String name = BaseStringUtil::StringFrom(locale.c_str(), SystemUtility::GetMultiByteCodePage());
    if (name.empty() || name == String(L"C")) {
        return L"en";
    }
    String lang(name, 2);
    if (lang == String(L"zh")) {
        const String territory = name.substr(3, 2);
        if (territory == String(L"CN")) {
            lang.append(L"-CN");
        } else if (territory == String(L"TW")) {
            lang.append(L"-TW");
        }
    }
    return lang;
}

int systemProcessors() {
    const long online = ::sysconf(_SC_NPROCESSORS_ONLN);
    if (online == -1) {
        throw int{0};
    }
    return online == 0 ? 1 : static_cast<int>(online);
}

void makeDirectoryOf(DirectoryOperation operation, bool fallbackCounts) {
    String path;
    if ((operation(path) || fallbackCounts) && !path.empty() && !SystemUtility::IsValidDirectory(path)) {
        SystemUtility::MakeDirectories(path);
    }
}

// What a missing configuration leaves of a path would lie at the root of the file system.
void makeComponentDirectories() {
    makeDirectoryOf(SystemUtility::GetComponentDirectory, true);
    makeDirectoryOf(SystemUtility::GetTempDirectory, true);
    makeDirectoryOf(SystemUtility::GetConfigDirectory, false);
    makeDirectoryOf(SystemUtility::GetLogDirectory, true);
    makeDirectoryOf(SystemUtility::GetHXAppGroupDirectory, false);
}

} // namespace

void CleanupPath(sup::String<wchar_t>& path) {
    path = BaseStringUtil::ReplacePatternInString(path, L"//", L"/");
    if (!path.empty() && path.back() == L'/') {
        path.pop_back();
    }
}

// ---- Environment ------------------------------------------------------------------------------------------

namespace {

// The environment's own text, or null.
const char* findVariable(const String& name, unsigned int codePage) {
    sup::String<char> narrow;
    return BaseStringUtil::TryStringToStdString(name, narrow, codePage) ? std::getenv(narrow.c_str())
                                                                        : nullptr;
}

void traceVariable(const String& name, const String& value) {
    constexpr const wchar_t* kFormat = L"Environment variable %ls=%ls";
    sup::UniversalLoggerBase* const logger = sup::UniversalLoggerBase::getThreadLogger();
    sup::UniversalLoggerBase::LogMessageAttributes attrs;
    if (logger->calculateEnabledProviders(
            sup::LoggingEnums::kLogServer, sup::LoggingEnums::MESSAGE_TYPE_TRACE,
            sup::LoggingEnums::kSeverityForDebugOnly, kThisFile, kGetenvTraceLine, attrs)) {
        const std::size_t room = std::wcslen(kFormat) + name.length() + value.length();
        logger->logFmtToEnabledProviders(attrs, kThisFile, kGetenvTraceLine, kFormat,
                                         static_cast<unsigned int>(room), name.c_str(), value.c_str());
    }
}

} // namespace

bool SystemUtility::Getenv(const String& name, String& value) {
    const unsigned int codePage = GetMultiByteCodePage();
    const char* const found = findVariable(name, codePage);
    if (found == nullptr) {
        value.clear();
        return false;
    }
    const String asked(name); // may be `value` itself
    value = BaseStringUtil::StringFrom(found, codePage);
    traceVariable(asked, value);
    return true;
}

bool SystemUtility::Getenv(const String& name, int& value) {
    String text;
    const bool found = Getenv(name, text);
    if (found) {
        value = BaseStringUtil::StringToInteger(text);
    }
    return found;
}

int SystemUtility::GetenvWithDefault(const String& name, int defaultValue) {
    Getenv(name, defaultValue);
    return defaultValue;
}

bool SystemUtility::hasEnv(const String& name) {
    return findVariable(name, GetMultiByteCodePage()) != nullptr;
}

bool SystemUtility::Putenv(const String& name, const String& value) {
    const unsigned int codePage = GetMultiByteCodePage();
    sup::String<char> narrowName;
    sup::String<char> narrowValue;
    return BaseStringUtil::TryStringToStdString(name, narrowName, codePage) &&
           BaseStringUtil::TryStringToStdString(value, narrowValue, codePage) &&
           ::setenv(narrowName.c_str(), narrowValue.c_str(), 1) == 0;
}

sup::String<wchar_t> SystemUtility::GetPathVariableKeyWord() { return L"LD_LIBRARY_PATH"; }

bool SystemUtility::SetDllSearchPath(const String& dir) {
    const String variable = GetPathVariableKeyWord();
    String path;
    Getenv(variable, path);
    path.append(L":").append(dir);
    Putenv(variable, path);
    return true;
}

// ---- Settings ---------------------------------------------------------------------------------------------

int SystemUtility::GetRPCTimeoutSeconds() {
    String text;
    return Getenv(L"QUAY_RPC_TIMEOUT", text) ? BaseStringUtil::IntFrom(text) : kDefaultRpcTimeout;
}

int SystemUtility::GetNumberOfProcessors() {
    if (g_retValue.get() > 0) {
        return g_retValue.get();
    }
    String text;
    int count = 0;
    if (Getenv(L"KROS_NUMBER_OF_PROCESSORS", text) && BaseStringUtil::IsInteger(text)) {
        count = BaseStringUtil::StringToInteger(text);
    }
    if (count <= 0) {
        count = systemProcessors();
    }
    g_retValue.set(count);
    return count;
}

int SystemUtility::GetMaximumFileHandles() {
    String text;
    if (Getenv(L"FEN_MAX_FILE_HANDLES", text)) {
        return BaseStringUtil::IntFrom(text);
    }
    struct rlimit limit {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) {
        return kDefaultFileHandles;
    }
    return static_cast<int>(std::min<rlim_t>(limit.rlim_cur, std::numeric_limits<int>::max()));
}

bool SystemUtility::GetErrorMessageLang(String& lang) {
    if (!g_sLang.get(lang)) {
        if (!Getenv(L"VANTA_HX_LANG", lang)) {
            lang = languageOfLocale();
        }
        SetErrorMessageLang(lang);
    }
    return true;
}

void SystemUtility::SetErrorMessageLang(const String& lang) { g_sLang.set(lang); }

bool SystemUtility::AreWeHaloManagedComponent() {
    if (g_bAreWeHaloManaged.isSet()) {
        return g_bAreWeHaloManaged.get();
    }
    String text;
    if (!Getenv(L"VANTA_HX_HALOMANAGED", text)) {
        return false;
    }
    const bool managed = BaseStringUtil::BooleanFrom(text, false);
    g_bAreWeHaloManaged.set(managed);
    return managed;
}

bool SystemUtility::IsFeatureEnabled(const String& feature) {
    String path;
    GetVantaHXHomeDirectory(path);
    path.append(L"/featureflags/").append(feature);
    return IsFileExist(path);
}

bool SystemUtility::IsLegacyInstanceMode() {
    if (!g_bIsLegacyInstanceMode.isSet()) {
        String path;
        GetVantaHXHomeDirectory(path);
        if (path.empty() || path.back() != L'/') {
            path.append(L"/");
        }
        g_bIsLegacyInstanceMode.set(IsFileExist(path.append(L"featureflags/noninstancemode")));
    }
    return g_bIsLegacyInstanceMode.get();
}

bool SystemUtility::IsCCSAvailable() { return IsFeatureEnabled(L"contentstorage"); }

bool SystemUtility::IsFSSv2Available() { return IsCCSAvailable(); }

// ---- Component identity -----------------------------------------------------------------------------------

bool SystemUtility::GetInstanceName(String& name) {
    const bool found = Getenv(L"INSTANCE_NAME", name);
    if (!found) {
        name = L"instance1";
    }
    return found;
}

bool SystemUtility::GetComponentType(String& type) {
    const bool associated = SUPEnvInit::getComponentNamesSet();
    type = associated ? SUPEnvInit::getComponentType() : String(L"default");
    return associated;
}

bool SystemUtility::GetComponentName(String& name) {
    if (g_sComponentName.get(name)) {
        return true;
    }
    if (Getenv(L"COMPONENT_NAME", name)) {
        g_sComponentName.set(name);
        return true;
    }
    name = SUPEnvInit::getComponentNamesSet() ? SUPEnvInit::getDefaultComponentName() : String();
    return false;
}

bool SystemUtility::GetUniqueIdentifier(String& identifier) {
    GetComponentName(identifier);
    return true;
}

void SystemUtility::GetServerLogFileName(String& name) {
    GetComponentName(name);
    name.append(L"-diagnostic.log");
}

void SystemUtility::GetQueryLogFileName(String& name) {
    GetComponentName(name);
    name.append(L"-query.log");
}

void SystemUtility::GetClusterLogFileName(String& name) { GetServerLogFileName(name); }

bool SystemUtility::GetHXApplicationGroup(String& group) {
    group = kApplicationGroup;
    return true;
}

constinit std::atomic<bool> SUPEnvInit::m_componentNamesSet{false};
constinit sup::String<wchar_t> SUPEnvInit::m_componentType;
constinit sup::String<wchar_t> SUPEnvInit::m_defaultComponentName;

bool SUPEnvInit::AssociateCompType(const ComponentNames& names) {
    const std::lock_guard<std::mutex> lock(g_association);
    String type;
    if (!SystemUtility::Getenv(L"COMPONENT_TYPE", type)) {
        SystemUtility::Putenv(L"COMPONENT_TYPE", names.GetComponentType());
    }
    if (getComponentNamesSet()) {
        return true;
    }
    m_componentType = type.empty() ? names.GetComponentType() : type;
    m_defaultComponentName = BaseStringUtil::ToLowerCase(names.GetDefaultInstanceName());
    if (m_defaultComponentName.empty()) {
        String group;
        SystemUtility::GetHXApplicationGroup(group);
        m_defaultComponentName = BaseStringUtil::ToLowerCase(group)
                                     .append(L"_")
                                     .append(BaseStringUtil::ToLowerCase(names.GetComponentType()))
                                     .append(L"1");
    }
    m_componentNamesSet.store(true, std::memory_order_release); // both names stand

    try {
        makeComponentDirectories();
    } catch (...) { // no memory: the next association makes the rest
        m_componentNamesSet.store(false, std::memory_order_release);
        throw;
    }
    return true;
}

bool SUPEnvInit::KROS_TYPE() { return AssociateCompType({L"KROS", L"kros1"}); }
bool SUPEnvInit::KROPS_TYPE() { return AssociateCompType({L"KROPS", L"krops1"}); }
bool SUPEnvInit::CCS_TYPE() { return AssociateCompType({L"KROCCS", L"kroccs1"}); }
bool SUPEnvInit::KROSCH_TYPE() { return AssociateCompType({L"KROSCH", L"krosch1"}); }
bool SUPEnvInit::SCHEDULER_CLIENT_TYPE() { return AssociateCompType({L"KROSCHClient", L"kroschclient1"}); }
bool SUPEnvInit::CCS_CLIENT_TYPE() { return AssociateCompType({L"KROCCSClient", L"kroccsclient1"}); }
bool SUPEnvInit::SYNC_TYPE() { return AssociateCompType({L"KRODIS", L"krodis1"}); }

bool SUPEnvInit::ODBC_COMP_TYPE() {
    String domain;
    SystemUtility::GetDomainHomeDirectory(domain);
    g_bMissingDomainIsNoFailure.store(true, std::memory_order_relaxed);
    return AssociateCompType({L"ODBC", L"kroodbc1"});
}

// ---- Directories ------------------------------------------------------------------------------------------

bool SystemUtility::GetVantaHXHomeDirectory(String& path) {
    if (g_sHXHomeDir.get(path)) {
        return true;
    }
    if (!Getenv(L"HX_PRODUCT_HOME", path) && !Getenv(L"VANTA_HX_HOME", path)) {
        if (!Getenv(L"VANTA_HOME", path)) {
            path = kDefaultHome;
            return false;
        }
        if (!IsValidDirectory(joined(path, L"/hx/hxfoundation/server/bin"))) {
            return false;
        }
        path.append(L"/hx");
    }
    CleanupPath(path);
    g_sHXHomeDir.set(path);
    return true;
}

bool SystemUtility::GetVantaHomeDirectory(String& path) {
    if (Getenv(L"VANTA_HOME", path)) {
        if (IsValidDirectory(joined(path, L"/hxfoundation/server/bin"))) {
            CleanupPath(path);
            return true;
        }
    } else if (Getenv(L"VANTA_HX_HOME", path)) {
        CleanupPath(path);
        if (path.length() > 2) {
            path.resize(path.length() - 3); // the trailing "/hx"
        }
        if (IsValidDirectory(path)) {
            CleanupPath(path);
            return true;
        }
    }
    path = kDefaultHome;
    return false;
}

bool SystemUtility::GetVantaInstanceDirectory(String& path) {
    if (g_sInstanceDir.get(path)) {
        return true;
    }
    if (Getenv(L"VANTA_INSTANCE", path)) {
        g_sInstanceDir.set(path);
        CleanupPath(path);
        return true;
    }
    getSystemTempDirectory(path);
    return appendCleaned(path, L"/vanta/instance", false);
}

bool SystemUtility::GetDomainHomeDirectory(String& path) {
    const bool neverFails = g_bMissingDomainIsNoFailure.load(std::memory_order_relaxed);
    if (g_sDomainHomeDir.get(path)) {
        return neverFails || g_bDomainHomeReturnValue.load(std::memory_order_relaxed);
    }
    const bool found = Getenv(L"DOMAIN_HOME", path);
    if (!found) {
        getSystemTempDirectory(path);
    }
    CleanupPath(path);
    g_bDomainHomeReturnValue.store(found, std::memory_order_relaxed);
    g_sDomainHomeDir.set(path);
    return neverFails || found;
}

bool SystemUtility::GetServerBinDirectory(String& path) {
    under(GetVantaHXHomeDirectory, L"/hxfoundation/server/bin", path);
    return !path.empty();
}

bool SystemUtility::GetServerLocaleDirectory(String& path) {
    under(GetVantaHXHomeDirectory, L"/hxfoundation/server/locale", path);
    return !path.empty();
}

bool SystemUtility::GetRootDirectory(String& path) {
    if (Getenv(L"VANTA_HX_ROOTDIR", path)) {
        CleanupPath(path);
        return true;
    }
    under(GetVantaHXHomeDirectory, L"/hxfoundation", path);
    return false;
}

bool SystemUtility::GetProgramDirectory(String& path) {
    const bool result = GetRootDirectory(path);
    const String server = joined(path, L"/server");
    if (IsValidDirectory(server)) {
        path = server;
    }
    CleanupPath(path);
    return result;
}

bool SystemUtility::GetTimeZoneDirectory(String& path) {
    const bool result = Getenv(L"TIMEZONE_PATH", path) || GetRootDirectory(path);
    return appendCleaned(path, L"/timezone", result);
}

bool SystemUtility::GetDomainServersDirectory(String& path) {
    return under(GetDomainHomeDirectory, L"/servers", path);
}

bool SystemUtility::GetEnvKROCCSDirectory(String& path) {
    return under(GetDomainHomeDirectory, L"/config/plxconfig/hxenv/KROCCS", path);
}

bool SystemUtility::GetEnvCoreDirectory(String& path) {
    return under(GetDomainHomeDirectory, L"/config/plxconfig/hxenv/core", path);
}

bool SystemUtility::GetDefaultDataDirectory(String& path) {
    return under(GetDomainHomeDirectory, L"/hxdata", path);
}

bool SystemUtility::GetVantaHXConfigDir(String& path) {
    if (Getenv(L"VANTA_HX_CONFIG_DIR", path) && !path.empty()) {
        CleanupPath(path);
        return true;
    }
    if (GetDomainHomeDirectory(path)) {
        return appendCleaned(path, L"/config/plxconfig/hxconfig", true);
    }
    path.clear();
    return false;
}

bool SystemUtility::GetConfigKROCCSDirectory(String& path) {
    return under(GetVantaHXConfigDir, L"/KROCCS", path);
}

bool SystemUtility::GetSharedConfigDirectory(String& path) {
    const bool result = GetVantaHXConfigDir(path);
    String group;
    GetHXApplicationGroup(group);
    path.append(L"/").append(group);
    CleanupPath(path);
    return result;
}

bool SystemUtility::GetHXAppGroupDirectory(String& path) { return GetSharedConfigDirectory(path); }

bool SystemUtility::GetConfigDirectory(String& path) {
    if (!GetVantaHXConfigDir(path) || path.empty()) {
        return false;
    }
    String type;
    GetComponentType(type);
    path.append(L"/").append(type);
    CleanupPath(path);
    return true;
}

bool SystemUtility::GetComponentDirectory(String& path) { return underComponent(L"", path); }

bool SystemUtility::GetLogDirectory(String& path) { return underComponent(L"/logs", path); }

bool SystemUtility::GetComponentCacheDirectory(String& path) {
    return getWorkDirectory(L"VANTA_HX_CACHEDIR", L"VANTA_HX_CACHE_BASE_DIR", L"cache", path);
}

bool SystemUtility::GetTempDirectory(String& path) {
    return getWorkDirectory(L"VANTA_HX_TEMPDIR", L"VANTA_HX_TEMP_BASE_DIR", L"tmp", path);
}

sup::String<wchar_t> sup::serverLocaleDirectory() {
    String<wchar_t> path;
    SystemUtility::GetServerLocaleDirectory(path);
    return path;
}

// ---- Load time --------------------------------------------------------------------------------------------

void sup::loadtime::countProcessors() { g_initProcNum = SystemUtility::GetNumberOfProcessors(); }

void sup::loadtime::forgetHomeDirectory() noexcept { g_sHXHomeDir.forget(); }
