#include "Utility/Generic/Portable/SUPBuildMap.h"

#include "LocaleFileMaps.h"
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPDom.h"
#include "Utility/Generic/Portable/SUPOS.h"

#include <xercesc/dom/DOMException.hpp>
#include <xercesc/dom/DOMNodeList.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLString.hpp>

using xercesc::DOMNode;

namespace {

using NarrowString = sup::String<char>;
using ErrorManager = UtilityPortableErrorMessageManager;
using Helpers = SUPDomHelperFunctions;

NarrowString narrow(const BrimString& text) {
    return BaseStringUtil::StringToStdString(text, SystemUtility::GetMultiByteCodePage());
}

// The file, parsed. Its elements live as long as it does.
class LocaleFile {
public:
    explicit LocaleFile(const BrimString& path) {
        m_format.Initialize();
        m_document = SUPDOM::ParseDocument(path, m_parser, m_reporter, m_format);
    }

    bool isRead() const { return m_document != nullptr; }

    // Calls `visit` for each element `name` that is a child of an element `section`, in order.
    template <class Visit>
    void forEach(const XMLCh* section, const XMLCh* name, Visit visit) {
        if (m_document == nullptr) {
            return;
        }
        const xercesc::DOMNodeList* const sections = m_document->getElementsByTagName(section);
        for (XMLSize_t i = 0; i < sections->getLength(); ++i) {
            forEachChild(sections->item(i), name, visit);
        }
    }

    template <class Visit>
    static void forEachChild(const DOMNode* parent, const XMLCh* name, Visit visit) {
        for (DOMNode* child = parent->getFirstChild(); child != nullptr; child = child->getNextSibling()) {
            if (child->getNodeType() == DOMNode::ELEMENT_NODE &&
                xercesc::XMLString::equals(child->getNodeName(), name)) {
                visit(child);
            }
        }
    }

    BrimString nameOf(DOMNode* element) { return Helpers::GetAttrs(element, L"Name", m_format); }
    BrimString textOf(DOMNode* element, const wchar_t* child) {
        return Helpers::GetChildText(element, child, m_format);
    }

private:
    const XercesInitializer& m_xerces = XercesInitializer::GetXercesInit(); // before the parser is made
    SUPDomErrorReporter m_reporter;
    SUPDOMPrintFormatTarget m_format;
    xercesc::XercesDOMParser m_parser;
    xercesc::DOMDocument* m_document = nullptr;
};

void addLocales(LocaleFile& file, sup::LocaleConversionMap& map) {
    const auto add = [&](DOMNode* locale) {
        const NarrowString key = narrow(file.textOf(locale, L"QuayLocale"));
        map[key] = {narrow(file.textOf(locale, L"SystemLocale")),
                    narrow(file.textOf(locale, L"SystemCodePage"))};
    };
    file.forEach(u"Locales", u"Platform", [&](DOMNode* platform) {
        const BrimString name = file.nameOf(platform);
        if (BrimString::equals(name, L"LINUX") || BrimString::equals(name, L"UNIX")) {
            LocaleFile::forEachChild(platform, u"Locale", add);
        }
    });
}

void addSortLanguages(LocaleFile& file, sup::SortLangMap& map) {
    file.forEach(u"SortLangs", u"SortLang", [&](DOMNode* language) {
        const unsigned int id = Helpers::BrimStringToUInt(file.textOf(language, L"SortId"));
        map[id] = narrow(file.nameOf(language));
    });
}

void addIconvNames(LocaleFile& file, sup::IconvIdentifierMap& map) {
    const auto add = [&](DOMNode* code) {
        map[Helpers::BrimStringToInt(file.nameOf(code))] = narrow(file.textOf(code, L"IconvIdentifier"));
    };
    file.forEach(u"IconvTranscode", u"Platform", [&](DOMNode* platform) {
        if (BrimString::equals(file.nameOf(platform), L"LINUX")) {
            LocaleFile::forEachChild(platform, u"QuayCode", add);
        }
    });
}

void reportParserFailure(const XMLCh* message) {
    ErrorManager::Register(nullptr);
    const NarrowString text = narrow(SUPDOMPrintFormatTarget::XMLChToBrimString(message));
    ErrorManager::Get(nullptr, false)
        ->ThrowErrorMessage(ErrorManager::E_Portable_XmlParserFailure, text.c_str(), nullptr);
}

// What a broken file makes the parser throw must not end the process that loads the library.
template <class Populate>
void populateSafely(Populate populate) noexcept {
    try {
        try {
            populate();
        } catch (const xercesc::DOMException& e) {
            reportParserFailure(e.getMessage());
        } catch (const xercesc::XMLException& e) {
            reportParserFailure(e.getMessage());
        }
    } catch (...) {
        // Not even the report could be made: the default manager tells the number alone.
        ErrorManager::Get(nullptr, false)
            ->ThrowErrorMessage(ErrorManager::E_Portable_XmlParserFailure, nullptr, nullptr);
    }
}

} // namespace

bool CaseInsBrimStringLessFunctor::operator()(const BrimString& a, const BrimString& b) const {
    return BaseStringUtil::CaseInsensitiveCompare(a, b) < 0;
}

SUPBuildMapFromXML::SUPBuildMapFromXML(BrimString path) : m_path(std::move(path)) {}

SUPBuildMapFromXML::~SUPBuildMapFromXML() = default;

void SUPBuildMapFromXML::PopulateLocaleConversionMap(sup::LocaleConversionMap& map) const {
    LocaleFile file(m_path);
    addLocales(file, map);
}

void SUPBuildMapFromXML::PopulateCharsetToCodePageMap(sup::CaseInsBrimStringMap& map) const {
    LocaleFile file(m_path);
    file.forEach(u"CharsetToCodePage", u"Charset", [&](DOMNode* charset) {
        const BrimString codePage = file.textOf(charset, L"CodePage");
        if (!codePage.empty()) {
            map[file.nameOf(charset)] = Helpers::BrimStringToUInt(codePage);
        }
    });
}

void SUPBuildMapFromXML::PopulateSortLocaleIdToLangMap(sup::SortLangMap& map) const {
    LocaleFile file(m_path);
    addSortLanguages(file, map);
}

void SUPBuildMapFromXML::PopulateSortLangToLocaleIdMap(sup::CaseInsBrimStringMap& map) const {
    LocaleFile file(m_path);
    file.forEach(u"SortLangs", u"SortLang", [&](DOMNode* language) {
        map[file.nameOf(language)] = Helpers::BrimStringToUInt(file.textOf(language, L"SortId"));
    });
}

void SUPBuildMapFromXML::PopulateQUAYEncoding2ICONVTrancodingIdentifierMap(
    sup::IconvIdentifierMap& map) const {
    LocaleFile file(m_path);
    addIconvNames(file, map);
}

void sup::readLocaleFile(const String<wchar_t>& path, LocaleConversionMap& locales,
                         SortLangMap& sortLanguages, IconvIdentifierMap& iconvNames) noexcept {
    // Parsed once for all maps. When that fails, the reading of the sort languages makes its own report.
    bool isRead = false;
    populateSafely([&] {
        LocaleFile file(path);
        addLocales(file, locales);
        addSortLanguages(file, sortLanguages);
        addIconvNames(file, iconvNames);
        isRead = file.isRead();
    });
    if (!isRead) {
        populateSafely([&] { SUPBuildMapFromXML(path).PopulateSortLocaleIdToLangMap(sortLanguages); });
    }
}
