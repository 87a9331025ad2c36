// The coders of iconv's encodings. A converter of the library's pool serves one text from its first piece to
// its last, so that shift states, byte-order marks and headers are those of the whole text.
#pragma once

#include "coders.h"

#include <memory>
#include <string>

namespace brimtool {

/// True when iconv converts from and to the encoding.
bool isKnownToIconv(const std::string& name);

/// `tellsBytes`: bytesOf() will be asked. That costs a second conversion.
std::unique_ptr<Decoder> makeIconvDecoder(const std::string& name, bool tellsBytes);
std::unique_ptr<Encoder> makeIconvEncoder(const std::string& name);

} // namespace brimtool
