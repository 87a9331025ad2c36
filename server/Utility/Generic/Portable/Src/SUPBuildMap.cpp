#include "Utility/Generic/Portable/SUPBuildMap.h"

#include "LocaleFileMaps.h"
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPDom.h"
#include "Utility/Generic/Portable/SUPOS.h"

#include <utility>

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

void addCharsets(LocaleFile& file, sup::CaseInsBrimStringMap& map) {
    file.forEach(u"CharsetToCodePage", u"Charset", [&](DOMNode* charset) {
        const BrimString codePage = file.textOf(charset, L"CodePage");
        if (!codePage.empty()) {
            map[file.nameOf(charset)] = Helpers::BrimStringToUInt(codePage);
        }
    });
}

void addSortIds(LocaleFile& file, sup::CaseInsBrimStringMap& map) {
    file.forEach(u"SortLangs", u"SortLang", [&](DOMNode* language) {
        map[file.nameOf(language)] = Helpers::BrimStringToUInt(file.textOf(language, L"SortId"));
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

// Moves the entries of `from` to `to`, where they replace those of the same keys. Needs no memory, so a map
// gets all of a section or, when memory ends while it is read, nothing.
template <class Map>
void handOver(Map& from, Map& to) noexcept {
    while (!from.empty()) {
        auto entry = from.extract(from.begin());
        const auto known = to.find(entry.key());
        if (known == to.end()) {
            to.insert(std::move(entry));
        } else {
            known->second = std::move(entry.mapped());
        }
    }
}

// Reads the file at `path` and adds to `map` what `add` finds there.
template <class Map, class Add>
void populate(const BrimString& path, Map& map, Add add) {
    LocaleFile file(path);
    Map found;
    add(file, found);
    handOver(found, map);
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
    populate(m_path, map, addLocales);
}

void SUPBuildMapFromXML::PopulateCharsetToCodePageMap(sup::CaseInsBrimStringMap& map) const {
    populate(m_path, map, addCharsets);
}

void SUPBuildMapFromXML::PopulateSortLocaleIdToLangMap(sup::SortLangMap& map) const {
    populate(m_path, map, addSortLanguages);
}

void SUPBuildMapFromXML::PopulateSortLangToLocaleIdMap(sup::CaseInsBrimStringMap& map) const {
    populate(m_path, map, addSortIds);
}

void SUPBuildMapFromXML::PopulateQUAYEncoding2ICONVTrancodingIdentifierMap(
    sup::IconvIdentifierMap& map) const {
    populate(m_path, map, addIconvNames);
}

void sup::readLocaleFile(const String<wchar_t>& path, LocaleConversionMap& locales,
                         SortLangMap& sortLanguages, IconvIdentifierMap& iconvNames) noexcept {
    // Parsed once for all maps. When that fails, the reading of the sort languages makes its own report.
    bool isRead = false;
    populateSafely([&] {
        LocaleFile file(path);
        LocaleConversionMap foundLocales;
        SortLangMap foundLanguages;
        IconvIdentifierMap foundNames;
        addLocales(file, foundLocales);
        addSortLanguages(file, foundLanguages);
        addIconvNames(file, foundNames);
        handOver(foundLocales, locales);
        handOver(foundLanguages, sortLanguages);
        handOver(foundNames, iconvNames);
        isRead = file.isRead();
    });
    if (!isRead) {
        populateSafely([&] { SUPBuildMapFromXML(path).PopulateSortLocaleIdToLangMap(sortLanguages); });
    }
}
