// UTF-8 functors. The wide side holds one UTF-16 code unit per wchar_t, so a character above U+FFFF is a
// surrogate pair; the encoder also takes a whole code point in one unit.
//
// The decoder is lenient on purpose and no judge of well-formedness: a three- or four-byte sequence is taken
// when at least one of its trailing bytes is a continuation byte, and encoded surrogates pass. What it
// rejects becomes U+FFFD. State remembers a sequence that the end of a chunk cut, so text may come in pieces.
// All operations are thread-safe; a State belongs to one thread.
#pragma once

#include "EncodingFunctor.h"
#include "Utility/Generic/Portable/SUPExport.h"

#include <cstddef>

namespace sup::transcodeimpl {

template <class Wide, class Utf16Unit>
class N2TEncodingUTF8;
template <class Wide, class Utf16Unit>
class T2NEncodingUTF8;

template <>
class BRIMPORTABLE_API N2TEncodingUTF8<wchar_t, unsigned short> : public EncodingFunctor<char, wchar_t> {
public:
    struct State {
        std::size_t nCharByteLength; ///< length of the cut sequence, 2 to 4, from its lead byte
        std::size_t nBytesStored;    ///< bytes held; 0 when nothing is pending
        char aBytes[4];
        State() noexcept : nBytesStored(0) {}
    };

    static std::size_t estimateEncodingSize(std::size_t n) noexcept { return n; }
    static std::size_t maxExpansionFactor() noexcept { return 1; }
    static bool isChunkable() noexcept { return true; }
    /// Units that the pending bytes may become.
    static std::size_t estimateStateEncodingSize(const State& state) noexcept {
        if (state.nBytesStored == 0) {
            return 0;
        }
        return state.nCharByteLength == 4 ? 2 : 1;
    }

    /// Decodes `src` after what `state` holds, and leaves in `state` what is cut at the end of `src`. Returns
    /// the units written, or -1 when `dst` is too small; then `state` is as before the call, so the same
    /// source can be tried again with more room.
    std::size_t encode(const char* src, std::size_t srcLen, wchar_t* dst, std::size_t dstLen,
                       State& state) const;
    /// Ends the text: writes one U+FFFD when bytes are pending. Returns the units written, or -1 when there
    /// is no room. Does not reset `state`.
    std::size_t finalize(wchar_t* dst, std::size_t dstLen, const State& state) const;
};

template <>
class BRIMPORTABLE_API T2NEncodingUTF8<wchar_t, unsigned short>
    : public EncodingStatelessFunctor<wchar_t, char> {
public:
    static std::size_t estimateEncodingSize(std::size_t n) noexcept { return 3 * n; }
    static std::size_t maxExpansionFactor() noexcept { return 3; }
    static bool isChunkable() noexcept { return true; }

    /// Returns the bytes written, or -1 when `dst` is too small.
    std::size_t encode(const wchar_t* src, std::size_t srcLen, char* dst, std::size_t dstLen,
                       State& state) const;
    /// The size of the UTF-8 form; but a lone surrogate other than U+DFFF counts as one byte, although
    /// encode() writes three.
    static std::size_t calculateExactSize(const wchar_t* src, std::size_t srcLen) noexcept;
};

} // namespace sup::transcodeimpl
