// The transcoder framework: the interface of one encoding's transcoder, the rows that table-driven
// transcoders are built from, and the rows of a registry.
//
// Wide text holds one UTF-16 code unit per wchar_t; characters above U+FFFF are surrogate pairs.
#pragma once

#include "Utility/Generic/Portable/SUPAtomic.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/memallocnewdel.h"

#include <cstddef>

/// Scratch state that a caller may hand to a conversion, for transcoders that keep state from call to call.
/// None of the built-in ones reads or writes it; null is always right.
struct SUPTranscodeThreadContext {
    /// For the transcoder that it is handed to.
    unsigned int nInternals[32];
};

/// Asks the caller what to write for characters that an encoding cannot represent: `srcLen` units at `src` (2
/// for a surrogate pair), up to `dstLen` bytes at `dst`. Returns the bytes written, or -1 to end the
/// conversion.
using SUPTranscodeUntranslatableCharCallback = std::size_t (*)(void* param, const wchar_t* src,
                                                               std::size_t srcLen, char* dst,
                                                               std::size_t dstLen);

namespace sup::transcodeimpl {

/// Which way a mapping row is valid.
enum UMBMDirection : unsigned int {
    kCP_Either = 0,
    kCP_UnicodeToMB = 1,
    kCP_MBToUnicode = 2,
    kCP_End = 3 ///< the row that ends a table
};

/// One row of a mapping table: a UTF-16 code unit and its bytes in the encoding. A table is an array of rows
/// that ends with {0, nullptr, 0, kCP_End}.
struct UnicodeMultibyteMapping {
    /// The unit, its bytes (not terminated), their number, and the way the row counts.
    wchar_t wUnicodeChar;
    const char* cMBChars;
    unsigned int nMBChars : 4;
    UMBMDirection eDirection : 4;
};

/// Converts one encoding. Objects do not change after construction, so any number of threads may convert
/// through one. They come from the allocator gateway; the TranscoderCache owns those of the registry until
/// exit.
///
/// Both conversions return the number of units written, or -1 (all bits set) when `dst` is too small; what
/// was written before stays. An empty source gives 0. No terminating zero is written. Nothing is reported:
/// malformed input and unrepresentable characters become replacement characters.
class BRIMPORTABLE_API TranscoderImplBase : public memalloc::MemAllocNewdel {
public:
    /// The types of a conversion's sides, counts and callbacks.
    using wide_char = wchar_t;
    using narrow_char = char;
    using size_type = std::size_t;
    using state = SUPTranscodeThreadContext;
    using callback = SUPTranscodeUntranslatableCharCallback;
    using callbackParam = void*;
    using RefCount = AtomicUint32;

    virtual ~TranscoderImplBase();

    /// Bytes to wide units. `ctx` may be null.
    virtual size_type multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst, size_type dstLen,
                                         state* ctx) const = 0;
    /// Wide units to bytes. `ctx` and `cb` may be null; without `cb` unrepresentable characters become "?".
    virtual size_type unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst, size_type dstLen,
                                         state* ctx, callback cb, callbackParam cbParam) const = 0;
    /// The most bytes that one wide unit becomes, to size a destination with.
    virtual size_type getMultibyteFactor() const = 0;
    /// True when every wide unit can be converted without loss.
    virtual bool isUnicodeCompletelyRepresentable() const = 0;

    /// Counts for callers that share a transcoder of their own. The count starts at 0 and frees nothing.
    unsigned int addRef() noexcept { return m_refCount.increment(); }
    unsigned int releaseRef() noexcept { return m_refCount.decrement(); }

protected:
    TranscoderImplBase() noexcept : m_refCount(0) {}

private:
    RefCount m_refCount;
};

/// Creates a transcoder from a table (null for an algorithmic encoding) and a parameter (0 in the registry).
/// The caller owns the result and deletes it.
using TranscoderFactory = TranscoderImplBase* (*)(const UnicodeMultibyteMapping* table, std::size_t param);

/// One row of a registry.
struct SUPTranscodingTable {
    /// The number, the rows, and what makes a transcoder of them.
    int nCodePage;
    const wchar_t* pTableName; ///< informative
    /// The rows, the factory, and its second argument.
    const UnicodeMultibyteMapping* pCodeMappings;
    TranscoderFactory fFactory;
    unsigned int nFactoryParam;
};

} // namespace sup::transcodeimpl
