// SPDX-License-Identifier: MIT
//
// Which machine the kernels run on. Each kernel_*.cpp is compiled twice on x86-64, for every machine
// (namespace plain) and for one with AVX2 and FMA (namespace wide); on other processors only plainly.
// The two differ in rounding, since a fused multiply-add rounds once.
#pragma once

namespace orvel {

enum machine_kind { machine_plain,
                    machine_wide };

// The widest kind that the running processor and this build offer.
machine_kind best_machine();

// The kind in use: the best one, until use_machine names another (tests compare the two). A kind that
// is not there is not taken.
machine_kind machine();
void use_machine(machine_kind kind);

} // namespace orvel
