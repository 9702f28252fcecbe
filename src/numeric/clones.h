// SPDX-License-Identifier: MIT
//
// ORVEL_VECTOR_CLONES in front of a static function compiles it twice, for the plain machine and
// for one with wide vector registers (AVX2), and the running machine chooses. Both give the same
// digits, as nothing is contracted or reordered. It pays in functions that spend their time in
// loops; what they call in these loops must be inline. Clang wants their names distinct in the
// whole program. What a tilt spends its time in is written by lanes instead, in the kernels (kernels.h).
#pragma once

// The choice needs indirect functions, which the sanitizers start too late for.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ORVEL_UNDER_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer) || \
    __has_feature(thread_sanitizer) || __has_feature(undefined_behavior_sanitizer)
#define ORVEL_UNDER_SANITIZER
#endif
#endif

#if defined(__x86_64__) && defined(__GLIBC__) && defined(__has_attribute) && \
    !defined(ORVEL_UNDER_SANITIZER)
#if __has_attribute(target_clones)
#define ORVEL_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#endif
#endif
#ifndef ORVEL_VECTOR_CLONES
#define ORVEL_VECTOR_CLONES
#endif
