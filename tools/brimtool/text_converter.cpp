#include "text_converter.h"

#include "Utility/Generic/Portable/transcodercache.h"
#include "code_pages.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace brimtool {

namespace {

using sup::transcodeimpl::GetTranscoderCache;

constexpr std::size_t kFailed = static_cast<std::size_t>(-1);
constexpr wchar_t kReplacementCharacter = L'\xFFFD';

// Plain sums, which the compiler makes vector loops of.
std::uint64_t countLines(const wchar_t* units, std::size_t count) {
    unsigned int lines = 0;
    for (std::size_t i = 0; i < count; ++i) {
        lines += units[i] == L'\n' ? 1U : 0U;
    }
    return lines;
}

// A surrogate pair is one character.
std::uint64_t countCharacters(const wchar_t* units, std::size_t count) {
    unsigned int secondHalves = 0;
    for (std::size_t i = 0; i < count; ++i) {
        secondHalves += (static_cast<unsigned int>(units[i]) & ~0x3FFU) == 0xDC00U ? 1U : 0U;
    }
    return count - secondHalves;
}

std::string hexBytes(const char* bytes, std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
        char hex[4];
        std::snprintf(hex, sizeof(hex), i == 0 ? "%02X" : " %02X", static_cast<unsigned char>(bytes[i]));
        text += hex;
    }
    return text;
}

// "U+1F600" for one character of one or two units.
std::string codePointText(const wchar_t* units, std::size_t count) {
    auto value = static_cast<unsigned int>(units[0]);
    if (count == 2) {
        value = 0x10000U + ((value & 0x3FFU) << 10) + (static_cast<unsigned int>(units[1]) & 0x3FFU);
    }
    char text[16];
    std::snprintf(text, sizeof(text), "U+%04X", value);
    return text;
}

} // namespace

// What the encoder meets that the target page lacks.
struct TextConverter::Untranslatable {
    bool lossy;
    std::uint64_t count = 0;
    // The first: the character, and where its bytes would have gone.
    const wchar_t* first = nullptr;
    std::size_t units = 0;
    const char* output = nullptr;
};

std::size_t TextConverter::onUntranslatable(void* param, const wchar_t* src, std::size_t srcLen, char* dst,
                                            std::size_t dstLen) {
    auto& met = *static_cast<Untranslatable*>(param);
    if (met.count++ == 0) {
        met.first = src;
        met.units = srcLen;
        met.output = dst;
    }
    if (!met.lossy || dstLen == 0) {
        return kFailed;
    }
    *dst = '?';
    return 1;
}

TextConverter::TextConverter(int from, int to, bool lossy)
    : m_fromPage(from), m_toPage(to), m_lossy(lossy), m_from(*GetTranscoderCache()->Find(from)),
      m_to(*GetTranscoderCache()->Find(to)), m_judge(makeJudge(from)),
      m_outputRoom(kInputLength * m_to.getMultibyteFactor()), m_input(new char[kInputLength]),
      m_wide(new wchar_t[kInputLength]), m_output(new char[m_outputRoom]) {
    char replacement[8];
    const std::size_t length = m_to.unicodeToMultibyte(&kReplacementCharacter, 1, replacement,
                                                       sizeof(replacement), nullptr, nullptr, nullptr);
    m_replacement.assign(replacement, length);
}

TextConverter::~TextConverter() = default;

bool TextConverter::convert(std::size_t length) { return convertInput(m_carried + length, false); }

bool TextConverter::finish() { return convertInput(m_carried, true); }

bool TextConverter::convertInput(std::size_t length, bool last) {
    m_outputLength = 0;
    std::size_t at = 0;
    while (at != length) {
        const Judge::Verdict verdict = m_judge->judge(m_input.get() + at, length - at);
        if (!convertWellFormed(m_input.get() + at, verdict.wellFormed)) {
            return false;
        }
        at += verdict.wellFormed;
        if (verdict.rest == 0 || (verdict.cut && !last)) {
            break;
        }
        if (!replaceMalformed(m_input.get() + at, verdict.rest, verdict.cut)) {
            return false;
        }
        at += verdict.rest;
    }
    m_carried = length - at;
    std::memmove(m_input.get(), m_input.get() + at, m_carried);
    return true;
}

bool TextConverter::convertWellFormed(const char* text, std::size_t length) {
    if (length == 0) {
        return true;
    }
    const wchar_t* const wide = m_wide.get();
    std::size_t units = m_from.multibyteToUnicode(text, length, m_wide.get(), kInputLength, nullptr);

    Untranslatable met{m_lossy};
    char* const output = m_output.get() + m_outputLength;
    const std::size_t bytes = m_to.unicodeToMultibyte(wide, units, output, m_outputRoom - m_outputLength,
                                                      nullptr, onUntranslatable, &met);
    // Room is never short, so a conversion that failed was ended by the callback.
    const bool stopped = bytes == kFailed;
    if (met.count != 0) {
        const auto before = static_cast<std::size_t>(met.first - wide);
        note({m_position.bytes + m_judge->bytesOf(wide, before), m_position.lines + countLines(wide, before)},
             codePointText(met.first, met.units) + " does not exist in " + nameOfCodePage(m_toPage));
        units = stopped ? before : units;
    }
    m_unconvertible += met.count;
    m_outputLength += stopped ? static_cast<std::size_t>(met.output - output) : bytes;
    m_position.bytes += stopped ? m_judge->bytesOf(wide, units) : length;
    m_position.lines += countLines(wide, units);
    m_characters += countCharacters(wide, units);
    return !stopped;
}

bool TextConverter::replaceMalformed(const char* sequence, std::size_t length, bool cut) {
    note(m_position, "malformed " + nameOfCodePage(m_fromPage) + " (" + hexBytes(sequence, length) + ")" +
                         (cut ? ", cut off by the end of the text" : ""));
    if (!m_lossy) {
        return false;
    }
    std::memcpy(m_output.get() + m_outputLength, m_replacement.data(), m_replacement.size());
    m_outputLength += m_replacement.size();
    m_position.bytes += length;
    ++m_characters;
    ++m_malformed;
    return true;
}

void TextConverter::note(const Position& at, std::string description) {
    if (!m_problem) {
        m_problem = Problem{at, std::move(description)};
    }
}

} // namespace brimtool
