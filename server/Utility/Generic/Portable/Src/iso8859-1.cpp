#include "sbtables.h"

#include "sbtablerows.h"

namespace sup::transcodeimpl {

using sbtablerows::kEndRow;

// ISO/IEC 8859-1:1998. Every byte is the code point of the same value, so there is nothing to list.
constexpr UnicodeMultibyteMapping cpISO8859_1[] = {kEndRow};

static_assert(sbtablerows::isWellFormed(cpISO8859_1));
static_assert(sbtablerows::rowCount(cpISO8859_1) == 0);
static_assert(sbtablerows::fitsTranscoder<256, 256, false>(cpISO8859_1));

} // namespace sup::transcodeimpl
