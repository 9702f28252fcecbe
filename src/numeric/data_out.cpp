// SPDX-License-Identifier: MIT
#include "numeric/data_out.h"

#include "control/ov_mpi.h"

namespace orvel {

void fprint_complexmat(std::FILE* stream, int n, const complex* const* m) {
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i)
            ov_fprintf(stream, "%d\t%d\t%g\t%g\n", i, j, m[i][j].re, m[i][j].im);
}

void dbg_print_cvec(int flag, const char* label, int n, const complex* vector) {
    if (flag == 0)
        return;
    ov_fprintf(stdout, "$$%s\n", label);
    for (int i = 0; i < n; ++i)
        ov_fprintf(stdout, "%d\t%g\t%g\n", i, vector[i].re, vector[i].im);
}

void dbg_print_cmat(int flag, const char* label, int n, complex* const* matrix) {
    if (flag == 0)
        return;
    ov_fprintf(stdout, "$$%s\n", label);
    fprint_complexmat(stdout, n, matrix);
}

} // namespace orvel
