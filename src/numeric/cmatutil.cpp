// SPDX-License-Identifier: MIT
#include "numeric/cmatutil.h"

#include <cstring>

#include "numeric/vecmat.h"
#include "numeric/workspace.h"

namespace orvel {

void c_matcopy2(int n, const complex* const* src, complex** dst) {
    for (int i = 0; i < n; ++i)
        std::memcpy(dst[i], src[i], to_size(n) * sizeof(complex));
}

void c_matmult(int n, int m, int l, complex** c, const complex* const* a, const complex* const* b) {
    const planes left = split_matrix(slot_a, n, l, a), right = split_matrix(slot_b, l, m, b);
    const planes product = zero_planes(slot_c, n, m);
    add_product(n, m, l, product, {left.re, left.im, left.ld, 1}, right);
    for (int i = 0; i < n; ++i)
        join_row(m, part(product, i, 0).re, part(product, i, 0).im, c[i]);
}

void c_matmult2(int n, complex** a, const complex* const* b) { c_matmult(n, n, n, a, a, b); }

void c_matsub2(int n, complex** a, const complex* const* b) {
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            a[i][j] = c_sub(a[i][j], b[i][j]);
}

} // namespace orvel
