// SPDX-License-Identifier: MIT
#include "numeric/cmatutil.h"

#include <cstdlib>
#include <cstring>

#include "numeric/clones.h"
#include "numeric/lb_rows.h"
#include "numeric/vecmat.h"

namespace orvel {

void c_matcopy2(int n, const complex* const* src, complex** dst) {
    for (int i = 0; i < n; ++i)
        std::memcpy(dst[i], src[i], to_size(n) * sizeof(complex));
}

// row (m elements) = a_row (l elements) times b (l by m). The inner index runs outside, so that
// memory is walked in order; each element still sees it in ascending order.
ORVEL_VECTOR_CLONES
static void row_times_matrix(int m, int l, complex* row, const complex* a_row, const complex* const* b) {
    for (int j = 0; j < m; ++j)
        row[j] = {0.0, 0.0};
    for (int k = 0; k < l; ++k)
        row_add(m, row, a_row[k], b[k]);
}

void c_matmult(int n, int m, int l, complex** c, const complex* const* a, const complex* const* b) {
    for (int i = 0; i < n; ++i)
        row_times_matrix(m, l, c[i], a[i], b);
}

void c_matmult2(int n, complex** a, const complex* const* b) {
    complex* row = new_vector<complex>(to_size(n));
    for (int i = 0; i < n; ++i) {
        row_times_matrix(n, n, row, a[i], b);
        std::memcpy(a[i], row, to_size(n) * sizeof(complex));
    }
    std::free(row);
}

void c_matsub2(int n, complex** a, const complex* const* b) {
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            a[i][j] = c_sub(a[i][j], b[i][j]);
}

} // namespace orvel
