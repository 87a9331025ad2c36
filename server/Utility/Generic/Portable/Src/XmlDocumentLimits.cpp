#include "XmlDocumentLimits.h"

#include <algorithm>
#include <type_traits>

#include <xercesc/framework/XMLEntityDecl.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLString.hpp>

static_assert(std::is_same<XMLCh, char16_t>::value, "parser text is char16_t");

namespace sup {

namespace {

class EntityExpansionLimit : public xercesc::SecurityManager {
public:
    EntityExpansionLimit() { fEntityExpansionLimit = SUPDOM::kMostEntityExpansions; }
};

xercesc::SecurityManager* entityExpansionLimit() {
    static EntityExpansionLimit limit;
    return &limit;
}

// The parser keeps its scanner to itself and those who derive from it.
struct ScannerAccess : xercesc::XercesDOMParser {
    static xercesc::XMLScanner* of(const xercesc::XercesDOMParser& parser) {
        return (parser.*(&ScannerAccess::getScanner))();
    }
};

} // namespace

// ---- EntityLengths ----------------------------------------------------------------------------------------

bool EntityLengths::add(std::u16string_view name, std::u16string_view value) {
    if (value.length() > SUPDOM::kLongestEntity) {
        return false;
    }
    const auto [entry, isNew] = m_entities.try_emplace(Name(name));
    if (!isNew) {
        return true; // the first declaration counts
    }
    Entity& entity = entry->second;
    entity.ownLength = value.length();
    for (std::size_t at = value.find(m_mark); at != std::u16string_view::npos; at = value.find(m_mark, at)) {
        const std::size_t end = std::min(value.find(u';', ++at), value.length());
        entity.references.emplace_back(value.substr(at, end - at));
        m_namesReferredTo.insert(entity.references.back());
    }
    m_nReferences += entity.references.size();
    if (m_nReferences > SUPDOM::kMostReferencesOfEntities) {
        return false;
    }
    if (!entity.references.empty()) {
        m_entitiesWithReferences.push_back(&entity);
    } else if (m_namesReferredTo.find(entry->first) == m_namesReferredTo.end()) {
        return true; // changes no other
    }
    return areAllWithinBounds();
}

bool EntityLengths::areAllWithinBounds() {
    ++m_round;
    return std::all_of(m_entitiesWithReferences.begin(), m_entitiesWithReferences.end(),
                       [this](Entity* entity) { return lengthOf(*entity) <= SUPDOM::kLongestEntity; });
}

// Entities that refer to each other in a circle are an error when they are used; here a circle ends with the
// length 0.
std::size_t EntityLengths::lengthOf(Entity& entity) {
    if (entity.references.empty()) {
        return entity.ownLength;
    }
    if (entity.round == m_round) {
        return entity.length;
    }
    entity.round = m_round;
    entity.length = 0;
    std::size_t length = entity.ownLength;
    for (const Name& name : entity.references) {
        const auto reference = m_entities.find(name);
        if (reference != m_entities.end()) {
            // No sum of so few numbers, each of which is small or was refused, overflows.
            length += lengthOf(reference->second);
        }
    }
    return entity.length = std::min(length, SUPDOM::kLongestEntity + 1);
}

// ---- XmlDocumentLimits ------------------------------------------------------------------------------------

XmlDocumentLimits::XmlDocumentLimits(xercesc::XercesDOMParser& parser, xercesc::ErrorHandler& reporter)
    : m_parser(parser), m_reporter(reporter) {
    if (parser.getSecurityManager() != nullptr) {
        return;
    }
    parser.setSecurityManager(entityExpansionLimit());
    m_scanner = ScannerAccess::of(parser);
    m_document = m_scanner->getDocHandler();
    m_docType = m_scanner->getDocTypeHandler();
    m_scanner->setDocHandler(this);
    m_scanner->setDocTypeHandler(this);
}

XmlDocumentLimits::~XmlDocumentLimits() {
    if (m_scanner != nullptr) {
        m_scanner->setDocHandler(m_document);
        m_scanner->setDocTypeHandler(m_docType);
        m_parser.setSecurityManager(nullptr);
    }
}

void XmlDocumentLimits::refuse(const XMLCh* message) {
    m_reporter.fatalError(xercesc::SAXParseException(message, *m_scanner->getLocator()));
    throw Exceeded();
}

void XmlDocumentLimits::enter() {
    if (++m_depth > SUPDOM::kDeepestNesting) {
        refuse(u"elements and entities are nested too deeply");
    }
}

void XmlDocumentLimits::addCharacters(std::size_t n) {
    m_nAddedCharacters += n;
    if (m_nAddedCharacters > SUPDOM::kMostAddedCharacters) {
        refuse(u"entities and attribute defaults add too many characters");
    }
}

void XmlDocumentLimits::startElement(const xercesc::XMLElementDecl& decl, unsigned int uriId,
                                     const XMLCh* prefix,
                                     const xercesc::RefVectorOf<xercesc::XMLAttr>& attributes,
                                     XMLSize_t attributeCount, bool isEmpty, bool isRoot) {
    enter();
    if (attributeCount > SUPDOM::kMostAttributes) {
        refuse(u"an element has too many attributes");
    }
    for (XMLSize_t i = 0; i < attributeCount; ++i) {
        const xercesc::XMLAttr& attribute = *attributes.elementAt(i);
        if (!attribute.getSpecified()) {
            addCharacters(xercesc::XMLString::stringLen(attribute.getValue()));
        }
    }
    m_document->startElement(decl, uriId, prefix, attributes, attributeCount, isEmpty, isRoot);
    if (isEmpty) {
        --m_depth;
    }
}

void XmlDocumentLimits::endElement(const xercesc::XMLElementDecl& decl, unsigned int uriId, bool isRoot,
                                   const XMLCh* prefix) {
    --m_depth;
    m_document->endElement(decl, uriId, isRoot, prefix);
}

void XmlDocumentLimits::startEntityReference(const xercesc::XMLEntityDecl& entity) {
    enter();
    addCharacters(entity.getValueLen());
    m_document->startEntityReference(entity);
}

void XmlDocumentLimits::endEntityReference(const xercesc::XMLEntityDecl& entity) {
    --m_depth;
    m_document->endEntityReference(entity);
}

void XmlDocumentLimits::entityDecl(const xercesc::DTDEntityDecl& entity, bool isParameter, bool isIgnored) {
    EntityLengths& entities = isParameter ? m_parameterEntities : m_generalEntities;
    if (!isIgnored && entity.getValue() != nullptr &&
        !entities.add(entity.getName(), {entity.getValue(), entity.getValueLen()})) {
        refuse(u"an entity stands for too many characters, or too many references");
    }
    m_docType->entityDecl(entity, isParameter, isIgnored);
}

void XmlDocumentLimits::docCharacters(const XMLCh* chars, XMLSize_t length, bool cdata) {
    m_document->docCharacters(chars, length, cdata);
}
void XmlDocumentLimits::docComment(const XMLCh* comment) { m_document->docComment(comment); }
void XmlDocumentLimits::docPI(const XMLCh* target, const XMLCh* data) { m_document->docPI(target, data); }
void XmlDocumentLimits::endDocument() { m_document->endDocument(); }
void XmlDocumentLimits::ignorableWhitespace(const XMLCh* chars, XMLSize_t length, bool cdata) {
    m_document->ignorableWhitespace(chars, length, cdata);
}
void XmlDocumentLimits::resetDocument() { m_document->resetDocument(); }
void XmlDocumentLimits::startDocument() { m_document->startDocument(); }
void XmlDocumentLimits::XMLDecl(const XMLCh* version, const XMLCh* encoding, const XMLCh* standalone,
                                const XMLCh* autoEncoding) {
    m_document->XMLDecl(version, encoding, standalone, autoEncoding);
}
void XmlDocumentLimits::attDef(const xercesc::DTDElementDecl& element, const xercesc::DTDAttDef& attribute,
                               bool isIgnored) {
    m_docType->attDef(element, attribute, isIgnored);
}
void XmlDocumentLimits::doctypeComment(const XMLCh* comment) { m_docType->doctypeComment(comment); }
void XmlDocumentLimits::doctypeDecl(const xercesc::DTDElementDecl& element, const XMLCh* publicId,
                                    const XMLCh* systemId, bool hasIntSubset, bool hasExtSubset) {
    m_docType->doctypeDecl(element, publicId, systemId, hasIntSubset, hasExtSubset);
}
void XmlDocumentLimits::doctypePI(const XMLCh* target, const XMLCh* data) {
    m_docType->doctypePI(target, data);
}
void XmlDocumentLimits::doctypeWhitespace(const XMLCh* chars, XMLSize_t length) {
    m_docType->doctypeWhitespace(chars, length);
}
void XmlDocumentLimits::elementDecl(const xercesc::DTDElementDecl& decl, bool isIgnored) {
    m_docType->elementDecl(decl, isIgnored);
}
void XmlDocumentLimits::endAttList(const xercesc::DTDElementDecl& element) { m_docType->endAttList(element); }
void XmlDocumentLimits::endIntSubset() { m_docType->endIntSubset(); }
void XmlDocumentLimits::endExtSubset() { m_docType->endExtSubset(); }
void XmlDocumentLimits::resetDocType() { m_docType->resetDocType(); }
void XmlDocumentLimits::notationDecl(const xercesc::XMLNotationDecl& notation, bool isIgnored) {
    m_docType->notationDecl(notation, isIgnored);
}
void XmlDocumentLimits::startAttList(const xercesc::DTDElementDecl& element) {
    m_docType->startAttList(element);
}
void XmlDocumentLimits::startIntSubset() { m_docType->startIntSubset(); }
void XmlDocumentLimits::startExtSubset() { m_docType->startExtSubset(); }
void XmlDocumentLimits::TextDecl(const XMLCh* version, const XMLCh* encoding) {
    m_docType->TextDecl(version, encoding);
}

} // namespace sup
