// SPDX-License-Identifier: MIT
#include "numeric/lb_invmat.h"

#include <cstdlib>

#include "control/orvel.h"
#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "numeric/elimination.h"
#include "numeric/lb_invmat1.h"
#include "numeric/lb_invmat2.h"
#include "numeric/vecmat.h"

namespace orvel {

static void trace_invmat() { dbg_mon("$$ invmat: Numpack inv_c_mat()\n"); }

int invmat(int n, complex** a) {
    if (epsilon.invmat_func != 0)
        ov_abort(stdout, "$$ Invalid epsilon.invmat_func=%d. Abort.\n", epsilon.invmat_func);
    trace_invmat();
    const int code = inv_c_mat(n, epsilon.inv_eps, a);
    if (code != 0)
        ov_fprintf(stdout, "$$ (invmat): inv_c_mat = %d\n", code);
    return 0;
}

int bc_invmat(int n, complex** a, complex* x) {
    if (epsilon.bc_invmat_func != 0)
        ov_abort(stdout, "$$ Invalid epsilon.bc_invmat_func=%d. Abort.\n", epsilon.bc_invmat_func);
    int info;
    inverse(n, a, x, epsilon.inv_eps, info);
    return info;
}

// The rows and columns of A22 come first, and it alone gives pivots: what its elimination leaves of
// the others is the result.
bool fold_block(int n, int m, const complex* const* a, complex** b) {
    if (epsilon.invmat_func != 0 || m < 1 || !(epsilon.inv_eps > 0.0))
        return false;
    int* perm = new_vector<int>(to_size(m));
    const elimination e = new_elimination(n + m, n + m, m, epsilon.inv_eps, false, perm);
    for (int i = 0; i < n + m; ++i) {
        const complex* row = a[i < m ? n + i : i - m];
        const planes to = part(e.a, i, 0);
        split_row(m, row + n, to.re, to.im); // its filling gives way to what follows
        split_row(n, row, to.re + m, to.im + m);
    }
    const bool done = eliminate(e) == m;
    std::free(perm);
    if (!done)
        return false;
    trace_invmat();
    for (int i = 0; i < n; ++i) {
        const planes from = part(e.a, m + i, m);
        join_row(n, from.re, from.im, b[i]);
    }
    return true;
}

} // namespace orvel
