// A statistical portrait of the system in the trace log.
#include "precond/precond.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

void analyRowDataNum(KwilHandle*, int count, int* min, int* max)
{
    if (count < *min)
        *min = count;
    if (count > *max)
        *max = count;
}

void comToolAnaly(KwilHandle* handle, const ComLinMat* a, const ComLinVec* b, const char* name,
                  int zeroDiagBefore)
{
    comAssert(handle, a->type == MAT_SORTED || a->type == MAT_CSR,
              "Invalid type %d in matrix analyse", a->type);
    if (!comTraceOn(handle))
        return; // nothing else is observable
    double absMax = 0.0, diagMax = 0.0, diagMin = DBL_MAX;
    int diagCount = 0, rowMin = a->size, rowMax = 0;
    int curRow = 1, curStart = 0;
    int row = 0, col = 0, pos = 0;
    double re = 0.0, im = 0.0;
    // Entries come by ascending row in both accepted forms; a run of empty rows counts once as 0.
    for (int more = comLinMatGetNext(handle, a, &row, &col, &pos, &re, &im, 1); more != 0;
         more = comLinMatGetNext(handle, a, &row, &col, &pos, &re, &im, 0)) {
        const double m = std::hypot(re, im);
        absMax = std::max(absMax, m);
        if (row == col) {
            diagMin = std::min(diagMin, m);
            diagMax = std::max(diagMax, m);
            ++diagCount;
        }
        if (row != curRow) {
            if (row != curRow + 1)
                analyRowDataNum(handle, 0, &rowMin, &rowMax);
            analyRowDataNum(handle, pos - curStart, &rowMin, &rowMax);
            curRow = row;
            curStart = pos;
        }
    }
    if (curRow != a->size)
        analyRowDataNum(handle, 0, &rowMin, &rowMax);
    analyRowDataNum(handle, a->dataNum - curStart, &rowMin, &rowMax);
    if (diagCount != a->size)
        diagMin = 0.0;

    comTrace(handle, "Analyse in %s data type %s", name, a->dataType == LIN_COMP ? "comp" : "real");
    comTrace(handle, " - abs / rel norm %.4e", comLinVecCalcNorm2(handle, b));
    comTrace(handle, " - mat size %d data num %d", a->size, a->dataNum);
    comTrace(handle, " - abs diag min %.4e diag max %.4e max %.4e", diagMin, diagMax, absMax);
    comTrace(handle, " - diag zero %d -> %d row data num min %d max %d", zeroDiagBefore,
             a->size - diagCount, rowMin, rowMax);
}
