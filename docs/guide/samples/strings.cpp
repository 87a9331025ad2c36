#include "Utility/Generic/Portable/PrintWriterBase.h"
#include "Utility/Generic/Portable/SUPBString.h"
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPString.h"
#include "Utility/Generic/Portable/SUPStringInterop.h"
#include "Utility/Generic/Portable/StringBuffer.h"

#include <cassert>
#include <string>
#include <unordered_map>

namespace {

void share() {
    BrimString a(L"ab");
    BrimString b = a; // shares the block
    b.append(L"c");   // b gets a block of its own
    assert(a == L"ab" && b == L"abc");
}

void search() {
    const BrimString s(L"a=1");
    assert(s.find(L'=') == 1);
    assert(s.find(L'#') == s.length()); // not npos
    assert(s.find(L'#', BrimString::kReturnNPosIfFail) == BrimString::npos);
    assert(s.rfind(L'#') == BrimString::npos); // rfind always gives npos
    const RefStringTemplate<wchar_t> view(s);
    assert(view.find(L'#') == RefStringTemplate<wchar_t>::npos); // and so do all views
}

void empty() {
    const BrimString null; // owns no memory
    assert(null.empty() && *null.c_str() == L'\0');
    const BrimString fromNull(static_cast<const wchar_t*>(nullptr)); // a null text is the empty text
    assert(fromNull == null);
}

void beyondTheBmp() {
    const wchar_t units[] = {0xD83D, 0xDE00, 0}; // U+1F600 as a surrogate pair
    assert(BrimString(units).length() == 2);
}

void build() {
    sup::StringBufferTemplate<511, wchar_t> buffer; // no heap up to 511 characters
    buffer.append(L"line ").appendNumberAsDecimal(7);
    assert(buffer.asString() == L"line 7");
}

void compact() {
    const sup::ByteString<wchar_t> narrow(L"abc");
    assert(narrow.getBytesPerChar() == 1); // all below U+0100: one byte a character
    assert(narrow.toString() == L"abc");
}

void work() {
    BrimStringVector parts;
    BaseStringUtil::Tokenize(L"red, green;blue", L",; ", parts, false, false);
    assert(parts.size() == 3 && parts[1] == L"green");
    assert(BaseStringUtil::IntFrom(L" 42 km") == 42);
    assert(BaseStringUtil::IsWildcardCaseInsensitiveMatch(L"Report.TXT", L"*.txt"));
    assert(BaseStringUtil::ReplacePatternInString(L"a//b", L"//", L"/") == L"a/b");
}

void withTheStandardLibrary() {
    const BrimString s(L"abc");
    const std::wstring copy(sup::toStringView(s));
    assert(sup::toString<wchar_t>(copy) == s);
    std::unordered_map<BrimString, int> counts; // std::hash comes with SUPStringInterop.h
    ++counts[s];
    assert(counts.at(L"abc") == 1);
}

} // namespace

int main() {
    share();
    search();
    empty();
    beyondTheBmp();
    build();
    compact();
    work();
    withTheStandardLibrary();
}
