// Locales of a test: one of the system's for a while, or one that is compiled on the spot, so that tests do
// not depend on what is installed.
#pragma once

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

namespace brimtest {

/// Makes `name` the process's locale while it lives.
class ScopedLocale {
public:
    explicit ScopedLocale(const char* name)
        : m_previous(std::setlocale(LC_ALL, nullptr)), m_isSet(std::setlocale(LC_ALL, name) != nullptr) {}
    ~ScopedLocale() { std::setlocale(LC_ALL, m_previous.c_str()); }
    ScopedLocale(const ScopedLocale&) = delete;
    ScopedLocale& operator=(const ScopedLocale&) = delete;

    bool isSet() const { return m_isSet; }

private:
    std::string m_previous;
    bool m_isSet;
};

/// Compiles the UTF-8 locale of the definition `source` ("de_DE") into a temporary directory and makes it the
/// process's locale while it lives. isSet() is false where localedef or its sources are missing.
class CompiledLocale {
public:
    explicit CompiledLocale(const std::string& source) {
        std::error_code failure;
        std::string pattern = (std::filesystem::temp_directory_path(failure) / "brim-locale-XXXXXX").string();
        if (failure || ::mkdtemp(pattern.data()) == nullptr) {
            return;
        }
        m_directory = pattern;
        const std::string name = source + ".UTF-8";
        const std::string command =
            "localedef -i " + source + " -f UTF-8 '" + m_directory + "/" + name + "' >/dev/null 2>&1";
        static_cast<void>(std::system(command.c_str())); // a missing locale shows below
        if (const char* const path = std::getenv("LOCPATH")) {
            m_previousPath = path;
        }
        ::setenv("LOCPATH", m_directory.c_str(), 1);
        m_locale.emplace(name.c_str());
    }
    ~CompiledLocale() {
        m_locale.reset();
        if (m_directory.empty()) {
            return;
        }
        if (m_previousPath) {
            ::setenv("LOCPATH", m_previousPath->c_str(), 1);
        } else {
            ::unsetenv("LOCPATH");
        }
        std::error_code ignored;
        std::filesystem::remove_all(m_directory, ignored);
    }
    CompiledLocale(const CompiledLocale&) = delete;
    CompiledLocale& operator=(const CompiledLocale&) = delete;

    bool isSet() const { return m_locale && m_locale->isSet(); }

private:
    std::string m_directory;
    std::optional<std::string> m_previousPath;
    std::optional<ScopedLocale> m_locale;
};

} // namespace brimtest

/// Ends the test when `locale` could not be set.
#define BRIM_SKIP_WITHOUT(locale)                                                                            \
    if (!(locale).isSet()) {                                                                                 \
        GTEST_SKIP() << "no such locale: localedef, or the sources of the package locales, are missing";     \
    }
