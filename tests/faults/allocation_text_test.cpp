// The text family without memory: what lies between the string types. The types themselves have tables of
// their own beside their tests, over every state that a string or buffer can be in.
#include "fault_injection.h"

#include "Utility/Generic/Portable/DireStraitsPrintWriter.h"
#include "Utility/Generic/Portable/RefString.h"
#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "Utility/Generic/Portable/SUPBString.h"
#include "Utility/Generic/Portable/SUPHeapOwner.h"
#include "Utility/Generic/Portable/SUPString.h"
#include "Utility/Generic/Portable/SUPStringInterop.h"
#include "Utility/Generic/Portable/StringBuffer.h"
#include "print_sink.h"
#include "wide_texts.h"

#include <sstream>
#include <string>
#include <utility>

using namespace brimtest;

namespace {

const std::wstring kText(100, L'x');

struct Texts {
    Texts() {
        buffer.append(kText.data(), kText.size());
        printed.width(120); // which fills up
    }

    sup::StringBufferTemplate<16, wchar_t> buffer;
    RefStringTemplate<wchar_t> view{kText.data(), kText.size()};
    sup::ByteString<wchar_t> bytes{kText.data(), kText.size()};
    BrimString string{kText.data(), kText.size()};
    BrimString out{L"before"};
    sup::ByteString<wchar_t> bytesOut{L"before"};
    Heap<BrimString> owned;
    HeapedAutoBuffer<wchar_t> array;
    std::wostringstream printed;
};

std::string picture(const Texts& texts) {
    return testing::PrintToString(plain(texts.out)) + testing::PrintToString(plain(texts.string)) +
           testing::PrintToString(plain(texts.bytes.toString())) +
           testing::PrintToString(plain(texts.bytesOut.toString())) +
           testing::PrintToString(plain(texts.buffer.asString())) +
           testing::PrintToString(texts.owned ? plain(*texts.owned) : L"null") +
           std::to_string(texts.array.capacity());
}

TEST(TextWithoutMemory, IsAsBefore) {
    expectHarmlessRefusals<Texts>({
        {"RefString::asString", [](Texts& t) { t.out = t.view.asString(); }},
        {"StringBuffer::asString", [](Texts& t) { t.out = t.buffer.asString(); }},
        {"ByteString::toString", [](Texts& t) { t.out = t.bytes.toString(); }},
        {"ByteString::getAutoArray", [](Texts& t) { t.array = t.bytes.getAutoArray(); }},
        {"ByteString = String", [](Texts& t) { t.bytesOut = t.string; }},
        {"toString(view)", [](Texts& t) { t.out = sup::toString(sup::toStringView(t.view)); }},
        {"a buffer of a buffer",
         [](Texts& t) { t.out = sup::StringBufferTemplate<8, wchar_t>(t.buffer).asString(); }},
        {"Heap::reset", [](Texts& t) { t.owned.reset(new BrimString(t.view.asString())); }},
        {"HeapedAutoBuffer", [](Texts& t) { t.array = HeapedAutoBuffer<wchar_t>(70); }},
        {"HeapedAutoBuffer::reserve", [](Texts& t) { t.array.reserve(70); }},
    });
}

TEST(TextWithoutMemory, NeedsNoneForViewsSharingAndPrinting) {
    expectHarmlessRefusals<Texts>({
        {"copies", [](Texts& t) { t.out = BrimString(t.string); }, Promise::noRequest},
        {"moves", [](Texts& t) { t.out = std::move(t.string); }, Promise::noRequest},
        {"views", [](Texts& t) { RefStringTemplate<wchar_t>(t.string).find(L"y"); }, Promise::noRequest},
        {"hash", [](Texts& t) { std::hash<BrimString>()(t.string); }, Promise::noRequest},
        {"a buffer that is big enough",
         [](Texts& t) {
             t.buffer.clear();
             t.buffer.append(L"short").appendNumberAsDecimal(5);
         },
         Promise::noRequest},
        {"PrintWriterBase",
         [](Texts& t) {
             static PrintSink<sup::PrintWriterBase> sink;
             sink << t.string << t.view << t.buffer << 17 << true << L"text" << sup::PrintWriterBase::endl;
             sink.append(200, L'-').appendNumberAsHex(255U);
             sink.clear();
         },
         Promise::noRequest},
        {"DireStraitsPrintWriter",
         [](Texts& t) {
             static PrintSink<sup::PrintWriterBase> sink;
             sup::DireStraitsPrintWriter writer(sup::DireStraitsPrintWriter::kDireStraits, sink, 250);
             writer << t.string << t.view << t.buffer << 17 << true << L"text";
             writer.outputEndl();
             sink.clear();
         },
         Promise::noRequest},
    });
}

// A stream swallows what its insertion throws; what it has written so far stays.
TEST(TextWithoutMemory, LeavesNothingBehindInAStream) {
    expectHarmlessRefusals<Texts>({
        {"stream << String", [](Texts& t) { t.printed << t.string; }, Promise::served},
        {"stream << ByteString", [](Texts& t) { t.printed << t.bytes; }, Promise::served},
    });
}

} // namespace
