// A suite of conformance documents, wherever BRIM_XML_SUITE says it lies (scripts/xml-conformance fetches
// one): the library judges each as the bare parser does in the same configuration.
#include "xml_test_support.h"

#include <gtest/gtest.h>

#include <xercesc/util/XMLException.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

enum class Verdict { sound, broken, domException, xmlException };

Verdict bareVerdict(const std::string& document) {
    try {
        const xmltest::BareResult bare = xmltest::parseBare(document);
        if (bare.throwsDomException) {
            return Verdict::domException;
        }
        return bare.errors == 0 ? Verdict::sound : Verdict::broken;
    } catch (const xercesc::XMLException&) {
        return Verdict::xmlException;
    }
}

Verdict libraryVerdict(const std::string& document) {
    xmltest::Parsing parsing;
    try {
        parsing.bytes(document);
    } catch (const xercesc::DOMException&) {
        return Verdict::domException;
    } catch (const xercesc::XMLException&) {
        return Verdict::xmlException;
    }
    return parsing.document != nullptr ? Verdict::sound : Verdict::broken;
}

TEST(ConformanceSuite, IsJudgedAsTheBareParserJudgesIt) {
    const char* const suite = std::getenv("BRIM_XML_SUITE");
    if (suite == nullptr) {
        GTEST_SKIP() << "BRIM_XML_SUITE names no directory of documents";
    }
    int documents = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(suite)) {
        if (entry.path().extension() != ".xml") {
            continue;
        }
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string document((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        EXPECT_EQ(libraryVerdict(document), bareVerdict(document)) << entry.path();
        ++documents;
    }
    EXPECT_GT(documents, 0);
    RecordProperty("documents", documents);
}

} // namespace
