// The component xml: Xerces' types in the program, the library's parser around them.
#include "Utility/Generic/Portable/SUPDom.h"
#include "Utility/Generic/Portable/SUPString.h"

#include <cstdio>
#include <cstring>

#include <xercesc/dom/DOMElement.hpp>

int main() {
    XercesInitializer::GetXercesInit();
    const char* const document = "<list><name>Alpha</name></list>";
    xercesc::XercesDOMParser parser;
    SUPDomErrorReporter reporter;
    SUPDOMPrintFormatTarget format;
    format.Initialize();
    xercesc::DOMDocument* const dom =
        SUPDOM::ParseDocument(reinterpret_cast<const unsigned char*>(document),
                              static_cast<unsigned int>(std::strlen(document)), parser, reporter, format);
    if (dom == nullptr) {
        std::puts("not so: the document parses");
        return 1;
    }
    const BrimString name = SUPDomHelperFunctions::GetChildText(dom->getDocumentElement(), L"name", format);
    std::printf("%ls\n", name.c_str());
    return name == BrimString(L"Alpha") ? 0 : 1;
}
