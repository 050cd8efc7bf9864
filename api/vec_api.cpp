// The host's access to the fixed vector b and the variable vector x: one family of six
// functions, written once and bound to a handle field and the word of its messages.
#include "api/kwil.h"

#include "common/com.h"
#include "file/file.h"
#include "lin/lin.h"

namespace {

// One of the two vectors of the handle.
struct VecSlot {
    ComLinVec* KwilHandle::*field;
    const char* word;  // "fix" or "var", as the messages name the vector
    const char* setAt; // place text of the index check
    const char* getAt;
};

const VecSlot fixSlot{&KwilHandle::vecFix, "fix", "set fix vec", "get fix vec"};
const VecSlot varSlot{&KwilHandle::vecVar, "var", "set var vec", "get var vec"};

int getDataType(int flag)
{
    return flag == 0 ? LIN_REAL : LIN_COMP;
}

void dropVector(KwilHandle* handle, const VecSlot& s)
{
    comLinVecDelete(handle, handle->*s.field);
    handle->*s.field = nullptr;
}

int vecCreate(KwilHandle* handle, const VecSlot& s, int flag, int size, double re, double im)
{
    dropVector(handle, s);
    // A negative length fails the allocation of the values, which reports it first.
    ComLinVec* vec = comLinVecCreateInit(handle, getDataType(flag), size, ComComplex{re, im});
    if (vec == nullptr)
        return comErr(handle, "Create error in create %s vec", s.word);
    handle->*s.field = vec;
    return 1;
}

int vecInfo(KwilHandle* handle, const VecSlot& s, int* flag, int* size)
{
    const ComLinVec* vec = handle->*s.field;
    if (vec == nullptr)
        return comErr(handle, "No data in get %s vec info", s.word);
    *flag = vec->dataType == LIN_COMP ? 1 : 0;
    *size = vec->size;
    return 1;
}

int vecSet(KwilHandle* handle, const VecSlot& s, int index, double re, double im)
{
    ComLinVec* vec = handle->*s.field;
    if (vec == nullptr)
        return comErr(handle, "No data in set %s vec", s.word);
    if (!comLinVecParamCheck(handle, vec, index, s.setAt))
        return 0;
    if (vec->dataType == LIN_REAL) {
        vec->realData[index] = re;
    } else {
        vec->compData[2L * index] = re;
        vec->compData[2L * index + 1] = im;
    }
    return 1;
}

int vecGet(KwilHandle* handle, const VecSlot& s, int index, double* re, double* im)
{
    const ComLinVec* vec = handle->*s.field;
    if (vec == nullptr)
        return comErr(handle, "No data in get %s vec", s.word);
    if (!comLinVecParamCheck(handle, vec, index, s.getAt))
        return 0;
    if (vec->dataType == LIN_REAL) {
        *re = vec->realData[index];
        *im = 0.0;
    } else {
        *re = vec->compData[2L * index];
        *im = vec->compData[2L * index + 1];
    }
    return 1;
}

int vecFileRead(KwilHandle* handle, const VecSlot& s, const char* path)
{
    dropVector(handle, s);
    ComLinVec* vec = comFileVecRead(handle, path);
    if (vec == nullptr)
        return comErr(handle, "Read error in read %s vec file '%s'", s.word, path);
    handle->*s.field = vec;
    return 1;
}

int vecFileWrite(KwilHandle* handle, const VecSlot& s, const char* path)
{
    const ComLinVec* vec = handle->*s.field;
    if (vec == nullptr)
        return comErr(handle, "No data in write %s vec file '%s'", s.word, path);
    return comFileVecWrite(handle, vec, path);
}

} // namespace

int kwilVecFixCreate(KwilHandle* handle, int flag, int size, double re, double im)
{
    return vecCreate(handle, fixSlot, flag, size, re, im);
}
int kwilVecFixInfo(KwilHandle* handle, int* flag, int* size)
{
    return vecInfo(handle, fixSlot, flag, size);
}
int kwilVecFixSet(KwilHandle* handle, int index, double re, double im)
{
    return vecSet(handle, fixSlot, index, re, im);
}
int kwilVecFixGet(KwilHandle* handle, int index, double* re, double* im)
{
    return vecGet(handle, fixSlot, index, re, im);
}
int kwilVecFixFileRead(KwilHandle* handle, const char* path)
{
    return vecFileRead(handle, fixSlot, path);
}
int kwilVecFixFileWrite(KwilHandle* handle, const char* path)
{
    return vecFileWrite(handle, fixSlot, path);
}

int kwilVecVarCreate(KwilHandle* handle, int flag, int size, double re, double im)
{
    return vecCreate(handle, varSlot, flag, size, re, im);
}
int kwilVecVarInfo(KwilHandle* handle, int* flag, int* size)
{
    return vecInfo(handle, varSlot, flag, size);
}
int kwilVecVarSet(KwilHandle* handle, int index, double re, double im)
{
    return vecSet(handle, varSlot, index, re, im);
}
int kwilVecVarGet(KwilHandle* handle, int index, double* re, double* im)
{
    return vecGet(handle, varSlot, index, re, im);
}
int kwilVecVarFileRead(KwilHandle* handle, const char* path)
{
    return vecFileRead(handle, varSlot, path);
}
int kwilVecVarFileWrite(KwilHandle* handle, const char* path)
{
    return vecFileWrite(handle, varSlot, path);
}
