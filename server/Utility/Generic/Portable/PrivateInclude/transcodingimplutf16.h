// The UTF-16 transcoders: big-endian (code page 1200) and little-endian (1201). EncodingUTF16.h tells the
// rules.
#pragma once

#include "Utility/Generic/Portable/transcoderbase.h"

namespace sup::transcodeimpl {

class BRIMPORTABLE_API TranscoderImplUTF16BE : public TranscoderImplBase {
public:
    /// Both arguments are ignored.
    static TranscoderImplBase* CreateTranscoderTable(const UnicodeMultibyteMapping* table, std::size_t param);

    size_type multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst, size_type dstLen,
                                 state* ctx) const override;
    size_type unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst, size_type dstLen,
                                 state* ctx, callback cb, callbackParam cbParam) const override;
    size_type getMultibyteFactor() const override;
    bool isUnicodeCompletelyRepresentable() const override;

    static size_type S_multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst,
                                          size_type dstLen);
    static size_type S_unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst,
                                          size_type dstLen);
};

class BRIMPORTABLE_API TranscoderImplUTF16LE : public TranscoderImplBase {
public:
    /// Both arguments are ignored.
    static TranscoderImplBase* CreateTranscoderTable(const UnicodeMultibyteMapping* table, std::size_t param);

    size_type multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst, size_type dstLen,
                                 state* ctx) const override;
    size_type unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst, size_type dstLen,
                                 state* ctx, callback cb, callbackParam cbParam) const override;
    size_type getMultibyteFactor() const override;
    bool isUnicodeCompletelyRepresentable() const override;

    static size_type S_multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst,
                                          size_type dstLen);
    static size_type S_unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst,
                                          size_type dstLen);
};

} // namespace sup::transcodeimpl
