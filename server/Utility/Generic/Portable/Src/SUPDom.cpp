#include "Utility/Generic/Portable/SUPDom.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/memoryallocatorgateway.h"
#include "XmlDocumentLimits.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <functional>
#include <new>
#include <sys/mman.h>

#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/framework/LocalFileInputSource.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/util/BinInputStream.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUni.hpp>

using xercesc::DOMDocument;
using xercesc::DOMNode;
using xercesc::XMLPlatformUtils;
using ErrorManager = UtilityPortableErrorMessageManager;

namespace {

constexpr const char* kAllocationFile = "server/Utility/Generic/Portable/Src/SUPDom.cpp";
constexpr int kAllocationLine = 46;
constexpr const wchar_t* kThisFile = L"server/Utility/Generic/Portable/Src/SUPDom.cpp";
constexpr int kNoFormatterLine = 168;

constexpr const char* kBufferName = "Vanta HX XML document";
constexpr unsigned int kUtf8 = 65001;

// The library's 16-bit buffers as parser text: the one place where the two types meet.
const XMLCh* asXMLCh(const unsigned short* units) {
    static_assert(sizeof(XMLCh) == sizeof(unsigned short), "one unit is one unit");
    static_assert(alignof(XMLCh) == alignof(unsigned short), "either may stand where the other does");
    static_assert(static_cast<XMLCh>(-1) > 0, "units are unsigned");
    return reinterpret_cast<const XMLCh*>(units);
}

bool isEqual(const XMLCh* text, const BrimString& name) {
    const std::size_t length = xercesc::XMLString::stringLen(text);
    return length == name.length() &&
           std::equal(text, text + length, name.begin(),
                      [](XMLCh unit, wchar_t c) { return static_cast<wchar_t>(unit) == c; });
}

BrimString unitsOf(const XMLCh* text, std::size_t count) {
    BrimString result;
    result.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        result.push_back(static_cast<wchar_t>(text[i]));
    }
    return result;
}

// The file under the name that the library's code page gives it, which need not be the parser's.
class FileStream : public xercesc::BinInputStream {
public:
    explicit FileStream(const BrimString& name)
        : m_file(OSAbstraction::g_wfopenFuncPtr(name.c_str(), L"rb")) {}
    ~FileStream() override {
        if (m_file != nullptr) {
            std::fclose(m_file);
        }
    }

    bool isOpen() const { return m_file != nullptr; }
    XMLFilePos curPos() const override { return m_position; }
    XMLSize_t readBytes(XMLByte* const buffer, const XMLSize_t length) override {
        std::size_t n = std::fread(buffer, 1, length, m_file);
        while (n == 0 && std::ferror(m_file) != 0 && errno == EINTR) { // a signal is no end of the file
            std::clearerr(m_file);
            n = std::fread(buffer, 1, length, m_file);
        }
        m_position += n;
        return n;
    }
    const XMLCh* getContentType() const override { return nullptr; }

private:
    std::FILE* m_file;
    XMLFilePos m_position = 0;
};

class FileSource : public xercesc::LocalFileInputSource {
public:
    FileSource(const BrimString& name, const XMLCh* systemId)
        : LocalFileInputSource(systemId, XMLPlatformUtils::fgMemoryManager), m_name(name) {}

    // Null where the file cannot be opened, which is an error of the document.
    xercesc::BinInputStream* makeStream() const override {
        Heap<FileStream> stream(new (getMemoryManager()) FileStream(m_name));
        return stream->isOpen() ? stream.release() : nullptr;
    }

private:
    BrimString m_name;
};

void report(ErrorManager::errCode code, const BrimString& text) {
    ErrorManager::Register(nullptr);
    const sup::String<char> narrow =
        BaseStringUtil::StringToStdString(text, SystemUtility::GetMultiByteCodePage());
    ErrorManager::Get(nullptr, false)->ThrowErrorMessage(code, narrow.c_str(), nullptr);
}

void configure(xercesc::XercesDOMParser& parser, SUPDomErrorReporter& reporter) {
    parser.setDoNamespaces(true);
    parser.setCreateEntityReferenceNodes(true);
    parser.setIncludeIgnorableWhitespace(false);
    parser.setErrorHandler(&reporter);
    parser.setDisableDefaultEntityResolution(true);
    if (parser.getEntityResolver() == nullptr && parser.getXMLEntityResolver() == nullptr) {
        parser.setLoadExternalDTD(false);
        parser.setLoadSchema(false);
        parser.setDoXInclude(false);
    }
}

DOMDocument* parse(const xercesc::InputSource& source, xercesc::XercesDOMParser& parser,
                   SUPDomErrorReporter& reporter) {
    configure(parser, reporter);
    try {
        const sup::XmlDocumentLimits limits(parser, reporter);
        parser.parse(source);
    } catch (const sup::XmlDocumentLimits::Exceeded&) {
        // The reporter knows.
    }
    if (reporter.fSawErrors) {
        report(ErrorManager::E_Portable_XmlParserFailure, reporter.sErrorMessage);
        return nullptr;
    }
    return parser.getDocument();
}

// Xerces cannot take back a start that ran out of memory halfway, and a parser that is made after one ends
// the process. So what the allocator refuses during the start comes from here, and is not given back.
class StartReserve {
public:
    // Null where the system has no memory either.
    void* allocate(std::size_t size) noexcept {
        char* begin = m_begin.load(std::memory_order_relaxed);
        if (begin == nullptr) {
            void* const pages =
                ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            if (pages == MAP_FAILED) {
                return nullptr;
            }
            begin = static_cast<char*>(pages);
            m_begin.store(begin, std::memory_order_release);
        }
        if (size > kSize - m_used) {
            return nullptr;
        }
        void* const block = begin + m_used;
        m_used += std::min((size + kAlignment - 1) / kAlignment * kAlignment, kSize - m_used);
        return block;
    }

    bool owns(const void* p) const noexcept {
        const char* const begin = m_begin.load(std::memory_order_acquire);
        return begin != nullptr && std::less_equal<>()(begin, static_cast<const char*>(p)) &&
               std::less<>()(static_cast<const char*>(p), begin + kSize);
    }

private:
    static constexpr std::size_t kSize = std::size_t{1} << 20U; // the start takes 700 KB
    static constexpr std::size_t kAlignment = 16;

    std::atomic<char*> m_begin{nullptr};
    std::size_t m_used = 0;
};

constinit StartReserve g_startReserve;
constinit thread_local bool g_isStarting = false;

} // namespace

// ---- Xerces' surroundings ---------------------------------------------------------------------------------

QuayMemoryManager::~QuayMemoryManager() = default;

void* QuayMemoryManager::allocate(XMLSize_t size) {
    try {
        return memalloc::MemoryAllocatorGateway::allocateAndRemeberSize(size, kAllocationFile,
                                                                        kAllocationLine);
    } catch (const std::bad_alloc&) {
        void* const block = g_isStarting ? g_startReserve.allocate(size) : nullptr;
        if (block == nullptr) {
            throw;
        }
        return block;
    }
}

void QuayMemoryManager::deallocate(void* p) {
    if (!g_startReserve.owns(p)) {
        memalloc::MemoryAllocatorGateway::readSizeAndDeallocate(p);
    }
}

xercesc::MemoryManager* QuayMemoryManager::getExceptionMemoryManager() { return this; }

XercesInitializer::XercesInitializer() {
    g_isStarting = true;
    try {
        XMLPlatformUtils::Initialize(xercesc::XMLUni::fgXercescDefaultLocale, nullptr, nullptr, &m_tMgr);
    } catch (...) {
        // Silent, as the header tells.
    }
    g_isStarting = false;
}

XercesInitializer::~XercesInitializer() {
    try {
        XMLPlatformUtils::Terminate();
    } catch (...) {
        // Nobody is left to tell at exit.
    }
}

XercesInitializer& XercesInitializer::GetXercesInit() {
    static XercesInitializer initializer;
    return initializer;
}

SUPDomErrorReporter::~SUPDomErrorReporter() = default;

void SUPDomErrorReporter::warning(const xercesc::SAXParseException& /*e*/) {}

void SUPDomErrorReporter::error(const xercesc::SAXParseException& e) { keep(e); }

void SUPDomErrorReporter::fatalError(const xercesc::SAXParseException& e) { keep(e); }

void SUPDomErrorReporter::resetErrors() {}

void SUPDomErrorReporter::keep(const xercesc::SAXParseException& e) {
    fSawErrors = true;
    BrimString message(L"Error at file ");
    message.append(SUPDOMPrintFormatTarget::XMLChToBrimString(e.getSystemId()))
        .append(L", line ")
        .append(BaseStringUtil::StringFrom(static_cast<unsigned long>(e.getLineNumber())))
        .append(L", column ")
        .append(BaseStringUtil::StringFrom(static_cast<unsigned long>(e.getColumnNumber())))
        .append(L", Message ")
        .append(SUPDOMPrintFormatTarget::XMLChToBrimString(e.getMessage()));
    sErrorMessage = message;
}

// ---- Texts ------------------------------------------------------------------------------------------------

SUPDOMPrintFormatTarget::~SUPDOMPrintFormatTarget() = default;

void SUPDOMPrintFormatTarget::writeChars(const XMLByte* bytes, const XMLSize_t count,
                                         xercesc::XMLFormatter* /*formatter*/) {
    if (!m_bJoining) {
        m_nLength = 0;
    }
    m_pBuffer.grow(m_nLength + count + 1);
    if (count != 0) {
        std::memcpy(m_pBuffer.data() + m_nLength, bytes, count);
    }
    m_nLength += count;
    m_pBuffer.data()[m_nLength] = '\0';
}

void SUPDOMPrintFormatTarget::Initialize() {
    if (!m_pFormatter) {
        xercesc::MemoryManager* const memory = XMLPlatformUtils::fgMemoryManager;
        m_pFormatter.reset(new (memory) xercesc::XMLFormatter(xercesc::XMLUni::fgUTF8EncodingString, this,
                                                              xercesc::XMLFormatter::NoEscapes,
                                                              xercesc::XMLFormatter::UnRep_CharRef, memory));
    }
}

BrimString SUPDOMPrintFormatTarget::ToBrimString(const XMLCh* text, xercesc::XMLFormatter* /*formatter*/) {
    if (!m_pFormatter) {
        BrimAssert::handleAssert(kThisFile, kNoFormatterLine, L"m_pFormatter");
        std::abort();
    }
    struct Joining {
        explicit Joining(bool& flag) : m_flag(flag) { m_flag = true; }
        ~Joining() { m_flag = false; }
        bool& m_flag;
    };
    writeChars(nullptr, 0, nullptr);
    const Joining joining(m_bJoining);
    m_pFormatter->formatBuf(text, xercesc::XMLString::stringLen(text), xercesc::XMLFormatter::DefaultEscape,
                            xercesc::XMLFormatter::DefaultUnRep);
    return BaseStringUtil::StringFrom(m_pBuffer.data(), kUtf8);
}

BrimString SUPDOMPrintFormatTarget::XMLChToBrimString(const XMLCh* text) {
    return unitsOf(text, xercesc::XMLString::stringLen(text));
}

BrimString SUPDOMPrintFormatTarget::XMLChToBrimString(const XMLCh* text, unsigned int count) {
    return unitsOf(text, text == nullptr ? 0 : count);
}

void SUPDOMPrintFormatTarget::BrimStringToXMLCh(const BrimString& s, AutoBuffer<unsigned short, 256>& out) {
    out.growNoPreserve(s.length() + 2);
    const wchar_t* const end = s.c_str() + std::wcslen(s.c_str());
    *std::transform(s.c_str(), end, out.data(), [](wchar_t c) { return static_cast<unsigned short>(c); }) = 0;
}

// ---- Reading a document -----------------------------------------------------------------------------------

int SUPDomHelperFunctions::BrimStringToInt(const BrimString& text) {
    long value = 0;
    std::swscanf(text.c_str(), L"%ld", &value);
    return static_cast<int>(value);
}

unsigned int SUPDomHelperFunctions::BrimStringToUInt(const BrimString& text) {
    unsigned int value = 0;
    std::swscanf(text.c_str(), L"%uld", &value); // not "%lu": the letters may follow the number
    return value;
}

unsigned short SUPDomHelperFunctions::BrimStringToUShort(const BrimString& text) {
    unsigned int value = 0;
    std::swscanf(text.c_str(), L"%x", &value);
    return static_cast<unsigned short>(value);
}

BrimString SUPDomHelperFunctions::GetAttrs(DOMNode* node, BrimString name, SUPDOMPrintFormatTarget& fmt) {
    if (node == nullptr || node->getNodeType() != DOMNode::ELEMENT_NODE) {
        return {};
    }
    const xercesc::DOMNamedNodeMap* const attributes = node->getAttributes();
    for (XMLSize_t i = 0; i < attributes->getLength(); ++i) {
        const DOMNode* const attribute = attributes->item(i);
        if (isEqual(attribute->getNodeName(), name)) {
            return fmt.ToBrimString(attribute->getNodeValue(), nullptr);
        }
    }
    return {};
}

BrimString SUPDomHelperFunctions::FindChildText(const DOMNode* node, SUPDOMPrintFormatTarget& fmt) {
    const DOMNode* last = nullptr;
    for (const DOMNode* child = node == nullptr ? nullptr : node->getFirstChild(); child != nullptr;
         child = child->getNextSibling()) {
        if (child->getNodeType() == DOMNode::TEXT_NODE) {
            last = child;
        }
    }
    return last == nullptr ? BrimString() : fmt.ToBrimString(last->getNodeValue(), nullptr);
}

BrimString SUPDomHelperFunctions::GetChildText(DOMNode* node, BrimString name, SUPDOMPrintFormatTarget& fmt) {
    for (const DOMNode* child = node == nullptr ? nullptr : node->getFirstChild(); child != nullptr;
         child = child->getNextSibling()) {
        if (child->getNodeType() == DOMNode::ELEMENT_NODE && isEqual(child->getNodeName(), name)) {
            return FindChildText(child, fmt);
        }
    }
    return {};
}

// ---- Parsing ----------------------------------------------------------------------------------------------

DOMDocument* SUPDOM::ParseDocument(const unsigned char* data, unsigned int length,
                                   xercesc::XercesDOMParser& parser, SUPDomErrorReporter& reporter,
                                   SUPDOMPrintFormatTarget& /*fmt*/) {
    const xercesc::MemBufInputSource source(data, length, kBufferName, false,
                                            XMLPlatformUtils::fgMemoryManager);
    return parse(source, parser, reporter);
}

DOMDocument* SUPDOM::ParseDocument(const BrimString& fileName, xercesc::XercesDOMParser& parser,
                                   SUPDomErrorReporter& reporter, SUPDOMPrintFormatTarget& /*fmt*/) {
    if (!SystemUtility::IsFileExist(fileName)) {
        report(ErrorManager::E_Portable_XmlFileNotFound, fileName);
        return nullptr;
    }
    AutoBuffer<unsigned short, 256> systemId;
    SUPDOMPrintFormatTarget::BrimStringToXMLCh(fileName, systemId);
    const FileSource source(fileName, asXMLCh(systemId.data()));
    return parse(source, parser, reporter);
}
