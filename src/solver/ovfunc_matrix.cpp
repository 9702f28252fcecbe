// SPDX-License-Identifier: MIT
#include "solver/ovfunc.h"

#include <algorithm>
#include <cmath>

#include "control/orvel.h"
#include "control/ov_mpi.h"
#include "numeric/cmatutil.h"
#include "numeric/lb_invmat.h"

namespace orvel {

// ---- selection ------------------------------------------------------------------------------

// A selection that grows beam by beam: exact beams go to the front of sel, Bethe beams wait at its end,
// the first one last, until the number of exact beams is known.
struct selection {
    int N, nesel, nbsel;
    int* sel;
};

static selection begin_selection(int N, const hkl* reflex_sel, int* sel) {
    if (reflex_sel[0].h != 0 || reflex_sel[0].k != 0 || reflex_sel[0].l != 0)
        ov_error_exit(stdout, "reflex_sel[0] must be 000");
    sel[0] = 0;
    return {N, 1, 0, sel};
}

static void judge_beam(selection& s, int beam, double figure, double exact_limit, double bethe_limit) {
    if (exact_limit > figure)
        s.sel[s.nesel++] = beam;
    else if (bethe_limit > figure)
        s.sel[s.N - ++s.nbsel] = beam;
}

static void end_selection(const selection& s, int& nesel, int& nbsel) {
    std::reverse(s.sel + s.N - s.nbsel, s.sel + s.N);
    std::copy(s.sel + s.N - s.nbsel, s.sel + s.N, s.sel + s.nesel);
    nesel = s.nesel;
    nbsel = s.nbsel;
}

void vg_select_wg_info_ug(int num_exact_beam, int num_bethe_beam, int& nesel, int& nbsel, int* sel,
                          const complex* const* vg, const hkl* reflex_sel, const double* Sg,
                          double wgbmin, double wgmax, double kv) {
    const int N = num_exact_beam + num_bethe_beam;
    const double gamma = relativ_corr(kv);
    const double lambda = wavelength(kv);
    selection s = begin_selection(N, reflex_sel, sel);
    for (int i = 1; i < N; ++i)
        judge_beam(s, i, vg_to_xig(vg[i][0], gamma, lambda) * std::fabs(Sg[i]), wgbmin, wgmax);
    end_selection(s, nesel, nbsel);
}

void vg_select_sg_info_ug(int num_exact_beam, int num_bethe_beam, int& nesel, int& nbsel, int* sel,
                          const hkl* reflex_sel, const double* Sg, double sgbmin, double sgmax) {
    const int N = num_exact_beam + num_bethe_beam;
    selection s = begin_selection(N, reflex_sel, sel);
    for (int i = 1; i < N; ++i)
        judge_beam(s, i, std::fabs(Sg[i]), sgbmin, sgmax);
    end_selection(s, nesel, nbsel);
}

void vg_select_sg_info_ug_multi(int num_exact_beam, int num_bethe_beam, int& nesel, int& nbsel, int* sel,
                                const hkl* reflex_sel, const double* Sg,
                                const double* sgbmin_lz, const double* sgmax_lz, uvw zone_uvw) {
    const int N = num_exact_beam + num_bethe_beam;
    selection s = begin_selection(N, reflex_sel, sel);
    for (int i = 1; i < N; ++i) {
        const int lz = laue_zone(zone_uvw, reflex_sel[i]);
        judge_beam(s, i, std::fabs(Sg[i]), sgbmin_lz[lz], sgmax_lz[lz]);
    }
    end_selection(s, nesel, nbsel);
}

void vg_select_info_ug(int num_exact_beam, int num_bethe_beam, int& nesel, int& nbsel, int* sel,
                       const complex* const* vg, const hkl* reflex_sel, const double* Sg,
                       const beam_search& bs, uvw zone_uvw, double kv) {
    const int method = epsilon.vg_select_flag == 0 ? static_cast<int>(method_manual) : method_of(bs.flag_bs);
    switch (method) {
    case method_wg:
        vg_select_wg_info_ug(num_exact_beam, num_bethe_beam, nesel, nbsel, sel, vg, reflex_sel, Sg,
                             bs.wgbmin, bs.wgmax, kv);
        break;
    case method_sg:
        vg_select_sg_info_ug(num_exact_beam, num_bethe_beam, nesel, nbsel, sel, reflex_sel, Sg, bs.sgbmin, bs.sgmax);
        break;
    case method_sg_multi:
        vg_select_sg_info_ug_multi(num_exact_beam, num_bethe_beam, nesel, nbsel, sel, reflex_sel, Sg,
                                   bs.sgbmin_lz, bs.sgmax_lz, zone_uvw);
        break;
    default:
        nesel = num_exact_beam;
        nbsel = num_bethe_beam;
        for (int i = 0; i < nesel + nbsel; ++i)
            sel[i] = i;
        break;
    }
}

void vg_select_trans_ug(int /*num_exact_beam*/, int /*num_bethe_beam*/, int nesel, int nbsel, const int* sel,
                        const double* beta_ge, double* beta_sel, int num_g, const int* out_beams, int* out_pos) {
    for (int i = 0; i < nesel + nbsel; ++i)
        beta_sel[i] = beta_ge[sel[i]];
    for (int r = 0; r < num_g; ++r) {
        int place = 0;
        while (place < nesel && sel[place] != out_beams[r])
            ++place;
        out_pos[r] = place < nesel ? place : -1;
    }
}

// ---- structure matrix -----------------------------------------------------------------------

void construct_ug_mat_slct(int nesel, int nbsel, const int* sel, double kv, const complex* const* vg,
                           const double* Sg, const double* beta_ge, complex** a_matrix, scratch& room) {
    const double gamma = relativ_corr(kv);
    const double lambda = wavelength(kv);
    const complex U_000 = vg_to_ug(vg[0][0], gamma);
    const double K = std::sqrt(1 / (lambda * lambda) + U_000.re);
    const double ug_per_vg = vg_to_ug({1.0, 0.0}, gamma).re;
    const int n = nesel + nbsel;
    const scratch_mark begin = mark_scratch(room);
    double* inverse_root = take<double>(room, to_size(n));
    for (int i = 0; i < n; ++i)
        inverse_root[i] = 1 / std::sqrt(beta_ge[sel[i]]);
    for (int i = 0; i < n; ++i) {
        const complex* vg_row = vg[sel[i]];
        const double row_scale = ug_per_vg * inverse_root[i];
        for (int j = 0; j < n; ++j) {
            const double scale = row_scale * inverse_root[j];
            const complex V = vg_row[sel[j]];
            a_matrix[i][j] = {V.re * scale, V.im * scale};
        }
        const double beta_i = beta_ge[sel[i]];
        a_matrix[i][i] = {2 * K * Sg[sel[i]] / beta_i, U_000.im / beta_i};
    }
    release_scratch(room, begin);
}

// ---- Bethe reduction ------------------------------------------------------------------------

// The block of a that begins at (row, column).
static complex** take_block(const complex* const* a, int row, int column, int rows, int columns, scratch& room) {
    complex** block = take_matrix(room, rows, columns);
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < columns; ++j)
            block[i][j] = a[row + i][column + j];
    return block;
}

// The reduction term by term, with the inverse of the weak block as invmat leaves it.
static void fold_inverse(int nesel, int nbsel, const complex* const* a_matrix, complex** bethe_matrix, scratch& room) {
    complex** a12 = take_block(a_matrix, 0, nesel, nesel, nbsel, room);
    complex** a22 = take_block(a_matrix, nesel, nesel, nbsel, nbsel, room);
    complex** weak = take_matrix(room, nbsel, nesel);
    complex** folded = take_matrix(room, nesel, nesel);
    invmat(nbsel, a22, room);
    c_matmult(nbsel, nesel, nbsel, weak, a22, a_matrix + nesel, room);
    c_matmult(nesel, nesel, nbsel, folded, a12, weak, room);
    c_matcopy2(nesel, a_matrix, bethe_matrix);
    c_matsub2(nesel, bethe_matrix, folded);
}

void g_bethe(int nesel, int nbsel, const complex* const* a_matrix, complex** bethe_matrix, scratch& room) {
    const scratch_mark begin = mark_scratch(room);
    if (nbsel == 0)
        c_matcopy2(nesel, a_matrix, bethe_matrix);
    else if (!fold_block(nesel, nbsel, a_matrix, bethe_matrix, room))
        fold_inverse(nesel, nbsel, a_matrix, bethe_matrix, room);
    release_scratch(room, begin);
}

// The quotient A_ih / A_hh is formed once for all columns; against forming each product first this
// changes the last bit only.
void simple_bethe(int nesel, int nbsel, const complex* const* a_matrix, complex** bethe_matrix, scratch& room) {
    const scratch_mark begin = mark_scratch(room);
    complex** quotient = take_matrix(room, nesel, nbsel);
    complex** folded = take_matrix(room, nesel, nesel);
    complex* diagonal = take<complex>(room, to_size(nbsel));
    for (int h = 0; h < nbsel; ++h)
        diagonal[h] = a_matrix[nesel + h][nesel + h];
    for (int i = 0; i < nesel; ++i)
        c_div_row(nbsel, a_matrix[i] + nesel, diagonal, quotient[i]);
    c_matmult(nesel, nesel, nbsel, folded, quotient, a_matrix + nesel, room);
    c_matcopy2(nesel, a_matrix, bethe_matrix);
    c_matsub2(nesel, bethe_matrix, folded);
    release_scratch(room, begin);
}

void bethe_reduction(int flag_bs, int nesel, int nbsel, const complex* const* a_matrix, complex** bethe_matrix,
                     scratch& room) {
    if (flag_bs < simple_form)
        g_bethe(nesel, nbsel, a_matrix, bethe_matrix, room);
    else
        simple_bethe(nesel, nbsel, a_matrix, bethe_matrix, room);
}

} // namespace orvel
