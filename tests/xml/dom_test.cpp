// The surroundings of the parser: memory, error reporter, texts, and what reads a document.
#include "Utility/Generic/Portable/SUPDom.h"

#include "child_process.h"
#include "xml_test_support.h"

#include <gtest/gtest.h>
#include <xercesc/dom/DOMImplementation.hpp>
#include <xercesc/dom/DOMImplementationRegistry.hpp>
#include <xercesc/dom/DOMText.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include <algorithm>
#include <cstring>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

using brimtest::AllocationLog;
using brimtest::AllocationRefusal;
using brimtest::AllocationRequest;
using xmltest::Parsing;
using xmltest::plain;
using Helpers = SUPDomHelperFunctions;
using Target = SUPDOMPrintFormatTarget;

namespace {

// ---- Memory ----------------------------------------------------------------------------------------------

TEST(QuayMemoryManager, AllocatesWithARememberedSizeAndThisSource) {
    QuayMemoryManager manager;
    AllocationLog log;
    void* const p = manager.allocate(10);
    std::memset(p, 0, 10);
    manager.deallocate(p);
    ASSERT_EQ(log.requests().size(), 1U);
    EXPECT_EQ(log.requests()[0].size, 18U);
    EXPECT_STREQ(log.requests()[0].file, "server/Utility/Generic/Portable/Src/SUPDom.cpp");
    ASSERT_EQ(log.releases().size(), 1U);
    EXPECT_EQ(log.releases()[0].block, log.requests()[0].block);
    EXPECT_EQ(log.releases()[0].size, 18U);
}

TEST(QuayMemoryManager, IgnoresNull) {
    QuayMemoryManager manager;
    const AllocationLog log;
    manager.deallocate(nullptr);
    EXPECT_TRUE(log.empty());
}

TEST(QuayMemoryManager, ThrowsBadAlloc) {
    QuayMemoryManager manager;
    const AllocationRefusal refusal(1);
    EXPECT_THROW(manager.allocate(10), std::bad_alloc);
}

TEST(QuayMemoryManager, IsItsOwnExceptionMemoryManager) {
    QuayMemoryManager manager;
    EXPECT_EQ(manager.getExceptionMemoryManager(), &manager);
}

TEST(QuayMemoryManager, IsDeletedThroughItsBase) {
    xercesc::MemoryManager* const manager = new QuayMemoryManager;
    delete manager;
}

TEST(XercesInitializer, IsOneForAllThreads) {
    XercesInitializer* seen[4] = {};
    std::vector<std::thread> threads;
    for (XercesInitializer*& one : seen) {
        threads.emplace_back([&one] { one = &XercesInitializer::GetXercesInit(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const XercesInitializer* one : seen) {
        EXPECT_EQ(one, &XercesInitializer::GetXercesInit());
    }
}

TEST(XercesInitializer, GivesXercesTheLibrarysMemory) {
    XercesInitializer::GetXercesInit();
    const AllocationLog log;
    xercesc::XMLPlatformUtils::fgMemoryManager->deallocate(
        xercesc::XMLPlatformUtils::fgMemoryManager->allocate(100));
    ASSERT_EQ(log.requests().size(), 1U);
    EXPECT_EQ(log.requests()[0].size, 108U);
}

const brimtest::FreshProcess kEndsWithAParser("process that ends", [] {
    { const Parsing parsing; }
    std::exit(7);
});

TEST(XercesInitializer, TerminatesQuietlyAtExit) {
    const brimtest::ChildResult result = kEndsWithAParser.run();
    EXPECT_EQ(result.exitCode(), 7) << result;
    EXPECT_EQ(result.output, "");
}

// ---- The reporter ----------------------------------------------------------------------------------------

xercesc::SAXParseException exceptionAt(const XMLCh* message, const XMLCh* systemId, XMLFileLoc line,
                                       XMLFileLoc column) {
    XercesInitializer::GetXercesInit();
    return xercesc::SAXParseException(message, u"public", systemId, line, column);
}

TEST(SUPDomErrorReporter, BeginsWithoutAnError) {
    const SUPDomErrorReporter reporter;
    EXPECT_FALSE(reporter.fSawErrors);
    EXPECT_TRUE(reporter.sErrorMessage.empty());
}

TEST(SUPDomErrorReporter, MakesOneTextOfBothKinds) {
    SUPDomErrorReporter reporter;
    reporter.error(exceptionAt(u"m\u00e9", u"file \u4e2d", 12, 345));
    EXPECT_TRUE(reporter.fSawErrors);
    EXPECT_EQ(plain(reporter.sErrorMessage),
              L"Error at file file \x4e2d, line 12, column 345, Message m\xe9");
    reporter.fatalError(exceptionAt(u"n", u"g", 18446744073709551615U, 0));
    EXPECT_EQ(plain(reporter.sErrorMessage),
              L"Error at file g, line 18446744073709551615, column 0, Message n");
}

TEST(SUPDomErrorReporter, KeepsTheLastError) {
    SUPDomErrorReporter reporter;
    reporter.fatalError(exceptionAt(u"first", u"f", 1, 1));
    reporter.error(exceptionAt(u"second", u"f", 2, 2));
    EXPECT_EQ(plain(reporter.sErrorMessage), L"Error at file f, line 2, column 2, Message second");
}

TEST(SUPDomErrorReporter, IgnoresWarnings) {
    SUPDomErrorReporter reporter;
    reporter.warning(exceptionAt(u"m", u"f", 1, 1));
    EXPECT_FALSE(reporter.fSawErrors);
    EXPECT_TRUE(reporter.sErrorMessage.empty());
}

TEST(SUPDomErrorReporter, IsNotResetByResetErrors) {
    SUPDomErrorReporter reporter;
    reporter.error(exceptionAt(u"m", u"f", 1, 1));
    reporter.resetErrors();
    EXPECT_TRUE(reporter.fSawErrors);
    EXPECT_FALSE(reporter.sErrorMessage.empty());
}

TEST(SUPDomErrorReporter, TakesMissingTextsForEmptyOnes) {
    SUPDomErrorReporter reporter;
    reporter.error(exceptionAt(nullptr, nullptr, 1, 2));
    EXPECT_EQ(plain(reporter.sErrorMessage), L"Error at file , line 1, column 2, Message ");
}

// ---- The format target -----------------------------------------------------------------------------------

class OpenTarget : public Target {
public:
    OpenTarget() { XercesInitializer::GetXercesInit(); }
    std::string buffer() const { return m_pBuffer.data(); }
    std::size_t capacity() const { return m_pBuffer.capacity(); }
    xercesc::XMLFormatter* formatter() const { return m_pFormatter.get(); }
    void write(const std::string& text) {
        writeChars(reinterpret_cast<const XMLByte*>(text.data()), text.size(), nullptr);
    }
};

TEST(SUPDOMPrintFormatTarget, BeginsWithItsInlineBufferAndNoFormatter) {
    const AllocationLog log;
    const OpenTarget target;
    EXPECT_EQ(target.capacity(), 1024U);
    EXPECT_EQ(target.formatter(), nullptr);
    EXPECT_TRUE(log.empty());
}

TEST(SUPDOMPrintFormatTarget, WritesReplaceEachOther) {
    OpenTarget target;
    target.write("first text");
    EXPECT_EQ(target.buffer(), "first text");
    target.write("two");
    EXPECT_EQ(target.buffer(), "two");
    target.write("");
    EXPECT_EQ(target.buffer(), "");
}

TEST(SUPDOMPrintFormatTarget, GrowsForTheZeroToo) {
    OpenTarget target;
    target.write(std::string(1023, 'x'));
    EXPECT_EQ(target.capacity(), 1024U);
    target.write(std::string(1024, 'y'));
    EXPECT_EQ(target.capacity(), 1025U);
    EXPECT_EQ(target.buffer(), std::string(1024, 'y'));
    target.write(std::string(3000, 'z'));
    EXPECT_EQ(target.capacity(), 3001U);
    target.write(std::string(3001, 'z'));
    EXPECT_EQ(target.capacity(), 6002U);
}

TEST(SUPDOMPrintFormatTarget, InitializesOnce) {
    OpenTarget target;
    target.Initialize();
    xercesc::XMLFormatter* const formatter = target.formatter();
    ASSERT_NE(formatter, nullptr);
    EXPECT_EQ(formatter->getEscapeFlags(), xercesc::XMLFormatter::NoEscapes);
    EXPECT_EQ(formatter->getUnRepFlags(), xercesc::XMLFormatter::UnRep_CharRef);
    EXPECT_EQ(plain(Target::XMLChToBrimString(formatter->getEncodingName())), L"UTF-8");
    target.Initialize();
    EXPECT_EQ(target.formatter(), formatter);
}

TEST(SUPDOMPrintFormatTarget, FreesAllItsMemory) {
    XercesInitializer::GetXercesInit();
    const long before = brimtest::RecordingAllocator::liveBlocks();
    {
        OpenTarget target;
        target.Initialize();
        target.write(std::string(5000, 'x'));
    }
    EXPECT_EQ(brimtest::RecordingAllocator::liveBlocks(), before);
}

struct TextRow {
    const char16_t* text;
    const wchar_t* expected;
};

const TextRow kTexts[] = {
    {u"", L""},
    {u"a", L"a"},
    {u"<&>\"'", L"<&>\"'"},
    {u"\u00e9\u20ac\uffff", L"\xe9\x20ac\xffff"},
    {u"\U0001F600!", L"\xd83d\xde00!"}, // units, not characters
    {u"tab\t line\n return\r", L"tab\t line\n return\r"},
};

TEST(ToBrimString, GoesByWayOfUtf8) {
    Target target;
    XercesInitializer::GetXercesInit();
    target.Initialize();
    for (const TextRow& row : kTexts) {
        EXPECT_EQ(plain(target.ToBrimString(row.text, nullptr)), row.expected);
    }
}

TEST(ToBrimString, OfNothingIsEmptyWhateverCameBefore) {
    Target target;
    XercesInitializer::GetXercesInit();
    target.Initialize();
    for (const XMLCh* const nothing : {u"", static_cast<const XMLCh*>(nullptr)}) {
        EXPECT_EQ(plain(target.ToBrimString(u"before", nullptr)), L"before");
        EXPECT_TRUE(target.ToBrimString(nothing, nullptr).empty());
    }
}

// The formatter hands over at most 16 KiB at once.
TEST(ToBrimString, JoinsThePiecesOfALongText) {
    Target target;
    XercesInitializer::GetXercesInit();
    target.Initialize();
    for (const std::size_t length : {5461U, 5462U, 16383U, 16384U, 16385U, 32768U, 100000U, 1000000U}) {
        const std::u16string text = std::u16string(length, u'\u4e2d') + u"end";
        EXPECT_TRUE(plain(target.ToBrimString(text.c_str(), nullptr)) ==
                    std::wstring(length, L'\x4e2d') + L"end")
            << length;
    }
}

TEST(ToBrimString, LeavesWritesOutsideItAlone) {
    OpenTarget target;
    target.Initialize();
    target.ToBrimString(std::u16string(20000, u'x').c_str(), nullptr);
    target.write("a");
    target.write("b");
    EXPECT_EQ(target.buffer(), "b");
}

TEST(ToBrimString, WritesALoneSurrogateAsReference) {
    Target target;
    XercesInitializer::GetXercesInit();
    target.Initialize();
    const XMLCh low[] = {u'a', 0xDC00, u'b', 0};
    EXPECT_EQ(plain(target.ToBrimString(low, nullptr)).substr(0, 1), L"a");
    EXPECT_EQ(plain(target.ToBrimString(u"after", nullptr)), L"after");
}

TEST(ToBrimString, NeedsAnInitializedTarget) {
    const brimtest::ChildResult result = brimtest::runInChild([] {
        Target target;
        target.ToBrimString(u"a", nullptr);
    });
    EXPECT_EQ(result.signal(), SIGABRT);
    EXPECT_NE(result.output.find("Internal Assertion: Condition m_pFormatter, file "
                                 "server/Utility/Generic/Portable/Src/SUPDom.cpp"),
              std::string::npos)
        << result;
}

TEST(XMLChToBrimString, WidensUnits) {
    for (const TextRow& row : kTexts) {
        EXPECT_EQ(plain(Target::XMLChToBrimString(row.text)), row.expected);
    }
    const XMLCh lone[] = {0xD800, 0xDC00, 0xDC00, 0};
    EXPECT_EQ(plain(Target::XMLChToBrimString(lone)), std::wstring(L"\xD800\xDC00\xDC00"));
    EXPECT_TRUE(Target::XMLChToBrimString(nullptr).empty());
}

TEST(XMLChToBrimString, TakesACount) {
    const XMLCh text[] = {u'a', 0, u'b', u'c'};
    EXPECT_EQ(plain(Target::XMLChToBrimString(text, 4)), std::wstring(L"a\0bc", 4));
    EXPECT_EQ(plain(Target::XMLChToBrimString(text, 1)), L"a");
    EXPECT_TRUE(Target::XMLChToBrimString(text, 0).empty());
    EXPECT_TRUE(Target::XMLChToBrimString(nullptr, 0).empty());
    EXPECT_TRUE(Target::XMLChToBrimString(nullptr, 3).empty());
}

std::u16string cutToUnits(const BrimString& text) {
    AutoBuffer<unsigned short, 256> out;
    std::fill(out.data(), out.data() + 256, static_cast<unsigned short>(0x5555));
    Target::BrimStringToXMLCh(text, out);
    EXPECT_GE(out.capacity(), text.length() + 2);
    std::u16string result;
    for (const unsigned short* unit = out.data(); *unit != 0; ++unit) {
        result += static_cast<char16_t>(*unit);
    }
    return result;
}

TEST(BrimStringToXMLCh, CutsEachCharacterTo16Bits) {
    EXPECT_EQ(cutToUnits(L""), u"");
    EXPECT_EQ(cutToUnits(L"ab\x20ac"), u"ab\u20ac");
    EXPECT_EQ(cutToUnits(L"\xd83d\xde00"), u"\U0001F600");
    EXPECT_EQ(cutToUnits(BrimString(1, static_cast<wchar_t>(0x1F600))), std::u16string(1, 0xF600));
}

TEST(BrimStringToXMLCh, EndsAtTheFirstZero) {
    EXPECT_EQ(cutToUnits(BrimString(L"ab\0cd", 5)), u"ab");
    EXPECT_EQ(cutToUnits(BrimString(L"\0cd", 3)), u"");
    // A character that becomes zero ends the text for its reader.
    EXPECT_EQ(cutToUnits(BrimString(1, static_cast<wchar_t>(0x10000))), u"");
}

TEST(BrimStringToXMLCh, GrowsBeyondTheInlineBuffer) {
    for (const std::size_t length : {253U, 254U, 255U, 256U, 257U, 5000U}) {
        EXPECT_EQ(cutToUnits(BrimString(length, L'x')), std::u16string(length, u'x')) << length;
    }
}

// ---- Numbers ---------------------------------------------------------------------------------------------

TEST(BrimStringToInt, ReadsALong) {
    struct Row {
        const wchar_t* text;
        int expected;
    };
    for (const Row& row :
         {Row{L"0", 0}, Row{L"12", 12}, Row{L" \t\n-12", -12}, Row{L"+7x", 7}, Row{L"abc", 0}, Row{L"", 0},
          Row{L"0x10", 0}, Row{L"2147483647", 2147483647}, Row{L"2147483648", -2147483648},
          Row{L"4294967297", 1}, Row{L"9223372036854775808", -1}, Row{L"1.9", 1}, Row{L"- 1", 0}}) {
        EXPECT_EQ(Helpers::BrimStringToInt(row.text), row.expected) << plain(row.text).size();
    }
}

TEST(BrimStringToUInt, ReadsAnUnsignedDecimalAndMayBeFollowedByLetters) {
    struct Row {
        const wchar_t* text;
        unsigned int expected;
    };
    for (const Row& row : {Row{L"0", 0}, Row{L"12", 12}, Row{L"12ld", 12}, Row{L"12l", 12}, Row{L"12xx", 12},
                           Row{L"0x10", 0}, Row{L"4294967295", 4294967295}, Row{L"-1", 4294967295},
                           Row{L"", 0}, Row{L"ld", 0}, Row{L" 1033", 1033}}) {
        EXPECT_EQ(Helpers::BrimStringToUInt(row.text), row.expected) << plain(row.text).size();
    }
}

TEST(BrimStringToUShort, ReadsHexadecimal) {
    struct Row {
        const wchar_t* text;
        unsigned short expected;
    };
    for (const Row& row : {Row{L"10", 16}, Row{L"ff", 255}, Row{L"FF", 255}, Row{L"0xff", 255},
                           Row{L"12345", 0x2345}, Row{L"g", 0}, Row{L"", 0}, Row{L"-1", 0xFFFF}}) {
        EXPECT_EQ(Helpers::BrimStringToUShort(row.text), row.expected) << plain(row.text).size();
    }
}

// ---- Elements --------------------------------------------------------------------------------------------

TEST(GetAttrs, ComparesNamesExactly) {
    Parsing parsing;
    parsing.bytes("<r Name='one' NAME='two' n:x='three' xmlns:n='urn:n' e=''>text<c/></r>");
    ASSERT_NE(parsing.document, nullptr) << parsing.printed;
    xercesc::DOMNode* const root = parsing.document->getDocumentElement();
    const auto value = [&](const wchar_t* name) {
        return plain(Helpers::GetAttrs(root, name, parsing.format));
    };
    EXPECT_EQ(value(L"Name"), L"one");
    EXPECT_EQ(value(L"NAME"), L"two");
    EXPECT_EQ(value(L"name"), L"");
    EXPECT_EQ(value(L"n:x"), L"three");
    EXPECT_EQ(value(L"x"), L"");
    EXPECT_EQ(value(L"e"), L"");
    EXPECT_EQ(value(L""), L"");
    EXPECT_EQ(value(L"Nam"), L"");
    EXPECT_EQ(value(L"Name "), L"");
}

TEST(GetAttrs, OfAnythingButAnElementIsEmpty) {
    Parsing parsing;
    parsing.bytes("<r Name='one'>text<!--c--><?p d?></r>");
    ASSERT_NE(parsing.document, nullptr);
    for (xercesc::DOMNode* child = parsing.document->getDocumentElement()->getFirstChild(); child != nullptr;
         child = child->getNextSibling()) {
        EXPECT_TRUE(Helpers::GetAttrs(child, L"Name", parsing.format).empty());
    }
    EXPECT_TRUE(Helpers::GetAttrs(parsing.document, L"Name", parsing.format).empty());
    EXPECT_TRUE(Helpers::GetAttrs(nullptr, L"Name", parsing.format).empty());
}

TEST(GetAttrs, ReadsValuesAndNamesBeyondAscii) {
    Parsing parsing;
    parsing.bytes("<r \xc3\xa9='\xf0\x9f\x98\x80&lt;&#x20AC;'/>");
    ASSERT_NE(parsing.document, nullptr) << parsing.printed;
    EXPECT_EQ(plain(Helpers::GetAttrs(parsing.document->getDocumentElement(), L"\xe9", parsing.format)),
              L"\xd83d\xde00<\x20ac");
}

TEST(FindChildText, GivesTheLastTextOnly) {
    struct Row {
        const char* document;
        const wchar_t* expected;
    };
    for (const Row& row : {Row{"<r>a<!--c-->b</r>", L"b"}, Row{"<r>a</r>", L"a"}, Row{"<r/>", L""},
                           Row{"<r>a<x>inner</x></r>", L"a"}, Row{"<r>a<x/>b<y/> </r>", L" "},
                           Row{"<r>a<![CDATA[cd]]></r>", L"a"}, Row{"<r><![CDATA[cd]]></r>", L""},
                           Row{"<r>a<![CDATA[cd]]>b</r>", L"b"}, Row{"<r>a&lt;b&#33;</r>", L"a<b!"},
                           Row{"<!DOCTYPE r [<!ENTITY e 'E'>]><r>a&e;</r>", L"a"},
                           Row{"<!DOCTYPE r [<!ENTITY e 'E'>]><r>&e;b</r>", L"b"}}) {
        Parsing parsing;
        parsing.bytes(row.document);
        EXPECT_EQ(parsing.rootText(), row.expected) << row.document << parsing.printed;
    }
}

TEST(FindChildText, OfNoNodeIsEmpty) {
    Parsing parsing;
    EXPECT_TRUE(Helpers::FindChildText(nullptr, parsing.format).empty());
}

TEST(GetChildText, TakesTheFirstElementWithTheName) {
    Parsing parsing;
    parsing.bytes("<r>text<A>upper</A><x><a>deep</a></x><a>one<!--c-->two</a><a>three</a><b/></r>");
    ASSERT_NE(parsing.document, nullptr);
    xercesc::DOMNode* const root = parsing.document->getDocumentElement();
    const auto text = [&](const wchar_t* name) {
        return plain(Helpers::GetChildText(root, name, parsing.format));
    };
    EXPECT_EQ(text(L"a"), L"two");
    EXPECT_EQ(text(L"A"), L"upper");
    EXPECT_EQ(text(L"b"), L"");
    EXPECT_EQ(text(L"c"), L"");
    EXPECT_EQ(text(L"#text"), L"");
    EXPECT_TRUE(Helpers::GetChildText(nullptr, L"a", parsing.format).empty());
}

TEST(GetChildText, ReadsDocumentsThatAProgramMade) {
    XercesInitializer::GetXercesInit();
    xercesc::DOMDocument* const document =
        xercesc::DOMImplementationRegistry::getDOMImplementation(u"Core")->createDocument(nullptr, u"r",
                                                                                          nullptr);
    xercesc::DOMElement* const child = document->createElement(u"child");
    child->appendChild(document->createTextNode(u"first"));
    child->appendChild(document->createTextNode(u"second")); // side by side, as no parser leaves them
    document->getDocumentElement()->appendChild(child);
    Target target;
    target.Initialize();
    EXPECT_EQ(plain(Helpers::GetChildText(document->getDocumentElement(), L"child", target)), L"second");
    document->release();
}

static_assert(std::is_base_of<xercesc::MemoryManager, QuayMemoryManager>::value, "");
static_assert(std::is_base_of<xercesc::ErrorHandler, SUPDomErrorReporter>::value, "");
static_assert(std::is_base_of<xercesc::XMLFormatTarget, Target>::value, "");

} // namespace
