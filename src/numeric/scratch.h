// SPDX-License-Identifier: MIT
//
// Work space with one owner, which is handed down: a function marks where it stands, takes what it
// needs, and releases all of it at its end. The memory stays with the owner, so that a loop takes none
// from the system once it has been through its largest round.
#pragma once

#include <cstddef>
#include <type_traits>

#include "numeric/complex.h"
#include "numeric/vecmat.h"

namespace orvel {

// A record of zeros is an empty one. Blocks stay where they are when more is taken; each has twice the
// size of the one before at least, so that no memory holds as many as there is place for.
struct scratch {
    struct {
        char* data; // null behind the last block
        std::size_t size;
    } block[48];
    int current;      // block in use
    std::size_t used; // bytes of it
};

struct scratch_mark {
    int current;
    std::size_t used;
};

inline scratch_mark mark_scratch(const scratch& room) { return {room.current, room.used}; }

// Gives back what was taken behind the mark.
inline void release_scratch(scratch& room, scratch_mark place) {
    room.current = place.current;
    room.used = place.used;
}

// Gives all memory back to the system.
void free_scratch(scratch& room);

// Bytes from the beginning of a line of the cache on, of arbitrary content; null without memory.
void* take_bytes(scratch& room, std::size_t bytes);

// n elements. Without memory the process ends, as it does for the shapes of vecmat.
template <class T>
T* take(scratch& room, std::size_t n) {
    static_assert(std::is_trivially_copyable<T>::value, "no element is constructed");
    void* p = take_bytes(room, size_product(n, sizeof(T)));
    chk_vector(p);
    return static_cast<T*>(p);
}

// A matrix in the shape of vecmat, and one that holds a copy of m.
complex** take_matrix(scratch& room, int rows, int columns);
complex** take_copy(scratch& room, int rows, int columns, const complex* const* m);

} // namespace orvel
