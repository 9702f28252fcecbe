// SPDX-License-Identifier: MIT
#include "numeric/machine.h"

namespace orvel {

machine_kind best_machine() {
#ifdef ORVEL_WIDE_KERNELS
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"))
        return machine_wide;
#endif
    return machine_plain;
}

static machine_kind in_use = best_machine();

machine_kind machine() { return in_use; }

void use_machine(machine_kind kind) { in_use = kind <= best_machine() ? kind : best_machine(); }

} // namespace orvel
