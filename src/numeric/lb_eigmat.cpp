// SPDX-License-Identifier: MIT
#include "numeric/lb_eigmat.h"

#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "control/settings.h"
#include "numeric/data_out.h"
#include "numeric/lb_eigmat1.h"
#include "numeric/lb_eigmat2.h"

namespace orvel {

int eigmat(int n, const complex* const* matrix, complex* eigen_val, complex** eigen_vec, scratch& room) {
    const int solver = epsilon.eigmat_func;
    if (solver != 0 && solver != 1)
        ov_abort(stdout, "$$ Invalid epsilon.eigmat_func=%d. Abort.\n", solver);
    dbg_mon(solver == 0 ? "$$ eigen values and vectors: eispack_cg\n"
                        : "$$ eigen values and vectors: eigen_c_mat\n");

    const scratch_mark begin = mark_scratch(room);
    complex** a = take_copy(room, n, n, matrix);
    if (solver == 0) {
        eispack_cg(n, epsilon.eigen_eps, a, eigen_val, eigen_vec, room);
    } else {
        const int code = eigen_c_mat(n, epsilon.eigen_eps, 1, a, eigen_val, eigen_vec, room);
        if (code != 0)
            ov_fprintf(stdout, "$$ (eigmat): eigen_c_mat = %d\n", code);
    }
    release_scratch(room, begin);

    dbg_print_cvec(dbg.eigval_dump_flag, " eigen values:", n, eigen_val);
    dbg_print_cmat(dbg.eigvec_dump_flag, " eigen vectors", n, eigen_vec);
    return 0;
}

} // namespace orvel
