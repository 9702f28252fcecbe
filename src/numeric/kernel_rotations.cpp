// SPDX-License-Identifier: MIT
//
// The rotations of the QR iteration. Of each pair of rows (or columns) that a rotation mixes, the one
// that the next rotation mixes again stays in registers.
#include "numeric/lb_eigmat2.h"
#include "numeric/panel.h"

namespace orvel {
namespace ORVEL_MACHINE {

// (x, y) := (conj(c) x + s y, c y - s x); returns x and leaves y in x's place.
static inline row_part rotate(row_part& x, const row_part& y, row_cvec c, row_vec s) {
    row_part out;
    for (int k = 0; k < row_vectors; ++k) {
        const row_cvec a = x.v[k];
        const row_cvec b = y.v[k];
        out.v[k] = {s * b.re + c.re * a.re + c.im * a.im, s * b.im + c.re * a.im - c.im * a.re};
        x.v[k] = {c.re * b.re - c.im * b.im - s * a.re, c.re * b.im + c.im * b.re - s * a.im};
    }
    return out;
}

// Rotations first + 1 .. last of one panel; returns what row last has become, not yet stored.
static inline row_part rotate_down(planes h, int column, int first, int last, const rotation* g) {
    double* re = h.re + first * h.ld + column;
    double* im = h.im + first * h.ld + column;
    row_part carry = load_row(re, im);
    for (int j = first + 1; j <= last; ++j) {
        const row_part next = load_row(re + h.ld, im + h.ld);
        store_row(re, im, rotate(carry, next, row_all(g[j].c_re, g[j].c_im), row_all(g[j].s)));
        re += h.ld;
        im += h.ld;
    }
    return carry;
}

void apply_sweeps(planes h, int column, int num_sweeps, const sweep* sweeps, const rotation* g) {
    for (int k = 0; k < num_sweeps; ++k) {
        const sweep& step = sweeps[k];
        if (step.last >= column)
            continue;
        row_part last = rotate_down(h, column, step.first, step.last, g + step.place);
        for (row_cvec& x : last.v)
            x = conj_mul(row_all(step.row_phase.re, step.row_phase.im), x);
        store_row(h.re + step.last * h.ld + column, h.im + step.last * h.ld + column, last);
    }
}

// One rotation in a chain of them. The row that is carried from one to the next is kept times a factor
// sigma close to 1, so that no rotation waits for the square root and the division of the one in front
// of it (as in the rotations of W. M. Gentleman, J. Inst. Maths Applics 12 (1973) 329).
struct chain_link {
    rotation g;
    double norm;           // the new diagonal element
    double out_re, out_im; // finished row = s next + conj(out) carried
    double kappa;          // carried row = kappa (diagonal next - below carried), the diagonal times sigma
    double sigma2;         // square of the new sigma
};

// A rough 1 / sqrt(x): half the exponent, changed in sign.
static inline double rough_inverse_root(double x) {
    long long bits;
    __builtin_memcpy(&bits, &x, sizeof bits);
    bits = 0x5fe6eb50c7b537a9LL - (bits >> 1);
    __builtin_memcpy(&x, &bits, sizeof bits);
    return x;
}

// What is carried along a panel.
struct chain {
    row_part carried;
    double re[panel_width + 1], im[panel_width + 1]; // the same in memory
    double d_re, d_im;                               // its element on the diagonal
    double sigma2;
};

// Far enough from the limits of the number range for squares.
static inline bool is_moderate(double squares) {
    const double smallest = 1e-280;
    const double largest = 1e280;
    return squares > smallest && squares < largest;
}

// Rotation that turns (d, sigma below) into (sigma norm, 0), for given squares = (sigma norm)^2.
static inline chain_link make_link(const chain& c, double below, double squares) {
    const double sigma = __builtin_sqrt(c.sigma2);
    const double root = __builtin_sqrt(squares);
    const double both = 1.0 / (root * sigma);
    const double inverse_root = both * sigma;
    const double inverse_sigma = both * root;
    const rotation g = {c.d_re * inverse_root, c.d_im * inverse_root, below * (sigma * inverse_root)};
    const double kappa = rough_inverse_root(squares);
    return {g, root * inverse_sigma, g.c_re * inverse_sigma, g.c_im * inverse_sigma, kappa, squares * kappa * kappa};
}

// The same with the careful length.
static chain_link make_careful_link(const chain& c, double below) {
    const double sigma = __builtin_sqrt(c.sigma2);
    const double root = pythag(pythag(c.d_re, c.d_im), below * sigma);
    const rotation g = {c.d_re / root, c.d_im / root, below * sigma / root};
    return {g, root / sigma, g.c_re / sigma, g.c_im / sigma, 1.0 / root, 1.0};
}

// A row with zeros up to column k.
static inline row_part right_of(row_part x, int k) {
    row_vec number;
    for (int i = 0; i < row_lanes; ++i)
        number[i] = i;
    for (row_cvec& v : x.v) {
        v.re = number > k ? v.re : row_all(0.0);
        v.im = number > k ? v.im : row_all(0.0);
        number += row_lanes;
    }
    return x;
}

// Rotations j .. end of a panel, which its own diagonal gives. Without care it stops in front of the
// first one whose squares might overflow or vanish; returns the number of the next rotation.
template <bool careful>
static inline int rotate_chain(planes h, int column, int j, int end, chain& c, rotation* g) {
    for (; j <= end; ++j) {
        double* re = h.re + (j - 1) * h.ld + column;
        double* im = h.im + (j - 1) * h.ld + column;
        const int k = j - 1 - column;
        const double below = re[h.ld + k];
        const double squares = c.d_re * c.d_re + c.d_im * c.d_im + below * below * c.sigma2;
        if (!careful && !is_moderate(squares))
            break;
        const chain_link link = careful ? make_careful_link(c, below) : make_link(c, below, squares);
        const row_part next = load_row(re + h.ld, im + h.ld);
        const row_cvec d = row_all(link.kappa * c.d_re, link.kappa * c.d_im);
        const row_vec keep = row_all(link.kappa * below);
        if (k + 1 < panel_width) { // the next diagonal element, ahead of its row
            const double x_re = re[h.ld + k + 1];
            const double x_im = im[h.ld + k + 1];
            const double next_re = c.d_re * x_re - c.d_im * x_im - below * c.re[k + 1];
            const double next_im = c.d_re * x_im + c.d_im * x_re - below * c.im[k + 1];
            c.d_re = link.kappa * next_re;
            c.d_im = link.kappa * next_im;
        }
        row_part out;
        for (int v = 0; v < row_vectors; ++v) {
            const row_cvec a = c.carried.v[v];
            const row_cvec from_a = conj_mul(row_all(link.out_re, link.out_im), a);
            const row_cvec from_b = mul(d, next.v[v]);
            out.v[v] = {link.g.s * next.v[v].re + from_a.re, link.g.s * next.v[v].im + from_a.im};
            c.carried.v[v] = {from_b.re - keep * a.re, from_b.im - keep * a.im};
        }
        store_row(c.re, c.im, c.carried);
        store_row(re, im, right_of(out, k));
        re[k] = link.norm;
        g[j] = link.g;
        c.sigma2 = link.sigma2;
    }
    return j;
}

// The columns of one panel: rotations that are known, and then its own.
static void triangularise_panel(planes h, int column, int first, int last, rotation* g) {
    const int begin = first > column ? first : column;
    const int end = last < column + panel_width ? last : column + panel_width;
    chain c;
    c.carried = rotate_down(h, column, first, begin, g);
    store_row(c.re, c.im, c.carried);
    c.re[panel_width] = c.im[panel_width] = 0.0;
    c.d_re = c.re[begin - column];
    c.d_im = c.im[begin - column];
    c.sigma2 = 1.0;
    const int j = rotate_chain<false>(h, column, begin + 1, end, c, g);
    rotate_chain<true>(h, column, j, end, c, g);
    const double inverse_sigma = 1.0 / __builtin_sqrt(c.sigma2);
    for (row_cvec& x : c.carried.v)
        x = {x.re * inverse_sigma, x.im * inverse_sigma};
    store_row(h.re + end * h.ld + column, h.im + end * h.ld + column, right_of(c.carried, end - 1 - column));
}

void rotate_to_triangle(planes h, int first, int last, rotation* g) {
    for (int column = first / panel_width * panel_width; column <= last; column += panel_width)
        triangularise_panel(h, column, first, last, g);
}

// ---- columns --------------------------------------------------------------------------------

static inline vec load_column(const double* p, std::ptrdiff_t ld) { return vec{p[0], p[ld], p[2 * ld], p[3 * ld]}; }
static inline void store_column(double* p, std::ptrdiff_t ld, vec x) {
    for (int r = 0; r < row_group; ++r)
        p[r * ld] = x[r];
}

// The same with columns: (x, y) := (c x + s y, conj(c) y - s x).
static inline cvec rotate_column(cvec& x, cvec y, cvec c, vec s) {
    const cvec a = x;
    x = {c.re * y.re + c.im * y.im - s * a.re, c.re * y.im - c.im * y.re - s * a.im};
    return {s * y.re + c.re * a.re - c.im * a.im, s * y.im + c.re * a.im + c.im * a.re};
}

static inline void rotate_columns_of_group(planes h, int row, int begin, int last, const rotation* g, cvec phase) {
    double* re = h.re + row * h.ld;
    double* im = h.im + row * h.ld;
    cvec carry = {load_column(re + begin - 1, h.ld), load_column(im + begin - 1, h.ld)};
    int j = begin;
    for (; j + lanes <= last + 1; j += lanes) {
        vec x_re[lanes], x_im[lanes];
        for (int r = 0; r < row_group; ++r) {
            x_re[r] = load(re + r * h.ld + j);
            x_im[r] = load(im + r * h.ld + j);
        }
        transpose(x_re[0], x_re[1], x_re[2], x_re[3]);
        transpose(x_im[0], x_im[1], x_im[2], x_im[3]);
        for (int k = 0; k < lanes; ++k) {
            const rotation& r = g[j + k];
            const cvec out = rotate_column(carry, {x_re[k], x_im[k]}, all(r.c_re, r.c_im), all(r.s));
            x_re[k] = out.re;
            x_im[k] = out.im;
        }
        transpose(x_re[0], x_re[1], x_re[2], x_re[3]);
        transpose(x_im[0], x_im[1], x_im[2], x_im[3]);
        for (int r = 0; r < row_group; ++r) {
            store(re + r * h.ld + j - 1, x_re[r]);
            store(im + r * h.ld + j - 1, x_im[r]);
        }
    }
    for (; j <= last; ++j) {
        const cvec next = {load_column(re + j, h.ld), load_column(im + j, h.ld)};
        const cvec out = rotate_column(carry, next, all(g[j].c_re, g[j].c_im), all(g[j].s));
        store_column(re + j - 1, h.ld, out.re);
        store_column(im + j - 1, h.ld, out.im);
    }
    carry = mul(phase, carry);
    store_column(re + last, h.ld, carry.re);
    store_column(im + last, h.ld, carry.im);
}

void rotate_columns(planes h, int first, int last, const rotation* g, complex phase) {
    for (int row = 0; row <= last; row += row_group)
        rotate_columns_of_group(h, row, row > first ? row : first + 1, last, g, all(phase.re, phase.im));
}

// ---- vectors --------------------------------------------------------------------------------

// Rows j - 1 and j: (a, b) := (c a - s b, s a + conj(c) b), from the last pair to the first.
static inline void rotate_up(double* panel, int first, int last, const rotation* g, row_cvec phase) {
    double* row = panel + last * panel_row;
    row_part carry = load_row(row);
    for (row_cvec& x : carry.v)
        x = mul(phase, x);
    for (int j = last; j > first; --j) {
        const row_cvec c = row_all(g[j].c_re, g[j].c_im);
        const row_vec s = row_all(g[j].s);
        const row_part above = load_row(row - panel_row);
        row_part out;
        for (int k = 0; k < row_vectors; ++k) {
            const row_cvec a = above.v[k];
            const row_cvec b = carry.v[k];
            out.v[k] = {s * a.re + c.re * b.re + c.im * b.im, s * a.im + c.re * b.im - c.im * b.re};
            carry.v[k] = {c.re * a.re - c.im * a.im - s * b.re, c.re * a.im + c.im * a.re - s * b.im};
        }
        store_row(row, out);
        row -= panel_row;
    }
    store_row(row, carry);
}

void apply_sweeps_back(double* panel, int column, int num_sweeps, const sweep* sweeps, const rotation* g) {
    for (int k = num_sweeps - 1; k >= 0; --k) {
        const sweep& step = sweeps[k];
        if (step.first < column + panel_width)
            rotate_up(panel, step.first, step.last, g + step.place,
                      row_all(step.column_phase.re, step.column_phase.im));
    }
}

} // namespace ORVEL_MACHINE
} // namespace orvel
