// The UTF-8 transcoder (code page 65001). EncodingUTF8.h tells the rules.
#pragma once

#include "Utility/Generic/Portable/transcoderbase.h"

namespace sup::transcodeimpl {

class BRIMPORTABLE_API TranscoderImplUTF8 : public TranscoderImplBase {
public:
    /// Both arguments are ignored.
    static TranscoderImplBase* CreateTranscoderTable(const UnicodeMultibyteMapping* table, std::size_t param);

    size_type multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst, size_type dstLen,
                                 state* ctx) const override;
    size_type unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst, size_type dstLen,
                                 state* ctx, callback cb, callbackParam cbParam) const override;
    size_type getMultibyteFactor() const override;
    bool isUnicodeCompletelyRepresentable() const override;

    /// The conversions without an object. A sequence cut off at the end of `src` is dropped silently.
    static size_type S_multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst,
                                          size_type dstLen);
    static size_type S_unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst,
                                          size_type dstLen);
    /// The bytes that `src` needs, lone surrogates counted as T2NEncodingUTF8::calculateExactSize tells.
    static size_type S_unicodeToMultibyteCalculateExactSize(const wchar_t* src, std::size_t srcLen);
};

} // namespace sup::transcodeimpl
