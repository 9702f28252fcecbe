// SPDX-License-Identifier: MIT
//
// Reduction to Hessenberg form: one pass over the matrix for each column, two rows at a time.
#include "numeric/panel.h"

namespace orvel {
namespace ORVEL_MACHINE {

// Rows above the reflection, R of them: only its right side acts on them.
template <int R>
static inline void multiply_upper_rows(planes a, int i, int begin, int end, const pending_reflection& old,
                                       const double* v_re, const double* v_im, double* product_re, double* product_im) {
    row_cvec z[R], product[R];
    for (int r = 0; r < R; ++r) {
        z[r] = row_all(old.z_re[i + r], old.z_im[i + r]);
        product[r] = row_all(0.0, 0.0);
    }
    for (int j = begin; j < end; j += row_lanes) {
        const row_cvec u_col = load_part(old.u_col_re + j, old.u_col_im + j);
        const row_cvec v = load_part(v_re + j, v_im + j);
        for (int r = 0; r < R; ++r) {
            double* re = a.re + (i + r) * a.ld + j;
            double* im = a.im + (i + r) * a.ld + j;
            const row_cvec x = sub_mul(load_part(re, im), z[r], u_col);
            store_part(re, im, x);
            product[r] = add_mul(product[r], x, v);
        }
    }
    for (int r = 0; r < R; ++r) {
        product_re[i + r] = sum_of_part(product[r].re);
        product_im[i + r] = sum_of_part(product[r].im);
    }
}

// Rows that both sides of the reflection act on.
template <int R>
static inline void multiply_lower_rows(planes a, int i, int begin, int end, const pending_reflection& old,
                                       const double* v_re, const double* v_im, double* sum_re, double* sum_im,
                                       double* product_re, double* product_im) {
    row_cvec z[R], u[R], v_row[R], product[R];
    for (int r = 0; r < R; ++r) {
        z[r] = row_all(old.z_re[i + r], old.z_im[i + r]);
        u[r] = row_all(old.u_re[i + r], old.u_im[i + r]);
        v_row[r] = row_all(v_re[i + r], v_im[i + r]);
        product[r] = row_all(0.0, 0.0);
    }
    for (int j = begin; j < end; j += row_lanes) {
        const row_cvec u_col = load_part(old.u_col_re + j, old.u_col_im + j);
        const row_cvec y = load_part(old.y_re + j, old.y_im + j);
        const row_cvec v = load_part(v_re + j, v_im + j);
        row_cvec sum = load_part(sum_re + j, sum_im + j);
        for (int r = 0; r < R; ++r) {
            double* re = a.re + (i + r) * a.ld + j;
            double* im = a.im + (i + r) * a.ld + j;
            const row_cvec x = sub_mul(sub_mul(load_part(re, im), z[r], u_col), u[r], y);
            store_part(re, im, x);
            product[r] = add_mul(product[r], x, v);
            sum = add_conj_mul(sum, v_row[r], x);
        }
        store_part(sum_re + j, sum_im + j, sum);
    }
    for (int r = 0; r < R; ++r) {
        product_re[i + r] = sum_of_part(product[r].re);
        product_im[i + r] = sum_of_part(product[r].im);
    }
}

void reflect_and_multiply(planes a, int n, int last, const pending_reflection& old,
                          const double* v_re, const double* v_im, double* sum_re, double* sum_im,
                          double* product_re, double* product_im) {
    const int begin = old.first / row_lanes * row_lanes;
    for (int j = begin; j < n; j += row_lanes)
        store_part(sum_re + j, sum_im + j, row_all(0.0, 0.0));
    int i = 0;
    for (; i + 2 <= old.first; i += 2)
        multiply_upper_rows<2>(a, i, begin, last + 1, old, v_re, v_im, product_re, product_im);
    for (; i < old.first; ++i)
        multiply_upper_rows<1>(a, i, begin, last + 1, old, v_re, v_im, product_re, product_im);
    for (; i + 2 <= last + 1; i += 2)
        multiply_lower_rows<2>(a, i, begin, n, old, v_re, v_im, sum_re, sum_im, product_re, product_im);
    for (; i <= last; ++i)
        multiply_lower_rows<1>(a, i, begin, n, old, v_re, v_im, sum_re, sum_im, product_re, product_im);
}

} // namespace ORVEL_MACHINE
} // namespace orvel
