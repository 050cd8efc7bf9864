// The ILU entry point and one stand-alone application of the factors.
#include "precond/precond.h"

#include "precond/ilu_core.h"

int comToolILU(KwilHandle* handle, const ComLinMat* a, ComLinMat** l, ComLinMat** u)
{
    comAssert(handle, a->type == MAT_CSR, "Invalid mat type %d in ILU", a->type);
    if (comOptInt(handle, OPT_ILU_FILLIN) != 0)
        return ILUFillIn(handle, a, l, u);
    return ILU0(handle, a, l, u);
}

int comToolILUSolv(KwilHandle* handle, const ComLinMat* a, const ComLinVec* r, ComLinVec* z)
{
    using VecOwn = kwil::ComOwn<ComLinVec, comLinVecDelete>;
    VecOwn t(handle, comLinVecCreate(handle, a->dataType, a->size));
    if (!t)
        return comErr(handle, "Vec alloc error in ILU solv");
    ComLinMat* lp = nullptr;
    ComLinMat* up = nullptr;
    if (comToolILU(handle, a, &lp, &up) == 0)
        return 0;
    kwil::prec::MatOwn l(handle, lp), u(handle, up);
    // z = U^-1 (L^-1 r)
    comLinMatTriSolv(handle, 0, l.get(), 0, r, t.get());
    comLinMatTriSolv(handle, 1, u.get(), 0, t.get(), z);
    return 1;
}
