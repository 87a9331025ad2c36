#include "locale_file.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPDom.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "display_text.h"

#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMException.hpp>
#include <xercesc/dom/DOMNodeList.hpp>
#include <xercesc/internal/XMLScanner.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLString.hpp>

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cstdlib>
#include <iconv.h>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>

using xercesc::DOMNode;

namespace brimtool {

namespace {

using Helpers = SUPDomHelperFunctions;
using Kind = LocaleFinding::Kind;

constexpr const XMLCh* kSections[] = {u"Locales", u"CharsetToCodePage", u"SortLangs", u"IconvTranscode"};

bool isNamed(const DOMNode* node, const XMLCh* name) {
    return node->getNodeType() == DOMNode::ELEMENT_NODE &&
           xercesc::XMLString::equals(node->getNodeName(), name);
}

bool isBlank(std::u16string_view text) { return text.find_first_not_of(u" \t\r\n") == text.npos; }

std::string textOf(const XMLCh* text) { return utf8Text(SUPDOMPrintFormatTarget::XMLChToBrimString(text)); }

// ---- Parsing ----------------------------------------------------------------------------------------------

// Keeps the first error, and from ParseDocument() that there was one: it would report it.
class ErrorKeeper : public SUPDomErrorReporter {
public:
    void error(const xercesc::SAXParseException& e) override { keepFirst(e); }
    void fatalError(const xercesc::SAXParseException& e) override { keepFirst(e); }

    const std::optional<std::string>& first() const { return m_first; }

private:
    void keepFirst(const xercesc::SAXParseException& e) {
        if (!m_first) {
            m_first = "line " + std::to_string(e.getLineNumber()) + ", column " +
                      std::to_string(e.getColumnNumber()) + ": " + textOf(e.getMessage());
        }
    }

    std::optional<std::string> m_first;
};

// Knows the line where each element's start tag ends.
class LineParser : public xercesc::XercesDOMParser {
public:
    std::size_t lineOf(const DOMNode* element) const {
        const auto found = m_lines.find(element);
        return found == m_lines.end() ? 0 : found->second;
    }

    void startElement(const xercesc::XMLElementDecl& decl, const unsigned int uriId,
                      const XMLCh* const prefix, const xercesc::RefVectorOf<xercesc::XMLAttr>& attributes,
                      const XMLSize_t attributeCount, const bool isEmpty, const bool isRoot) override {
        XercesDOMParser::startElement(decl, uriId, prefix, attributes, attributeCount, isEmpty, isRoot);
        // An empty element is behind the parser already.
        const DOMNode* const current = getCurrentNode();
        m_lines[isEmpty ? current->getLastChild() : current] =
            static_cast<std::size_t>(getScanner()->getLocator()->getLineNumber());
    }

private:
    std::unordered_map<const DOMNode*, std::size_t> m_lines;
};

// ---- Numbers ----------------------------------------------------------------------------------------------

// All of the text, white space around it apart, as a number of type T.
template <class T>
std::optional<T> wholeNumber(const BrimString& text) {
    const std::string bytes = utf8Text(text);
    constexpr const char* kBlanks = " \t\r\n";
    const std::size_t begin = bytes.find_first_not_of(kBlanks);
    if (begin == std::string::npos) {
        return std::nullopt;
    }
    const char* const end = bytes.data() + bytes.find_last_not_of(kBlanks) + 1;
    T number{};
    const auto [stop, error] = std::from_chars(bytes.data() + begin, end, number);
    return stop == end && error == std::errc() ? std::optional(number) : std::nullopt;
}

// A conversion wants both directions.
bool isKnownToIconv(const std::string& name) {
    constexpr const char* kWide = "UTF-16LE";
    const auto opens = [](const char* to, const char* from) {
        const iconv_t converter = ::iconv_open(to, from);
        const bool isOpen = converter != reinterpret_cast<iconv_t>(-1);
        if (isOpen) {
            ::iconv_close(converter);
        }
        return isOpen;
    };
    return opens(kWide, name.c_str()) && opens(name.c_str(), kWide);
}

// ---- The sections -----------------------------------------------------------------------------------------

class Reader {
public:
    Reader(const xercesc::DOMDocument& document, const LineParser& parser)
        : m_document(document), m_parser(parser) {
        m_format.Initialize();
    }

    LocaleFile read() {
        forEachSection(u"Locales", [this](DOMNode* section) { readLocales(section); });
        forEachSection(u"CharsetToCodePage", [this](DOMNode* section) {
            forEachElement(section, u"Charset", [this](DOMNode* entry) { readCharset(entry); });
        });
        forEachSection(u"SortLangs", [this](DOMNode* section) {
            forEachElement(section, u"SortLang", [this](DOMNode* entry) { readSortLanguage(entry); });
        });
        forEachSection(u"IconvTranscode", [this](DOMNode* section) { readIconv(section); });
        lookOutside(m_document.getDocumentElement());
        std::stable_sort(m_file.findings.begin(), m_file.findings.end(),
                         [](const LocaleFinding& a, const LocaleFinding& b) { return a.line < b.line; });
        return std::move(m_file);
    }

private:
    void find(Kind kind, const DOMNode* element, const std::string& text) {
        m_file.findings.push_back({kind, m_parser.lineOf(element), text});
    }
    void problem(const DOMNode* element, const std::string& text) { find(Kind::kProblem, element, text); }

    template <class Visit>
    void forEachSection(const XMLCh* name, Visit visit) {
        const xercesc::DOMNodeList* const sections = m_document.getElementsByTagName(name);
        for (XMLSize_t i = 0; i < sections->getLength(); ++i) {
            visit(sections->item(i));
        }
    }

    // The children `name` of `parent`; all else in it is ignored by the library.
    template <class Visit>
    void forEachElement(DOMNode* parent, const XMLCh* name, Visit visit) {
        for (DOMNode* child = parent->getFirstChild(); child != nullptr; child = child->getNextSibling()) {
            if (isNamed(child, name)) {
                visit(child);
            } else {
                lookAtIgnored(parent, child);
            }
        }
    }

    void lookAtIgnored(const DOMNode* parent, const DOMNode* child) {
        const std::string inParent = " in " + textOf(parent->getNodeName()) + " is ignored";
        switch (child->getNodeType()) {
        case DOMNode::ELEMENT_NODE:
            if (!holdsSection(child)) {
                problem(child, "element " + textOf(child->getNodeName()) + inParent);
            }
            break;
        case DOMNode::ENTITY_REFERENCE_NODE:
            problem(parent, "entity " + textOf(child->getNodeName()) + inParent);
            break;
        case DOMNode::TEXT_NODE:
        case DOMNode::CDATA_SECTION_NODE:
            if (!isBlank(child->getNodeValue())) {
                problem(parent, "text" + inParent);
            }
            break;
        default:
            break;
        }
    }

    static bool holdsSection(const DOMNode* node) {
        if (std::any_of(std::begin(kSections), std::end(kSections),
                        [node](const XMLCh* name) { return isNamed(node, name); })) {
            return true;
        }
        for (const DOMNode* child = node->getFirstChild(); child != nullptr;
             child = child->getNextSibling()) {
            if (holdsSection(child)) {
                return true;
            }
        }
        return false;
    }

    // Elements beside the sections, the outermost ones.
    void lookOutside(const DOMNode* element) {
        if (!holdsSection(element)) {
            problem(element, "element " + textOf(element->getNodeName()) + " is no section, and holds none");
            return;
        }
        if (std::any_of(std::begin(kSections), std::end(kSections),
                        [element](const XMLCh* name) { return isNamed(element, name); })) {
            return;
        }
        for (const DOMNode* child = element->getFirstChild(); child != nullptr;
             child = child->getNextSibling()) {
            if (child->getNodeType() == DOMNode::ELEMENT_NODE) {
                lookOutside(child);
            }
        }
    }

    BrimString nameOf(DOMNode* element) { return Helpers::GetAttrs(element, L"Name", m_format); }

    // The attribute Name, which ought to be there.
    BrimString nameOrProblem(DOMNode* element) {
        const BrimString name = nameOf(element);
        if (name.empty()) {
            problem(element, textOf(element->getNodeName()) + " has no Name");
        }
        return name;
    }

    BrimString childText(DOMNode* entry, const wchar_t* child) {
        return Helpers::GetChildText(entry, child, m_format);
    }

    // The text of a child, which ought to be there.
    BrimString childTextOrProblem(DOMNode* entry, const wchar_t* child) {
        const BrimString text = childText(entry, child);
        if (text.empty()) {
            problem(entry, textOf(entry->getNodeName()) + " has no " + utf8Text(BrimString(child)));
        }
        return text;
    }

    // What the children of an entry hold that does not count: only the first element of each of the `names`
    // does, and the last piece of its text.
    void lookAtChildren(DOMNode* entry, std::initializer_list<const XMLCh*> names) {
        for (const XMLCh* const name : names) {
            bool isFirst = true;
            for (const DOMNode* child = entry->getFirstChild(); child != nullptr;
                 child = child->getNextSibling()) {
                if (!isNamed(child, name)) {
                    continue;
                }
                if (isFirst) {
                    lookAtText(child);
                } else {
                    problem(child, "a further " + textOf(name) + " in one " + textOf(entry->getNodeName()) +
                                       " is ignored");
                }
                isFirst = false;
            }
        }
        for (const DOMNode* child = entry->getFirstChild(); child != nullptr;
             child = child->getNextSibling()) {
            if (std::none_of(names.begin(), names.end(),
                             [child](const XMLCh* name) { return isNamed(child, name); })) {
                lookAtIgnored(entry, child);
            }
        }
    }

    void lookAtText(const DOMNode* element) {
        std::size_t texts = 0;
        std::size_t others = 0;
        for (const DOMNode* child = element->getFirstChild(); child != nullptr;
             child = child->getNextSibling()) {
            const auto type = child->getNodeType();
            texts += type == DOMNode::TEXT_NODE ? 1 : 0;
            others += type == DOMNode::CDATA_SECTION_NODE || type == DOMNode::ENTITY_REFERENCE_NODE ||
                              type == DOMNode::ELEMENT_NODE
                          ? 1
                          : 0;
        }
        if (texts > 1 || others != 0) {
            problem(element,
                    "of " + textOf(element->getNodeName()) + " only the last piece of plain text counts");
        }
    }

    template <class T>
    void lookAtNumber(const DOMNode* element, const std::string& what, const BrimString& text, T taken) {
        if (!text.empty() && wholeNumber<T>(text) != taken) {
            problem(element, what + ' ' + quotedText(utf8Text(text)) +
                                 " is not a plain number; it counts as " + std::to_string(taken));
        }
    }

    // The later of two entries with one key counts.
    template <class Map>
    void store(Map& map, const typename Map::key_type& key, const typename Map::mapped_type& entry,
               const DOMNode* element, const std::string& what) {
        const auto [place, isNew] = map.try_emplace(key, entry);
        if (!isNew) {
            problem(element, what + " replaces that of line " + std::to_string(place->second.line));
            place->second = entry;
        }
    }

    // The platforms of a section that count; `visit` gets their elements.
    template <class Visit>
    void forEachPlatform(DOMNode* section, std::initializer_list<const wchar_t*> names, const XMLCh* element,
                         Visit visit) {
        forEachElement(section, u"Platform", [&](DOMNode* platform) {
            const BrimString name = nameOrProblem(platform);
            if (std::any_of(names.begin(), names.end(),
                            [&](const wchar_t* known) { return BrimString::equals(name, known); })) {
                forEachElement(platform, element, visit);
            } else if (!name.empty()) {
                findForeignPlatform(platform, name);
            }
        });
    }

    void findForeignPlatform(const DOMNode* platform, const BrimString& name) {
        constexpr const wchar_t* kKnown[] = {L"LINUX", L"UNIX", L"WIN32"};
        const bool isKnown = std::any_of(std::begin(kKnown), std::end(kKnown), [&](const wchar_t* known) {
            return BrimString::equals(name, known);
        });
        find(isKnown ? Kind::kNote : Kind::kProblem, platform,
             (isKnown ? "platform " : "unknown platform ") + quotedText(utf8Text(name)) +
                 " does not count here");
    }

    void readLocales(DOMNode* section);
    void readLocale(DOMNode* entry);
    void readCharset(DOMNode* entry);
    void readSortLanguage(DOMNode* entry);
    void readIconv(DOMNode* section);
    void readIconvName(DOMNode* entry);

    const xercesc::DOMDocument& m_document;
    const LineParser& m_parser;
    SUPDOMPrintFormatTarget m_format;
    LocaleFile m_file;
};

void Reader::readLocales(DOMNode* section) {
    forEachPlatform(section, {L"LINUX", L"UNIX"}, u"Locale", [this](DOMNode* entry) { readLocale(entry); });
}

void Reader::readLocale(DOMNode* entry) {
    lookAtChildren(entry, {u"QuayLocale", u"SystemLocale", u"SystemCodePage"});
    const BrimString name = childTextOrProblem(entry, L"QuayLocale");
    const BrimString systemLocale = childTextOrProblem(entry, L"SystemLocale");
    const BrimString codePage = childTextOrProblem(entry, L"SystemCodePage");
    const unsigned int clientPage = SystemUtility::GetMultiByteCodePage();
    const bool isInstalled =
        isInstalledLocale(BaseStringUtil::StringToStdString(systemLocale, clientPage).c_str());
    const LocaleFile::Locale locale{utf8Text(name), utf8Text(systemLocale), utf8Text(codePage),
                                    m_parser.lineOf(entry), isInstalled};
    if (!isInstalled && !systemLocale.empty()) {
        find(Kind::kNotInstalled, entry,
             "system locale " + quotedText(locale.systemLocale) + " is not installed");
    }
    lookAtNumber(entry, "SystemCodePage", codePage,
                 static_cast<unsigned int>(std::strtol(locale.codePage.c_str(), nullptr, 10)));
    store(m_file.locales, BaseStringUtil::StringToStdString(name, clientPage), locale, entry,
          "locale " + quotedText(locale.name));
}

void Reader::readCharset(DOMNode* entry) {
    lookAtChildren(entry, {u"CodePage"});
    const BrimString name = nameOrProblem(entry);
    const BrimString codePage = childText(entry, L"CodePage");
    if (codePage.empty()) {
        problem(entry, "Charset " + quotedText(utf8Text(name)) + " has no CodePage, and is ignored");
        return;
    }
    const unsigned int number = Helpers::BrimStringToUInt(codePage);
    lookAtNumber(entry, "CodePage", codePage, number);
    store(m_file.charsets, name, {utf8Text(name), number, m_parser.lineOf(entry)}, entry,
          "character set " + quotedText(utf8Text(name)));
}

void Reader::readSortLanguage(DOMNode* entry) {
    lookAtChildren(entry, {u"SortId"});
    const BrimString name = nameOrProblem(entry);
    const BrimString id = childTextOrProblem(entry, L"SortId");
    const unsigned int number = Helpers::BrimStringToUInt(id);
    lookAtNumber(entry, "SortId", id, number);
    const LocaleFile::NameAndNumber language{utf8Text(name), number, m_parser.lineOf(entry)};
    store(m_file.sortLanguages, number, language, entry, "sort id " + std::to_string(number));
    store(m_file.sortNames, name, language, entry, "sort language " + quotedText(language.name));
}

void Reader::readIconv(DOMNode* section) {
    forEachPlatform(section, {L"LINUX"}, u"QuayCode", [this](DOMNode* entry) { readIconvName(entry); });
}

void Reader::readIconvName(DOMNode* entry) {
    lookAtChildren(entry, {u"IconvIdentifier"});
    const BrimString name = nameOrProblem(entry);
    const int number = Helpers::BrimStringToInt(name);
    lookAtNumber(entry, "Name", name, number);
    const LocaleFile::NameAndNumber identifier{utf8Text(childTextOrProblem(entry, L"IconvIdentifier")),
                                               number, m_parser.lineOf(entry)};
    if (!identifier.name.empty() && !isKnownToIconv(identifier.name)) {
        problem(entry, "iconv has no encoding " + quotedText(identifier.name));
    }
    store(m_file.iconvNames, number, identifier, entry, "code page " + std::to_string(number));
}

xercesc::DOMDocument& parse(const std::string& bytes, LineParser& parser) {
    ErrorKeeper errors;
    SUPDOMPrintFormatTarget format;
    xercesc::DOMDocument* document = nullptr;
    try {
        document = SUPDOM::ParseDocument(reinterpret_cast<const unsigned char*>(bytes.data()),
                                         static_cast<unsigned int>(bytes.size()), parser, errors, format);
    } catch (const xercesc::DOMException& e) {
        throw LocaleFileError(textOf(e.getMessage()));
    } catch (const xercesc::XMLException& e) {
        throw LocaleFileError(textOf(e.getMessage()));
    }
    parser.setErrorHandler(nullptr);
    if (errors.first()) {
        throw LocaleFileError(*errors.first());
    }
    if (document == nullptr || document->getDocumentElement() == nullptr) {
        throw LocaleFileError("there is no document");
    }
    return *document;
}

} // namespace

std::size_t LocaleFile::problems() const {
    return static_cast<std::size_t>(
        std::count_if(findings.begin(), findings.end(),
                      [](const LocaleFinding& finding) { return finding.kind == Kind::kProblem; }));
}

bool isInstalledLocale(const std::string& systemLocale) {
    // The empty name is the environment's locale.
    const locale_t locale =
        systemLocale.empty() ? nullptr : ::newlocale(LC_ALL_MASK, systemLocale.c_str(), nullptr);
    if (locale == nullptr) {
        return false;
    }
    ::freelocale(locale);
    return true;
}

LocaleFile parseLocaleFile(const std::string& bytes) {
    XercesInitializer::GetXercesInit();
    LineParser parser;
    return Reader(parse(bytes, parser), parser).read();
}

} // namespace brimtool
