#include "fenmemoryallocator864.h"

static_assert(noexcept(fenmem_800_free(nullptr, 0)), "cleanup code calls it");
static_assert(FENMEM_800_ALIGNMENT >= alignof(long double), "a block fits any type");
