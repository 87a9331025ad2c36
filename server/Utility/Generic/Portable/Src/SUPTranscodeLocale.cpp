// The code-page layer: system locales, and the maps that come from the locale file.
#include "Utility/Generic/Portable/SUPTranscode.h"

#include "CharacterTypeLocale.h"
#include "CodePageNames.h"
#include "LoadTime.h"
#include "LocaleFileMaps.h"
#include "ServerLocaleDirectory.h"
#include "Utility/Generic/Portable/SUPOS.h"

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

namespace {

using NarrowString = sup::String<char>;
using ErrorManager = UtilityPortableErrorMessageManager;

constexpr unsigned int kFallbackCodePage = 1252;
constexpr const char* kFallbackLocale = "C";

void report(ErrorManager::errCode code, const char* arg1, const char* arg2) {
    ErrorManager::Get(nullptr, false)->ThrowErrorMessage(code, arg1, arg2);
}

std::string_view viewOf(const NarrowString& s) { return {s.begin(), s.length()}; }

std::string_view codeSetOf(std::string_view localeName) {
    localeName = localeName.substr(0, localeName.find('@'));
    const std::size_t dot = localeName.find('.');
    return dot == std::string_view::npos ? std::string_view() : localeName.substr(dot + 1);
}

unsigned int codePageFrom(const NarrowString& text) {
    return static_cast<unsigned int>(std::strtol(text.c_str(), nullptr, 10));
}

// The code page of the first entry whose system locale passes the test; 0 when none does.
template <class Test>
unsigned int codePageOfEntry(Test test) {
    for (const auto& entry : GetQuayLocale2SystemLocaleMap()) {
        if (test(viewOf(entry.second.first))) {
            return codePageFrom(entry.second.second);
        }
    }
    return 0;
}

// Reading the file asks for the process's code page, which is looked up here: so only the built-in entry may
// be made under the guard of the static object.
sup::LocaleConversionMap& localeConversionMap() {
    static sup::LocaleConversionMap map{{NarrowString("C"), {NarrowString("C"), NarrowString("1252")}}};
    return map;
}

sup::IconvIdentifierMap& iconvIdentifierMap() {
    static sup::IconvIdentifierMap map;
    return map;
}

} // namespace

sup::String<char> sup::characterTypeLocale(const char* name) {
    static constinit std::mutex oneAtATime;
    const std::lock_guard<std::mutex> lock(oneAtATime);
    return String<char>(std::setlocale(LC_CTYPE, name));
}

const sup::LocaleConversionMap& GetQuayLocale2SystemLocaleMap() { return localeConversionMap(); }

// Made before the load-time steps, whatever the order of linking.
__attribute__((init_priority(101))) sup::SortLangMap g_sortLangMap;

const sup::SortLangMap& GetSortLangMap() { return g_sortLangMap; }

void sup::loadtime::buildLocaleMaps() {
    readLocaleFile(GetLocaleFile(), localeConversionMap(), g_sortLangMap, iconvIdentifierMap());
}

const char* sup::iconvIdentifierOf(int encoding) noexcept {
    const auto entry = iconvIdentifierMap().find(encoding);
    return entry == iconvIdentifierMap().end() ? nullptr : entry->second.c_str();
}

unsigned int Locale2CodePage(const char* localeName) {
    const std::string_view name = localeName == nullptr ? std::string_view() : std::string_view(localeName);
    const std::string_view plainName = name.substr(0, name.find('@'));
    const std::string_view codeSet = codeSetOf(name);
    unsigned int codePage = codePageOfEntry([=](std::string_view locale) { return locale == name; });
    if (codePage == 0) {
        codePage = codePageOfEntry([=](std::string_view locale) { return locale == plainName; });
    }
    if (codePage == 0 && !codeSet.empty()) {
        codePage = codePageOfEntry([=](std::string_view locale) { return codeSetOf(locale) == codeSet; });
    }
    if (codePage == 0) {
        const int known = sup::codePageOfName(codeSet);
        codePage = known < 0 ? kFallbackCodePage : static_cast<unsigned int>(known);
    }
    return codePage;
}

sup::String<wchar_t> GetLocaleFile() {
    const auto path = [] {
        sup::String<wchar_t> result = sup::serverLocaleDirectory();
        return result.append(L"/").append(L"BrimLocale.xml");
    };
    const char* const current = std::setlocale(LC_CTYPE, nullptr);
    if (current == nullptr || std::strcmp(current, "C") == 0) {
        return path();
    }
    const NarrowString saved(current); // the C library overwrites it
    SystemUtility::GetACP();           // found now, under the process's own locale, and not below under "C"
    if (std::setlocale(LC_CTYPE, "C") == nullptr) {
        report(ErrorManager::E_Portable_LocaleUnavailable, "C", nullptr);
    }
    sup::String<wchar_t> result;
    try {
        result = path();
    } catch (...) {
        std::setlocale(LC_CTYPE, saved.c_str());
        throw;
    }
    if (std::setlocale(LC_CTYPE, saved.c_str()) == nullptr) {
        report(ErrorManager::E_Portable_DefaultLocaleUnsupported, saved.c_str(), nullptr);
    }
    return result;
}

const char* SystemUtility::NCSetLocale(int category, const char* locale) {
    if (locale == nullptr) {
        locale = "";
    }
    const auto entry = GetQuayLocale2SystemLocaleMap().find(NarrowString(locale));
    if (entry != GetQuayLocale2SystemLocaleMap().end()) {
        if (const char* const set = std::setlocale(category, entry->second.first.c_str())) {
            return set;
        }
    }
    if (const char* const set = std::setlocale(category, locale)) {
        return set;
    }
    report(ErrorManager::E_Portable_LocaleUnavailable, locale, kFallbackLocale);
    return std::setlocale(category, kFallbackLocale);
}

sup::String<char> SystemUtility::GetSystemLocaleFromCodePage(unsigned int codePage) {
    for (const auto& entry : GetQuayLocale2SystemLocaleMap()) {
        if (codePageFrom(entry.second.second) == codePage) {
            return entry.second.first;
        }
    }
    return {};
}
