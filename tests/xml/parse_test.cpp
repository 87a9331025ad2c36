// ParseDocument: documents, errors, encodings, files, memory.
#include "Utility/Generic/Portable/SUPDom.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "child_process.h"
#include "recording_manager.h"
#include "xml_test_support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

using brimtest::AllocationLog;
using brimtest::AllocationRefusal;
using brimtest::RecordingManager;
using xmltest::kParserFailure;
using xmltest::parseBare;
using xmltest::Parsing;
using xmltest::plain;
using xmltest::TemporaryDirectory;
using xmltest::wide;

namespace {

constexpr const char* kGood = "<r Name='n'><c>text</c></r>";
constexpr const char* kUnclosed = "<unclosed>";
const std::string kUnclosedReport =
    std::string(kParserFailure) + "Error at file Vanta HX XML document, line 1, column ";

// ---- Results and reports ---------------------------------------------------------------------------------

TEST(ParseDocument, GivesADocumentThatTheHelpersRead) {
    Parsing parsing;
    parsing.bytes(kGood);
    ASSERT_NE(parsing.document, nullptr);
    EXPECT_EQ(parsing.document, parsing.parser.getDocument());
    xercesc::DOMNode* const root = parsing.document->getDocumentElement();
    EXPECT_EQ(plain(SUPDomHelperFunctions::GetAttrs(root, L"Name", parsing.format)), L"n");
    EXPECT_EQ(plain(SUPDomHelperFunctions::GetChildText(root, L"c", parsing.format)), L"text");
    EXPECT_EQ(parsing.printed, "");
    EXPECT_FALSE(parsing.reporter.fSawErrors);
}

TEST(ParseDocument, ReportsAnUnclosedElementAndGivesNull) {
    Parsing parsing;
    parsing.bytes(kUnclosed);
    EXPECT_EQ(parsing.document, nullptr);
    EXPECT_EQ(parsing.printed.substr(0, kUnclosedReport.size()), kUnclosedReport);
    EXPECT_NE(parsing.printed.find(", Message "), std::string::npos);
    EXPECT_EQ(parsing.printed.back(), '\n');
}

TEST(ParseDocument, TellsTheLine) {
    Parsing parsing;
    parsing.bytes("<a>\n<b>\n</a>\n</b>\n");
    EXPECT_NE(parsing.printed.find("Vanta HX XML document, line 3, column "), std::string::npos)
        << parsing.printed;
}

TEST(ParseDocument, FailsAgainWithAReporterThatHasSeenAnError) {
    Parsing parsing;
    parsing.bytes(kUnclosed);
    const std::string first = parsing.printed;
    xercesc::XercesDOMParser other;
    const std::string second = xmltest::printedBy([&] {
        EXPECT_EQ(SUPDOM::ParseDocument(reinterpret_cast<const unsigned char*>(kGood),
                                        static_cast<unsigned int>(std::string(kGood).size()), other,
                                        parsing.reporter, parsing.format),
                  nullptr);
    });
    EXPECT_EQ(second, first);
    EXPECT_NE(other.getDocument(), nullptr);
}

TEST(ParseDocument, ServesOneParserManyTimes) {
    Parsing parsing;
    for (int i = 0; i < 3; ++i) {
        ASSERT_NE(parsing.bytes(kGood).document, nullptr);
    }
    parsing.bytes(kUnclosed);
    SUPDomErrorReporter fresh;
    EXPECT_NE(SUPDOM::ParseDocument(reinterpret_cast<const unsigned char*>(kGood),
                                    static_cast<unsigned int>(std::string(kGood).size()), parsing.parser,
                                    fresh, parsing.format),
              nullptr);
}

TEST(ParseDocument, ReportsToTheDefaultManagerAndLeavesItInstalled) {
    const RecordingManager manager;
    Parsing parsing;
    parsing.bytes(kUnclosed);
    EXPECT_EQ(parsing.printed.substr(0, kUnclosedReport.size()), kUnclosedReport);
    EXPECT_TRUE(manager.reports().empty());
    EXPECT_NE(UtilityPortableErrorMessageManager::Get(nullptr, false), &manager);
}

TEST(ParseDocument, LeavesAHostsManagerAloneWhenAllIsWell) {
    RecordingManager manager;
    Parsing parsing;
    parsing.bytes(kGood);
    EXPECT_EQ(UtilityPortableErrorMessageManager::Get(nullptr, false), &manager);
}

TEST(ParseDocument, ReportsInTheClientCodePage) {
    Parsing parsing;
    const brimtest::ClientCodePage client(65001);
    parsing.bytes("<\xc3\xa9></e>");
    EXPECT_NE(parsing.printed.find("\xc3\xa9"), std::string::npos) << parsing.printed;
}

TEST(ParseDocument, ConfiguresTheParser) {
    Parsing parsing;
    parsing.parser.setDoNamespaces(false);
    parsing.parser.setCreateEntityReferenceNodes(false);
    parsing.parser.setIncludeIgnorableWhitespace(true);
    parsing.bytes(kGood);
    EXPECT_TRUE(parsing.parser.getDoNamespaces());
    EXPECT_TRUE(parsing.parser.getCreateEntityReferenceNodes());
    EXPECT_FALSE(parsing.parser.getIncludeIgnorableWhitespace());
    EXPECT_EQ(parsing.parser.getErrorHandler(), &parsing.reporter);
    EXPECT_TRUE(parsing.parser.getDisableDefaultEntityResolution());
    EXPECT_FALSE(parsing.parser.getLoadExternalDTD());
    EXPECT_EQ(parsing.parser.getSecurityManager(), nullptr);
}

TEST(ParseDocument, KeepsEntityReferencesAsNodes) {
    Parsing parsing;
    parsing.bytes("<!DOCTYPE r [<!ENTITY e 'value'>]><r>&e;</r>");
    ASSERT_NE(parsing.document, nullptr);
    const xercesc::DOMNode* const child = parsing.document->getDocumentElement()->getFirstChild();
    ASSERT_NE(child, nullptr);
    EXPECT_EQ(child->getNodeType(), xercesc::DOMNode::ENTITY_REFERENCE_NODE);
    EXPECT_EQ(parsing.text(child), L"value");
}

TEST(ParseDocument, UnderstandsNamespaces) {
    Parsing parsing;
    parsing.bytes("<n:r xmlns:n='urn:x'/>");
    ASSERT_NE(parsing.document, nullptr);
    EXPECT_EQ(plain(SUPDOMPrintFormatTarget::XMLChToBrimString(
                  parsing.document->getDocumentElement()->getNamespaceURI())),
              L"urn:x");
    EXPECT_EQ(Parsing().bytes("<n:r/>").document, nullptr); // a prefix of nothing
}

// The parser's own exceptions pass.
constexpr const char* kThrows = "<!DOCTYPE r [<!ATTLIST r x: CDATA 'v'>]><r/>";

TEST(ParseDocument, LetsDomExceptionsThrough) {
    EXPECT_TRUE(parseBare(kThrows).throwsDomException);
    Parsing parsing;
    EXPECT_THROW(parsing.bytes(kThrows), xercesc::DOMException);
    EXPECT_EQ(parsing.parser.getSecurityManager(), nullptr);
    EXPECT_NE(parsing.bytes(kGood).document, nullptr);
}

// ---- Malformed documents ---------------------------------------------------------------------------------

const char* const kMalformed[] = {
    "",
    " ",
    "text",
    "<",
    "<a",
    "<a>",
    "</a>",
    "<a></b>",
    "<a><b></a></b>",
    "<a/><b/>",
    "<a/>text",
    "text<a/>",
    "<a>&</a>",
    "<a>&;</a>",
    "<a>&x</a>",
    "<a>&undefined;</a>",
    "<a>&#0;</a>",
    "<a>&#xD800;</a>",
    "<a>&#x110000;</a>",
    "<a>&#99999999999999;</a>",
    "<a>&#x;</a>",
    "<a>]]></a>",
    "<a>\x01</a>",
    "<a>\xff</a>",
    "<a>\xc3</a>",
    "<a>\xed\xa0\x80</a>",
    "<a>\xf8\x88\x80\x80\x80</a>",
    "<a b></a>",
    "<a b=c/>",
    "<a b='c/>",
    "<a b=\"c'/>",
    "<a b='<'/>",
    "<a b='1' b='2'/>",
    "<a b='1'c='2'/>",
    "<a xmlns:x='u' xmlns:y='u' x:b='1' y:b='2'/>",
    "<a xmlns:x=''/>",
    "<x:a/>",
    "<1a/>",
    "< a/>",
    "<a>< /a>",
    "<a><!-- -- --></a>",
    "<a><!-- </a>",
    "<a><![CDATA[ </a>",
    "<a><![cdata[]]></a>",
    "<a><?xml version='1.0'?></a>",
    "<a><?p </a>",
    " <?xml version='1.0'?><a/>",
    "<?xml version='1.0'",
    "<?xml version='1.0'?>",
    "<?xml version='9.9'?><a/>",
    "<?xml encoding='UTF-8'?><a/>",
    "<?xml version='1.0' standalone='maybe'?><a/>",
    "<?xml version='1.0' encoding='no-such-encoding'?><a/>",
    "<?xml version='1.0' encoding=''?><a/>",
    "<!DOCTYPE a [",
    "<!DOCTYPE a []",
    "<!DOCTYPE a [<!ELEMENT a>]><a/>",
    "<!DOCTYPE a [<!ENTITY e>]><a/>",
    "<!DOCTYPE a [<!ENTITY e '&e;'>]><a>&e;</a>",
    "<!DOCTYPE a [<!ENTITY e '<b>'>]><a>&e;</b></a>",
    "<!DOCTYPE a [<!ENTITY e '<'>]><a b='&e;'/>",
    "<!DOCTYPE a [<!ATTLIST a b CDATA>]><a/>",
    "<!DOCTYPE a [%undefined]><a/>",
    "<!DOCTYPE a [<!FOO>]><a/>",
    "<a><!DOCTYPE a></a>",
    "<a/><!DOCTYPE a>",
};

TEST(ParseDocument, RefusesMalformedDocuments) {
    for (const char* const document : kMalformed) {
        Parsing parsing;
        parsing.bytes(document);
        EXPECT_EQ(parsing.document, nullptr) << document;
        EXPECT_EQ(parsing.printed.rfind(std::string(kParserFailure) + "Error at file ", 0), 0U)
            << document << ": " << parsing.printed;
        EXPECT_GT(parseBare(document).errors, 0) << document;
    }
}

TEST(ParseDocument, RefusesDocumentsThatEndAtAnyPlaceButTheirEnd) {
    const std::string whole =
        "<?xml version='1.0'?><!DOCTYPE r [<!ENTITY e 'x'>]><r a='b'>&e;<c/><!--d--><![CDATA[f]]></r>";
    ASSERT_NE(Parsing().bytes(whole).document, nullptr);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_EQ(Parsing().bytes(whole.substr(0, length)).document, nullptr) << length;
    }
}

TEST(ParseDocument, TakesNullForAnEmptyBuffer) {
    Parsing parsing;
    parsing.printed = xmltest::printedBy([&] {
        parsing.document =
            SUPDOM::ParseDocument(nullptr, 0, parsing.parser, parsing.reporter, parsing.format);
    });
    EXPECT_EQ(parsing.document, nullptr);
    EXPECT_EQ(parsing.printed.rfind(kParserFailure, 0), 0U) << parsing.printed;
}

// ---- Encodings -------------------------------------------------------------------------------------------

std::string utf16(const std::u16string& text, bool bigEndian, bool mark) {
    std::string result;
    for (const char16_t unit : (mark ? u"\ufeff" : u"") + text) {
        const char high = static_cast<char>(unit >> 8U);
        const char low = static_cast<char>(unit & 0xFFU);
        result += bigEndian ? high : low;
        result += bigEndian ? low : high;
    }
    return result;
}

TEST(ParseDocument, ReadsUtf16InBothOrders) {
    const std::u16string declared = u"<?xml version='1.0' encoding='UTF-16'?><r>\u4e2d\U0001F600</r>";
    const std::u16string bare = u"<r>\u4e2d\U0001F600</r>";
    for (const bool bigEndian : {true, false}) {
        for (const bool mark : {true, false}) {
            EXPECT_EQ(Parsing().bytes(utf16(declared, bigEndian, mark)).rootText(), L"\x4e2d\xd83d\xde00")
                << bigEndian << mark;
        }
        EXPECT_EQ(Parsing().bytes(utf16(bare, bigEndian, true)).rootText(), L"\x4e2d\xd83d\xde00")
            << bigEndian;
    }
}

TEST(ParseDocument, ReadsDeclaredEncodings) {
    struct Row {
        const char* encoding;
        const char* bytes;
        const wchar_t* expected;
    };
    for (const Row& row :
         {Row{"UTF-8", "\xe2\x82\xac", L"\x20ac"}, Row{"ISO-8859-1", "\xe9\xa4", L"\xe9\xa4"},
          Row{"ISO-8859-2", "\xb1", L"\x105"}, Row{"ISO-8859-7", "\xe1", L"\x3b1"},
          Row{"ISO-8859-15", "\xa4", L"\x20ac"}, Row{"windows-1252", "\x80", L"\x20ac"},
          Row{"Shift_JIS", "\x83\x65", L"\x30c6"}, Row{"EUC-JP", "\xa5\xc6", L"\x30c6"},
          Row{"GB18030", "\xd6\xd0", L"\x4e2d"}, Row{"US-ASCII", "a", L"a"}}) {
        const std::string document =
            std::string("<?xml version='1.0' encoding='") + row.encoding + "'?><r>" + row.bytes + "</r>";
        Parsing parsing;
        parsing.bytes(document);
        EXPECT_EQ(parsing.rootText(), row.expected) << row.encoding << parsing.printed;
    }
}

TEST(ParseDocument, ReadsUtf8WithAMark) {
    EXPECT_EQ(Parsing().bytes("\xef\xbb\xbf<r>\xc3\xa9</r>").rootText(), L"\xe9");
}

// ---- Files -----------------------------------------------------------------------------------------------

TEST(ParseDocument, ReadsAFile) {
    const TemporaryDirectory directory;
    Parsing parsing;
    parsing.file(wide(directory.write("good.xml", "<r>\xc3\xa9</r>")));
    EXPECT_EQ(parsing.rootText(), L"\xe9");
    EXPECT_EQ(parsing.printed, "");
}

TEST(ParseDocument, ReportsAMissingFileBeforeTheParserIsTouched) {
    Parsing parsing;
    parsing.parser.setDoNamespaces(false);
    parsing.file(L"/no/such/file.xml");
    EXPECT_EQ(parsing.document, nullptr);
    EXPECT_EQ(parsing.printed, "Xml File Not Found error number -9, /no/such/file.xml\n");
    EXPECT_FALSE(parsing.parser.getDoNamespaces());
    EXPECT_FALSE(parsing.reporter.fSawErrors);
    EXPECT_EQ(Parsing().file(L"").printed, "Xml File Not Found error number -9, \n");
}

TEST(ParseDocument, ReportsAMissingFileToTheDefaultManager) {
    const RecordingManager manager;
    Parsing parsing;
    parsing.file(L"/no/such/file.xml");
    EXPECT_TRUE(manager.reports().empty());
    EXPECT_NE(UtilityPortableErrorMessageManager::Get(nullptr, false), &manager);
}

TEST(ParseDocument, NamesTheFileOfAnError) {
    const TemporaryDirectory directory;
    const std::string path = directory.write("bad.xml", "<r>\n<x></r>");
    Parsing parsing;
    parsing.file(wide(path));
    EXPECT_EQ(parsing.document, nullptr);
    EXPECT_EQ(parsing.printed.rfind(kParserFailure + ("Error at file " + path) + ", line 2, column ", 0), 0U)
        << parsing.printed;
}

TEST(ParseDocument, ReportsWhatIsNoReadableFile) {
    const TemporaryDirectory directory;
    Parsing parsing;
    parsing.file(wide(directory.path()));
    EXPECT_EQ(parsing.document, nullptr);
    EXPECT_EQ(parsing.printed.rfind(kParserFailure, 0), 0U) << parsing.printed;
    EXPECT_EQ(Parsing().file(wide(directory.write("empty.xml", ""))).document, nullptr);
}

TEST(ParseDocument, OpensTheFileThatTheCodePageNames) {
    const TemporaryDirectory directory;
    const std::string path = directory.write("gr\xc3\xb6\xc3\x9f"
                                             "e-\xe4\xb8\xad.xml",
                                             "<r>found</r>");
    for (const unsigned int page : {65001U, 28591U, 1252U}) {
        const brimtest::ClientCodePage client(page);
        BrimString name;
        name = BaseStringUtil::StringFrom(path.c_str(), page);
        EXPECT_EQ(Parsing().file(name).rootText(), L"found") << page;
    }
}

TEST(ParseDocument, ReadsARelativePath) {
    const TemporaryDirectory directory;
    directory.write("relative.xml", "<r>found</r>");
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(directory.path());
    Parsing parsing;
    parsing.file(L"relative.xml");
    std::filesystem::current_path(before);
    EXPECT_EQ(parsing.rootText(), L"found") << parsing.printed;
}

TEST(ParseDocument, ReadsALongPath) {
    const TemporaryDirectory directory;
    std::string name;
    for (int i = 0; i < 5; ++i) {
        name += std::string(200, static_cast<char>('a' + i)) + "/";
    }
    EXPECT_EQ(Parsing().file(wide(directory.write(name + "file.xml", "<r>found</r>"))).rootText(), L"found");
}

// ---- Memory and threads ----------------------------------------------------------------------------------

TEST(ParseDocument, TakesItsMemoryFromTheLibrarysAllocator) {
    XercesInitializer::GetXercesInit();
    const std::string document = "<r>" + xmltest::repeated("<item>some text</item>", 1000) + "</r>";
    const AllocationLog log;
    Parsing parsing;
    parsing.bytes(document);
    ASSERT_NE(parsing.document, nullptr);
    std::size_t bytes = 0;
    for (const brimtest::AllocationRequest& request : log.requests()) {
        if (std::string(request.file) == "server/Utility/Generic/Portable/Src/SUPDom.cpp") {
            bytes += request.size;
        }
    }
    EXPECT_GT(bytes, document.size()); // the document's nodes among it
}

TEST(ParseDocument, GivesAllMemoryBack) {
    XercesInitializer::GetXercesInit();
    const std::string recursive = "<!DOCTYPE a [<!ENTITY e '&e;'>]><a>&e;</a>";
    const std::string deep = xmltest::repeated("<a>", 2000);
    for (const std::string& document :
         {std::string(kGood), std::string(kUnclosed), recursive, deep, std::string(kThrows)}) {
        for (int i = 0; i < 2; ++i) { // the first round may fill caches of the parser library
            const long before = brimtest::RecordingAllocator::liveBlocks();
            {
                Parsing parsing;
                try {
                    parsing.bytes(document);
                } catch (const xercesc::DOMException&) {
                }
            }
            if (i == 1) {
                EXPECT_EQ(brimtest::RecordingAllocator::liveBlocks(), before) << document.substr(0, 50);
            }
        }
    }
}

// In a child: Xerces does not give back all that it holds then.
TEST(ParseDocument, ThrowsBadAllocWhereverMemoryEnds) {
    const std::string document =
        "<!DOCTYPE r [<!ENTITY e 'x&f;'><!ENTITY f 'y'><!ATTLIST r d CDATA 'v'>]><r>&e;<c>text</c></r>";
    ASSERT_NE(Parsing().bytes(document).document, nullptr);
    const brimtest::ChildResult result = brimtest::runInChild([&] {
        int refused = 0;
        for (long n = 1;; ++n) {
            Parsing parsing;
            const auto* const data = reinterpret_cast<const unsigned char*>(document.data());
            const AllocationRefusal refusal(n);
            try {
                SUPDOM::ParseDocument(data, static_cast<unsigned int>(document.size()), parsing.parser,
                                      parsing.reporter, parsing.format);
            } catch (const std::bad_alloc&) {
                ++refused;
            }
            if (!refusal.happened()) {
                break;
            }
        }
        std::printf("%s", refused > 10 ? "often refused" : "hardly refused");
        std::fflush(stdout);
    });
    EXPECT_EQ(result.exitCode(), 0) << result;
    EXPECT_EQ(result.output, "often refused");
}

TEST(ParseDocument, ServesThreadsSideBySide) {
    std::vector<std::thread> threads;
    int sound = 0;
    std::mutex mutex;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            XercesInitializer::GetXercesInit();
            for (int i = 0; i < 20; ++i) {
                SUPDomErrorReporter reporter;
                SUPDOMPrintFormatTarget format;
                format.Initialize();
                xercesc::XercesDOMParser parser;
                xercesc::DOMDocument* const document = SUPDOM::ParseDocument(
                    reinterpret_cast<const unsigned char*>(kGood),
                    static_cast<unsigned int>(std::string(kGood).size()), parser, reporter, format);
                const bool isSound = document != nullptr &&
                                     plain(SUPDomHelperFunctions::GetChildText(document->getDocumentElement(),
                                                                               L"c", format)) == L"text";
                const std::lock_guard<std::mutex> lock(mutex);
                sound += isSound ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(sound, 80);
}

} // namespace
