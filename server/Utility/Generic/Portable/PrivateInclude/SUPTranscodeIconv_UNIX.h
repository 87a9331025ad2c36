// Transcoders over the platform's iconv(3), for encodings that the registry does not hold. They are an entry
// point of their own: TranscoderCache::getTranscoder() never leads here.
#pragma once

#include "Utility/Generic/Portable/BrimNodeAlloc.h"
#include "Utility/Generic/Portable/SUPString.h"
#include "Utility/Generic/Portable/transcoderbase.h"

#include <cstddef>
#include <iconv.h>
#include <mutex>
#include <vector>

namespace sup::transcodeimpl {

/// Converters of one direction, lent out: one may serve one thread at a time only.
class BRIMPORTABLE_API IconvPool {
public:
    IconvPool(const char* to, const char* from) : m_to(to), m_from(from) {}
    ~IconvPool();
    IconvPool(const IconvPool&) = delete;
    IconvPool& operator=(const IconvPool&) = delete;

    /// A converter in its initial state; (iconv_t)-1 with errno set when it cannot be opened.
    iconv_t borrow();
    void giveBack(iconv_t converter) noexcept;

private:
    sup::String<char> m_to;
    sup::String<char> m_from;
    std::mutex m_mutex;
    std::vector<iconv_t, BrimStlAllocator<iconv_t>> m_idle;
};

/// A transcoder of the encoding that iconv knows as a name. Malformed bytes decode to U+FFFD, a cut character
/// at the end too; unrepresentable characters encode to "?", a surrogate pair to one, or go to the callback.
/// Each kind of failure is reported to the error-message manager once a call, with the encoding's name: no
/// room E_Portable_LackOfSpace, a cut character E_Portable_IncompleteCharOrShiftSeq, malformed or
/// unrepresentable E_Portable_IllegalCharOrShiftSeq, a bad converter E_Portable_BadF, anything else
/// E_Portable_UnknownIconvErr.
class BRIMPORTABLE_API TranscoderIconv : public TranscoderImplBase {
public:
    explicit TranscoderIconv(const char* iconvName);

    size_type multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst, size_type dstLen,
                                 state* ctx) const override;
    size_type unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst, size_type dstLen,
                                 state* ctx, callback cb, callbackParam cbParam) const override;
    /// Room for the longest character and a change of shift state.
    size_type getMultibyteFactor() const override;
    bool isUnicodeCompletelyRepresentable() const override;

private:
    sup::String<char> m_name;
    mutable IconvPool m_decoders;
    mutable IconvPool m_encoders;
    std::size_t m_unit = 1; ///< bytes that a malformed place takes
};

/// A new transcoder for the iconv name, which the caller deletes. An encoding that iconv does not know is
/// reported (E_Portable_EncodingUnsupported); if that returns, the result is null.
BRIMPORTABLE_API TranscoderImplBase* CreateIconvTranscoder(const char* iconvName);
/// The same for an encoding number: iconv's name for it is that of the locale file, or else "CP" and the
/// number.
BRIMPORTABLE_API TranscoderImplBase* CreateIconvTranscoder(int encoding);

} // namespace sup::transcodeimpl
