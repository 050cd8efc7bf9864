// Residual r = A x - b of a solution, its norms, and optionally r in a vector file.
#include "precond/precond.h"

#include "common/own.h"
#include "file/file.h"

int comToolCheckResult(KwilHandle* handle, const ComLinMat* a, const ComLinVec* b,
                       const ComLinVec* x, double* relNorm, double* absNorm, const char* fileName)
{
    kwil::ComOwn<ComLinVec, comLinVecDelete> r(
        handle, comLinVecCreateInit(handle, a->dataType, a->size, ComComplex{0.0, 0.0}));
    if (!r)
        return comErr(handle, "Vector data create error in check result");
    comLinMatCalcVec(handle, ComComplex{1.0, 0.0}, a, 0, x, ComComplex{0.0, 0.0}, r.get());
    comLinVecCalcVec(handle, ComComplex{-1.0, 0.0}, b, r.get());
    const double rn = comLinVecCalcNorm2(handle, r.get());
    *absNorm = rn;
    *relNorm = rn / comLinVecCalcNorm2(handle, b); // a zero b gives inf or NaN, as documented
    if (fileName != nullptr)
        return comFileVecWrite(handle, r.get(), fileName);
    return 1;
}
