// SPDX-License-Identifier: MIT
//
// The inner loops that a tilt spends its time in: real and imaginary parts apart, four numbers at a
// time, each compiled for every machine it may run on (numeric/machine.h). The modules that call them
// hold the algorithms, with their tests and messages; a kernel tests nothing but its own shapes.
#pragma once

#include <cstddef>

#include "numeric/complex.h"
#include "numeric/machine.h"

namespace orvel {

// Declares a kernel on both machines, and the function of that name that calls the one in use.
#ifdef ORVEL_WIDE_KERNELS
#define ORVEL_KERNEL(name, parameters, arguments) \
    namespace plain {                             \
    void name parameters;                         \
    }                                             \
    namespace wide {                              \
    void name parameters;                         \
    }                                             \
    inline void name parameters {                 \
        if (machine() == machine_wide)            \
            wide::name arguments;                 \
        else                                      \
            plain::name arguments;                \
    }
#else
#define ORVEL_KERNEL(name, parameters, arguments) \
    namespace plain {                             \
    void name parameters;                         \
    }                                             \
    inline void name parameters { plain::name arguments; }
#endif

// A complex matrix as two planes of doubles: element (i, j) is re[i * ld + j] + i im[i * ld + j].
struct planes {
    double* re;
    double* im;
    std::ptrdiff_t ld; // doubles from one row to the next
};

} // namespace orvel
