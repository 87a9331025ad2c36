// A program linked with the library keeps its own heap: the names of the C and C++ heaps lead where they
// would lead without it.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <string>

namespace {

struct Home {
    const void* base = nullptr;
    std::string file;
};

// The object that a name of the global scope resolves into; base is null when there is none.
Home homeOf(const char* name) {
    Dl_info info{};
    void* const symbol = dlsym(RTLD_DEFAULT, name);
    if (symbol == nullptr || dladdr(symbol, &info) == 0) {
        return {};
    }
    return {info.dli_fbase, info.dli_fname};
}

// In sanitizer builds both heaps are the sanitizer runtime's, wherever that is linked.
Home expectedHome(const char* runtimeName) {
    const Home sanitizer = homeOf("__sanitizer_get_ownership");
    return sanitizer.base != nullptr ? sanitizer : homeOf(runtimeName);
}

class HostAllocator : public testing::TestWithParam<const char*> {};

std::string ownName(const testing::TestParamInfo<const char*>& test) { return test.param; }

class CHeap : public HostAllocator {};
TEST_P(CHeap, ResolvesToTheCRuntime) {
    const Home expected = expectedHome("gnu_get_libc_version");
    ASSERT_NE(expected.base, nullptr);
    const Home actual = homeOf(GetParam());
    EXPECT_EQ(actual.base, expected.base) << actual.file << " instead of " << expected.file;
}
INSTANTIATE_TEST_SUITE_P(HostAllocator, CHeap,
                         testing::Values("malloc", "calloc", "realloc", "free", "posix_memalign",
                                         "aligned_alloc", "memalign", "malloc_usable_size"),
                         ownName);

class CxxHeap : public HostAllocator {};
TEST_P(CxxHeap, ResolvesToTheCxxRuntime) {
    const Home expected = expectedHome("__cxa_demangle");
    ASSERT_NE(expected.base, nullptr);
    const Home actual = homeOf(GetParam());
    EXPECT_EQ(actual.base, expected.base) << actual.file << " instead of " << expected.file;
}
INSTANTIATE_TEST_SUITE_P(HostAllocator, CxxHeap,
                         testing::Values("_Znwm", "_Znam", "_ZnwmSt11align_val_t", "_ZnwmRKSt9nothrow_t",
                                         "_ZdlPv", "_ZdaPv", "_ZdlPvm", "_ZdlPvSt11align_val_t"),
                         ownName);

class ForeignName : public HostAllocator {};
TEST_P(ForeignName, IsNotInTheGlobalScope) {
    EXPECT_EQ(homeOf(GetParam()).base, nullptr) << homeOf(GetParam()).file;
}
INSTANTIATE_TEST_SUITE_P(HostAllocator, ForeignName,
                         testing::Values("mi_malloc", "mi_free", "malloc_size", "malloc_good_size", "vfree"),
                         ownName);

} // namespace
