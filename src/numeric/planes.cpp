// SPDX-License-Identifier: MIT
#include "numeric/planes.h"

namespace orvel {

void to_planes(int n, const complex* const* a, planes p) {
    for (int i = 0; i < static_cast<int>(padded_rows(n)); ++i) {
        const planes row = part(p, i, 0);
        const int columns = i < n ? n : 0;
        split_row(columns, a[i < n ? i : 0], row.re, row.im);
        std::fill(row.re + columns, row.re + p.ld, 0.0);
        std::fill(row.im + columns, row.im + p.ld, 0.0);
    }
}

void from_planes(int n, planes p, complex** a) {
    for (int i = 0; i < n; ++i)
        join_row(n, part(p, i, 0).re, part(p, i, 0).im, a[i]);
}

} // namespace orvel
