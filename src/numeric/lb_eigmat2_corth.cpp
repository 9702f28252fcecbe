// SPDX-License-Identifier: MIT
//
// corth: the reflection of a column is not applied at once, but in the pass over the matrix that forms
// the products of the next one. Rows and columns inside count from 0.
#include <algorithm>
#include <cmath>

#include "control/settings.h"
#include "numeric/fast/fast.h"
#include "numeric/lb_eigmat2.h"

namespace orvel {

// The matrix, the reflection that it still lacks, and the next one.
struct hessenberg_work {
    planes a;
    pending_reflection old;
    matrix_products next;
};

static hessenberg_work begin_reduction(int n, int first, const complex* const* a, scratch& room) {
    const planes p = take_zero_planes(room, n, n);
    to_planes(n, n, a, p);
    const auto zeros = [&] { return take_zero_vector(room, n); };
    return {p, {first, zeros(), zeros(), zeros(), zeros()}, {zeros(), zeros(), zeros()}};
}

// Applies what is pending to one column, rows 0..last, ahead of the others.
static void update_column(int column, int last, hessenberg_work& w) {
    const pending_reflection& old = w.old;
    const complex y = element(old.y, column), u_col = element(old.u_col, column);
    for (int i = 0; i <= last; ++i) {
        const complex left = c_mul(element(old.u, i), y), right = c_mul(element(old.z, i), u_col);
        set_element(w.a, i, column, c_sub(c_sub(element(w.a, i, column), left), right));
    }
    set_element(old.y, column, {0.0, 0.0});
    set_element(old.u_col, column, {0.0, 0.0});
}

// The Householder vector v[m..last] that clears column m - 1 below its subdiagonal element, which
// becomes minus g times itself; the reflection is I - v v^H / h, and v is the column divided by scale but
// for its first element.
struct householder {
    double scale, g, h;
};

// False for a negligible one.
static bool make_householder(int m, int last, hessenberg_work& w, householder& r) {
    const split_vector v = w.next.v;
    r.scale = 0.0;
    for (int i = m; i <= last; ++i) {
        const complex x = element(w.a, i, m - 1);
        r.scale = r.scale + std::fabs(x.re) + std::fabs(x.im);
    }
    if (r.scale < eps)
        return false;
    std::fill(v.re, v.re + m, 0.0);
    std::fill(v.im, v.im + m, 0.0);
    r.h = 0.0;
    for (int i = last; i >= m; --i) {
        const complex x = element(w.a, i, m - 1);
        set_element(v, i, {x.re / r.scale, x.im / r.scale});
        r.h = r.h + v.re[i] * v.re[i] + v.im[i] * v.im[i];
    }
    r.g = std::sqrt(r.h);
    const double f = pythag(v.re[m], v.im[m]);
    if (f < eps) {
        v.re[m] = r.g;
        at(w.a, m, m - 1).re[0] = r.scale;
    } else {
        r.h += f * r.g;
        r.g /= f;
        set_element(v, m, {(1.0 + r.g) * v.re[m], (1.0 + r.g) * v.im[m]});
    }
    return true;
}

// Makes the reflection of v the pending one, from the products that the pass has left.
static void set_pending(int n, int m, int last, double h, hessenberg_work& w) {
    pending_reflection& old = w.old;
    old.first = m;
    complex y_u = {0.0, 0.0};
    for (int j = 0; j < n; ++j) {
        const complex sum = element(w.next.sum, j), v = element(w.next.v, j);
        const complex y = j < m ? complex{0.0, 0.0} : complex{sum.re / h, sum.im / h};
        set_element(old.y, j, y);
        set_element(old.u, j, v);
        set_element(old.u_col, j, c_conj(v));
        y_u = c_add(y_u, c_mul(y, v));
    }
    for (int i = 0; i <= last; ++i) {
        const complex outer = c_sub(element(w.next.product, i), c_mul(element(w.next.v, i), y_u));
        set_element(old.z, i, {outer.re / h, outer.im / h});
    }
}

void corth(int n, int low, int igh, complex** a, double* ortr, double* orti, scratch& room) {
    const int last = igh - 1;
    if (last - low < 1)
        return;
    const scratch_mark begin = mark_scratch(room);
    hessenberg_work w = begin_reduction(n, low, a, room);
    for (int m = low; m < last; ++m) {
        householder r;
        ortr[m + 1] = 0.0;
        orti[m + 1] = 0.0;
        update_column(m - 1, last, w);
        if (!make_householder(m, last, w, r))
            continue;
        reflect_and_multiply(w.a, n, last, w.old, w.next);
        set_pending(n, m, last, r.h, w);
        ortr[m + 1] = r.scale * w.next.v.re[m];
        orti[m + 1] = r.scale * w.next.v.im[m];
        const complex below = element(w.a, m, m - 1);
        set_element(w.a, m, m - 1, {-r.g * below.re, -r.g * below.im});
    }
    std::fill(w.next.v.re, w.next.v.re + n, 0.0);
    std::fill(w.next.v.im, w.next.v.im + n, 0.0);
    reflect_and_multiply(w.a, n, last, w.old, w.next);
    from_planes(n, n, w.a, a);
    release_scratch(room, begin);
}

} // namespace orvel
