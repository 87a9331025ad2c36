// XML documents: a thin layer over the DOM parser of Xerces-C++ 3.1 or later. Including it needs Xerces'
// headers.
//
// Reporters, format targets and parsers belong to one thread each. Parser text (XMLCh) is UTF-16; in a
// BrimString each of its units is one character, so a character above U+FFFF is a surrogate pair.
#pragma once

#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/SUPHeapOwner.h"
#include "Utility/Generic/Portable/SUPString.h"

#include <cstddef>

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/framework/MemoryManager.hpp>
#include <xercesc/framework/XMLFormatter.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/sax/ErrorHandler.hpp>
#include <xercesc/sax/SAXParseException.hpp>

/// Xerces' memory from the allocator gateway, in blocks that remember their size.
class BRIMPORTABLE_API QuayMemoryManager : public xercesc::MemoryManager {
public:
    QuayMemoryManager() = default;
    ~QuayMemoryManager() override;
    /// Throws std::bad_alloc.
    void* allocate(XMLSize_t size) override;
    /// Null is ignored.
    void deallocate(void* p) override;
    /// This object itself.
    xercesc::MemoryManager* getExceptionMemoryManager() override;
};

/// Xerces, initialised with the library's allocator from the first call until exit.
class BRIMPORTABLE_API XercesInitializer {
public:
    /// To be called before any parser is made. Any thread may call. A failure to initialise Xerces shows
    /// nowhere; parsers cannot be made then. Memory that the allocator refuses meanwhile is had from the
    /// system, since Xerces cannot begin twice.
    static XercesInitializer& GetXercesInit();

    ~XercesInitializer();
    XercesInitializer(const XercesInitializer&) = delete;
    XercesInitializer& operator=(const XercesInitializer&) = delete;

private:
    XercesInitializer();

    QuayMemoryManager m_tMgr;
};

/// Makes one text of the last error of a parse. It accumulates: a reporter that has seen an error makes every
/// later parse through it fail too, so take a fresh one for each parse.
class BRIMPORTABLE_API SUPDomErrorReporter : public xercesc::ErrorHandler {
public:
    SUPDomErrorReporter() = default;
    ~SUPDomErrorReporter() override;
    /// Ignored.
    void warning(const xercesc::SAXParseException& e) override;
    /// Both keep "Error at file F, line L, column C, Message M" and return, so the parser may go on.
    void error(const xercesc::SAXParseException& e) override;
    void fatalError(const xercesc::SAXParseException& e) override;
    /// Does nothing.
    void resetErrors() override;

    /// The last error's text; empty without one.
    BrimString sErrorMessage;
    /// True from the first error on.
    bool fSawErrors = false;

private:
    void keep(const xercesc::SAXParseException& e);
};

/// Converts parser text to wide strings.
class BRIMPORTABLE_API SUPDOMPrintFormatTarget : public xercesc::XMLFormatTarget {
public:
    SUPDOMPrintFormatTarget() = default;
    ~SUPDOMPrintFormatTarget() override;

    /// Replaces the buffer's content by the bytes and a zero.
    void writeChars(const XMLByte* bytes, XMLSize_t count, xercesc::XMLFormatter* formatter) override;
    /// To be called once before ToBrimString(); later calls do nothing.
    void Initialize();
    /// The text up to its zero, by way of UTF-8; a lone surrogate becomes a character reference such as
    /// "&#xD800;". Empty for an empty or null text. The formatter given is not used.
    BrimString ToBrimString(const XMLCh* text, xercesc::XMLFormatter* formatter);

    /// The units of a text up to its zero, or `count` of them, one character each. Null gives an empty text.
    static BrimString XMLChToBrimString(const XMLCh* text);
    static BrimString XMLChToBrimString(const XMLCh* text, unsigned int count);
    /// The characters up to the first zero, each cut to 16 bits, and a zero. `out` then holds at least
    /// length + 2 units.
    static void BrimStringToXMLCh(const BrimString& s, AutoBuffer<unsigned short, 256>& out);

protected:
    /// What has been formatted, and a zero.
    AutoBuffer<char, 1024> m_pBuffer;
    /// Made by Initialize().
    Heap<xercesc::XMLFormatter> m_pFormatter;

private:
    std::size_t m_nLength = 0; // of the buffer's content
    bool m_bJoining = false;   // the pieces of one text follow each other
};

/// Reads attributes, child texts and numbers.
class BRIMPORTABLE_API SUPDomHelperFunctions {
public:
    SUPDomHelperFunctions() = delete;

    // The numbers are read as swscanf reads them: leading white space is skipped, what follows is ignored,
    // and a text that begins with no number gives 0.

    /// Signed decimal ("%ld"), the low 32 bits.
    static int BrimStringToInt(const BrimString& text);
    /// Unsigned decimal ("%uld").
    static unsigned int BrimStringToUInt(const BrimString& text);
    /// Hexadecimal ("%x"), the low 16 bits: "10" gives 16.
    static unsigned short BrimStringToUShort(const BrimString& text);

    /// The value of an element's attribute; names are compared exactly. Empty without it, and for a node that
    /// is no element.
    static BrimString GetAttrs(xercesc::DOMNode* node, BrimString name, SUPDOMPrintFormatTarget& fmt);
    /// The last text child of a node: pieces that a comment or a CDATA section parts are not joined. Empty
    /// without one.
    static BrimString FindChildText(const xercesc::DOMNode* node, SUPDOMPrintFormatTarget& fmt);
    /// FindChildText() of the first element child with this name; empty without one.
    static BrimString GetChildText(xercesc::DOMNode* node, BrimString name, SUPDOMPrintFormatTarget& fmt);
};

/// Parses documents.
class BRIMPORTABLE_API SUPDOM {
public:
    SUPDOM() = delete;

    // Bounds on a document for a parser that has no security manager of its own (one that has is left to it).
    // A document beyond a bound is an error like any other.

    /// The entities that are expanded in content and attributes.
    static constexpr std::size_t kMostEntityExpansions = 5000;
    /// The characters that one entity stands for, with all the entities it refers to.
    static constexpr std::size_t kLongestEntity = 4096;
    /// The references to entities within the values of entities, those to parameter entities apart.
    static constexpr std::size_t kMostReferencesOfEntities = 1000;
    /// The characters that entities in the content and attribute defaults add.
    static constexpr std::size_t kMostAddedCharacters = std::size_t{1} << 24U;
    /// Elements and entities within each other.
    static constexpr std::size_t kDeepestNesting = 1000;
    /// The attributes of one element.
    static constexpr std::size_t kMostAttributes = 1000;

    /// Parses `length` bytes, or a file. The document belongs to the parser. When the file does not exist
    /// (E_Portable_XmlFileNotFound) or the reporter has seen an error, now or earlier
    /// (E_Portable_XmlParserFailure), the default error-message manager is made the current one and told, and
    /// the result is null. What Xerces throws past the error handler goes on to the caller: DOMException for
    /// some broken declarations, for example.
    ///
    /// The parser is set to namespaces, entity reference nodes and no ignorable white space, and `reporter`
    /// becomes its error handler. Nothing that a document names is opened: default resolution of external
    /// entities is switched off, and so are external DTDs, schemas and XInclude unless the parser has an
    /// entity resolver of its own. `fmt` is not used.
    static xercesc::DOMDocument* ParseDocument(const unsigned char* data, unsigned int length,
                                               xercesc::XercesDOMParser& parser,
                                               SUPDomErrorReporter& reporter, SUPDOMPrintFormatTarget& fmt);
    static xercesc::DOMDocument* ParseDocument(const BrimString& fileName, xercesc::XercesDOMParser& parser,
                                               SUPDomErrorReporter& reporter, SUPDOMPrintFormatTarget& fmt);
};
