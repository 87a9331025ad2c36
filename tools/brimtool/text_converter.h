// Converts a text of any length from one encoding to another, piece by piece, in memory of a fixed size.
//
//   while (n = read(converter.room(), converter.roomLength())) { converter.convert(n);
//   write(converter.output()); } converter.finish(); write(converter.output());
//
// A character that the end of a piece cuts waits at the front of the buffer for the next piece.
#pragma once

#include "coders.h"
#include "encoding.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace brimtool {

/// A place in the input: bytes and LFs before it.
struct Position {
    std::uint64_t bytes = 0;
    std::uint64_t lines = 0;
};

/// The first thing in the input that could not be converted as it stands.
struct Problem {
    Position at;
    std::string description;
};

class TextConverter {
public:
    /// `lossy` writes replacement characters where it would stop otherwise. Counting characters takes time.
    TextConverter(const Encoding& from, const Encoding& to, bool lossy, bool countsCharacters);

    /// Where the next piece goes, and how much of it there may be.
    char* room() noexcept { return m_input.get() + m_carried; }
    std::size_t roomLength() const noexcept { return kPieceLength; }

    /// Converts the `length` bytes that were put at room(). False when it had to stop: problem() tells why,
    /// output() holds what came before, and nothing more may be converted.
    bool convert(std::size_t length);
    /// Ends the text. As convert().
    bool finish();
    /// What the last convert() or finish() gave.
    std::string_view output() const noexcept { return {m_output.get(), m_outputLength}; }

    const std::optional<Problem>& problem() const noexcept { return m_problem; }
    /// What has been converted so far; characters, when they are counted, include replacement characters.
    const Position& position() const noexcept { return m_position; }
    std::uint64_t characters() const noexcept { return m_characters; }
    /// Replacement characters written for malformed sequences, and for characters that the target page lacks.
    std::uint64_t malformed() const noexcept { return m_malformed; }
    std::uint64_t unconvertible() const noexcept { return m_unconvertible; }

private:
    static constexpr std::size_t kPieceLength = std::size_t{128} * 1024;
    static constexpr std::size_t kInputLength = kPieceLength + Decoder::kLongestCut;
    // A piece is converted in parts, whose wide text the nearest cache holds.
    static constexpr std::size_t kPartLength = std::size_t{8} * 1024;
    static_assert(Decoder::kLongestEnd <= kPartLength && Decoder::kLongestCut < kPartLength);

    bool convertInput(std::size_t length, bool last);
    /// Encodes the units that the decoder made of `bytes` bytes.
    bool encode(std::size_t units, std::size_t bytes);
    bool replaceMalformed(const char* sequence, std::size_t length, bool cut);
    /// Adds to the output what the encoder makes of the units.
    Encoder::Step put(const wchar_t* units, std::size_t count);
    void reserveOutput(std::size_t more);
    void note(const Position& at, std::string description);

    Encoding m_fromEncoding;
    Encoding m_toEncoding;
    bool m_lossy;
    bool m_countsCharacters;
    std::unique_ptr<Encoder> m_encoder;
    std::unique_ptr<Decoder> m_decoder;

    std::size_t m_outputRoom;
    std::unique_ptr<char[]> m_input;
    std::unique_ptr<wchar_t[]> m_wide;
    std::unique_ptr<char[]> m_output;
    std::size_t m_carried = 0;
    std::size_t m_outputLength = 0;

    Position m_position;
    std::uint64_t m_characters = 0;
    std::uint64_t m_malformed = 0;
    std::uint64_t m_unconvertible = 0;
    std::optional<Problem> m_problem;
};

} // namespace brimtool
