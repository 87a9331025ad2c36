// The name under which a process reports to the system's event log when its host gives none.
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/SUPString.h"

class BRIMPORTABLE_API DefaultEventSource {
public:
    DefaultEventSource() = delete;

    static sup::String<char> m_sDefaultSolaceEventSource; ///< set when the library is loaded
};
