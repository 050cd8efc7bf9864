// Insertion of missing diagonal entries before a solve and restoration of the diagonal after it.
#include "precond/precond.h"

#include <climits>

#include "common/own.h"

ComLinVec* comToolRevDiagZero(KwilHandle* handle, ComLinMat* a)
{
    comAssert(handle, a->type == MAT_COO, "Invalid type %d in rev diag zero", a->type);
    using VecOwn = kwil::ComOwn<ComLinVec, comLinVecDelete>;
    const int n = a->size;
    const int m = a->dataNum;
    const bool comp = a->dataType == LIN_COMP;
    kwil::ComBuf<int> flag(handle, n);
    VecOwn d(handle, flag ? comLinVecCreate(handle, a->dataType, n) : nullptr);
    if (!flag || !d)
        return static_cast<ComLinVec*>(comErrNull(handle, "Alloc error in rev diag zero"));
    for (int i = 0; i < n; ++i)
        flag[i] = 0;
    comLinVecInit(handle, d.get(), ComComplex{0.0, 0.0});

    // A row counts once however many diagonal entries it holds, so that the entries appended
    // below are exactly the rows left unflagged.
    int found = 0;
    for (int p = 0; p < m; ++p) {
        const int i = a->row[p];
        if (i != a->col[p])
            continue;
        if (comp) {
            d->compData[2L * (i - 1)] = a->compData[2L * p];
            d->compData[2L * (i - 1) + 1] = a->compData[2L * p + 1];
        } else {
            d->realData[i - 1] = a->realData[p];
        }
        if (flag[i - 1] == 0)
            ++found;
        flag[i - 1] = 1;
    }
    if (found >= n)
        return d.release();

    const double val = comOptDbl(handle, OPT_REV_DIAGZERO_VAL);
    comTrace(handle, "Rev diag zero %d %.4e", n - found, val);
    const long total = static_cast<long>(m) + (n - found);
    kwil::ComOwn<ComLinMat, comLinMatDelete> mm(
        handle, total <= INT_MAX
                    ? comLinMatCreate(handle, MAT_COO, a->dataType, n, static_cast<int>(total))
                    : nullptr);
    if (!mm)
        return static_cast<ComLinVec*>(
            comErrNull(handle, "Matrix allocate error in rev diag zero"));
    mm->dataNum = m;
    comLinMatCopy(handle, a, mm.get());
    mm->dataNum = static_cast<int>(total);
    long p = m;
    for (int i = 1; i <= n; ++i) {
        if (flag[i - 1] != 0 || p >= total)
            continue;
        mm->row[p] = i;
        mm->col[p] = i;
        if (comp) {
            mm->compData[2 * p] = val;
            mm->compData[2 * p + 1] = 0.0;
        } else {
            mm->realData[p] = val;
        }
        ++p;
    }
    comAssert(handle, p == total, "Data number unmatch in rev diag zero");
    comLinMatSwapInter(handle, a, mm.get());
    return d.release(); // mm now holds the old arrays and is deleted on return
}

void comToolResetRevDiagZero(KwilHandle* handle, ComLinMat* a, ComLinVec* d)
{
    const bool comp = a->dataType == LIN_COMP;
    int row = 0, col = 0, pos = 0;
    double re = 0.0, im = 0.0;
    for (int more = comLinMatGetNext(handle, a, &row, &col, &pos, &re, &im, 1); more != 0;
         more = comLinMatGetNext(handle, a, &row, &col, &pos, &re, &im, 0)) {
        if (row != col)
            continue;
        if (comp) {
            a->compData[2L * pos] = d->compData[2L * (row - 1)];
            a->compData[2L * pos + 1] = d->compData[2L * (row - 1) + 1];
        } else {
            a->realData[pos] = d->realData[row - 1];
        }
    }
    comLinVecDelete(handle, d);
}
