// Documents that mean harm: entities without end, deep and wide trees, names of files and servers.
#include "Utility/Generic/Portable/SUPDom.h"

#include "xml_test_support.h"

#include <gtest/gtest.h>
#include <xercesc/sax/EntityResolver.hpp>
#include <xercesc/util/SecurityManager.hpp>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

using xmltest::kParserFailure;
using xmltest::Parsing;
using xmltest::plain;
using xmltest::repeated;
using xmltest::TemporaryDirectory;

namespace {

// The sanitizers take ten times as long.
#ifdef BRIM_SANITIZED
constexpr std::size_t kManyCharacters = 2000000;
constexpr std::size_t kLargeDocument = 5000000;
#else
constexpr std::size_t kManyCharacters = 20000000;
constexpr std::size_t kLargeDocument = 50000000;
#endif

constexpr std::size_t kDeepest = SUPDOM::kDeepestNesting;
constexpr const char* kTooDeep = "elements and entities are nested too deeply";
constexpr const char* kTooLong = "an entity stands for too many characters, or too many references";
constexpr const char* kTooMuch = "entities and attribute defaults add too many characters";
constexpr const char* kTooWide = "an element has too many attributes";
constexpr const char* kTooOften = "entity expansions";

std::string nested(std::size_t depth, const std::string& inner = "") {
    return repeated("<a>", depth) + inner + repeated("</a>", depth);
}

std::string withDtd(const std::string& declarations, const std::string& content) {
    return "<!DOCTYPE a [" + declarations + "]>" + content;
}

// Each entity stands for ten of the one before.
std::string bomb(const std::string& kind, const std::string& reference, int levels) {
    std::string declarations = "<!ENTITY " + kind + "l0 ' '>";
    for (int i = 1; i < levels; ++i) {
        declarations += "<!ENTITY " + kind + "l" + std::to_string(i) + " '" +
                        repeated(reference + "l" + std::to_string(i - 1) + ";", 10) + "'>";
    }
    return declarations;
}

// The same, each declared before the one that it refers to.
std::string backwardBomb(int levels) {
    std::string declarations;
    for (int i = levels - 1; i > 0; --i) {
        declarations +=
            "<!ENTITY l" + std::to_string(i) + " '" + repeated("&l" + std::to_string(i - 1) + ";", 10) + "'>";
    }
    return declarations + "<!ENTITY l0 ' '>";
}

std::string manyAttributes(std::size_t n) {
    std::string result = "<a";
    for (std::size_t i = 0; i < n; ++i) {
        result += " b" + std::to_string(i) + "='1'";
    }
    return result + "/>";
}

struct Row {
    const char* what;
    std::string document;
    const char* message; // null for a sound document
};

std::vector<Row> hostileDocuments() {
    const std::string longest(SUPDOM::kLongestEntity, 'x');
    const std::string many = "<!ENTITY e ''>";
    const std::string chain = [] {
        std::string declarations = "<!ENTITY l0 'x'>";
        for (int i = 1; i < 1000; ++i) {
            declarations += "<!ENTITY l" + std::to_string(i) + " '<a>&l" + std::to_string(i - 1) + ";</a>'>";
        }
        return declarations;
    }();
    const std::string bigDefault(100000, 'y');
    return {
        {"nested as deeply as allowed", nested(kDeepest), nullptr},
        {"one level more", nested(kDeepest + 1), kTooDeep},
        {"empty elements are a level too", nested(kDeepest - 1, "<a/>"), nullptr},
        {"and end at once", nested(kDeepest - 1, "<a/><a/><a/>"), nullptr},
        {"an empty element one level deeper", nested(kDeepest, "<a/>"), kTooDeep},
        {"a million levels", nested(1000000), kTooDeep},
        {"a million levels that do not end", repeated("<a>", 1000000), kTooDeep},
        {"levels in an entity", withDtd("<!ENTITY e '" + nested(500) + "'>", "<a>&e;</a>"), nullptr},
        {"levels in an entity that is deep itself",
         withDtd("<!ENTITY e '" + nested(500) + "'>", nested(kDeepest - 400, "&e;")), kTooDeep},
        {"100000 levels in an entity", withDtd("<!ENTITY e '" + nested(100000) + "'>", "<a>&e;</a>"),
         kTooLong},
        {"a chain of entities", withDtd(chain, "<a>&l999;</a>"), kTooLong},

        {"1000 attributes", manyAttributes(SUPDOM::kMostAttributes), nullptr},
        {"1001 attributes", manyAttributes(SUPDOM::kMostAttributes + 1), kTooWide},
        {"100000 attributes", manyAttributes(100000), kTooWide},

        {"the longest entity", withDtd("<!ENTITY e '" + longest + "'>", "<a>&e;</a>"), nullptr},
        {"a longer entity", withDtd("<!ENTITY e '" + longest + "x'>", "<a>&e;</a>"), kTooLong},
        {"a longer entity that is not used", withDtd("<!ENTITY e '" + longest + "x'>", "<a/>"), kTooLong},
        {"an entity that is longer by another",
         withDtd("<!ENTITY f 'xxxx'><!ENTITY e '&f;" + longest.substr(4) + "'>", "<a/>"), kTooLong},
        {"an entity that is longer by a later one",
         withDtd("<!ENTITY e '&f;" + longest.substr(4) + "'><!ENTITY f 'xxxx'>", "<a/>"), kTooLong},
        {"a later declaration does not count", withDtd("<!ENTITY e 'x'><!ENTITY e 'y'>", "<a>&e;</a>"),
         nullptr},
        {"5000 expansions", withDtd(many, "<a>" + repeated("&e;", SUPDOM::kMostEntityExpansions) + "</a>"),
         nullptr},
        {"5001 expansions",
         withDtd(many, "<a>" + repeated("&e;", SUPDOM::kMostEntityExpansions + 1) + "</a>"), kTooOften},
        {"5001 expansions in an attribute",
         withDtd(many, "<a b='" + repeated("&e;", SUPDOM::kMostEntityExpansions + 1) + "'/>"), kTooOften},
        {"built-in entities and character references are no expansions",
         "<a b='" + repeated("&lt;&#65;", 20000) + "'>" + repeated("&amp;&#x41;", 20000) + "</a>", nullptr},
        {"1000 references of entities",
         withDtd("<!ENTITY f ''><!ENTITY e '" + repeated("&f;", SUPDOM::kMostReferencesOfEntities) + "'>",
                 "<a/>"),
         nullptr},
        {"1001 references of entities",
         withDtd("<!ENTITY f ''><!ENTITY e '" + repeated("&f;", SUPDOM::kMostReferencesOfEntities + 1) + "'>",
                 "<a/>"),
         kTooLong},
        {"long entities, often",
         withDtd("<!ENTITY e '" + longest + "'>",
                 "<a>" + repeated("&e;", SUPDOM::kMostAddedCharacters / SUPDOM::kLongestEntity + 1) + "</a>"),
         kTooMuch},

        {"a bomb in the content", withDtd(bomb("", "&", 30), "<a>&l29;</a>"), kTooLong},
        {"a small bomb in the content", withDtd(bomb("", "&", 3), "<a>&l2;</a>"), nullptr},
        {"a bomb in an attribute", withDtd(bomb("", "&", 30), "<a b='&l29;'/>"), kTooLong},
        {"a bomb in an attribute default",
         withDtd(bomb("", "&", 30) + "<!ATTLIST a b CDATA '&l29;'>", "<a/>"), kTooLong},
        {"a bomb that is declared backwards",
         withDtd(backwardBomb(30) + "<!ATTLIST a b CDATA '&l29;'>", "<a/>"), kTooLong},
        {"a bomb of parameter entities", withDtd(bomb("% ", "&#37;", 30) + "%l29;", "<a/>"), kTooLong},
        {"a small bomb of parameter entities", withDtd(bomb("% ", "&#37;", 3) + "%l2;", "<a/>"), nullptr},
        {"an entity that refers to itself", withDtd("<!ENTITY e '&e;'>", "<a>&e;</a>"), "Message"},
        {"a circle of entities", withDtd("<!ENTITY e '&f;'><!ENTITY f '&e;'>", "<a>&e;</a>"), "Message"},
        {"a circle of parameter entities",
         withDtd("<!ENTITY % e '&#37;f;'><!ENTITY % f '&#37;e;'>%e;", "<a/>"), "Message"},

        {"large attribute defaults, often",
         withDtd("<!ATTLIST a b CDATA '" + bigDefault + "'>", "<a>" + repeated("<a/>", 200) + "</a>"),
         kTooMuch},
        {"a large attribute default", withDtd("<!ATTLIST a b CDATA '" + bigDefault + "'>", "<a/>"), nullptr},

        {"a long text", "<a>" + std::string(kManyCharacters, 'x') + "</a>", nullptr},
        {"a long attribute", "<a b='" + std::string(kManyCharacters, 'x') + "'/>", nullptr},
        {"a name of a million characters", "<" + std::string(1000000, 'n') + "/>", nullptr},
        {"a long comment", "<a><!--" + std::string(kManyCharacters, 'x') + "--></a>", nullptr},
        {"a content model of 100000 levels",
         withDtd("<!ELEMENT a " + std::string(100000, '(') + "b" + std::string(100000, ')') + ">", "<a/>"),
         nullptr},
    };
}

TEST(HostileDocument, EndsInAnErrorOrADocument) {
    for (const Row& row : hostileDocuments()) {
        Parsing parsing;
        parsing.bytes(row.document);
        if (row.message == nullptr) {
            EXPECT_NE(parsing.document, nullptr) << row.what << ": " << parsing.printed;
            EXPECT_EQ(parsing.printed, "") << row.what;
        } else {
            EXPECT_EQ(parsing.document, nullptr) << row.what;
            EXPECT_EQ(parsing.printed.rfind(std::string(kParserFailure) +
                                                "Error at file Vanta HX XML document, line 1, column ",
                                            0),
                      0U)
                << row.what << ": " << parsing.printed.substr(0, 200);
            EXPECT_NE(parsing.printed.find(row.message), std::string::npos)
                << row.what << ": " << parsing.printed.substr(0, 300);
        }
    }
}

TEST(HostileDocument, LeavesTheParserUsable) {
    Parsing parsing;
    parsing.bytes(nested(kDeepest + 1));
    EXPECT_EQ(parsing.parser.getSecurityManager(), nullptr);
    SUPDomErrorReporter fresh;
    const std::string sound = nested(kDeepest);
    EXPECT_NE(SUPDOM::ParseDocument(reinterpret_cast<const unsigned char*>(sound.data()),
                                    static_cast<unsigned int>(sound.size()), parsing.parser, fresh,
                                    parsing.format),
              nullptr);
}

TEST(HostileDocument, MayBeLarge) {
    const std::string item = "<item id='12345'><name>some text here</name><v>42</v></item>\n";
    const std::size_t n = kLargeDocument / item.size() + 1;
    const std::string document = "<r>" + repeated(item, n) + "</r>";
    ASSERT_GE(document.size(), kLargeDocument);
    const TemporaryDirectory directory;
    const auto count = [&](Parsing& parsing) {
        std::size_t items = 0;
        for (const xercesc::DOMNode* child = parsing.document == nullptr
                                                 ? nullptr
                                                 : parsing.document->getDocumentElement()->getFirstChild();
             child != nullptr; child = child->getNextSibling()) {
            items += child->getNodeType() == xercesc::DOMNode::ELEMENT_NODE ? 1 : 0;
        }
        return items;
    };
    {
        Parsing parsing;
        parsing.bytes(document);
        EXPECT_EQ(count(parsing), n) << parsing.printed;
    }
    Parsing parsing;
    parsing.file(xmltest::wide(directory.write("large.xml", document)));
    EXPECT_EQ(count(parsing), n) << parsing.printed;
}

// ---- A parser with protection of its own -----------------------------------------------------------------

TEST(ParserWithASecurityManager, IsLeftToIt) {
    xercesc::SecurityManager own;
    own.setEntityExpansionLimit(10);
    struct OwnRow {
        std::string document;
        bool isSound;
    };
    for (const OwnRow& row :
         {OwnRow{nested(kDeepest + 1), true},
          OwnRow{withDtd("<!ENTITY e '" + std::string(5000, 'x') + "'>", "<a>&e;</a>"), true},
          OwnRow{withDtd("<!ENTITY e ''>", "<a>" + repeated("&e;", 10) + "</a>"), true},
          OwnRow{withDtd("<!ENTITY e ''>", "<a>" + repeated("&e;", 11) + "</a>"), false}}) {
        Parsing parsing;
        parsing.parser.setSecurityManager(&own);
        parsing.bytes(row.document);
        EXPECT_EQ(parsing.document != nullptr, row.isSound) << row.document.substr(0, 100);
        EXPECT_EQ(parsing.parser.getSecurityManager(), &own);
    }
}

// ---- What a document names -------------------------------------------------------------------------------

// Sees whether a file is opened.
class OpenWatch {
public:
    explicit OpenWatch(const std::string& path) : m_descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        EXPECT_NE(::inotify_add_watch(m_descriptor, path.c_str(), IN_OPEN | IN_ACCESS), -1);
    }
    ~OpenWatch() { ::close(m_descriptor); }
    OpenWatch(const OpenWatch&) = delete;
    OpenWatch& operator=(const OpenWatch&) = delete;

    bool wasOpened() const {
        alignas(inotify_event) char buffer[4096];
        return ::read(m_descriptor, buffer, sizeof buffer) > 0;
    }

private:
    int m_descriptor;
};

// A server on the loopback that nobody may call.
class Listener {
public:
    Listener() : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        EXPECT_EQ(::bind(m_socket, reinterpret_cast<sockaddr*>(&address), length), 0);
        EXPECT_EQ(::listen(m_socket, 5), 0);
        EXPECT_EQ(::getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &length), 0);
        m_port = ntohs(address.sin_port);
    }
    ~Listener() { ::close(m_socket); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    std::string url() const { return "http://127.0.0.1:" + std::to_string(m_port) + "/x.xml"; }
    bool wasCalled() const {
        const int call = ::accept(m_socket, nullptr, nullptr);
        if (call != -1) {
            ::close(call);
        }
        return call != -1;
    }

private:
    int m_socket;
    int m_port = 0;
};

// Every way to name another file.
std::vector<std::string> documentsThatName(const std::string& what) {
    return {
        withDtd("<!ENTITY e SYSTEM '" + what + "'>", "<a>&e;</a>"),
        withDtd("<!ENTITY e PUBLIC 'p' '" + what + "'>", "<a>&e;</a>"),
        withDtd("<!ENTITY e SYSTEM '" + what + "'>", "<a b='&e;'/>"),
        withDtd("<!ENTITY % e SYSTEM '" + what + "'>%e;", "<a/>"),
        withDtd("<!NOTATION n SYSTEM '" + what + "'><!ENTITY e SYSTEM '" + what +
                    "' NDATA n>"
                    "<!ATTLIST a b ENTITY #IMPLIED>",
                "<a b='e'/>"),
        "<!DOCTYPE a SYSTEM '" + what + "'><a/>",
        "<!DOCTYPE a PUBLIC 'p' '" + what + "'><a/>",
        "<!DOCTYPE a SYSTEM '" + what + "' [<!ENTITY e SYSTEM '" + what + "'>]><a>&e;</a>",
        "<a xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' xsi:noNamespaceSchemaLocation='" + what +
            "'/>",
        "<a xmlns='urn:a' xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' xsi:schemaLocation='urn:a " +
            what + "'/>",
        "<a xmlns:xi='http://www.w3.org/2001/XInclude'><xi:include href='" + what + "'/></a>",
        "<a xmlns:xi='http://www.w3.org/2001/XInclude'><xi:include parse='text' href='" + what + "'/></a>",
        "<?xml-stylesheet href='" + what + "' type='text/xsl'?><a/>",
    };
}

// The parser as it is made, and one that its caller told to load what it can.
void parseInBothMoods(const std::string& document) {
    for (const bool isEager : {false, true}) {
        Parsing parsing;
        if (isEager) {
            parsing.parser.setDoSchema(true);
            parsing.parser.setLoadSchema(true);
            parsing.parser.setLoadExternalDTD(true);
            parsing.parser.setDoXInclude(true);
            parsing.parser.setValidationScheme(xercesc::XercesDOMParser::Val_Always);
            parsing.parser.setDisableDefaultEntityResolution(false);
        }
        parsing.bytes(document);
        if (parsing.document != nullptr) {
            EXPECT_EQ(parsing.rootText().find(L"marker"), std::wstring::npos) << document;
        }
    }
}

TEST(FilesThatADocumentNames, AreNeverOpened) {
    const TemporaryDirectory directory;
    const std::string path = directory.write("marker.xml", "<marker>marker</marker>");
    const OpenWatch watch(path);
    for (const std::string& name : {"file://" + path, "file://localhost" + path, path}) {
        for (const std::string& document : documentsThatName(name)) {
            parseInBothMoods(document);
            EXPECT_FALSE(watch.wasOpened()) << document;
        }
    }
    ::close(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_TRUE(watch.wasOpened()); // the watch works
}

TEST(FilesThatADocumentNames, AreNeverOpenedFromAFileBesideThem) {
    const TemporaryDirectory directory;
    const OpenWatch watch(directory.write("marker.xml", "<marker>marker</marker>"));
    for (const std::string& document : documentsThatName("marker.xml")) {
        Parsing().file(xmltest::wide(directory.write("document.xml", document)));
        EXPECT_FALSE(watch.wasOpened()) << document;
    }
}

TEST(ServersThatADocumentNames, AreNeverCalled) {
    const Listener listener;
    for (const std::string& document : documentsThatName(listener.url())) {
        parseInBothMoods(document);
        EXPECT_FALSE(listener.wasCalled()) << document;
    }
}

TEST(ParserWithAnEntityResolver, OpensWhatItGives) {
    struct Resolver : xercesc::EntityResolver {
        int asked = 0;
        xercesc::InputSource* resolveEntity(const XMLCh* /*publicId*/, const XMLCh* /*systemId*/) override {
            ++asked;
            static const char kText[] = "resolved";
            return new xercesc::MemBufInputSource(reinterpret_cast<const XMLByte*>(kText), sizeof kText - 1,
                                                  "resolved");
        }
    } resolver;
    Parsing parsing;
    parsing.parser.setEntityResolver(&resolver);
    parsing.bytes(withDtd("<!ENTITY e SYSTEM 'file:///no/such/file'>", "<a>&e;</a>"));
    ASSERT_NE(parsing.document, nullptr) << parsing.printed;
    EXPECT_EQ(resolver.asked, 1);
    EXPECT_EQ(parsing.text(parsing.document->getDocumentElement()->getFirstChild()), L"resolved");
    EXPECT_TRUE(parsing.parser.getLoadExternalDTD());
}

TEST(ParserWithAnEntityResolver, OpensNothingThatItPassesOver) {
    struct Resolver : xercesc::EntityResolver {
        xercesc::InputSource* resolveEntity(const XMLCh* /*publicId*/, const XMLCh* /*systemId*/) override {
            return nullptr;
        }
    } resolver;
    const TemporaryDirectory directory;
    const std::string path = directory.write("marker.xml", "<marker>marker</marker>");
    const OpenWatch watch(path);
    for (const std::string& document : documentsThatName(path)) {
        Parsing parsing;
        parsing.parser.setEntityResolver(&resolver);
        parsing.bytes(document);
        EXPECT_FALSE(watch.wasOpened()) << document;
    }
}

} // namespace
