// SPDX-License-Identifier: MIT
//
// QR factorisation of a Hessenberg block, a chain in which each rotation follows from what the one in
// front of it leaves.
//
// Let x be the row that is carried along, with d on the diagonal, b the next row, and beta, real, the
// element of b below d. The rotation of the two and what it makes of them are
//     nu = sqrt(|d|^2 + beta^2),  c = d / nu,  s = beta / nu,
//     finished row = conj(c) x + s b,  carried row = c b - s x = (d b - beta x) / nu.
// The next d is an element of the carried row, so that every rotation would wait for a root and a
// division. Therefore rows are carried times a factor sigma close to 1 that is known by its square
// alone: with X = sigma x, D = sigma d, and q = |D|^2 + sigma^2 beta^2 = (sigma nu)^2,
//     carried row = (D b - beta X) / sqrt(q).
// Let kappa be a number close to 1 / sqrt(q); then the row to be carried next and its factor are
//     X' = kappa (D b - beta X),  sigma'^2 = kappa^2 q,
// which needs no root: rounding is that of the true rotation, whatever kappa is. Only what leaves the
// chain needs roots,
//     c = D / sqrt(q),  s = sigma beta / sqrt(q),  nu = sqrt(q) / sigma,
//     finished row = (conj(c) / sigma) X + s b,
// and no later step waits for these. (Rotations with scaled rows: W. M. Gentleman, J. Inst. Maths
// Applics 12 (1973) 329.)
#include "numeric/fast/simd.h"
#include "numeric/lb_eigmat2.h"

namespace orvel {
namespace ORVEL_MACHINE {

// What is carried along a strip.
struct chain {
    strip_row x;
    double re[strip_columns + 1], im[strip_columns + 1]; // the same in memory
    double d_re, d_im;                                   // its element on the diagonal
    double sigma2;
};

// One rotation of the chain.
struct chain_link {
    rotation g;
    double nu;             // the new diagonal element
    double out_re, out_im; // c / sigma
    double kappa;
    double sigma2; // for the next row
};

// 1 / sqrt(q) within 4 %: the number whose logarithm to base 2, read from exponent and mantissa as if it
// ran linearly between powers of 2, is half that of 1 / q. The constant is 3/2 of the exponent's bias, less
// what makes the largest error smallest.
static inline double rough_inverse_root(double q) {
    long long bits;
    __builtin_memcpy(&bits, &q, sizeof bits);
    bits = 0x5fe6eb50c7b537a9LL - (bits >> 1);
    __builtin_memcpy(&q, &bits, sizeof bits);
    return q;
}

// Far enough from the limits of the number range for squares.
static inline bool is_moderate(double q) {
    const double smallest = 1e-280, largest = 1e280;
    return q > smallest && q < largest;
}

static inline chain_link make_link(const chain& c, double beta, double q) {
    const double sigma = __builtin_sqrt(c.sigma2), root = __builtin_sqrt(q);
    const double both = 1.0 / (root * sigma); // one division for two
    const double inverse_root = both * sigma, inverse_sigma = both * root;
    const rotation g = {c.d_re * inverse_root, c.d_im * inverse_root, beta * (sigma * inverse_root)};
    const double kappa = rough_inverse_root(q);
    return {g, root * inverse_sigma, g.c_re * inverse_sigma, g.c_im * inverse_sigma, kappa, q * kappa * kappa};
}

// The same where q would overflow or vanish: with the careful length, and the next sigma 1.
static chain_link make_careful_link(const chain& c, double beta) {
    const double sigma = __builtin_sqrt(c.sigma2);
    const double root = pythag(pythag(c.d_re, c.d_im), beta * sigma);
    const rotation g = {c.d_re / root, c.d_im / root, beta * sigma / root};
    return {g, root / sigma, g.c_re / sigma, g.c_im / sigma, 1.0 / root, 1.0};
}

// A row with zeros up to column k.
static inline strip_row right_of(strip_row x, int k) {
    vec<> number;
    for (int i = 0; i < register_lanes; ++i)
        number[i] = i;
    for (cvec<>& v : x.v) {
        v.re = number > k ? v.re : all(0.0);
        v.im = number > k ? v.im : all(0.0);
        number += register_lanes;
    }
    return x;
}

// The next diagonal element, ahead of its row; k is the column of the present one, next the row b. The
// factor comes last, off the chain, unless the products could leave the range without it.
template <bool careful>
static inline void advance_diagonal(chain& c, double kappa, double beta, split_vector next, int k) {
    const double first = careful ? kappa : 1.0, last = careful ? 1.0 : kappa;
    const double d_re = first * c.d_re, d_im = first * c.d_im, kept = first * beta;
    const double b_re = next.re[k + 1], b_im = next.im[k + 1];
    const double re = d_re * b_re - d_im * b_im - kept * c.re[k + 1];
    const double im = d_re * b_im + d_im * b_re - kept * c.im[k + 1];
    c.d_re = last * re;
    c.d_im = last * im;
}

// Rotations j .. end of a strip, whose own diagonal gives them. Without care it stops in front of the
// first one whose q is out of range; returns the number of the next rotation.
template <bool careful>
static inline int rotate_chain(planes h, int column, int j, int end, chain& c, rotation* g) {
    for (; j <= end; ++j) {
        const split_vector row = row_at(h, j - 1, column), next = row_at(h, j, column);
        const int k = j - 1 - column;
        const double beta = next.re[k];
        const double q = c.d_re * c.d_re + c.d_im * c.d_im + beta * beta * c.sigma2;
        if (!careful && !is_moderate(q))
            break;
        const chain_link link = careful ? make_careful_link(c, beta) : make_link(c, beta, q);
        const cvec<> d = all(link.kappa * c.d_re, link.kappa * c.d_im), out = all(link.out_re, link.out_im);
        const vec<> kept = all(link.kappa * beta), s = all(link.g.s);
        const strip_row b = load_row(next);
        if (k + 1 < strip_columns)
            advance_diagonal<careful>(c, link.kappa, beta, next, k);
        strip_row finished;
        for (int v = 0; v < strip_registers; ++v) {
            const cvec<> x = c.x.v[v], from_x = conj_mul(out, x), from_b = mul(d, b.v[v]);
            finished.v[v] = {s * b.v[v].re + from_x.re, s * b.v[v].im + from_x.im};
            c.x.v[v] = {from_b.re - kept * x.re, from_b.im - kept * x.im};
        }
        store_row({c.re, c.im}, c.x);
        store_row(row, right_of(finished, k));
        row.re[k] = link.nu;
        g[j] = link.g;
        c.sigma2 = link.sigma2;
    }
    return j;
}

// The columns of one strip: rotations that are known, and then its own.
static void triangularise_strip(planes h, int column, int first, int last, rotation* g) {
    const int begin = first > column ? first : column;
    const int end = last < column + strip_columns ? last : column + strip_columns;
    rotate_rows(at(h, 0, column), first, begin, g);
    chain c;
    c.x = load_row(row_at(h, begin, column));
    store_row({c.re, c.im}, c.x);
    c.re[strip_columns] = c.im[strip_columns] = 0.0;
    c.d_re = c.re[begin - column];
    c.d_im = c.im[begin - column];
    c.sigma2 = 1.0;
    const int j = rotate_chain<false>(h, column, begin + 1, end, c, g);
    rotate_chain<true>(h, column, j, end, c, g);
    const double inverse_sigma = 1.0 / __builtin_sqrt(c.sigma2);
    for (cvec<>& x : c.x.v)
        x = {x.re * inverse_sigma, x.im * inverse_sigma};
    store_row(row_at(h, end, column), right_of(c.x, end - 1 - column));
}

void rotate_to_triangle(planes h, int first, int last, rotation* g) {
    for (int column = first / strip_columns * strip_columns; column <= last; column += strip_columns)
        triangularise_strip(h, column, first, last, g);
}

} // namespace ORVEL_MACHINE
} // namespace orvel
