// The processor levels of the hot loops, one after the other.
#pragma once

#include "kernels/kernels.h"

#include <gtest/gtest.h>

namespace brimtest {

/// Runs `body` at each level that the processor has.
template <class Body>
void atEachLevel(Body body) {
    using sup::kernels::Level;
    for (const Level level : {Level::plain, Level::avx2, Level::avx512}) {
        if (const sup::kernels::Kernels* const kernels = sup::kernels::kernelsOf(level)) {
            SCOPED_TRACE(::testing::Message() << "level " << static_cast<int>(level));
            sup::kernels::overrideKernels(kernels);
            body();
            sup::kernels::overrideKernels(nullptr);
        }
    }
}

} // namespace brimtest
