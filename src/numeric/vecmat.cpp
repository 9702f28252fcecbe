// SPDX-License-Identifier: MIT
#include "numeric/vecmat.h"

#include <cstdint>

#include "control/ov_mpi.h"

namespace orvel {

std::size_t size_product(std::size_t a, std::size_t b) {
    return b != 0 && a > SIZE_MAX / b ? SIZE_MAX : a * b;
}

static std::size_t at_least_one(std::size_t n) { return n > 0 ? n : 1; }

// One table of n pointers, which point into a block at multiples of step bytes; null without
// memory for it, or without the block.
static void** pointer_table(std::size_t n, void* block, std::size_t step) {
    if (block == nullptr)
        return nullptr;
    void** table = static_cast<void**>(std::malloc(size_product(n, sizeof(void*))));
    if (table == nullptr)
        return nullptr;
    for (std::size_t i = 0; i < n; ++i)
        table[i] = static_cast<char*>(block) + i * step;
    return table;
}

void** mmalloc(std::size_t rows, std::size_t row_bytes) {
    rows = at_least_one(rows);
    void* data = std::calloc(1, at_least_one(size_product(rows, row_bytes)));
    void** table = pointer_table(rows, data, row_bytes);
    if (table == nullptr)
        std::free(data);
    return table;
}

void*** mmmalloc(std::size_t d0, std::size_t d1, std::size_t row_bytes) {
    d0 = at_least_one(d0);
    d1 = at_least_one(d1);
    void** rows = mmalloc(size_product(d0, d1), row_bytes);
    void** table = pointer_table(d0, rows, d1 * sizeof(void*));
    if (table == nullptr)
        free_matrix(rows);
    return reinterpret_cast<void***>(table);
}

void**** mmmmalloc(std::size_t d0, std::size_t d1, std::size_t d2, std::size_t row_bytes) {
    d0 = at_least_one(d0);
    d1 = at_least_one(d1);
    void*** planes = mmmalloc(size_product(d0, d1), d2, row_bytes);
    void** table = pointer_table(d0, planes, d1 * sizeof(void*));
    if (table == nullptr)
        free_tensor(planes);
    return reinterpret_cast<void****>(table);
}

void free_matrix(void* matrix) {
    if (matrix == nullptr)
        return;
    void** table = static_cast<void**>(matrix);
    std::free(table[0]);
    std::free(table);
}

void free_tensor(void* tensor) {
    if (tensor == nullptr)
        return;
    void** table = static_cast<void**>(tensor);
    free_matrix(table[0]);
    std::free(table);
}

void free_tensor4(void* tensor4) {
    if (tensor4 == nullptr)
        return;
    void** table = static_cast<void**>(tensor4);
    free_tensor(table[0]);
    std::free(table);
}

static void chk_shape(const void* p, const char* shape) {
    if (p == nullptr)
        ov_abort(stderr, "Not enough memory for %s.\n", shape);
}

void chk_vector(const void* p) { chk_shape(p, "vector"); }
void chk_matrix(const void* p) { chk_shape(p, "matrix"); }
void chk_tensor(const void* p) { chk_shape(p, "tensor"); }
void chk_tensor4(const void* p) { chk_shape(p, "tensor4"); }

} // namespace orvel
