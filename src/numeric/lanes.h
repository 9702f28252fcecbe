// SPDX-License-Identifier: MIT
//
// What the kernel sources are written in: vectors of four doubles, and complex numbers by four with
// real and imaginary parts apart. For kernel_*.cpp alone, which are compiled once for each machine:
// all functions here are local to a source, and these sources use no inline function from elsewhere,
// as the linker keeps one copy of such a function, made for whichever machine.
#pragma once

#include <cstddef>

// The namespace that holds the kernels of this compilation.
#if defined(ORVEL_WIDEST)
#define ORVEL_MACHINE kernels_widest
#elif defined(ORVEL_WIDE)
#define ORVEL_MACHINE kernels_wide
#else
#define ORVEL_MACHINE kernels_plain
#endif

namespace orvel {
namespace {

constexpr int lanes = 4;
typedef double vec __attribute__((vector_size(32)));
typedef long long mask __attribute__((vector_size(32)));          // of a comparison: -1 or 0
typedef vec unaligned_vec __attribute__((aligned(8), may_alias)); // in memory

inline vec load(const double* p) { return *reinterpret_cast<const unaligned_vec*>(p); }
inline void store(double* p, vec x) { *reinterpret_cast<unaligned_vec*>(p) = x; }
inline vec all(double x) { return vec{x, x, x, x}; }

// Complex numbers, as many as there are lanes in V.
template <class V>
struct complex_lanes {
    V re;
    V im;
};
using cvec = complex_lanes<vec>;

inline cvec load(const double* re, const double* im) { return {load(re), load(im)}; }
inline void store(double* re, double* im, cvec z) {
    store(re, z.re);
    store(im, z.im);
}
inline cvec all(double re, double im) { return {all(re), all(im)}; }

// z + a b, z - a b, z + conj(a) b, z - conj(a) b
template <class V>
inline complex_lanes<V> add_mul(complex_lanes<V> z, complex_lanes<V> a, complex_lanes<V> b) {
    return {z.re + a.re * b.re - a.im * b.im, z.im + a.re * b.im + a.im * b.re};
}
template <class V>
inline complex_lanes<V> sub_mul(complex_lanes<V> z, complex_lanes<V> a, complex_lanes<V> b) {
    return {z.re - a.re * b.re + a.im * b.im, z.im - a.re * b.im - a.im * b.re};
}
template <class V>
inline complex_lanes<V> add_conj_mul(complex_lanes<V> z, complex_lanes<V> a, complex_lanes<V> b) {
    return {z.re + a.re * b.re + a.im * b.im, z.im + a.re * b.im - a.im * b.re};
}
// a b and conj(a) b
template <class V>
inline complex_lanes<V> mul(complex_lanes<V> a, complex_lanes<V> b) {
    return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}
template <class V>
inline complex_lanes<V> conj_mul(complex_lanes<V> a, complex_lanes<V> b) {
    return {a.re * b.re + a.im * b.im, a.re * b.im - a.im * b.re};
}

inline double sum_of(vec x) { return (x[0] + x[1]) + (x[2] + x[3]); }

// ---- between records of complex numbers and planes, and between rows and columns ------------

// Real and imaginary parts of the four numbers at z, and back.
inline cvec load_numbers(const double* z) {
    const vec low = load(z), high = load(z + lanes);
    return {__builtin_shufflevector(low, high, 0, 2, 4, 6), __builtin_shufflevector(low, high, 1, 3, 5, 7)};
}
inline void store_numbers(double* z, cvec x) {
    store(z, __builtin_shufflevector(x.re, x.im, 0, 4, 1, 5));
    store(z + lanes, __builtin_shufflevector(x.re, x.im, 2, 6, 3, 7));
}

inline void transpose(vec& a, vec& b, vec& c, vec& d) {
    const vec ab_even = __builtin_shufflevector(a, b, 0, 4, 2, 6), ab_odd = __builtin_shufflevector(a, b, 1, 5, 3, 7);
    const vec cd_even = __builtin_shufflevector(c, d, 0, 4, 2, 6), cd_odd = __builtin_shufflevector(c, d, 1, 5, 3, 7);
    a = __builtin_shufflevector(ab_even, cd_even, 0, 1, 4, 5);
    b = __builtin_shufflevector(ab_odd, cd_odd, 0, 1, 4, 5);
    c = __builtin_shufflevector(ab_even, cd_even, 2, 3, 6, 7);
    d = __builtin_shufflevector(ab_odd, cd_odd, 2, 3, 6, 7);
}

} // namespace
} // namespace orvel
