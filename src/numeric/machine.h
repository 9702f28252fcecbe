// SPDX-License-Identifier: MIT
//
// Which machine the kernels run on. On x86-64 each kernel_*.cpp is compiled three times: for every
// machine (namespace kernels_plain), for one with AVX2 and FMA (kernels_wide), and for one with AVX-512
// (kernels_widest); on other processors only plainly. They differ in rounding, since a fused
// multiply-add rounds once.
#pragma once

namespace orvel {

enum machine_kind {
    machine_plain,
    machine_wide,
    machine_widest
};

// The widest kind that the running processor and this build offer.
machine_kind best_machine();

// The kind in use: the best one, until use_machine names another (tests compare them). A kind that
// is not there is not taken.
machine_kind machine();
void use_machine(machine_kind kind);

} // namespace orvel
