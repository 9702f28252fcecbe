// SPDX-License-Identifier: MIT
#include "numeric/workspace.h"

#include <cstdint>
#include <cstdlib>

#include "numeric/vecmat.h"

namespace orvel {

struct block {
    double* data;
    std::size_t count;
};

static thread_local block blocks[slot_count];

double* workspace(workspace_slot slot, std::size_t count) {
    constexpr std::size_t alignment = 64, doubles = alignment / sizeof(double);
    block& b = blocks[slot];
    if (b.data == nullptr || b.count < count) {
        std::free(b.data);
        // Whole lines; a size near the largest one stays one that no memory holds.
        b.count = count > SIZE_MAX - doubles ? count : (count / doubles + 1) * doubles;
        const std::size_t bytes = size_product(b.count, sizeof(double));
        b.data = bytes == SIZE_MAX ? nullptr : static_cast<double*>(std::aligned_alloc(alignment, bytes));
        chk_vector(b.data);
    }
    return b.data;
}

complex** workspace_matrix(workspace_slot slot, int rows, int columns) {
    constexpr std::size_t line = 8; // doubles and pointers in 64 bytes
    const std::size_t table = (to_size(rows) / line + 1) * line;
    double* room = workspace(slot, table + size_product(2 * to_size(rows), to_size(columns)));
    complex** matrix = reinterpret_cast<complex**>(room);
    complex* data = reinterpret_cast<complex*>(room + table);
    for (int i = 0; i < rows; ++i)
        matrix[i] = data + to_size(i) * to_size(columns);
    return matrix;
}

} // namespace orvel
