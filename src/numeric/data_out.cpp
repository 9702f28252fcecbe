// SPDX-License-Identifier: MIT
#include "numeric/data_out.h"

#include "control/ov_mpi.h"

namespace orvel {

void fprint_complexmat(std::FILE* stream, int n, const complex* const* m) {
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i)
            ov_fprintf(stream, "%d\t%d\t%g\t%g\n", i, j, m[i][j].re, m[i][j].im);
}

} // namespace orvel
