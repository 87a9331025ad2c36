// TranscoderUsingTable: encodings whose characters take one to four bytes, from a mapping table.
//
// Decoding runs a state machine of blocks of 256 entries, one entry a byte; block 0 is the start, and a lead
// byte's entry names the block of the byte that follows. Encoding looks a code unit up in one dense table.
// Text is one pass of the loops of kernels/mbtable.h, which know the characters of one byte and of two from a
// packed copy of the machine. Where they stop, a few characters go by the tables themselves.
#pragma once

#include "Utility/Generic/Portable/BrimNodeAlloc.h"
#include "Utility/Generic/Portable/transcoderbase.h"
#include "kernels/mbtable.h"

#include <cstddef>
#include <vector>

namespace sup::transcodeimpl {

/// Unchanged after construction. Bytes without a meaning decode to "?"; unmappable characters encode to "?",
/// a surrogate pair to one, or go to the callback, a pair as one call.
class BRIMPORTABLE_API TranscoderUsingTable : public TranscoderImplBase {
public:
    /// Builds from `table`, whose rows may overwrite each other. Byte values below `identityCount` (256 at
    /// most) decode to themselves unless a row says otherwise. Encoding keeps four bytes of a mapping. A row
    /// for which the machine has no room left (65536 entries) decodes to nothing; the first is reported to
    /// the error-message manager (E_Portable_BadF).
    TranscoderUsingTable(const UnicodeMultibyteMapping* table, std::size_t identityCount);

    /// A new object from the allocator gateway.
    static TranscoderImplBase* CreateTranscoderTable(const UnicodeMultibyteMapping* table,
                                                     std::size_t identityCount);

    size_type multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst, size_type dstLen,
                                 state* ctx) const override;
    size_type unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst, size_type dstLen,
                                 state* ctx, callback cb, callbackParam cbParam) const override;
    /// The longest byte sequence of any mapping, 1 at least.
    size_type getMultibyteFactor() const override;
    bool isUnicodeCompletelyRepresentable() const override;

private:
    enum State : unsigned int { kNoChar = 0, kUnicodeChar = 1, kJumpTo = 2 };

    /// The bytes of a character, ended by a zero byte or the fourth; all zero when there is no mapping.
    union goo {
        char mbs[4];
        unsigned int x;
    };

    struct MBCharState {
        State eState;
        union {
            unsigned int nGoto : 16; ///< kJumpTo: the first entry of the next block
            wchar_t wUnicodeChar;    ///< kUnicodeChar
        };
    };

    void AddUnicodeMapping(const UnicodeMultibyteMapping& row);
    bool AddMBMapping(const UnicodeMultibyteMapping& row);
    void pack();
    const goo* mappingOf(wide_char unit) const noexcept;
    bool decodeByMachine(const char* src, size_type srcLen, wide_char* dst, size_type dstLen,
                         kernels::MultibyteProgress& at) const noexcept;
    template <bool bCallback>
    bool encodeByTable(const wide_char* src, size_type srcLen, char* dst, size_type dstLen, callback cb,
                       callbackParam cbParam, kernels::MultibyteProgress& at) const;

    std::vector<goo, BrimStlAllocator<goo>> m_vPrimaryUnicode;
    std::vector<MBCharState, BrimStlAllocator<MBCharState>> m_vMBState;
    std::size_t m_nMBFactor;

    // What the loops see of them.
    kernels::MultibyteDecoding m_decoding;
    bool m_fitsEncodingLoop; ///< no mapping has bytes behind a zero
};

} // namespace sup::transcodeimpl
