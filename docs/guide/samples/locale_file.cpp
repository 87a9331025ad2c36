#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPBuildMap.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/SUPTranscode.h"

#include <cassert>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

std::string temporaryFile() {
    const char* const directory = std::getenv("TMPDIR");
    return std::string(directory == nullptr ? "/tmp" : directory) + "/locale_file_sample." +
           std::to_string(SystemUtility::GetCurrentProcessID()) + ".xml";
}

void readMaps(const BrimString& path) {
    const SUPBuildMapFromXML file(path);
    sup::CaseInsBrimStringMap pages;
    file.PopulateCharsetToCodePageMap(pages);
    assert(pages.at(L"utf-8") == 65001); // names of character sets differ in case alone: one entry

    sup::SortLangMap languages;
    file.PopulateSortLocaleIdToLangMap(languages);
    assert(languages.at(1031) == "de-DE");
}

void askTheLibrary() {
    // What the library has read at load. The entry "C" is always there.
    assert(GetQuayLocale2SystemLocaleMap().count("C") == 1);
    assert(std::string(SystemUtility::NCSetLocale(LC_CTYPE, "C")) == "C");
    assert(Locale2CodePage("de_DE.UTF-8") == 65001);
    assert(Locale2CodePage("xx_XX") == 1252); // no code set that is known
}

} // namespace

int main() {
    const std::string name = temporaryFile();
    std::ofstream(name) << R"(<BrimLocale>
  <CharsetToCodePage>
    <Charset Name="UTF-8"><CodePage>65001</CodePage></Charset>
  </CharsetToCodePage>
  <SortLangs>
    <SortLang Name="de-DE"><SortId>1031</SortId></SortLang>
  </SortLangs>
</BrimLocale>
)";
    readMaps(BaseStringUtil::StringFrom(name.c_str(), 65001));
    std::remove(name.c_str());
    askTheLibrary();
}
