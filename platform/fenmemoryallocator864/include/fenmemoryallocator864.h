/* The allocator interface: sized blocks, per-thread caches, per-thread quotas and a memory report.
 *
 * Any library or program may provide these functions: callers reach them through the dynamic linker, so a
 * definition in the executable, or in a library preloaded by it, stands in for the bundled one.
 *
 * All sizes are in bytes. Every function may be called from any thread at any time; none of them throws.
 */
#ifndef FENMEMORYALLOCATOR864_H
#define FENMEMORYALLOCATOR864_H

#include <stddef.h> /* NOLINT(modernize-deprecated-headers): C reads this too */

#if defined(__GNUC__)
#    define FENMEM_800_API __attribute__((visibility("default")))
#else
#    define FENMEM_800_API
#endif

#ifdef __cplusplus
#    define FENMEM_800_NOEXCEPT noexcept
extern "C" {
#else
#    define FENMEM_800_NOEXCEPT
#endif

/** Alignment of every block. */
#define FENMEM_800_ALIGNMENT ((size_t)16)

/** Limit set by fenmem_800_thread_alloc_enable_default_quota: 256 MiB held by one thread. */
#define FENMEM_800_DEFAULT_THREAD_QUOTA ((size_t)256 * 1024 * 1024)

/** Returns a block of at least `size` bytes, aligned to FENMEM_800_ALIGNMENT, contents undefined. The caller
 * owns it until fenmem_800_free, which any thread may call. A size of 0 gives a block of its own.
 *
 * Returns null, and changes nothing, when memory is exhausted or when the calling thread would hold more than
 * its quota.
 *
 * `file` and `line` name the place that asks, for providers that record it; `file` may be null and must stay
 * valid for the life of the process. The bundled provider does not keep them. */
FENMEM_800_API void* fenmem_800_allocate_dbg(size_t size, const char* file, int line) FENMEM_800_NOEXCEPT;

/** Gives back a block of fenmem_800_allocate_dbg. `size` is exactly the size that was requested; any other
 * value is undefined behaviour (sanitizer builds of the provider report it and end the process). Null is
 * ignored. */
FENMEM_800_API void fenmem_800_free(void* p, size_t size) FENMEM_800_NOEXCEPT;

/** Returns cached free memory to the system: what the calling thread caches and what no thread owns. Caches
 * of other threads stay as they are. Slow; meant for idle moments. */
FENMEM_800_API void fenmem_800_compact(void) FENMEM_800_NOEXCEPT;

/** Binds the calling thread to a per-thread cache now rather than at its first allocation. Optional; repeated
 * calls are harmless. */
FENMEM_800_API void fenmem_800_associate(void) FENMEM_800_NOEXCEPT;

/** Releases the calling thread's cache to the shared pool; its live blocks stay valid and may be freed by any
 * thread. A later allocation binds the thread again. A thread that ends is unbound without this call. The
 * thread that loaded the provider keeps its cache and only flushes it. */
FENMEM_800_API void fenmem_800_disassociate(void) FENMEM_800_NOEXCEPT;

/** Returns the calling thread's cached free blocks to the shared pool; the thread stays bound. */
FENMEM_800_API void fenmem_800_flush(void) FENMEM_800_NOEXCEPT;

/** Limits the bytes that the calling thread may hold to FENMEM_800_DEFAULT_THREAD_QUOTA. Off by default.
 *
 * A thread holds the sum of the sizes that it has requested less the sum of those that it has freed, counted
 * from the start of the thread whether the quota is on or off. A block counts for the thread that allocates
 * it and against the thread that frees it: a thread that frees the blocks of others can hold less than
 * nothing. A thread that holds more than the limit already keeps its blocks and gets no more until it is
 * below.
 *
 * Returns non-zero for success; the bundled provider never fails. */
FENMEM_800_API int fenmem_800_thread_alloc_enable_default_quota(void) FENMEM_800_NOEXCEPT;

/** Lifts the limit from the calling thread. Returns non-zero for success; the bundled provider never fails,
 * also when no quota was on. */
FENMEM_800_API int fenmem_800_thread_alloc_disable_quota(void) FENMEM_800_NOEXCEPT;

/** Produces a report on the provider, the calling thread's account and the memory of the process, and hands
 * it to `callback` piece by piece, in order, before returning. A null callback does nothing.
 *
 * `text` is `length` bytes and a terminating NUL, valid during the call only. Every percent sign in it is
 * doubled and both halves are in the same piece, so each piece is a complete printf format without arguments.
 * The callback may print; it must not throw and must not call this function. */
FENMEM_800_API void fenmem_800_log_diagnostics_information(
    void* context, void (*callback)(void* context, const char* text, size_t length)) FENMEM_800_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif
