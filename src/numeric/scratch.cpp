// SPDX-License-Identifier: MIT
#include "numeric/scratch.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace orvel {

constexpr std::size_t line = 64; // bytes of a line of the cache

// A block for so many bytes in the first free place; null without memory.
static char* new_block(scratch& room, std::size_t bytes) {
    const std::size_t smallest = 1 << 14;
    const std::size_t before = room.current > 0 ? room.block[room.current - 1].size : 0;
    const std::size_t size = std::max({bytes, 2 * before, smallest});
    char* data = static_cast<char*>(std::aligned_alloc(line, size));
    room.block[room.current] = {data, size};
    return data;
}

void* take_bytes(scratch& room, std::size_t bytes) {
    if (bytes > SIZE_MAX / 2)
        return nullptr;
    bytes = (bytes / line + 1) * line;
    for (; room.block[room.current].data != nullptr; ++room.current, room.used = 0) {
        if (room.block[room.current].size - room.used < bytes)
            continue;
        char* data = room.block[room.current].data + room.used;
        room.used += bytes;
        return data;
    }
    room.used = bytes;
    return new_block(room, bytes);
}

void free_scratch(scratch& room) {
    for (const auto& b : room.block)
        std::free(b.data);
    room = {};
}

complex** take_matrix(scratch& room, int rows, int columns) {
    const std::size_t table_size = (to_size(rows) * sizeof(void*) / line + 1) * line;
    const std::size_t data_size = size_product(size_product(to_size(rows), to_size(columns)), sizeof(complex));
    char* piece = static_cast<char*>(take_bytes(room, data_size < SIZE_MAX / 2 ? table_size + data_size : SIZE_MAX));
    chk_matrix(piece);
    complex** table = reinterpret_cast<complex**>(piece);
    complex* data = reinterpret_cast<complex*>(piece + table_size);
    for (int i = 0; i < rows; ++i)
        table[i] = data + to_size(i) * to_size(columns);
    return table;
}

complex** take_copy(scratch& room, int rows, int columns, const complex* const* m) {
    complex** copy = take_matrix(room, rows, columns);
    for (int i = 0; i < rows; ++i)
        std::copy(m[i], m[i] + columns, copy[i]);
    return copy;
}

} // namespace orvel
