// SPDX-License-Identifier: MIT
//
// Radix-2 fast Fourier transforms in single precision, in place, with real and imaginary parts in
// arrays of their own (J. W. Cooley & J. W. Tukey, Math. Comput. 19 (1965) 297). Direction 1, or
// any negative value, is the backward transform with exp(+2 pi i jk/n) and no scaling; 0, or any
// other value, the forward one with exp(-2 pi i jk/n), divided by n along each axis. Lengths must
// be powers of 2, which the callers check.
#pragma once

namespace orvel {

// One transform of |n| values (x[i], y[i]). The tables of sines and bit reversals stay for the next
// call of the same length; n = 0 frees them. Returns 0, or 1 without memory for the tables, which
// is told on standard error.
int fft1d(int direction, int n, float* x, float* y);

// Transforms of grids re[i][j] and re[i][j][k], in the shapes of vecmat, along all axes. A failure
// ends the process.
void fft2d_nxny(int direction, int nx, int ny, float** re, float** im);
void fft3d_nxnynz(int direction, int nx, int ny, int nz, float*** re, float*** im);

} // namespace orvel
