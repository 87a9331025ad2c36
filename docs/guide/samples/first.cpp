#include "Utility/Generic/Portable/SUPString.h"

#include <cstdio>

int main() {
    const BrimString text(L"key = value");
    std::printf("%zu\n", text.find(L'='));
    std::printf("%zu\n", text.find(L'#'));
    if (text.find(L'#', BrimString::kReturnNPosIfFail) == BrimString::npos) {
        std::printf("no #\n");
    }
}
