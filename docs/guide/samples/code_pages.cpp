#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/transcodercache.h"

#include <cassert>
#include <cstring>
#include <string>

namespace {

void convertStrings() {
    const sup::String<char> bytes("Gr\xC3\xBC\xC3\x9F", 6); // "Grüß" in UTF-8
    const BrimString wide = BaseStringUtil::StdStringToString(bytes, 65001);
    assert(wide.length() == 4);
    const sup::String<char> latin1 = BaseStringUtil::StringToStdString(wide, 28591);
    assert(latin1 == "Gr\xFC\xDF");
}

void convertIntoABuffer() {
    const wchar_t text[] = L"\u20AC"; // the euro sign
    const int needed = SystemUtility::WideCharToMultiByte(text, -1, nullptr, 0, 65001);
    assert(needed == 4); // three bytes, and the zero: with length -1 it is converted and counted
    char bytes[4];
    assert(SystemUtility::WideCharToMultiByte(text, -1, bytes, 4, 65001) == 4);
    assert(SystemUtility::WideCharToMultiByte(text, -1, bytes, 2, 65001) == 0); // too small
}

void convertInPieces() {
    using sup::transcodeimpl::TranscoderCache;
    const auto* const transcoder = TranscoderCache::getTranscoder(1200);
    const char bigEndian[] = {'\x00', 'A', '\x20', '\xAC'};
    wchar_t units[2];
    assert(transcoder->multibyteToUnicode(bigEndian, 4, units, 2, nullptr) == 2);
    assert(units[0] == L'A' && units[1] == 0x20AC);
}

std::size_t writeReference(void*, const wchar_t* source, std::size_t, char* destination, std::size_t room) {
    const std::string reference = "&#" + std::to_string(static_cast<unsigned>(*source)) + ";";
    if (reference.size() > room) {
        return static_cast<std::size_t>(-1);
    }
    std::memcpy(destination, reference.data(), reference.size());
    return reference.size();
}

void replaceWhatAPageLacks() {
    const auto* const latin1 = sup::transcodeimpl::TranscoderCache::getTranscoder(28591);
    char bytes[16];
    std::size_t n = latin1->unicodeToMultibyte(L"\u20AC", 1, bytes, 16, nullptr, nullptr, nullptr);
    assert(n == 1 && bytes[0] == '?');
    n = latin1->unicodeToMultibyte(L"\u20AC", 1, bytes, 16, nullptr, writeReference, nullptr);
    assert(std::string(bytes, n) == "&#8364;");
}

} // namespace

int main() {
    OSAbstraction::g_clientCodePage = 65001; // narrow text of this process is UTF-8
    assert(SystemUtility::GetMultiByteCodePage() == 65001);
    convertStrings();
    convertIntoABuffer();
    convertInPieces();
    replaceWhatAPageLacks();
}
