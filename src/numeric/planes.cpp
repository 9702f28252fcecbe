// SPDX-License-Identifier: MIT
#include "numeric/planes.h"

namespace orvel {

void to_planes(int n, const complex* const* a, planes p) {
    for (int i = 0; i < static_cast<int>(padded_rows(n)); ++i) {
        double* re = p.re + i * p.ld;
        double* im = p.im + i * p.ld;
        const int columns = i < n ? n : 0;
        for (int j = 0; j < columns; ++j) {
            re[j] = a[i][j].re;
            im[j] = a[i][j].im;
        }
        std::fill(re + columns, re + p.ld, 0.0);
        std::fill(im + columns, im + p.ld, 0.0);
    }
}

void from_planes(int n, planes p, complex** a) {
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            a[i][j] = element(p, i, j);
}

} // namespace orvel
