// The bounds of SUPDOM on a document, kept while Xerces parses it.
//
// Xerces bounds the expansions of entities in the content and in attributes, but neither those in attribute
// defaults nor those of parameter entities, which can double with every declaration. Its DOM recurses over
// what an entity holds, and looks at all levels and all attributes for each new one. So the scanner's events
// are watched on their way to the parser.
#pragma once

#include "Utility/Generic/Portable/BrimNodeAlloc.h"
#include "Utility/Generic/Portable/SUPDom.h"

#include <cstddef>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <xercesc/framework/XMLDocumentHandler.hpp>
#include <xercesc/internal/XMLScanner.hpp>
#include <xercesc/validators/DTD/DocTypeHandler.hpp>

namespace sup {

/// How long the entities of one kind are with all that they refer to.
class EntityLengths {
public:
    /// `mark` begins a reference: & or %.
    explicit EntityLengths(char16_t mark) : m_mark(mark) {}

    /// False when the entities are now beyond SUPDOM::kLongestEntity or SUPDOM::kMostReferencesOfEntities.
    bool add(std::u16string_view name, std::u16string_view value);

private:
    using Name = std::basic_string<char16_t, std::char_traits<char16_t>, BrimStlAllocator<char16_t>>;

    struct Entity {
        std::size_t ownLength = 0;
        std::vector<Name, BrimStlAllocator<Name>> references;
        std::size_t length = 0;
        unsigned int round = 0; // in which the length was found
    };

    bool areAllWithinBounds();
    std::size_t lengthOf(Entity& entity);

    char16_t m_mark;
    std::map<Name, Entity, std::less<>, BrimStlAllocator<std::pair<const Name, Entity>>> m_entities;
    std::set<Name, std::less<>, BrimStlAllocator<Name>> m_namesReferredTo;
    std::vector<Entity*, BrimStlAllocator<Entity*>> m_entitiesWithReferences;
    std::size_t m_nReferences = 0;
    unsigned int m_round = 0;
};

/// Watches one parse of `parser` while it lives; does nothing where the parser has a security manager.
class XmlDocumentLimits : private xercesc::XMLDocumentHandler, private xercesc::DocTypeHandler {
public:
    /// Goes through the parser once `reporter` has been told that the document is beyond a bound.
    struct Exceeded {};

    XmlDocumentLimits(xercesc::XercesDOMParser& parser, xercesc::ErrorHandler& reporter);
    ~XmlDocumentLimits() override;
    XmlDocumentLimits(const XmlDocumentLimits&) = delete;
    XmlDocumentLimits& operator=(const XmlDocumentLimits&) = delete;

private:
    [[noreturn]] void refuse(const XMLCh* message);
    void enter();
    void addCharacters(std::size_t n);

    // What is watched.
    void startElement(const xercesc::XMLElementDecl& decl, unsigned int uriId, const XMLCh* prefix,
                      const xercesc::RefVectorOf<xercesc::XMLAttr>& attributes, XMLSize_t attributeCount,
                      bool isEmpty, bool isRoot) override;
    void endElement(const xercesc::XMLElementDecl& decl, unsigned int uriId, bool isRoot,
                    const XMLCh* prefix) override;
    void startEntityReference(const xercesc::XMLEntityDecl& entity) override;
    void endEntityReference(const xercesc::XMLEntityDecl& entity) override;
    void entityDecl(const xercesc::DTDEntityDecl& entity, bool isParameter, bool isIgnored) override;

    // What only goes on to the parser.
    void docCharacters(const XMLCh* chars, XMLSize_t length, bool cdata) override;
    void docComment(const XMLCh* comment) override;
    void docPI(const XMLCh* target, const XMLCh* data) override;
    void endDocument() override;
    void ignorableWhitespace(const XMLCh* chars, XMLSize_t length, bool cdata) override;
    void resetDocument() override;
    void startDocument() override;
    void XMLDecl(const XMLCh* version, const XMLCh* encoding, const XMLCh* standalone,
                 const XMLCh* autoEncoding) override;
    void attDef(const xercesc::DTDElementDecl& element, const xercesc::DTDAttDef& attribute,
                bool isIgnored) override;
    void doctypeComment(const XMLCh* comment) override;
    void doctypeDecl(const xercesc::DTDElementDecl& element, const XMLCh* publicId, const XMLCh* systemId,
                     bool hasIntSubset, bool hasExtSubset) override;
    void doctypePI(const XMLCh* target, const XMLCh* data) override;
    void doctypeWhitespace(const XMLCh* chars, XMLSize_t length) override;
    void elementDecl(const xercesc::DTDElementDecl& decl, bool isIgnored) override;
    void endAttList(const xercesc::DTDElementDecl& element) override;
    void endIntSubset() override;
    void endExtSubset() override;
    void resetDocType() override;
    void notationDecl(const xercesc::XMLNotationDecl& notation, bool isIgnored) override;
    void startAttList(const xercesc::DTDElementDecl& element) override;
    void startIntSubset() override;
    void startExtSubset() override;
    void TextDecl(const XMLCh* version, const XMLCh* encoding) override;

    xercesc::XercesDOMParser& m_parser;
    xercesc::ErrorHandler& m_reporter;
    xercesc::XMLScanner* m_scanner = nullptr; // null where nothing is watched
    xercesc::XMLDocumentHandler* m_document = nullptr;
    xercesc::DocTypeHandler* m_docType = nullptr;
    EntityLengths m_generalEntities{u'&'};
    EntityLengths m_parameterEntities{u'%'};
    std::size_t m_depth = 0;
    std::size_t m_nAddedCharacters = 0;
};

} // namespace sup
