// SPDX-License-Identifier: MIT
//
// Storage shapes: pointer tables above one contiguous data block, so that m[i][j] reads through
// plain pointers and m[0] is the base of the block in row-major order. Whoever allocates a shape
// frees it. All memory starts as zero bytes: no result ever depends on what was there before.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <tuple>
#include <type_traits>

namespace orvel {

// Product of two sizes; saturates instead of overflowing, so that an impossible size cannot be
// mistaken for a small one.
std::size_t size_product(std::size_t a, std::size_t b);

// A size that an int counts, or one that no memory holds: the program counts in int, and an
// allocation of more must fail before such a count is used.
inline std::size_t countable(std::size_t count) { return count <= INT_MAX ? count : SIZE_MAX; }

// A count as a size; negative counts are 0.
inline std::size_t to_size(int count) { return count > 0 ? static_cast<std::size_t>(count) : 0; }

// Shapes with row_bytes bytes in an innermost row; null without memory. At least one of each
// dimension is allocated.
void** mmalloc(std::size_t rows, std::size_t row_bytes);
void*** mmmalloc(std::size_t d0, std::size_t d1, std::size_t row_bytes);
void**** mmmmalloc(std::size_t d0, std::size_t d1, std::size_t d2, std::size_t row_bytes);

// Release; null is accepted. The first row pointer must be unchanged.
void free_matrix(void* matrix);
void free_tensor(void* tensor);
void free_tensor4(void* tensor4);

// Checks that stand behind each allocation: null ends the process with status 1 and one line on
// standard error.
void chk_vector(const void* p);
void chk_matrix(const void* p);
void chk_tensor(const void* p);
void chk_tensor4(const void* p);

// Typed and checked allocation: counts in elements, memory of zero bytes, no result without
// success. A vector goes back by std::free, the others by the release functions above.
template <class T>
T* new_vector(std::size_t n) {
    static_assert(std::is_trivially_copyable<T>::value, "zero bytes must be a valid element");
    const std::size_t bytes = size_product(n > 0 ? n : 1, sizeof(T));
    void* p = std::calloc(1, bytes);
    chk_vector(p);
    return static_cast<T*>(p);
}
template <class T>
T** new_matrix(std::size_t rows, std::size_t columns) {
    void** p = mmalloc(rows, size_product(columns, sizeof(T)));
    chk_matrix(p);
    return reinterpret_cast<T**>(p);
}
template <class T>
T*** new_tensor(std::size_t d0, std::size_t d1, std::size_t d2) {
    void*** p = mmmalloc(d0, d1, size_product(d2, sizeof(T)));
    chk_tensor(p);
    return reinterpret_cast<T***>(p);
}
template <class T>
T**** new_tensor4(std::size_t d0, std::size_t d1, std::size_t d2, std::size_t d3) {
    void**** p = mmmmalloc(d0, d1, d2, size_product(d3, sizeof(T)));
    chk_tensor4(p);
    return reinterpret_cast<T****>(p);
}

template <class T>
void copy_array(std::size_t n, const T* source, T* dest) {
    for (std::size_t i = 0; i < n; ++i)
        dest[i] = source[i];
}

// Hands each of a record's arrays, which a tuple of pointers to members names once, to the same use.
template <class... Arrays, class Use>
void each_array(const std::tuple<Arrays...>& arrays, Use use) {
    std::apply([&](Arrays... array) { (use(array), ...); }, arrays);
}

} // namespace orvel
