// CSR product and triangular solves: see sparse_blas.h.
#include "platform/sparse_blas.h"
