// What checked_test.cpp and unchecked_calls.cpp both do, each as it is compiled.
#pragma once

#include "Utility/Generic/Portable/RefString.h"
#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "Utility/Generic/Portable/SUPBString.h"
#include "Utility/Generic/Portable/SUPString.h"
#include "Utility/Generic/Portable/StringBuffer.h"

#include <cstddef>
#include <vector>

namespace brimtest {

/// Sizes, alignments and places of members that a caller's code may hold.
std::vector<std::size_t> uncheckedLayout();
/// Characters right behind the text, where the memory is there.
std::vector<wchar_t> uncheckedReadsBehindTheEnd(const sup::String<wchar_t>& s,
                                                const RefStringTemplate<wchar_t>& view);
/// Removes the last character of an empty string, which does nothing.
void uncheckedPopBack(sup::String<wchar_t>& s);

} // namespace brimtest

// In both files, so that a difference between them shows.
#define LAYOUT                                                                                               \
    {                                                                                                        \
        sizeof(sup::String<wchar_t>), alignof(sup::String<wchar_t>), sizeof(sup::String<char>),              \
            sizeof(sup::ByteString<wchar_t>), alignof(sup::ByteString<wchar_t>),                             \
            sizeof(RefStringTemplate<wchar_t>), sizeof(sup::StringBufferTemplate<8, char>),                  \
            sizeof(sup::StringBufferBaseTemplate<wchar_t>), sizeof(AutoBuffer<int, 3>),                      \
            sizeof(sup::string_details::StringData<wchar_t>),                                                \
            sizeof(sup::string_details::ByteStringData<wchar_t>)                                             \
    }
