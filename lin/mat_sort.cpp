// Sorting of a coordinate-form matrix: by row with a counting sort, within rows by column with a
// comb sort, then a duplicate check.
#include "lin/lin.h"

#include "common/own.h"

namespace {

// One entry while sorting: its row, its column and where it stood before.
struct SortTriple {
    int row;
    int col;
    int pos;
};

// Sorts the run t[0..len) by column with a comb sort (shrink factor 10/13, gaps 9 and 10 made 11).
// Equal columns keep their order only as far as the exchanges leave them; duplicates are found
// afterwards.
void combSortRun(SortTriple* t, int len)
{
    int gap = len;
    for (;;) {
        gap = static_cast<int>((gap * 10L) / 13);
        if (gap == 9 || gap == 10)
            gap = 11;
        if (len <= 11 && gap == 11)
            gap = (gap * 10) / 13; // 8
        if (gap == 0) {
            if (len <= 1)
                return;
            gap = 1;
        }
        if (gap >= len) {
            if (gap > 1)
                continue;
            return;
        }
        bool swapped = false;
        for (int i = 0; i + gap < len; ++i) {
            SortTriple& a = t[i];
            SortTriple& b = t[i + gap];
            if (a.col > b.col) {
                const int col = a.col;
                const int pos = a.pos;
                a.col = b.col;
                a.pos = b.pos;
                b.col = col;
                b.pos = pos;
                swapped = true;
            }
        }
        if (!swapped && gap <= 1)
            return;
    }
}

} // namespace

int matSort(KwilHandle* handle, ComLinMat* mat)
{
    comAssert(handle, mat->type == MAT_COO, "Invalid type in matrix sort");
    const int n = mat->size;
    const int nnz = mat->dataNum;

    kwil::ComBuf<SortTriple> triple(handle, nnz);
    kwil::ComBuf<int> count(handle, n);
    kwil::ComBuf<int> fill(handle, n);
    kwil::ComOwn<ComLinMat, comLinMatDelete> scratch(
        handle, comLinMatCreate(handle, MAT_SORTED, mat->dataType, n, nnz));
    if (!triple || !count || !fill || !scratch) {
        return comErr(handle, "Allocation error in matrix sort");
    }

    // Counting sort by row; within a row the entries keep their position order.
    for (int r = 0; r < n; ++r)
        count[r] = 0;
    for (int p = 0; p < nnz; ++p)
        ++count[mat->row[p] - 1];
    int start = 0;
    for (int r = 0; r < n; ++r) {
        fill[r] = start;
        start += count[r];
    }
    for (int p = 0; p < nnz; ++p) {
        const int r = mat->row[p];
        triple[fill[r - 1]++] = SortTriple{r, mat->col[p], p};
    }

    // Each row's run by column.
    start = 0;
    for (int r = 0; r < n; ++r) {
        combSortRun(&triple[start], count[r]);
        start += count[r];
    }

    // The sorted arrays, built in the scratch matrix and installed by exchanging the records.
    ComLinMat& s = *scratch;
    for (int k = 0; k < nnz; ++k) {
        const int p = triple[k].pos;
        s.row[k] = triple[k].row;
        s.col[k] = triple[k].col;
        if (mat->dataType == LIN_REAL) {
            s.realData[k] = mat->realData[p];
        } else {
            s.compData[2L * k] = mat->compData[2L * p];
            s.compData[2L * k + 1] = mat->compData[2L * p + 1];
        }
    }
    comLinMatSwapInter(handle, mat, scratch.get());
    scratch.reset(nullptr);

    for (int k = 0; k + 1 < nnz; ++k) {
        const int r0 = mat->row[k], r1 = mat->row[k + 1];
        const int c0 = mat->col[k], c1 = mat->col[k + 1];
        if (r0 == r1 && c0 == c1)
            return comErr(handle, "Dupulicate data error in matrix sort");
        comAssert(handle, r0 < r1 || (r0 == r1 && c0 < c1), "Fatal error in matrix sort");
    }
    return 1;
}
