// Transcoders, code pages, locales and XML documents without memory.
#include "fault_injection.h"

#include "SUPTranscodeIconv_UNIX.h"
#include "Utility/Generic/Portable/SUPBuildMap.h"
#include "Utility/Generic/Portable/SUPDom.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/SUPTranscode.h"
#include "Utility/Generic/Portable/transcodercache.h"
#include "sbtables.h"
#include "transcodersbtable.h"
#include "transcoderusingtable.h"
#include "transcodingimplutf16.h"
#include "transcodingimplutf8.h"
#include "wide_texts.h"

#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include <clocale>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

using namespace brimtest;
using namespace sup::transcodeimpl;

namespace {

constexpr unsigned int kUtf8 = 65001;

// Is the error-message manager while it lives, and keeps nothing.
class QuietManager : public UtilityPortableErrorMessageManager {
public:
    QuietManager() { Register(this); }
    ~QuietManager() override { Register(nullptr); }
    void ThrowErrorMessage(int, const char*, const char*) override {}
};

struct Texts {
    std::wstring wide = std::wstring(900, L'a') + L"\x20AC\xE4";
    std::string bytes = std::string(900, 'a') + "\xE2\x82\xAC";
    std::vector<unsigned short> units = std::vector<unsigned short>(900, 'u');

    std::vector<char> bytesOut = std::vector<char>(8000, 'x');
    std::vector<wchar_t> wideOut = std::vector<wchar_t>(4000, L'x');
    std::vector<unsigned short> unitsOut = std::vector<unsigned short>(4000, 'x');
    int result = -7;
    BrimString out{L"before"};
    sup::String<char> narrowOut{"before"};
};

// What a conversion writes is not part of it: a buffer may be filled in part.
std::string picture(const Texts& t) {
    return std::to_string(t.result) + testing::PrintToString(plain(t.out)) + t.narrowOut.c_str();
}

TEST(ConversionsWithoutMemory, GiveNoResult) {
    const QuietManager quiet;
    expectHarmlessRefusals<Texts>({
        {"WideCharToMultiByte, counted",
         [](Texts& t) {
             t.result =
                 SystemUtility::WideCharToMultiByte(t.wide.c_str(), 900, t.bytesOut.data(), 100, kUtf8);
         }},
        {"WideCharToMultiByte",
         [](Texts& t) { t.result = SystemUtility::WideCharToMultiByte(t.wide.c_str(), nullptr, 0, kUtf8); }},
        {"WideCharToUTF8",
         [](Texts& t) { t.result = SystemUtility::WideCharToUTF8(t.wide.c_str(), nullptr, 0); }},
        {"MultiByteToWideChar, counted",
         [](Texts& t) {
             t.result =
                 SystemUtility::MultiByteToWideChar(t.bytes.c_str(), 900, t.wideOut.data(), 100, kUtf8);
         }},
        {"MultiByteToWideChar",
         [](Texts& t) { t.result = SystemUtility::MultiByteToWideChar(t.bytes.c_str(), nullptr, 0, kUtf8); }},
        {"UTF8ToWideChar",
         [](Texts& t) { t.result = SystemUtility::UTF8ToWideChar(t.bytes.c_str(), nullptr, 0); }},
        {"MultiByteToUcs2, counted",
         [](Texts& t) {
             t.result = SystemUtility::MultiByteToUcs2(t.bytes.c_str(), 900, t.unitsOut.data(), 100, kUtf8);
         }},
        {"MultiByteToUcs2",
         [](Texts& t) { t.result = SystemUtility::MultiByteToUcs2(t.bytes.c_str(), nullptr, 0, kUtf8); }},
        {"Ucs2ToMultiByte, counted",
         [](Texts& t) {
             t.result = SystemUtility::Ucs2ToMultiByte(t.units.data(), 900, t.bytesOut.data(), 100, kUtf8);
         }},
        {"MultibyteToUcs2_S",
         [](Texts& t) {
             t.result = MultibyteToUcs2_S(kUtf8, t.bytes.c_str(), 900, t.unitsOut.data(), 4000);
         }},
        {"Ucs2ToMultibyte_S",
         [](Texts& t) { t.result = Ucs2ToMultibyte_S(kUtf8, t.units.data(), 900, t.bytesOut.data(), 8000); }},
        {"a text that fits inline",
         [](Texts& t) {
             t.result =
                 SystemUtility::WideCharToMultiByte(t.wide.c_str(), 500, t.bytesOut.data(), 500, kUtf8);
         },
         Promise::noRequest},
        {"GetSystemErrorString", [](Texts& t) { t.out = SystemUtility::GetSystemErrorString(2); }},
        {"GetCodePageFromString", [](Texts& t) { t.result = SystemUtility::GetCodePageFromString(L"UTF8"); }},
    });
}

// ---- Transcoders ------------------------------------------------------------------------------------------

const UnicodeMultibyteMapping kRows[] = {{0x100, "\x81\x41", 2, kCP_Either},
                                         {0x101, "\x81\x42\x43", 3, kCP_Either},
                                         {0x20AC, "\x82\x41", 2, kCP_Either},
                                         {0, nullptr, 0, kCP_End}};

constexpr SUPTranscodingTable kTables[] = {
    {1, L"utf-8", nullptr, TranscoderImplUTF8::CreateTranscoderTable, 0},
    {2, L"utf-16be", nullptr, TranscoderImplUTF16BE::CreateTranscoderTable, 0},
    {3, L"utf-16le", nullptr, TranscoderImplUTF16LE::CreateTranscoderTable, 0},
    {4, L"-7", cpISO8859_7, TranscoderSBTable<161, 975, true>::CreateTranscoderTable, 0},
    {5, L"rows", kRows, TranscoderUsingTable::CreateTranscoderTable, 128},
};

using Owned = std::unique_ptr<TranscoderImplBase>;

struct Transcoders {
    Owned made;
    Owned iconv{CreateIconvTranscoder("ISO-2022-JP")};
    std::size_t result = 0;
};

std::string picture(const Transcoders& t) { return std::to_string(t.result) + (t.made ? " made" : ""); }

void make(Transcoders& t, const SUPTranscodingTable& row) {
    t.made.reset(row.fFactory(row.pCodeMappings, row.nFactoryParam));
}

TEST(TranscodersWithoutMemory, AreNotMade) {
    expectHarmlessRefusals<Transcoders>({
        {"UTF-8", [](Transcoders& t) { make(t, kTables[0]); }},
        {"UTF-16BE", [](Transcoders& t) { make(t, kTables[1]); }},
        {"UTF-16LE", [](Transcoders& t) { make(t, kTables[2]); }},
        {"a single-byte table", [](Transcoders& t) { make(t, kTables[3]); }},
        {"a multibyte table", [](Transcoders& t) { make(t, kTables[4]); }},
        {"a cache of all", [](Transcoders& t) { t.result = TranscoderCache(kTables, 5).Find(4) != nullptr; }},
        // A converter that cannot be kept for the next conversion is closed.
        {"iconv", [](Transcoders& t) { t.made.reset(CreateIconvTranscoder("ISO-2022-JP")); },
         Promise::served},
        {"iconv by number", [](Transcoders& t) { t.made.reset(CreateIconvTranscoder(850)); },
         Promise::served},
    });
}

TEST(TranscodersWithoutMemory, IconvConvertsAllTheSame) {
    expectHarmlessRefusals<Transcoders>({
        {"decode",
         [](Transcoders& t) {
             wchar_t wide[16];
             t.result = t.iconv->multibyteToUnicode("abc\x1B$B$\"\x1B(B", 11, wide, 16, nullptr);
         },
         Promise::served},
        {"encode",
         [](Transcoders& t) {
             t.iconv.reset(CreateIconvTranscoder("EUC-JP"));
             char bytes[64];
             t.result = t.iconv->unicodeToMultibyte(L"abc\x3042", 4, bytes, 64, nullptr, nullptr, nullptr);
         },
         Promise::served},
    });
}

TEST(TranscodersWithoutMemory, BuiltInOnesConvertWithoutAny) {
    expectHarmlessRefusals<Transcoders>({
        {"all pages",
         [](Transcoders& t) {
             for (const int page :
                  {65001, 1200, 1201, 28591, 28592, 28593, 28596, 28597, 285915, 1252, 38598}) {
                 char bytes[64];
                 wchar_t wide[64];
                 const TranscoderImplBase* const transcoder = TranscoderCache::getTranscoder(page);
                 const std::size_t n = transcoder->unicodeToMultibyte(L"abc\x20AC\xE4", 5, bytes, 64, nullptr,
                                                                      nullptr, nullptr);
                 t.result += n + transcoder->multibyteToUnicode(bytes, n, wide, 64, nullptr);
             }
         },
         Promise::noRequest},
    });
}

// ---- Locales ----------------------------------------------------------------------------------------------

TEST(LocalesWithoutMemory, AreLookedUpOrNot) {
    const QuietManager quiet;
    expectHarmlessRefusals<Texts>({
        {"NCSetLocale",
         [](Texts& t) {
             t.narrowOut =
                 SystemUtility::NCSetLocale(LC_NUMERIC, "a name that is too long for the small block");
         }},
        {"GetSystemLocaleFromCodePage",
         [](Texts& t) { t.narrowOut = SystemUtility::GetSystemLocaleFromCodePage(1252); },
         Promise::noRequest},
        {"Locale2CodePage", [](Texts& t) { t.result = static_cast<int>(Locale2CodePage("de_DE.UTF-8")); },
         Promise::noRequest},
        {"GetACP", [](Texts& t) { t.result = static_cast<int>(SystemUtility::GetACP()); },
         Promise::noRequest},
        {"GetLocaleFile", [](Texts& t) { t.out = GetLocaleFile(); }},
    });
}

// The path is built under the locale "C", which is put back whatever happens.
TEST(LocalesWithoutMemory, TheProcesssOwnOneIsPutBack) {
    for (long n = 1;; ++n) {
        ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
        BrimString path;
        const RefusedRun run(n, [&] { path = GetLocaleFile(); });
        EXPECT_EQ(run.isBadAlloc, run.isRefused) << n;
        EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C.UTF-8") << n;
        if (!run.isRefused) {
            EXPECT_GT(n, 1);
            break;
        }
    }
    std::setlocale(LC_CTYPE, "C");
}

// ---- XML --------------------------------------------------------------------------------------------------

constexpr const char kDocument[] =
    "<!DOCTYPE a [<!ENTITY e \"entity\"><!ATTLIST b d CDATA \"default\">]>"
    "<a xmlns='urn:a'><b c='1&amp;2'>text &e;<!-- comment --> more</b><b/><![CDATA[data]]></a>";

struct Documents {
    Documents() { format.Initialize(); }

    SUPDomErrorReporter reporter;
    SUPDOMPrintFormatTarget format;
    std::unique_ptr<xercesc::XercesDOMParser> parser;
    SUPDOMPrintFormatTarget rawFormat;
    AutoBuffer<unsigned short, 256> units;
    BrimString text;
    int elements = 0;
};

std::string picture(const Documents& d) {
    return std::to_string(d.elements) + testing::PrintToString(plain(d.text)) +
           testing::PrintToString(plain(d.reporter.sErrorMessage)) + std::to_string(d.units.capacity());
}

xercesc::DOMDocument* parse(Documents& d, const char* text, std::size_t length) {
    d.parser = std::make_unique<xercesc::XercesDOMParser>();
    return SUPDOM::ParseDocument(reinterpret_cast<const unsigned char*>(text),
                                 static_cast<unsigned int>(length), *d.parser, d.reporter, d.format);
}

// The parser's memory, counted apart: constructors of Xerces that run out of memory lose what they had. A
// list of its own keeps lost blocks in reach.
class ParserMemory : public QuayMemoryManager {
public:
    void* allocate(XMLSize_t size) override {
        auto* const block = static_cast<Block*>(QuayMemoryManager::allocate(sizeof(Block) + size));
        block->next = m_first.next;
        block->previous = &m_first;
        block->next->previous = block;
        m_first.next = block;
        ++foreignBlocks;
        return block + 1;
    }
    void deallocate(void* p) override {
        if (p != nullptr) {
            Block* const block = static_cast<Block*>(p) - 1;
            block->previous->next = block->next;
            block->next->previous = block->previous;
            --foreignBlocks;
            QuayMemoryManager::deallocate(block);
        }
    }

private:
    struct Block {
        Block* next;
        Block* previous;
    };
    Block m_first{&m_first, &m_first};
};

class XmlWithoutMemory : public testing::Test {
protected:
    XmlWithoutMemory() { xercesc::XMLPlatformUtils::fgMemoryManager = &s_memory; }
    ~XmlWithoutMemory() override { xercesc::XMLPlatformUtils::fgMemoryManager = m_before; }

    static inline ParserMemory s_memory; // what is made with it may outlive a test
    const XercesInitializer& m_xerces = XercesInitializer::GetXercesInit();
    xercesc::MemoryManager* const m_before = xercesc::XMLPlatformUtils::fgMemoryManager;
    const QuietManager m_quiet;
};

TEST_F(XmlWithoutMemory, TextsAreNotMade) {
    expectHarmlessRefusals<Documents>({
        {"Initialize", [](Documents& d) { d.rawFormat.Initialize(); }, Promise::usable},
        {"ToBrimString",
         [](Documents& d) { d.text = d.format.ToBrimString(u"a longer text\x20AC", nullptr); },
         Promise::usable},
        {"XMLChToBrimString",
         [](Documents& d) { d.text = SUPDOMPrintFormatTarget::XMLChToBrimString(u"a longer text"); }},
        {"XMLChToBrimString, counted",
         [](Documents& d) { d.text = SUPDOMPrintFormatTarget::XMLChToBrimString(u"a longer text", 10); }},
        {"BrimStringToXMLCh",
         [](Documents& d) {
             static const BrimString kLong = brim(std::wstring(400, L'x'));
             SUPDOMPrintFormatTarget::BrimStringToXMLCh(kLong, d.units);
         }},
        {"writeChars",
         [](Documents& d) {
             static const unsigned char kBytes[2000] = {};
             d.rawFormat.writeChars(kBytes, sizeof(kBytes), nullptr);
         }},
    });
}

TEST_F(XmlWithoutMemory, DocumentsAreNotParsed) {
    const CapturedOutput parseErrors;
    expectHarmlessRefusals<Documents>({
        {"ParseDocument",
         [](Documents& d) {
             const xercesc::DOMDocument* const document = parse(d, kDocument, sizeof(kDocument) - 1);
             d.elements = document->getDocumentElement() != nullptr ? 1 : 2;
         },
         Promise::usable},
        {"helpers",
         [](Documents& d) {
             xercesc::DOMElement* const root =
                 parse(d, kDocument, sizeof(kDocument) - 1)->getDocumentElement();
             d.text =
                 SUPDomHelperFunctions::GetChildText(root, L"b", d.format)
                     .append(SUPDomHelperFunctions::GetAttrs(root->getFirstElementChild(), L"c", d.format))
                     .append(SUPDomHelperFunctions::FindChildText(root, d.format));
         },
         Promise::usable},
        {"a document with a fault",
         [](Documents& d) {
             parse(d, "<a><b></a>", 10);
             d.elements = d.reporter.fSawErrors ? 1 : 2;
         },
         Promise::usable},
        {"a file that is missing",
         [](Documents& d) {
             d.parser = std::make_unique<xercesc::XercesDOMParser>();
             SUPDOM::ParseDocument(L"/nonexistent/file", *d.parser, d.reporter, d.format);
         },
         Promise::usable},
    });
}

constexpr const wchar_t* kLocaleFile = L"" BRIM_TEST_SMALL_LOCALE_FILE;

// Each map has an entry that the file replaces, or one that it lacks.
struct LocaleMaps {
    sup::LocaleConversionMap locales{{"another-name", {"before", "1"}}};
    sup::CaseInsBrimStringMap charsets{{L"utf-8", 5U}, {L"other", 6U}};
    sup::SortLangMap languages{{1033U, "before"}};
    sup::IconvIdentifierMap encodings{{1, "before"}};
};

std::string picture(const LocaleMaps& maps) {
    std::string all;
    for (const auto& entry : maps.locales) {
        all += std::string(entry.first.c_str()) + "=" + entry.second.first.c_str() + "," +
               entry.second.second.c_str() + ";";
    }
    for (const auto& entry : maps.charsets) {
        all += testing::PrintToString(plain(entry.first)) + "=" + std::to_string(entry.second) + ";";
    }
    for (const auto& entry : maps.languages) {
        all += std::to_string(entry.first) + "=" + entry.second.c_str() + ";";
    }
    for (const auto& entry : maps.encodings) {
        all += std::to_string(entry.first) + "=" + entry.second.c_str() + ";";
    }
    return all;
}

TEST_F(XmlWithoutMemory, LocaleFilesAreReadWholeOrNot) {
    expectHarmlessRefusals<LocaleMaps>({
        {"PopulateLocaleConversionMap",
         [](LocaleMaps& d) { SUPBuildMapFromXML(kLocaleFile).PopulateLocaleConversionMap(d.locales); }},
        {"PopulateCharsetToCodePageMap",
         [](LocaleMaps& d) { SUPBuildMapFromXML(kLocaleFile).PopulateCharsetToCodePageMap(d.charsets); }},
        {"PopulateSortLocaleIdToLangMap",
         [](LocaleMaps& d) { SUPBuildMapFromXML(kLocaleFile).PopulateSortLocaleIdToLangMap(d.languages); }},
        {"PopulateSortLangToLocaleIdMap",
         [](LocaleMaps& d) { SUPBuildMapFromXML(kLocaleFile).PopulateSortLangToLocaleIdMap(d.charsets); }},
        {"PopulateQUAYEncoding2ICONVTrancodingIdentifierMap",
         [](LocaleMaps& d) {
             SUPBuildMapFromXML(kLocaleFile).PopulateQUAYEncoding2ICONVTrancodingIdentifierMap(d.encodings);
         }},
    });
}

} // namespace
