// Documents: an error or a tree, the same verdict twice; harmless ones as the bare parser judges them. The
// locale file: its maps stay as they were or take entries, the same twice.
#include "fuzz_input.h"

#include "Utility/Generic/Portable/SUPBuildMap.h"
#include "xml/xml_test_support.h"

#include <gtest/gtest.h>
#include <sanitizer/lsan_interface.h>

#include <cstdio>

namespace {

enum class Verdict { error, tree, thrown };

Verdict judge(const std::string& document) {
    SUPDomErrorReporter reporter;
    SUPDOMPrintFormatTarget format;
    format.Initialize();
    xercesc::XercesDOMParser parser;
    try {
        const xercesc::DOMDocument* const tree =
            SUPDOM::ParseDocument(reinterpret_cast<const unsigned char*>(document.data()),
                                  static_cast<unsigned int>(document.size()), parser, reporter, format);
        EXPECT_EQ(tree == nullptr, reporter.fSawErrors);
        if (tree == nullptr) {
            return Verdict::error;
        }
        SUPDomHelperFunctions::FindChildText(tree->getDocumentElement(), format);
        return Verdict::tree;
    } catch (const xercesc::DOMException&) {
        return Verdict::thrown;
    }
}

// Too small, and without entities, for the limits to matter.
bool isHarmless(const std::string& document) {
    return document.size() < 2000 && document.find("<!") == std::string::npos;
}

void judgeTwice(const std::string& document) {
    const Verdict verdict = judge(document);
    ASSERT_EQ(judge(document), verdict);
    if (isHarmless(document)) {
        const xmltest::BareResult bare = xmltest::parseBare(document);
        ASSERT_EQ(verdict == Verdict::thrown, bare.throwsDomException);
        if (verdict != Verdict::thrown) {
            ASSERT_EQ(verdict == Verdict::error, bare.errors != 0);
        }
    }
}

struct Maps {
    sup::LocaleConversionMap locales;
    sup::CaseInsBrimStringMap charsets;
    sup::SortLangMap sortLanguages;
    sup::CaseInsBrimStringMap sortIds;
    sup::IconvIdentifierMap iconv;

    void fillFrom(const BrimString& path) {
        const SUPBuildMapFromXML file(path);
        file.PopulateLocaleConversionMap(locales);
        file.PopulateCharsetToCodePageMap(charsets);
        file.PopulateSortLocaleIdToLangMap(sortLanguages);
        file.PopulateSortLangToLocaleIdMap(sortIds);
        file.PopulateQUAYEncoding2ICONVTrancodingIdentifierMap(iconv);
    }
    std::size_t size() const {
        return locales.size() + charsets.size() + sortLanguages.size() + sortIds.size() + iconv.size();
    }
};

void readLocaleFile(const std::string& document) {
    static const xmltest::TemporaryDirectory directory;
    const BrimString path = xmltest::wide(directory.write("BrimLocale.xml", document));
    Maps maps;
    try {
        maps.fillFrom(path);
    } catch (const xercesc::DOMException&) {
        return;
    }
    const std::size_t before = maps.size();
    maps.fillFrom(path);
    ASSERT_EQ(maps.size(), before);
}

// The default manager, which the library asks for, reports each error on standard output.
void silenceStandardOutput() {
    static const bool isSilent = std::freopen("/dev/null", "w", stdout) != nullptr;
    ASSERT_TRUE(isSilent);
}

} // namespace

void fuzzOne(FuzzInput& input) {
    const __lsan::ScopedDisabler xercesLeaksWhenAnElementDeclarationIsBroken;
    silenceStandardOutput();
    const bool isLocaleFile = input.below(4) == 0;
    const std::string document = input.rest();
    if (isLocaleFile) {
        readLocaleFile(document);
    } else {
        judgeTwice(document);
    }
}
