// SPDX-License-Identifier: MIT
#include "openblas.h"

#include <algorithm>
#include <cmath>

#include "control/settings.h"
#include "crystal/strct_f.h"
#include "numeric/vecmat.h"

using namespace orvel;

namespace orvel_bench {

complex_vector columns_of(int n, const complex* const* matrix) {
    complex_vector columns;
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i)
            columns.push_back(matrix[i][j]);
    return columns;
}

openblas_work new_openblas_work(int n) {
    const std::size_t size = to_size(n), largest_block = 64;
    openblas_work work = {complex_vector(size), complex_vector(size * size), complex_vector(1),
                          std::vector<double>(2 * size), std::vector<lapack_int>(size)};
    const int query = -1;
    LAPACKE_zgeev_work(LAPACK_COL_MAJOR, 'N', 'V', n, nullptr, n, work.val.data(), nullptr, n, work.vec.data(), n,
                       work.work.data(), query, work.rwork.data());
    work.work.resize(std::max(static_cast<std::size_t>(work.work[0].re), size * largest_block));
    return work;
}

void zgemm(int n, int m, int l, double alpha, const complex* a, int lda, const complex* b, int ldb,
           double beta, complex* c, int ldc) {
    const complex factor = {alpha, 0}, old = {beta, 0};
    cblas_zgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, m, l, &factor, a, lda, b, ldb, &old, c, ldc);
}

void zgeev(int n, complex* a, int lda, openblas_work& work) {
    LAPACKE_zgeev_work(LAPACK_COL_MAJOR, 'N', 'V', n, a, lda, work.val.data(), nullptr, n, work.vec.data(), n,
                       work.work.data(), static_cast<lapack_int>(work.work.size()), work.rwork.data());
}

void solve(int n, int m, complex* a, int lda, complex* b, int ldb, openblas_work& work) {
    LAPACKE_zgetrf_work(LAPACK_COL_MAJOR, n, n, a, lda, work.piv.data());
    LAPACKE_zgetrs_work(LAPACK_COL_MAJOR, 'N', n, m, a, lda, work.piv.data(), b, ldb);
}

void invert(int n, complex* a, openblas_work& work) {
    LAPACKE_zgetrf_work(LAPACK_COL_MAJOR, n, n, a, n, work.piv.data());
    LAPACKE_zgetri_work(LAPACK_COL_MAJOR, n, a, n, work.piv.data(),
                        work.work.data(), static_cast<lapack_int>(work.work.size()));
}

void bethe(int nesel, int nbsel, complex* a, openblas_work& work) {
    const int n = nesel + nbsel;
    complex* a12 = a + nesel * n;
    complex* a21 = a + nesel;
    complex* a22 = a12 + nesel;
    solve(nbsel, nesel, a22, n, a21, n, work);
    zgemm(nesel, nesel, nbsel, -1, a12, n, a21, n, 1, a, n);
}

// ---- one tilt -------------------------------------------------------------------------------

// Excitation errors and surface-normal factors of all beams of the list, and K_n.
struct geometry {
    std::vector<double> Sg, beta;
    double K_n;
};

static geometry geometry_of(const tilt_problem& p, r_hkl K_t) {
    const std::size_t n = to_size(num_beams(p));
    const wave_vector K = calc_wave_vector(p, p.geometry, K_t);
    geometry g = {std::vector<double>(n), std::vector<double>(n), K.K_n};
    calc_sg_beta_g(p, p.geometry, K, num_beams(p), p.reflex_sel, g.Sg.data(), g.beta.data());
    return g;
}

static complex_vector structure_matrix(const tilt_problem& p, const geometry& g, const complex* const* vg) {
    const int n = p.num_exact_beam + p.num_bethe_beam;
    const double lambda = wavelength(p.kv), gamma = relativ_corr(p.kv);
    const complex U_000 = vg_to_ug(vg[0][0], gamma);
    const double K = std::sqrt(1 / (lambda * lambda) + U_000.re);
    complex_vector a(to_size(n) * to_size(n));
    for (int j = 0; j < n; ++j) {
        complex* column = &a[to_size(j) * to_size(n)];
        for (int i = 0; i < n; ++i) {
            const complex U = vg_to_ug(vg[i][j], gamma);
            const double root = std::sqrt(g.beta[to_size(i)] * g.beta[to_size(j)]);
            column[i] = {U.re / root, U.im / root};
        }
        column[j] = {2 * K * g.Sg[to_size(j)] / g.beta[to_size(j)], U_000.im / g.beta[to_size(j)]};
    }
    return a;
}

// Intensities from eigenvalues and vectors: boundary condition, then amplitudes as one product of
// the output rows with a table of exponentials.
static void intensities(const tilt_problem& p, const geometry& g, const complex_vector& val, const complex_vector& vec,
                        int num_thickness, const double* thickness, openblas_work& work, double* intensity) {
    const int n = p.num_exact_beam;
    complex_vector m(vec), bc(to_size(n)), rows(to_size(p.num_g * n)), waves(to_size(n * num_thickness)),
        psi(to_size(p.num_g * num_thickness));
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            complex& C = m[to_size(i + j * n)];
            const double root = std::sqrt(g.beta[to_size(i)]);
            C = {C.re / root, C.im / root};
        }
    for (int j = 0; j < n; ++j)
        for (int r = 0; r < p.num_g; ++r)
            rows[to_size(r + j * p.num_g)] = m[to_size(p.out_beams[r] + j * n)];
    bc[0] = {1, 0};
    solve(n, 1, m.data(), n, bc.data(), n, work);
    for (int t = 0; t < num_thickness; ++t)
        for (int j = 0; j < n; ++j) {
            const double c = -pi * thickness[t] / g.K_n;
            const complex lambda = val[to_size(j)];
            waves[to_size(j + t * n)] = c_mul(bc[to_size(j)], c_exp({-c * lambda.im, c * lambda.re}));
        }
    zgemm(p.num_g, num_thickness, n, 1, rows.data(), p.num_g, waves.data(), n, 0, psi.data(), p.num_g);
    for (std::size_t i = 0; i < psi.size(); ++i)
        intensity[i] = c_norm(psi[i]);
}

// Leading block of order n out of columns of length N.
static complex_vector leading_block(int n, int N, const complex_vector& a) {
    complex_vector block;
    for (int j = 0; j < n; ++j)
        block.insert(block.end(), a.begin() + j * N, a.begin() + j * N + n);
    return block;
}

// Eigenvalues and vectors to first order: B = C^-1 D C, C + C U with U_ij = B_ij / (w_j - w_i).
static void first_order(int n, const complex_vector& inverse, const openblas_work& work, complex_vector& D,
                        complex_vector& val, complex_vector& vec) {
    complex_vector product(D.size());
    zgemm(n, n, n, 1, D.data(), n, work.vec.data(), n, 0, product.data(), n);
    zgemm(n, n, n, 1, inverse.data(), n, product.data(), n, 0, D.data(), n);
    for (int j = 0; j < n; ++j)
        val[to_size(j)] = c_add(work.val[to_size(j)], D[to_size(j + j * n)]);
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            complex& U = D[to_size(i + j * n)];
            const complex gap = c_sub(work.val[to_size(j)], work.val[to_size(i)]);
            if (i == j)
                U = {1, 0};
            else
                U = std::fabs(gap.re) < epsilon.degeneracy_eps ? complex{0, 0} : c_div(U, gap);
        }
    zgemm(n, n, n, 1, work.vec.data(), n, D.data(), n, 0, vec.data(), n);
}

void openblas_tilt(const tilt_problem& p, r_hkl K_t, int num_thickness, const double* thickness,
                   int num_perturb, complex*** pvg, double* intensity) {
    const int n = p.num_exact_beam, N = n + p.num_bethe_beam;
    static openblas_work work = {}; // as a user would keep it from tilt to tilt
    if (work.piv.size() != to_size(N))
        work = new_openblas_work(N);
    const geometry g = geometry_of(p, K_t);
    complex_vector a = structure_matrix(p, g, p.vg);
    bethe(n, p.num_bethe_beam, a.data(), work);
    const complex_vector reduced = leading_block(n, N, a);
    work.vec.resize(to_size(n) * to_size(n));
    zgeev(n, a.data(), N, work);
    intensities(p, g, work.val, work.vec, num_thickness, thickness, work, intensity);
    if (num_perturb < 1)
        return;

    complex_vector inverse(work.vec), val(to_size(n)), vec(work.vec.size());
    invert(n, inverse.data(), work);
    for (int k = 0; k < num_perturb; ++k) {
        a = structure_matrix(p, g, pvg[k]);
        bethe(n, p.num_bethe_beam, a.data(), work);
        complex_vector D = leading_block(n, N, a);
        for (std::size_t i = 0; i < D.size(); ++i)
            D[i] = c_sub(D[i], reduced[i]);
        first_order(n, inverse, work, D, val, vec);
        intensities(p, g, val, vec, num_thickness, thickness, work, intensity += p.num_g * num_thickness);
    }
}

} // namespace orvel_bench
