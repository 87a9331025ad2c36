// FENMEM_SANITIZER_HEAP: malloc is a sanitizer's, which wants to see every block.
#pragma once

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#    define FENMEM_SANITIZER_HEAP 1
#elif defined(__has_feature)
#    if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#        define FENMEM_SANITIZER_HEAP 1
#    endif
#endif
