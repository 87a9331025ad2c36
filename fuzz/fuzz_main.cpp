// What all fuzz targets share: failed assertions end the process, so that the fuzzer keeps the input; blocks
// of the library are checked and counted by the tests' allocator; the locale is one with all characters.
#include "fuzz_input.h"

#include "recording_allocator.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    GTEST_FLAG_SET(throw_on_failure, true); // nobody catches it
    if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr) {
        std::abort();
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    fuzzOne(input);
    return 0;
}
