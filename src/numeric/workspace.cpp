// SPDX-License-Identifier: MIT
#include "numeric/workspace.h"

#include <cstdlib>
#include <cstring>

#include "numeric/vecmat.h"

namespace orvel {

struct block {
    void* memory;
    std::size_t bytes;
};

static block blocks[num_workspace_slots];

void* workspace(workspace_slot slot, std::size_t bytes) {
    const std::size_t line = 64;
    block& b = blocks[slot];
    if (bytes <= b.bytes)
        return b.memory;
    const std::size_t whole_lines = bytes <= SIZE_MAX - line ? (bytes + line - 1) / line * line : SIZE_MAX / line * line;
    void* grown = std::aligned_alloc(line, whole_lines);
    chk_vector(grown);
    if (b.memory != nullptr)
        std::memcpy(grown, b.memory, b.bytes);
    std::free(b.memory);
    b = {grown, whole_lines};
    return grown;
}

} // namespace orvel
