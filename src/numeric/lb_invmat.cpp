// SPDX-License-Identifier: MIT
#include "numeric/lb_invmat.h"

#include "control/orvel.h"
#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "numeric/lb_invmat1.h"
#include "numeric/lb_invmat2.h"

namespace orvel {

int invmat(int n, complex** a) {
    if (epsilon.invmat_func != 0)
        ov_abort(stdout, "$$ Invalid epsilon.invmat_func=%d. Abort.\n", epsilon.invmat_func);
    dbg_mon("$$ invmat: Numpack inv_c_mat()\n");
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

} // namespace orvel
