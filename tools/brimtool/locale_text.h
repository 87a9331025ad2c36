// Texts of the command line and of text streams, which are in the encoding of the locale, as wide text.
#pragma once

#include "Utility/Generic/Portable/SUPString.h"
#include "encoding.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace brimtool {

/// A text that cannot be converted; what() describes it.
class TextError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class LocaleText {
public:
    LocaleText();

    /// Throws TextError for malformed text.
    BrimString wide(std::string_view text);
    /// Throws TextError for a character that the locale's encoding lacks, and for half a surrogate pair.
    std::string narrow(const BrimString& text);

private:
    Encoding m_encoding;
    std::unique_ptr<Decoder> m_decoder;
    std::unique_ptr<Encoder> m_encoder;
};

} // namespace brimtool
