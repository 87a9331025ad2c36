// Wide texts in fixed buffers, from terminated narrow ones.
#pragma once

#include "Utility/Generic/Portable/SUPOS.h"

namespace sup {

/// SystemUtility::MultiByteToWideChar() of a terminated source, but that the text always ends in a zero: a
/// sequence which the source's end cuts takes the source's own zero with it. `room` is 1 at least. Returns
/// the units with the zero; 0, with an empty text, when they do not fit or cannot be converted.
inline int widenTerminated(const char* src, wchar_t* dst, int room, unsigned int codePage) {
    const int units = SystemUtility::MultiByteToWideChar(src, dst, room, codePage);
    if (units >= 1 && dst[units - 1] == L'\0') {
        return units;
    }
    const bool fits = units >= 1 && units < room;
    dst[fits ? units : 0] = L'\0';
    return fits ? units + 1 : 0;
}

} // namespace sup
