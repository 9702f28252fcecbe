// SPDX-License-Identifier: MIT
#include "numeric/workspace.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "numeric/planes.h"
#include "numeric/vecmat.h"

namespace orvel {

struct block {
    double* data;
    std::size_t count;
};

static block blocks[slot_count];

// Room for count doubles, or null without memory; the block is then as before.
static double* room_in(workspace_slot slot, std::size_t count) {
    constexpr std::size_t alignment = 64, doubles = alignment / sizeof(double);
    block& b = blocks[slot];
    if (b.data != nullptr && b.count >= count)
        return b.data;
    // Whole lines; a size near the largest one stays one that no memory holds.
    const std::size_t grown = count > SIZE_MAX - doubles ? count : (count / doubles + 1) * doubles;
    const std::size_t bytes = size_product(grown, sizeof(double));
    double* data = bytes == SIZE_MAX ? nullptr : static_cast<double*>(std::aligned_alloc(alignment, bytes));
    if (data == nullptr)
        return nullptr;
    std::copy(b.data, b.data + b.count, data);
    std::free(b.data);
    b = {data, grown};
    return data;
}

double* workspace(workspace_slot slot, std::size_t count) {
    double* room = room_in(slot, count);
    chk_vector(room);
    return room;
}

complex* workspace_vector(workspace_slot slot, std::size_t count) {
    return reinterpret_cast<complex*>(workspace(slot, size_product(2, count)));
}

complex** workspace_matrix(workspace_slot slot, int rows, int columns) {
    constexpr std::size_t line = 8; // doubles and pointers in 64 bytes
    const std::size_t table = (to_size(rows) / line + 1) * line;
    double* room = room_in(slot, table + size_product(2 * to_size(rows), to_size(columns)));
    chk_matrix(room);
    complex** matrix = reinterpret_cast<complex**>(room);
    complex* data = reinterpret_cast<complex*>(room + table);
    for (int i = 0; i < rows; ++i)
        matrix[i] = data + to_size(i) * to_size(columns);
    return matrix;
}

planes work_planes(workspace_slot slot, int rows, int columns) {
    const std::size_t room = 3; // for a vector of four that begins at the last column
    const std::size_t ld = padded_columns(columns, room);
    const std::size_t plane = to_size(rows) * ld;
    double* re = workspace(slot, size_product(2, plane));
    return {re, re + plane, static_cast<std::ptrdiff_t>(ld)};
}

planes zero_planes(workspace_slot slot, int rows, int columns) {
    const planes p = work_planes(slot, rows, columns);
    std::fill(p.re, p.im + (p.im - p.re), 0.0); // the second plane follows the first
    return p;
}

planes split_matrix(workspace_slot slot, int rows, int columns, const complex* const* m) {
    const planes p = work_planes(slot, rows, columns);
    for (int i = 0; i < rows; ++i)
        split_row(columns, m[i], part(p, i, 0).re, part(p, i, 0).im);
    return p;
}

} // namespace orvel
