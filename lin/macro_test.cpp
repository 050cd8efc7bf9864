// Self-test of element access of the matrix and vector objects.
#include "lin/lin.h"

#include "common/own.h"

using MatOwn = kwil::ComOwn<ComLinMat, comLinMatDelete>;
using VecOwn = kwil::ComOwn<ComLinVec, comLinVecDelete>;

// Builds a real and a complex 5x5 upper bidiagonal matrix entry by entry, copies the first five
// values of each into a vector of its data type and releases all four objects.
void comLinMacroTest(KwilHandle* handle)
{
    constexpr int size = 5;
    constexpr int num = 9;
    MatOwn real(handle, comLinMatCreate(handle, MAT_COO, LIN_REAL, size, num));
    MatOwn comp(handle, comLinMatCreate(handle, MAT_COO, LIN_COMP, size, num));
    VecOwn realVec(handle, comLinVecCreate(handle, LIN_REAL, size));
    VecOwn compVec(handle, comLinVecCreate(handle, LIN_COMP, size));
    if (!real || !comp || !realVec || !compVec)
        return; // the creators have written their lines
    for (int i = 0; i < num; ++i) {
        const int row = i / 2 + 1;
        const int col = i / 2 + i % 2 + 1;
        real->row[i] = row;
        real->col[i] = col;
        real->realData[i] = 1.1 * i;
        comp->row[i] = row;
        comp->col[i] = col;
        comp->compData[2 * i] = 1.1 * i;
        comp->compData[2 * i + 1] = -2.2 * i;
    }
    for (int i = 0; i < size; ++i) {
        realVec->realData[i] = real->realData[i];
        compVec->compData[2 * i] = comp->compData[2 * i];
        compVec->compData[2 * i + 1] = comp->compData[2 * i + 1];
    }
}
