// Handle lifecycle and the options API.
#include "api/kwil.h"

#include "common/com.h"
#include "lin/lin.h"

KwilHandle* kwilInit(int version, const char* path)
{
    if (version != KWIL_VERSION) {
        return static_cast<KwilHandle*>(comErrNull(
            nullptr, "Invalid library version %d != %d in init kwil", version, KWIL_VERSION));
    }
    auto* handle = static_cast<KwilHandle*>(comAlloc(nullptr, sizeof(KwilHandle)));
    if (handle == nullptr) {
        return static_cast<KwilHandle*>(comErrNull(nullptr, "Alloc error init kwil"));
    }
    *handle = KwilHandle{nullptr, nullptr, nullptr, nullptr, nullptr};
    const char* used = path != nullptr ? path : "kwil.ini";
    if (!comOptInit(handle, used)) {
        kwilTerm(handle);
        return nullptr;
    }
    comTrace(handle, "Init ver %d option file '%s' ver %d", version, used,
             comOptInt(handle, OPT_FILE_VER));
    return handle;
}

void kwilTerm(KwilHandle* handle)
{
    if (handle == nullptr)
        return;
    comFree(nullptr, handle->intOpt);
    comFree(nullptr, handle->dblOpt);
    handle->intOpt = nullptr;
    handle->dblOpt = nullptr;
    if (handle->matCoef != nullptr)
        comLinMatDelete(nullptr, handle->matCoef);
    if (handle->vecFix != nullptr)
        comLinVecDelete(nullptr, handle->vecFix);
    if (handle->vecVar != nullptr)
        comLinVecDelete(nullptr, handle->vecVar);
    comFree(nullptr, handle);
}

int kwilReadOptFile(KwilHandle* handle, const char* path)
{
    if (!comOptInit(handle, path))
        return 0;
    comTrace(handle, "Read option file '%s' ver %d", path, comOptInt(handle, OPT_FILE_VER));
    return 1;
}

int kwilSetOpt(KwilHandle* handle, const char* name, int flag, int intVal, double dblVal)
{
    const int key = comOptFindKey(handle, name, flag);
    if (key < 0)
        return comErr(handle, "Unknown key in set opt int flag %d key '%s'", flag, name);
    if (flag != 0) {
        handle->intOpt[key] = intVal;
    } else {
        handle->dblOpt[key] = dblVal;
    }
    return 1;
}

int kwilGetOpt(KwilHandle* handle, const char* name, int flag, int* intVal, double* dblVal)
{
    const int key = comOptFindKey(handle, name, flag);
    if (key < 0)
        return comErr(handle, "Unknown key in get opt int flag %d key '%s'", flag, name);
    if (flag != 0) {
        *intVal = handle->intOpt[key];
    } else {
        *dblVal = handle->dblOpt[key];
    }
    return 1;
}
