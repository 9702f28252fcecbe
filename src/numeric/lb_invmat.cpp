// SPDX-License-Identifier: MIT
#include "numeric/lb_invmat.h"

#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "control/settings.h"
#include "numeric/fast/elimination.h"
#include "numeric/lb_invmat1.h"
#include "numeric/lb_invmat2.h"

namespace orvel {

static void trace_invmat() { dbg_mon("$$ invmat: Numpack inv_c_mat()\n"); }

int invmat(int n, complex** a, scratch& room) {
    if (epsilon.invmat_func != 0)
        ov_abort(stdout, "$$ Invalid epsilon.invmat_func=%d. Abort.\n", epsilon.invmat_func);
    trace_invmat();
    const int code = inv_c_mat(n, epsilon.inv_eps, a, room);
    if (code != 0)
        ov_fprintf(stdout, "$$ (invmat): inv_c_mat = %d\n", code);
    return 0;
}

int bc_invmat(int n, complex** a, complex* x, scratch& room) {
    if (epsilon.bc_invmat_func != 0)
        ov_abort(stdout, "$$ Invalid epsilon.bc_invmat_func=%d. Abort.\n", epsilon.bc_invmat_func);
    int info;
    inverse(n, a, x, epsilon.inv_eps, info, room);
    return info;
}

// The rows and columns of A22 come first, and it alone gives pivots: what its elimination leaves of
// the others is the result.
bool fold_block(int n, int m, const complex* const* a, complex** b, scratch& room) {
    if (epsilon.invmat_func != 0 || m < 1 || !(epsilon.inv_eps > 0.0))
        return false;
    const scratch_mark begin = mark_scratch(room);
    const elimination e = new_elimination(room, n + m, n + m, m, false);
    for (int i = 0; i < n + m; ++i) {
        const complex* row = a[i < m ? n + i : i - m];
        split(m, row + n, row_at(e.a, i, 0));
        split(n, row, row_at(e.a, i, m));
    }
    const bool done = eliminate(e, epsilon.inv_eps);
    if (done) {
        trace_invmat();
        from_planes(n, n, at(e.a, m, m), b);
    }
    release_scratch(room, begin);
    return done;
}

} // namespace orvel
