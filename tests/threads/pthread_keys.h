// The system's thread-specific keys, seen and refused. The program's definitions win over the C library's for
// the library under test. Include it in one source of a program.
#pragma once

#include "Utility/Generic/Portable/SUPThreadLocalStorage.h"

#include <pthread.h>
#include <threads.h>

#include <cerrno>
#include <cstdio>

// The C library's function behind pthread_key_create.
extern "C" int __pthread_key_create(pthread_key_t* key, void (*destructor)(void*)) noexcept;

// Sanitizers call the functions below before they are ready for what they instrument. So these are left out,
// and touch nothing but plain numbers.
#define BRIM_TEST_NOT_INSTRUMENTED __attribute__((no_sanitize("thread"), no_sanitize("address")))

namespace brimtest {

/// What the library's calls meet; calls for other keys pass. Set it while no other thread uses the library.
struct PthreadKeys {
    static inline int s_created = 0;
    /// So many creations hand out 0 first, which is no real key.
    static inline int s_zeros = 0;
    /// The n-th creation from here on fails; 0: none does.
    static inline int s_failingCreation = 0;
    static inline bool s_storesFail = false;
    static inline bool s_deletionsFail = false;
    /// Whether calls print a line on standard output.
    static inline bool s_isPrinting = false;

    /// The last key that the library was given.
    static inline pthread_key_t s_given = ~pthread_key_t{0};
};

} // namespace brimtest

extern "C" BRIM_TEST_NOT_INSTRUMENTED int pthread_key_create(pthread_key_t* key,
                                                             void (*destructor)(void*)) noexcept {
    using Keys = brimtest::PthreadKeys;
    if (destructor != &ThreadLocalStorageManager::destructor) {
        return __pthread_key_create(key, destructor);
    }
    ++Keys::s_created;
    const bool isFailing = Keys::s_failingCreation > 0 && --Keys::s_failingCreation == 0;
    const bool isZero = !isFailing && Keys::s_zeros > 0;
    int result = EAGAIN;
    if (isZero) {
        --Keys::s_zeros;
        *key = 0;
        result = 0;
    } else if (!isFailing) {
        result = __pthread_key_create(key, destructor);
        Keys::s_given = *key;
    }
    if (Keys::s_isPrinting) {
        std::printf("create: %s\n", isFailing ? "fails" : isZero ? "0" : "a key");
    }
    return result;
}

extern "C" BRIM_TEST_NOT_INSTRUMENTED int pthread_setspecific(pthread_key_t key, const void* value) noexcept {
    using Keys = brimtest::PthreadKeys;
    if (key == Keys::s_given) {
        if (Keys::s_isPrinting) {
            std::printf("store: %s\n", value == nullptr ? "null" : "a map");
        }
        if (Keys::s_storesFail) {
            return ENOMEM;
        }
    }
    return ::tss_set(key, const_cast<void*>(value)) == thrd_success ? 0 : EINVAL;
}

extern "C" BRIM_TEST_NOT_INSTRUMENTED int pthread_key_delete(pthread_key_t key) noexcept {
    using Keys = brimtest::PthreadKeys;
    if (Keys::s_isPrinting && (key == 0 || key == Keys::s_given)) {
        std::printf("delete: %s\n", key == 0 ? "0" : "a key");
    }
    if (Keys::s_deletionsFail && key == Keys::s_given) {
        return EINVAL;
    }
    if (key != 0) {
        ::tss_delete(key);
    }
    return 0;
}
