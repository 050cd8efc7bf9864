// The option set: key tables, option file reading and writing, and the option trace.
#include "common/com.h"

#include <cstdio>
#include <cstring>

#include "common/own.h"

const ComOptIntInfo optIntInfo[] = {
    {OPT_USER_I1, "USER_I1", 0},
    {OPT_USER_I2, "USER_I2", 0},
    {OPT_USER_I3, "USER_I3", 0},
    {OPT_USER_I4, "USER_I4", 0},
    {OPT_FILE_VER, "FILE_VER", -1},
    {OPT_TRACE, "TRACE", 0},
    {OPT_SOLVER, "SOLVER", 0},
    {OPT_THREADS, "THREADS", 1},
    {OPT_REV_DIAGZERO, "REV_DIAGZERO", 1},
    {OPT_SAVE_ALL, "SAVE_ALL", 0},
    {OPT_DIAG_SCALE, "DIAG_SCALE", 0},
    {OPT_ILU_TRACE, "ILU_TRACE", 0},
    {OPT_ILU_FILLIN, "ILU_FILLIN", 0},
    {OPT_ITER_PREILU, "ITER_PREILU", 1},
    {OPT_ITER_CORRECT_R, "ITER_CORRECT_R", 100},
    {OPT_ITER_STEPTRACE, "ITER_STEPTRACE", 0},
    {OPT_ITER_MAXSTEP, "ITER_MAXSTEP", 5000},
    {OPT_ITER_R_TYPE, "ITER_R_TYPE", 0},
    {OPT_ITER_GIVEUP, "ITER_GIVEUP", 200},
    {OPT_SAFE_CR, "SAFE_CR", 1},
    {OPT_SAFE_CORRECT_Y, "SAFE_CORRECT_Y", 1},
    {OPT_STABL_L, "STABL_L", 1},
    {OPT_PARDISO_TRACE, "PARDISO_TRACE", 0},
    {OPT_PARDISO_MEM_LIM, "PARDISO_MEM_LIM", 0},
    {OPT_PARDISO_STAT, "PARDISO_STAT", 0},
    {OPT_PARDISO_ITER, "PARDISO_ITER", 2},
    {OPT_PARDISO_PIVOT, "PARDISO_PIVOT", 13},
    {-1, "", 0},
};

const ComOptDoubleInfo optDoubleInfo[] = {
    {OPT_USER_D1, "USER_D1", 0.0},
    {OPT_USER_D2, "USER_D2", 0.0},
    {OPT_USER_D3, "USER_D3", 0.0},
    {OPT_USER_D4, "USER_D4", 0.0},
    {OPT_REV_DIAGZERO_VAL, "REV_DIAGZERO_VAL", 1e-12},
    {OPT_CHECK_RESULT_LIM, "CHECK_RESULT_LIM", 0.001},
    {OPT_ILU_REV_DIAGZERO_VAL, "ILU_REV_DIAGZERO_VAL", 1e-12},
    {OPT_ILU_ACCEL, "ILU_ACCEL", 1.0},
    {OPT_ILU_FILLINMIN, "ILU_FILLINMIN", 0.001},
    {OPT_ITER_MAXSTEP_SIZE, "ITER_MAXSTEP_SIZE", 0.0},
    {OPT_ITER_RESOLVE, "ITER_RESOLVE", 1e-10},
    {OPT_ITER_GIVEUP_CHECK, "ITER_GIVEUP_CHECK", 100000.0},
    {OPT_ITER_GIVEUP_REDUCT, "ITER_GIVEUP_REDUCT", 0.5},
    {-1, "", 0.0},
};

int comOptFindKey(const KwilHandle*, const char* name, int flag)
{
    if (flag != 0) {
        for (const ComOptIntInfo* e = optIntInfo; e->key != -1; ++e) {
            if (strcmp(e->name, name) == 0)
                return e->key;
        }
    } else {
        for (const ComOptDoubleInfo* e = optDoubleInfo; e->key != -1; ++e) {
            if (strcmp(e->name, name) == 0)
                return e->key;
        }
    }
    return -1;
}

namespace {

void setDefaults(KwilHandle* handle)
{
    for (int k = 0; k < COM_OPT_INT_NUM; ++k)
        handle->intOpt[k] = 0;
    for (int k = 0; k < COM_OPT_DBL_NUM; ++k)
        handle->dblOpt[k] = 0.0;
    for (const ComOptIntInfo* e = optIntInfo; e->key != -1; ++e)
        handle->intOpt[e->key] = e->def;
    for (const ComOptDoubleInfo* e = optDoubleInfo; e->key != -1; ++e) {
        handle->dblOpt[e->key] = e->def;
    }
}

// Takes one "KEY VALUE" line of an option file; anything else is a warning.
void readLine(KwilHandle* handle, const char* line, int lineNo)
{
    char key[64];
    char value[64];
    char probe[2];
    key[0] = '\0';
    value[0] = '\0';
    const int n = sscanf(line, "%63s %63s %1s", key, value, probe);
    if (key[0] == '\0' || key[0] == '#')
        return;
    if (n != 2 || value[0] == '\0') {
        comWarn(handle, "Invalid format in init opt line %d key '%s'", lineNo, key);
        return;
    }
    int k = comOptFindKey(handle, key, 1);
    if (k >= 0) {
        int v;
        if (sscanf(value, "%d", &v) == 1) {
            handle->intOpt[k] = v;
        } else {
            comWarn(handle, "Invalid int value in init opt line %d key '%s'", lineNo, key);
        }
        return;
    }
    k = comOptFindKey(handle, key, 0);
    if (k >= 0) {
        double v;
        if (sscanf(value, "%lg", &v) == 1) {
            handle->dblOpt[k] = v;
        } else {
            comWarn(handle, "Invalid double value in init opt line %d key '%s'", lineNo, key);
        }
        return;
    }
    comWarn(handle, "Unknown key in init opt line %d key '%s'", lineNo, key);
}

} // namespace

int comOptInit(KwilHandle* handle, const char* path)
{
    // Both new arrays exist before the old ones go, so a failed allocation leaves the
    // handle with its previous options.
    kwil::ComBuf<int> intOpt(handle, COM_OPT_INT_NUM);
    kwil::ComBuf<double> dblOpt(handle, COM_OPT_DBL_NUM);
    if (!intOpt || !dblOpt)
        return comErr(handle, "Alloc error in init option");
    comFree(handle, handle->intOpt);
    comFree(handle, handle->dblOpt);
    handle->intOpt = intOpt.release();
    handle->dblOpt = dblOpt.release();
    setDefaults(handle);

    FILE* fp = fopen(path, "r");
    if (fp == nullptr)
        return comErr(handle, "No option file in init opt '%s'", path);
    char line[1024];
    int lineNo = 0;
    while (fgets(line, sizeof line, fp) != nullptr)
        readLine(handle, line, ++lineNo);
    fclose(fp);

    const int version = handle->intOpt[OPT_FILE_VER];
    if (version == 1)
        return 1;
    return comErr(handle, "Invalid or no version %d in init opt '%s'", version, path);
}

int comOptSave(const KwilHandle* handle, const char* path)
{
    FILE* fp = fopen(path, "w");
    if (fp == nullptr)
        return comErr(handle, "File open error in save opt '%s'", path);
    for (const ComOptIntInfo* e = optIntInfo; e->key != -1; ++e) {
        fprintf(fp, "%s %d\n", e->name, handle->intOpt[e->key]);
    }
    for (const ComOptDoubleInfo* e = optDoubleInfo; e->key != -1; ++e) {
        fprintf(fp, "%s %.20e\n", e->name, handle->dblOpt[e->key]);
    }
    fclose(fp);
    return 1;
}

void comOptTrace(const KwilHandle* handle, const char* title)
{
    if (!comTraceOn(handle))
        return;
    printf("KWILTRC: Option: %s", title);
    int i = 0;
    for (const ComOptIntInfo* e = optIntInfo; e->key != -1; ++e, ++i) {
        if (i % 3 == 0)
            printf("\nKWILTRC: - ");
        printf(" %s %d,", e->name, handle->intOpt[e->key]);
    }
    i = 0;
    for (const ComOptDoubleInfo* e = optDoubleInfo; e->key != -1; ++e, ++i) {
        if (i % 2 == 0)
            printf("\nKWILTRC: - ");
        printf(" %s %.4e,", e->name, handle->dblOpt[e->key]);
    }
    printf("\n");
}
