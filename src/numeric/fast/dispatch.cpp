// SPDX-License-Identifier: MIT
#include "numeric/fast/dispatch.h"

namespace orvel {

// What counts is that the processor has the instructions and that the system saves their registers;
// __builtin_cpu_supports looks at both. It may be asked before main, as it is here.
machine_kind best_machine() {
#ifdef ORVEL_WIDE_KERNELS
    __builtin_cpu_init();
    const bool wide = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    const bool widest = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
                        __builtin_cpu_supports("avx512vl");
    if (wide)
        return widest ? machine_widest : machine_wide;
#endif
    return machine_plain;
}

static machine_kind in_use = best_machine();

machine_kind machine() { return in_use; }

void use_machine(machine_kind kind) { in_use = kind <= best_machine() ? kind : best_machine(); }

} // namespace orvel
