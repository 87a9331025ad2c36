// The instructions that the loops of each processor level may use. For the sources of such loops only.
#pragma once

#ifndef __clang__ // GCC 12 warns of the undefined operands of its own intrinsics
#    pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#    pragma GCC diagnostic ignored "-Wuninitialized"
#endif

#define BRIM_AVX2 __attribute__((target("avx2,bmi,bmi2,popcnt")))
#define BRIM_AVX512                                                                                          \
    __attribute__((                                                                                          \
        target("avx512f,avx512bw,avx512vl,avx512dq,avx512vbmi,avx512vbmi2,bmi,bmi2,popcnt,prfchw")))
