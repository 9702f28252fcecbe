// SPDX-License-Identifier: MIT
#include "numeric/cmatutil.h"

#include <cstring>

#include "numeric/fast/fast.h"

namespace orvel {

void c_matcopy2(int n, const complex* const* src, complex** dst) {
    for (int i = 0; i < n; ++i)
        std::memcpy(dst[i], src[i], to_size(n) * sizeof(complex));
}

void c_matmult(int n, int m, int l, complex** c, const complex* const* a, const complex* const* b, scratch& room) {
    const scratch_mark begin = mark_scratch(room);
    const planes left = take_planes(room, n, l), right = take_planes(room, l, m);
    const planes product = take_zero_planes(room, n, m);
    to_planes(n, l, a, left);
    to_planes(l, m, b, right);
    add_product(n, m, l, product, as_factors(left), right);
    from_planes(n, m, product, c);
    release_scratch(room, begin);
}

void c_matmult2(int n, complex** a, const complex* const* b, scratch& room) { c_matmult(n, n, n, a, a, b, room); }

void c_matsub2(int n, complex** a, const complex* const* b) {
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            a[i][j] = c_sub(a[i][j], b[i][j]);
}

void c_div_row(int n, const complex* z, const complex* divisor, complex* quotient) {
    divide_row(n, z, divisor, quotient);
}

} // namespace orvel
