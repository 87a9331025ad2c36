// The locale configuration file, "BrimLocale.xml": what the product calls locales, character sets, sort
// languages and encodings, and what the system calls them.
//
//   <BrimLocale>                                      any name
//     <Locales>
//       <Platform Name="LINUX">                       "LINUX" and "UNIX" count here
//         <Locale>
//           <QuayLocale>de-DE</QuayLocale>            the product's name
//           <SystemLocale>de_DE.UTF-8</SystemLocale>  a name for setlocale(3)
//           <SystemCodePage>65001</SystemCodePage>
//         </Locale>
//       </Platform>
//     </Locales>
//     <CharsetToCodePage>
//       <Charset Name="UTF-8"><CodePage>65001</CodePage></Charset>
//     </CharsetToCodePage>
//     <SortLangs>
//       <SortLang Name="de-DE"><SortId>1031</SortId></SortLang>
//     </SortLangs>
//     <IconvTranscode>
//       <Platform Name="LINUX">                       only "LINUX" counts here
//         <QuayCode Name="65001"><IconvIdentifier>UTF-8</IconvIdentifier></QuayCode>
//       </Platform>
//     </IconvTranscode>
//   </BrimLocale>
//
// Sections may stand anywhere and more than once. Names are compared exactly. A text that comments or CDATA
// sections part counts by its last piece. Numbers are decimal; what follows their digits is ignored, and a
// text without any is 0.
#pragma once

#include "Utility/Generic/Portable/BrimNodeAlloc.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/SUPString.h"
#include "Utility/Generic/Portable/SUPTranscode.h"

#include <functional>
#include <map>
#include <utility>

/// The order of BaseStringUtil::CaseInsensitiveCompare: names that differ in case alone are the same key.
class BRIMPORTABLE_API CaseInsBrimStringLessFunctor {
public:
    /// True when `a` comes first.
    bool operator()(const BrimString& a, const BrimString& b) const;
};

namespace sup {

/// Name to number, case ignored.
using CaseInsBrimStringMap = std::map<BrimString, unsigned int, CaseInsBrimStringLessFunctor,
                                      BrimStlAllocator<std::pair<const BrimString, unsigned int>>>;

} // namespace sup

/// Reads a locale configuration file. Each operation parses it anew and adds what its section holds to a map;
/// of entries with the same key the last one counts, and they replace what the map had. Narrow texts are in
/// the process's code page (SystemUtility::GetMultiByteCodePage).
///
/// A file that is missing or malformed is reported as SUPDOM::ParseDocument() reports it. Then, and after
/// std::bad_alloc, the map is as it was. Any thread may read, each with a map of its own.
class BRIMPORTABLE_API SUPBuildMapFromXML {
public:
    /// Keeps the file's path; nothing is read yet.
    explicit SUPBuildMapFromXML(BrimString path);
    ~SUPBuildMapFromXML();

    /// Product locale name to (system locale name, code page as text).
    void PopulateLocaleConversionMap(sup::LocaleConversionMap& map) const;
    /// Character set name to code page. Entries without a code page are skipped.
    void PopulateCharsetToCodePageMap(sup::CaseInsBrimStringMap& map) const;
    /// Sort locale id to sort language name, and the reverse.
    void PopulateSortLocaleIdToLangMap(sup::SortLangMap& map) const;
    void PopulateSortLangToLocaleIdMap(sup::CaseInsBrimStringMap& map) const;
    /// Code page to iconv's name.
    void PopulateQUAYEncoding2ICONVTrancodingIdentifierMap(sup::IconvIdentifierMap& map) const;

private:
    BrimString m_path;
};
