#include "locale_text.h"

#include <vector>

namespace brimtool {

LocaleText::LocaleText()
    : m_encoding(Encoding::ofProcess()), m_decoder(m_encoding.makeDecoder(false)),
      m_encoder(m_encoding.makeEncoder()) {}

BrimString LocaleText::wide(std::string_view text) {
    std::vector<wchar_t> units(text.size());
    const Decoder::Step step = m_decoder->decode(text.data(), text.size(), units.data(), units.size());
    if (step.rest != 0) {
        throw TextError("byte " + std::to_string(step.bytes) + ": " +
                        m_encoding.describeMalformed(text.data() + step.bytes, step.rest, step.cut));
    }
    return BrimString(units.data(), step.units);
}

std::string LocaleText::narrow(const BrimString& text) {
    std::string bytes(m_encoder->roomFor(text.length()), '\0');
    const Encoder::Step step = m_encoder->encode(text.begin(), text.length(), bytes.data(), bytes.size());
    if (step.lacking != 0) {
        throw TextError(m_encoding.describeLacking(text.begin() + step.units, step.lacking));
    }
    bytes.resize(step.bytes);
    std::vector<wchar_t> again(bytes.size());
    if (m_decoder->decode(bytes.data(), bytes.size(), again.data(), again.size()).rest != 0) {
        throw TextError("half a surrogate pair cannot be written");
    }
    return bytes;
}

} // namespace brimtool
