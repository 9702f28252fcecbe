// SPDX-License-Identifier: MIT
#include "solver/ovfunc_matrix.h"

#include <algorithm>
#include <cmath>

#include "control/ov_mpi.h"
#include "control/settings.h"
#include "crystal/strct_f.h"
#include "numeric/cmatutil.h"
#include "numeric/lb_invmat.h"

namespace orvel {

// ---- selection ------------------------------------------------------------------------------

static void begin_selection(const beam_setup& setup, beam_selection& s) {
    const hkl first = setup.reflex_sel[0];
    if (first.h != 0 || first.k != 0 || first.l != 0)
        ov_error_exit(stdout, "reflex_sel[0] must be 000");
    s.sel[0] = 0;
    s.nesel = 1;
    s.nbsel = 0;
}

// Exact beams go to the front of sel. Bethe beams wait at its end, the first one last.
static void judge_beam(const beam_setup& setup, int beam, double figure, double exact_limit, double bethe_limit,
                       beam_selection& s) {
    if (exact_limit > figure)
        s.sel[s.nesel++] = beam;
    else if (bethe_limit > figure)
        s.sel[num_beams(setup) - ++s.nbsel] = beam;
}

// Brings the Bethe beams behind the exact ones, in their order.
static void end_selection(const beam_setup& setup, beam_selection& s) {
    int* const end = s.sel + num_beams(setup);
    std::reverse(end - s.nbsel, end);
    std::copy(end - s.nbsel, end, s.sel + s.nesel);
}

void vg_select_wg_info_ug(const beam_setup& setup, const complex* const* vg, const double* Sg,
                          beam_selection& selection) {
    const double gamma = relativ_corr(setup.kv);
    const double lambda = wavelength(setup.kv);
    const beam_search& bs = setup.beam_search;
    begin_selection(setup, selection);
    for (int i = 1; i < num_beams(setup); ++i)
        judge_beam(setup, i, vg_to_xig(vg[i][0], gamma, lambda) * std::fabs(Sg[i]), bs.wgbmin, bs.wgmax, selection);
    end_selection(setup, selection);
}

void vg_select_sg_info_ug(const beam_setup& setup, const double* Sg, beam_selection& selection) {
    const beam_search& bs = setup.beam_search;
    begin_selection(setup, selection);
    for (int i = 1; i < num_beams(setup); ++i)
        judge_beam(setup, i, std::fabs(Sg[i]), bs.sgbmin, bs.sgmax, selection);
    end_selection(setup, selection);
}

void vg_select_sg_info_ug_multi(const beam_setup& setup, const double* Sg, beam_selection& selection) {
    const beam_search& bs = setup.beam_search;
    begin_selection(setup, selection);
    for (int i = 1; i < num_beams(setup); ++i) {
        const int lz = laue_zone(setup.zone_uvw, setup.reflex_sel[i]);
        judge_beam(setup, i, std::fabs(Sg[i]), bs.sgbmin_lz[lz], bs.sgmax_lz[lz], selection);
    }
    end_selection(setup, selection);
}

static void select_list(const beam_setup& setup, beam_selection& s) {
    s.nesel = setup.num_exact_beam;
    s.nbsel = setup.num_bethe_beam;
    for (int i = 0; i < num_beams(setup); ++i)
        s.sel[i] = i;
}

void vg_select_info_ug(const beam_setup& setup, const complex* const* vg, const double* Sg, beam_selection& selection) {
    const int method = method_of(setup.beam_search.flag_bs);
    if (epsilon.vg_select_flag == 0 || method == method_manual)
        select_list(setup, selection);
    else if (method == method_wg)
        vg_select_wg_info_ug(setup, vg, Sg, selection);
    else if (method == method_sg)
        vg_select_sg_info_ug(setup, Sg, selection);
    else
        vg_select_sg_info_ug_multi(setup, Sg, selection);
}

void vg_select_trans_ug(const beam_selection& selection, const double* beta_ge, double* beta_sel,
                        int num_g, const int* out_beams, int* out_pos) {
    const beam_selection& s = selection;
    for (int i = 0; i < s.nesel + s.nbsel; ++i)
        beta_sel[i] = beta_ge[s.sel[i]];
    for (int r = 0; r < num_g; ++r) {
        const int place = static_cast<int>(std::find(s.sel, s.sel + s.nesel, out_beams[r]) - s.sel);
        out_pos[r] = place < s.nesel ? place : -1;
    }
}

// ---- structure matrix -----------------------------------------------------------------------

void construct_ug_mat_slct(const beam_selection& selection, double kv, const complex* const* vg,
                           const double* Sg, const double* beta_ge, complex** a_matrix, scratch& room) {
    const int* sel = selection.sel;
    const double gamma = relativ_corr(kv);
    const double lambda = wavelength(kv);
    const complex U_000 = vg_to_ug(vg[0][0], gamma);
    const double K = std::sqrt(1 / (lambda * lambda) + U_000.re);
    const double ug_per_vg = vg_to_ug({1.0, 0.0}, gamma).re;
    const int n = selection.nesel + selection.nbsel;
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
