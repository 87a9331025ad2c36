// Judges UTF-8 by the Unicode standard's table of well-formed byte sequences (Unicode 15, table 3-7): no
// overlong forms, no encoded surrogates, nothing above U+10FFFF. It stands beside the decoder of
// EncodingUTF8.h, which is lenient on purpose.
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"

#include <cstddef>
#include <cstdint>

namespace sup::transcodeimpl {

/// Takes a text in pieces; a sequence that the end of a piece cuts is carried over to the next one.
///
///   Utf8Validator validator;
///   while (...) { validator.feed(piece, length); }
///   if (!validator.finish()) { report(validator.errorOffset(), validator.errorLine()); }
///
/// Nothing is allocated and nothing thrown. An object belongs to one thread.
class BRIMPORTABLE_API Utf8Validator {
public:
    /// What scan() found: `wellFormed` bytes of complete sequences, then one that is not, `rest` bytes long
    /// (0 when there is none). `cut` tells that the end of the text cuts it, so more bytes could complete it.
    /// Otherwise it is malformed, and `rest` is the length of its longest part that could begin a well-formed
    /// sequence, at least 1: what one U+FFFD stands for.
    struct Scan {
        std::size_t wellFormed;
        std::size_t rest;
        bool cut;
    };

    /// Judges the text from `src` up to the first sequence that is not well formed. Any thread may call.
    static Scan scan(const char* src, std::size_t length) noexcept;

    /// Judges the next piece. False from the first malformed sequence on; what comes after it is not looked
    /// at.
    bool feed(const char* src, std::size_t length) noexcept;
    /// Ends the text: a sequence that is still cut is malformed. False when any sequence was.
    bool finish() noexcept;

    bool isWellFormed() const noexcept { return m_wellFormed; }
    /// Offset, from the start of the first piece, of the first byte of the first malformed sequence. While
    /// there is none: the length of the complete sequences so far.
    std::uint64_t errorOffset() const noexcept { return m_offset; }
    /// The line that errorOffset() lies in: 1 and one more for every LF before it.
    std::uint64_t errorLine() const noexcept { return m_line; }

private:
    std::uint64_t m_offset = 0;
    std::uint64_t m_line = 1;
    std::size_t m_pendingLength = 0;
    char m_pending[4] = {};
    bool m_wellFormed = true;
};

} // namespace sup::transcodeimpl
