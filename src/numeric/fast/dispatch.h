// SPDX-License-Identifier: MIT
//
// Which machine the kernels run on. On x86-64 each of their sources is compiled three times: for every
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

// Declares a kernel: in its own source, which is compiled with the name of a machine's namespace, for that
// machine; everywhere else for all of them, and the function of that name that calls the one in use.
#if defined(ORVEL_MACHINE)
#define ORVEL_KERNEL(name, parameters, arguments) \
    namespace ORVEL_MACHINE {                     \
    void name parameters;                         \
    }
#elif defined(ORVEL_WIDE_KERNELS)
#define ORVEL_KERNEL(name, parameters, arguments) \
    namespace kernels_plain {                     \
    void name parameters;                         \
    }                                             \
    namespace kernels_wide {                      \
    void name parameters;                         \
    }                                             \
    namespace kernels_widest {                    \
    void name parameters;                         \
    }                                             \
    inline void name parameters {                 \
        if (machine() == machine_widest)          \
            kernels_widest::name arguments;       \
        else if (machine() == machine_wide)       \
            kernels_wide::name arguments;         \
        else                                      \
            kernels_plain::name arguments;        \
    }
#else
#define ORVEL_KERNEL(name, parameters, arguments) \
    namespace kernels_plain {                     \
    void name parameters;                         \
    }                                             \
    inline void name parameters { kernels_plain::name arguments; }
#endif
