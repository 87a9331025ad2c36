// The memory below the account. A backend is a namespace with:
//
//   kVariant            name of the build variant, for the report
//   kLargestRequest     requests above it are refused before they reach the backend
//   allocate(size)      a block aligned to FENMEM_800_ALIGNMENT, or null
//   release(p, size)    p is not null, size is the size that was requested
//   bindThread(), unbindThread(), flushThread(), compact()
//   report(writer)      its part of the memory report
//
// None of them throws. allocate and release are inline: they are the hot path of the provider.
#pragma once

#ifdef FENMEM_BACKEND_LIBC
#    include "backend_libc.h"
namespace fenmem {
namespace backend = libc_backend;
}
#else
#    include "backend_mimalloc.h"
namespace fenmem {
namespace backend = mimalloc_backend;
}
#endif
