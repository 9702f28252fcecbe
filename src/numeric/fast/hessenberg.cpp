// SPDX-License-Identifier: MIT
//
// Reduction to Hessenberg form: one pass over the matrix for each column, two rows at a time.
#include "numeric/fast/simd.h"

namespace orvel {
namespace ORVEL_MACHINE {

// R rows from row i on, either above the reflection, where only its right side acts, or of both sides.
template <int R, bool both_sides>
static inline void multiply_rows(planes a, int i, int begin, int end, const pending_reflection& old,
                                 const matrix_products& next) {
    cvec<> z[R], u[R], v_row[R], product[R];
    for (int r = 0; r < R; ++r) {
        z[r] = all(old.z.re[i + r], old.z.im[i + r]);
        u[r] = all(old.u.re[i + r], old.u.im[i + r]);
        v_row[r] = all(next.v.re[i + r], next.v.im[i + r]);
        product[r] = all(0.0, 0.0);
    }
    for (int j = begin; j < end; j += register_lanes) {
        const cvec<> u_col = load(at(old.u_col, j)), y = load(at(old.y, j)), v = load(at(next.v, j));
        cvec<> sum = load(at(next.sum, j));
        for (int r = 0; r < R; ++r) {
            const split_vector place = row_at(a, i + r, j);
            const cvec<> right = sub_mul(load(place), z[r], u_col);
            const cvec<> x = both_sides ? sub_mul(right, u[r], y) : right;
            store(place, x);
            product[r] = add_mul(product[r], x, v);
            sum = add_conj_mul(sum, v_row[r], x);
        }
        if (both_sides)
            store(at(next.sum, j), sum);
    }
    for (int r = 0; r < R; ++r)
        set_element(next.product, i + r, sum_of(product[r]));
}

void reflect_and_multiply(planes a, int n, int last, const pending_reflection& old, const matrix_products& next) {
    const int begin = old.first / register_lanes * register_lanes;
    for (int j = begin; j < n; j += register_lanes)
        store(at(next.sum, j), all(0.0, 0.0));
    int i = 0;
    for (; i + 2 <= old.first; i += 2)
        multiply_rows<2, false>(a, i, begin, last + 1, old, next);
    for (; i < old.first; ++i)
        multiply_rows<1, false>(a, i, begin, last + 1, old, next);
    for (; i + 2 <= last + 1; i += 2)
        multiply_rows<2, true>(a, i, begin, n, old, next);
    for (; i <= last; ++i)
        multiply_rows<1, true>(a, i, begin, n, old, next);
}

} // namespace ORVEL_MACHINE
} // namespace orvel
