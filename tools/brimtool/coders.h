// The two halves of a conversion: the bytes of an encoding to wide text, and wide text to bytes. Both take a
// text piece by piece and stop at the first thing in it that cannot be converted, so that the caller decides
// what becomes of it. Wide text holds UTF-16 code units.
#pragma once

#include <cstddef>

namespace brimtool {

class Decoder {
public:
    /// `bytes` of complete characters at the start of a piece became `units`. Then comes a sequence of `rest`
    /// bytes (0 when there is none) that is malformed, or `cut` by the end of the piece: at most kLongestCut
    /// bytes that the next piece has to begin with. With neither, what is left of the piece (when `room` was
    /// short) is to be decoded next.
    struct Step {
        std::size_t bytes;
        std::size_t units;
        std::size_t rest;
        bool cut;
    };
    static constexpr std::size_t kLongestCut = 16;
    /// The most that finish() gives.
    static constexpr std::size_t kLongestEnd = 16;

    virtual ~Decoder() = default;
    Decoder() = default;
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    /// Decodes into the `room` units at `units`; there must be as much room as there are bytes.
    virtual Step decode(const char* text, std::size_t length, wchar_t* units, std::size_t room) = 0;
    /// The bytes that the first `count` of the `units` of the last step took. Asked for in rising order.
    virtual std::size_t bytesOf(const wchar_t* units, std::size_t count) = 0;
    /// Ends the text: the units that were held back.
    virtual std::size_t finish(wchar_t* units) = 0;
};

class Encoder {
public:
    /// `units` at the start of a piece became `bytes`. Then comes a character of `lacking` units that the
    /// encoding does not have. When that is 0, what is left of the piece (the room was short) is to be
    /// encoded next.
    struct Step {
        std::size_t units;
        std::size_t bytes;
        std::size_t lacking;
    };

    virtual ~Encoder() = default;
    Encoder() = default;
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;

    virtual Step encode(const wchar_t* units, std::size_t count, char* out, std::size_t room) = 0;
    /// Ends the text: the bytes that lead back to the first shift state.
    virtual std::size_t finish(char* out, std::size_t room) = 0;
    /// Enough room for `count` units, or for the end.
    virtual std::size_t roomFor(std::size_t count) const = 0;
    /// True when there is no character that the encoding does not have.
    virtual bool isComplete() const = 0;
};

} // namespace brimtool
