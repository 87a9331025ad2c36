// The mapping tables of the single-byte encodings: rows in byte order, one byte each, valid in both
// directions, then the terminator row. A byte without a row is the code point of the same value when it is
// below the IdentityLimit of the encoding's transcoder, and undefined otherwise. Each table's source names
// its chart and its departures.
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/transcoderbase.h"

namespace sup::transcodeimpl {

extern BRIMPORTABLE_API const UnicodeMultibyteMapping cpISO8859_1[];
extern BRIMPORTABLE_API const UnicodeMultibyteMapping cpISO8859_2[];
extern BRIMPORTABLE_API const UnicodeMultibyteMapping cpISO8859_3[];
extern BRIMPORTABLE_API const UnicodeMultibyteMapping cpISO8859_6[];
extern BRIMPORTABLE_API const UnicodeMultibyteMapping cpISO8859_7[];
extern BRIMPORTABLE_API const UnicodeMultibyteMapping cpISO8859_15[];
extern BRIMPORTABLE_API const UnicodeMultibyteMapping cpWin1252[];
extern BRIMPORTABLE_API const UnicodeMultibyteMapping cpISO8859_8_i[];

} // namespace sup::transcodeimpl
