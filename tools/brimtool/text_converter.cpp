#include "text_converter.h"

#include <algorithm>
#include <cstring>

namespace brimtool {

namespace {

constexpr wchar_t kReplacementCharacter = L'\xFFFD';
constexpr wchar_t kQuestionMark = L'?'; // where the encoding lacks the other

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

} // namespace

TextConverter::TextConverter(const Encoding& from, const Encoding& to, bool lossy, bool countsCharacters)
    : m_fromEncoding(from), m_toEncoding(to), m_lossy(lossy), m_countsCharacters(countsCharacters),
      m_encoder(to.makeEncoder()), m_decoder(from.makeDecoder(!m_encoder->isComplete())),
      m_outputRoom(m_encoder->roomFor(kInputLength)), m_input(new char[kInputLength]),
      m_wide(new wchar_t[kPartLength]), m_output(new char[m_outputRoom]) {}

bool TextConverter::convert(std::size_t length) { return convertInput(m_carried + length, false); }

bool TextConverter::finish() {
    if (!convertInput(m_carried, true) || !encode(m_decoder->finish(m_wide.get()), 0)) {
        return false;
    }
    reserveOutput(m_encoder->roomFor(0));
    m_outputLength += m_encoder->finish(m_output.get() + m_outputLength, m_outputRoom - m_outputLength);
    return true;
}

bool TextConverter::convertInput(std::size_t length, bool last) {
    m_outputLength = 0;
    std::size_t at = 0;
    while (at != length) {
        const char* const text = m_input.get() + at;
        const std::size_t part = std::min(length - at, kPartLength);
        const bool isLastPart = part == length - at;
        const Decoder::Step step = m_decoder->decode(text, part, m_wide.get(), kPartLength);
        if (!encode(step.units, step.bytes)) {
            return false;
        }
        at += step.bytes;
        if (step.cut && !isLastPart) {
            continue; // the next part has the sequence whole
        }
        if (step.cut && !last) {
            break;
        }
        if (step.rest != 0 && !replaceMalformed(text + step.bytes, step.rest, step.cut)) {
            return false;
        }
        at += step.rest;
    }
    m_carried = length - at;
    std::memmove(m_input.get(), m_input.get() + at, m_carried);
    return true;
}

bool TextConverter::encode(std::size_t units, std::size_t bytes) {
    const wchar_t* const wide = m_wide.get();
    std::size_t done = 0;
    bool stopped = false;
    while (done != units && !stopped) {
        const Encoder::Step step = put(wide + done, units - done);
        done += step.units;
        if (step.lacking == 0) {
            continue;
        }
        if (!m_problem) {
            note({m_position.bytes + m_decoder->bytesOf(wide, done),
                  m_position.lines + countLines(wide, done)},
                 m_toEncoding.describeLacking(wide + done, step.lacking));
        }
        stopped = !m_lossy;
        if (m_lossy) {
            put(&kQuestionMark, 1);
            ++m_unconvertible;
            done += step.lacking;
        }
    }
    m_position.bytes += stopped ? m_decoder->bytesOf(wide, done) : bytes;
    m_position.lines += countLines(wide, done);
    if (m_countsCharacters) {
        m_characters += countCharacters(wide, done);
    }
    return !stopped;
}

bool TextConverter::replaceMalformed(const char* sequence, std::size_t length, bool cut) {
    note(m_position, m_fromEncoding.describeMalformed(sequence, length, cut));
    if (!m_lossy) {
        return false;
    }
    if (put(&kReplacementCharacter, 1).lacking != 0) {
        put(&kQuestionMark, 1);
    }
    m_position.bytes += length;
    ++m_characters;
    ++m_malformed;
    return true;
}

Encoder::Step TextConverter::put(const wchar_t* units, std::size_t count) {
    reserveOutput(m_encoder->roomFor(count));
    const Encoder::Step step =
        m_encoder->encode(units, count, m_output.get() + m_outputLength, m_outputRoom - m_outputLength);
    m_outputLength += step.bytes;
    return step;
}

// Grows for encodings only whose bytes stand for several units each.
void TextConverter::reserveOutput(std::size_t more) {
    if (more <= m_outputRoom - m_outputLength) {
        return;
    }
    const std::size_t room = std::max(m_outputLength + more, 2 * m_outputRoom);
    std::unique_ptr<char[]> larger(new char[room]);
    std::memcpy(larger.get(), m_output.get(), m_outputLength);
    m_output = std::move(larger);
    m_outputRoom = room;
}

void TextConverter::note(const Position& at, std::string description) {
    if (!m_problem) {
        m_problem = Problem{at, std::move(description)};
    }
}

} // namespace brimtool
