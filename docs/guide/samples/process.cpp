#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/SUPPerfTimeInterval.h"

#include <cassert>
#include <clocale>
#include <string>

int main() {
    // Loading has measured the counter, and left the locale of the process alone.
    assert(PerfTimeInterval::s_inited);
    assert(std::string(std::setlocale(LC_ALL, nullptr)) == "C");

    // These questions change into a directory and come back.
    BrimString before;
    BrimString after;
    SystemUtility::GetCurrentWorkingDirectory(before);
    assert(SystemUtility::IsValidDirectory(L"/"));
    SystemUtility::GetCurrentWorkingDirectory(after);
    assert(before == after);
}
