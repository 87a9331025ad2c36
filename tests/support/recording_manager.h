// Guards for the process-wide settings that the code-page layer looks at.
#pragma once

#include "Utility/Generic/Portable/SUPOSBase.h"

#include <ostream>
#include <string>
#include <vector>

namespace brimtest {

/// Is the error-message manager while it lives, keeps what is reported and returns.
class RecordingManager : public UtilityPortableErrorMessageManager {
public:
    struct Report {
        int code;
        std::string arg1;
        std::string arg2;

        bool operator==(const Report& other) const {
            return code == other.code && arg1 == other.arg1 && arg2 == other.arg2;
        }
        friend std::ostream& operator<<(std::ostream& stream, const Report& report) {
            return stream << report.code << " \"" << report.arg1 << "\" \"" << report.arg2 << '"';
        }
    };
    using Reports = std::vector<Report>;

    RecordingManager() { Register(this); }
    ~RecordingManager() override { Register(nullptr); }
    RecordingManager(const RecordingManager&) = delete;
    RecordingManager& operator=(const RecordingManager&) = delete;

    void ThrowErrorMessage(int code, const char* arg1, const char* arg2) override {
        m_reports.push_back({code, arg1 != nullptr ? arg1 : kNull, arg2 != nullptr ? arg2 : kNull});
    }

    const Reports& reports() const { return m_reports; }

    /// What one request for an unknown code page reports.
    static Reports unsupported(const std::string& codePage) {
        return {{E_Portable_EncodingUnsupported, codePage, kNull}};
    }

private:
    static constexpr const char* kNull = "(null)";
    Reports m_reports;
};

/// Sets the client code page while it lives.
class ClientCodePage {
public:
    explicit ClientCodePage(unsigned int codePage) : m_before(OSAbstraction::g_clientCodePage) {
        OSAbstraction::g_clientCodePage = codePage;
    }
    ~ClientCodePage() { OSAbstraction::g_clientCodePage = m_before; }
    ClientCodePage(const ClientCodePage&) = delete;
    ClientCodePage& operator=(const ClientCodePage&) = delete;

private:
    unsigned int m_before;
};

} // namespace brimtest
