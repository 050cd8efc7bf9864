// Removal of vanishing entries from a coordinate-form matrix.
#include "precond/precond.h"

#include "precond/ilu_core.h"

void comToolMatClearZero(KwilHandle* handle, ComLinMat* a, int* zeroDiag)
{
    using kwil::prec::vanishing;
    comAssert(handle, a->type == MAT_COO || a->type == MAT_SORTED,
              "Invalid matrix type in matrix clear zero");
    int* row = a->row;
    int* col = a->col;
    const bool comp = a->dataType == LIN_COMP;
    double* re = comp ? a->compData : a->realData;
    long kept = 0, diag = 0;
    for (long p = 0; p < a->dataNum; ++p) {
        const bool zero =
            comp ? vanishing(re[2 * p]) && vanishing(re[2 * p + 1]) : vanishing(re[p]);
        if (zero)
            continue;
        row[kept] = row[p];
        col[kept] = col[p];
        if (comp) {
            re[2 * kept] = re[2 * p];
            re[2 * kept + 1] = re[2 * p + 1];
        } else {
            re[kept] = re[p];
        }
        if (row[kept] == col[kept])
            ++diag;
        ++kept;
    }
    a->dataNum = static_cast<int>(kept);
    *zeroDiag = static_cast<int>(a->size - diag);
}
