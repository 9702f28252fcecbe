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
#define ORVEL_MACHINE widest
#elif defined(ORVEL_WIDE)
#define ORVEL_MACHINE wide
#else
#define ORVEL_MACHINE plain
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
inline complex_lanes<V> mul(complex_lanes<V> a, complex_lanes<V> b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }
template <class V>
inline complex_lanes<V> conj_mul(complex_lanes<V> a, complex_lanes<V> b) { return {a.re * b.re + a.im * b.im, a.re * b.im - a.im * b.re}; }

inline double sum_of(vec x) { return (x[0] + x[1]) + (x[2] + x[3]); }

} // namespace
} // namespace orvel
