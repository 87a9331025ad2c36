// The registry of built-in encodings, and the cache that hands out their transcoders by code page.
#pragma once

#include "Utility/Generic/Portable/BrimNodeAlloc.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/transcoderbase.h"

#include <functional>
#include <map>
#include <utility>

namespace sup::transcodeimpl {

/// Rows of the built-in registry: 65001 UTF-8, 1200 UTF-16BE, 1201 UTF-16LE, 28591 ISO-8859-1, 28592 -2,
/// 28593 -3, 28596 -6, 28597 -7, 285915 -15, 1252 Windows Latin-1, 38598 ISO-8859-8-i. Mind that 1200 is
/// big-endian and 1201 little-endian, the reverse of the usual Windows list, and that 285915 and 38598 are
/// house numbers.
constexpr unsigned int knTables = 11;

/// Transcoders by code page, all built at once. Unchanged after construction, so any thread may look up.
class BRIMPORTABLE_API TranscoderCache {
public:
    /// Builds one transcoder for each of the `count` rows. Of rows with the same code page the last one
    /// counts. May throw std::bad_alloc, with nothing left behind.
    TranscoderCache(const SUPTranscodingTable* table, unsigned int count);
    ~TranscoderCache();
    TranscoderCache(const TranscoderCache&) = delete;
    TranscoderCache& operator=(const TranscoderCache&) = delete;

    /// The transcoder of `codePage`, or null. The cache owns it.
    TranscoderImplBase* Find(int codePage) const;

    /// The transcoder of `codePage` in the built-in registry; 0 stands for 1252. An unknown page is reported
    /// to the error-message manager (E_Portable_EncodingUnsupported); if that returns, the result is null.
    /// The cache owns the object until exit. Any thread may call; the first call builds the cache and may
    /// throw std::bad_alloc.
    static TranscoderImplBase* getTranscoder(int codePage);

private:
    void destroyAll() noexcept;

    std::map<int, TranscoderImplBase*, std::less<int>,
             BrimStlAllocator<std::pair<const int, TranscoderImplBase*>>>
        m_transcoders;
};

/// The process-wide cache of the built-in registry, built on the first call.
BRIMPORTABLE_API TranscoderCache* GetTranscoderCache();

} // namespace sup::transcodeimpl
