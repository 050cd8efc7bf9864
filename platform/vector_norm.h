// Euclidean norms of dense vectors, our stand-ins for the BLAS's dnrm2 and dznrm2 (unit stride).
// Overflow- and underflow-safe like theirs: the norm is finite whenever it is representable, an
// infinite entry makes it infinite and a NaN entry NaN. The sum runs in a fixed order, so a
// vector gives the same bits on every processor.
#pragma once

#include "platform/sparse_blas.h"

extern "C" {

// ||x||_2 of the n doubles x; 0 for n <= 0.
double platform_dnrm2(int n, const double* x);
// ||x||_2 of the n complex values x: the norm of their 2n parts.
double platform_dznrm2(int n, const PlatformComplex16* x);
}
