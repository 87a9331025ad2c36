// What the XML tests share: documents that are parsed with the library and with the bare parser, files.
#pragma once

#include "Utility/Generic/Portable/SUPDom.h"
#include "recording_allocator.h"

#include <gtest/gtest.h>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMException.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/util/XMLException.hpp>

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace xmltest {

/// A directory that is removed with all it holds.
class TemporaryDirectory {
public:
    TemporaryDirectory() : m_path((std::filesystem::temp_directory_path() / "brim-xml-XXXXXX").string()) {
        EXPECT_NE(::mkdtemp(m_path.data()), nullptr);
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return m_path; }
    /// Writes a file, its directories too, and returns its path.
    std::string write(const std::string& name, std::string_view content) const {
        const std::filesystem::path file = std::filesystem::path(m_path) / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return file.string();
    }

private:
    std::string m_path;
};

/// In ASCII.
inline BrimString wide(std::string_view text) {
    BrimString result;
    for (const char c : text) {
        result.push_back(static_cast<wchar_t>(static_cast<unsigned char>(c)));
    }
    return result;
}
inline std::wstring plain(const BrimString& text) { return std::wstring(text.begin(), text.length()); }

inline std::string repeated(std::string_view text, std::size_t n) {
    std::string result;
    result.reserve(text.size() * n);
    for (std::size_t i = 0; i < n; ++i) {
        result += text;
    }
    return result;
}

/// What `body` prints on standard output. The default error-message manager prints its reports there.
template <class Body>
std::string printedBy(Body body) {
    testing::internal::CaptureStdout();
    try {
        body();
    } catch (...) {
        testing::internal::GetCapturedStdout();
        throw;
    }
    return testing::internal::GetCapturedStdout();
}

inline constexpr const char* kParserFailure = "Xml File Parse error number -10, ";

/// A parser and what belongs to it.
struct Parsing {
    XercesInitializer& xerces = XercesInitializer::GetXercesInit();
    SUPDomErrorReporter reporter;
    SUPDOMPrintFormatTarget format;
    xercesc::XercesDOMParser parser;
    xercesc::DOMDocument* document = nullptr;
    std::string printed;

    Parsing() { format.Initialize(); }

    Parsing& bytes(std::string_view data) {
        printed = printedBy([&] {
            document =
                SUPDOM::ParseDocument(reinterpret_cast<const unsigned char*>(data.data()),
                                      static_cast<unsigned int>(data.size()), parser, reporter, format);
        });
        return *this;
    }
    Parsing& file(const BrimString& name) {
        printed = printedBy([&] { document = SUPDOM::ParseDocument(name, parser, reporter, format); });
        return *this;
    }
    std::wstring text(const xercesc::DOMNode* node) {
        return plain(SUPDomHelperFunctions::FindChildText(node, format));
    }
    std::wstring rootText() {
        return document == nullptr ? L"no document" : text(document->getDocumentElement());
    }
};

/// What the parser makes of a document without the library: errors, and what it throws.
struct BareResult {
    int errors = 0;
    bool throwsDomException = false;
    bool hasDocument = false;
};

inline BareResult parseBare(std::string_view data) {
    struct Counter : xercesc::ErrorHandler {
        int n = 0;
        void warning(const xercesc::SAXParseException& /*e*/) override {}
        void error(const xercesc::SAXParseException& /*e*/) override { ++n; }
        void fatalError(const xercesc::SAXParseException& /*e*/) override { ++n; }
        void resetErrors() override {}
    };
    XercesInitializer::GetXercesInit();
    BareResult result;
    Counter counter;
    xercesc::XercesDOMParser parser;
    parser.setDoNamespaces(true);
    parser.setCreateEntityReferenceNodes(true);
    parser.setIncludeIgnorableWhitespace(false);
    parser.setLoadExternalDTD(false);
    parser.setDisableDefaultEntityResolution(true);
    parser.setErrorHandler(&counter);
    try {
        parser.parse(
            xercesc::MemBufInputSource(reinterpret_cast<const XMLByte*>(data.data()), data.size(), "bare"));
    } catch (const xercesc::DOMException&) {
        result.throwsDomException = true;
    }
    result.errors = counter.n;
    result.hasDocument = parser.getDocument() != nullptr;
    return result;
}

} // namespace xmltest
