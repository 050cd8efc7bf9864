/* kwil: sparse linear solver library. The public C interface. */
#ifndef KWIL_H
#define KWIL_H

#if defined(_WIN32)
#if defined(KWIL_BUILDING)
#define KWIL_API __declspec(dllexport)
#else
#define KWIL_API __declspec(dllimport)
#endif
#else
#define KWIL_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The solver handle: options, coefficient matrix A, fixed vector b, variable vector x. */
typedef struct KwilHandle KwilHandle;

/* Interface version that kwilInit accepts. */
#define KWIL_VERSION 1

/* Creates a handle and loads the option file ("kwil.ini" when path is NULL). Null on failure. */
KWIL_API KwilHandle* kwilInit(int version, const char* path);
/* Releases the handle and everything it owns. */
KWIL_API void kwilTerm(KwilHandle* handle);
/* Resets every option to its default and reads the option file at path. 1 on success, else 0. */
KWIL_API int kwilReadOptFile(KwilHandle* handle, const char* path);
/* Sets one option: flag non-zero names an int option (intVal), zero a double one (dblVal). */
KWIL_API int kwilSetOpt(KwilHandle* handle, const char* name, int flag, int intVal, double dblVal);
/* Reads one option into *intVal (flag non-zero) or *dblVal (flag zero); the other may be NULL. */
KWIL_API int kwilGetOpt(KwilHandle* handle, const char* name, int flag, int* intVal,
                        double* dblVal);

/* Creates A (flag 0 real, else complex) of order size with dataNum empty entry slots. */
KWIL_API int kwilMatCoefCreate(KwilHandle* handle, int flag, int size, int dataNum);
/* Reports A's data type (1 complex, 0 real), order and number of entry slots. */
KWIL_API int kwilMatCoefInfo(KwilHandle* handle, int* flag, int* size, int* dataNum);
/* Stores entry slot pos as (row, col, re + i im), 0-based; restore non-zero allows it after a
 * solve. */
KWIL_API int kwilMatCoefSet(KwilHandle* handle, int row, int col, int pos, double re, double im,
                            int restore);
/* Delivers A's entries one by one: first non-zero starts at slot 0; *end is 1 past the last. */
KWIL_API int kwilMatCoefGetNext(KwilHandle* handle, int* row, int* col, int* pos, double* re,
                                double* im, int* end, int first);
/* Replaces A by the Matrix Market matrix file at path. */
KWIL_API int kwilMatCoefFileRead(KwilHandle* handle, const char* path);
/* Writes A as a Matrix Market file to path. */
KWIL_API int kwilMatCoefFileWrite(KwilHandle* handle, const char* path);

/* Creates b (flag 0 real, else complex) of length size, every entry re + i im. */
KWIL_API int kwilVecFixCreate(KwilHandle* handle, int flag, int size, double re, double im);
/* Reports b's data type (1 complex, 0 real) and length. */
KWIL_API int kwilVecFixInfo(KwilHandle* handle, int* flag, int* size);
/* Stores entry index (0-based) of b. */
KWIL_API int kwilVecFixSet(KwilHandle* handle, int index, double re, double im);
/* Fetches entry index (0-based) of b; im is 0.0 for a real vector. */
KWIL_API int kwilVecFixGet(KwilHandle* handle, int index, double* re, double* im);
/* Replaces b by the Matrix Market vector file at path. */
KWIL_API int kwilVecFixFileRead(KwilHandle* handle, const char* path);
/* Writes b as a Matrix Market file to path. */
KWIL_API int kwilVecFixFileWrite(KwilHandle* handle, const char* path);

/* Creates x (flag 0 real, else complex) of length size, every entry re + i im. */
KWIL_API int kwilVecVarCreate(KwilHandle* handle, int flag, int size, double re, double im);
/* Reports x's data type (1 complex, 0 real) and length. */
KWIL_API int kwilVecVarInfo(KwilHandle* handle, int* flag, int* size);
/* Stores entry index (0-based) of x. */
KWIL_API int kwilVecVarSet(KwilHandle* handle, int index, double re, double im);
/* Fetches entry index (0-based) of x; im is 0.0 for a real vector. */
KWIL_API int kwilVecVarGet(KwilHandle* handle, int index, double* re, double* im);
/* Replaces x by the Matrix Market vector file at path. */
KWIL_API int kwilVecVarFileRead(KwilHandle* handle, const char* path);
/* Writes x as a Matrix Market file to path. */
KWIL_API int kwilVecVarFileWrite(KwilHandle* handle, const char* path);

/* Solves A x = b with the solver chosen by the option SOLVER; x is replaced. 1 on success. */
KWIL_API int kwilSolv(KwilHandle* handle);
/* Computes the residual of the x held by the handle; fails when it exceeds CHECK_RESULT_LIM. */
KWIL_API int kwilCheckResult(KwilHandle* handle, double* relRes, double* absRes);

/* Self-test of element access of the matrix and vector objects; no output. */
KWIL_API void comLinMacroTest(KwilHandle* handle);

#ifdef __cplusplus
}
#endif
#endif
