/* A small Matrix Market reader for the peer drivers: coordinate matrices and array vectors,
 * real or complex, into 0-based CSR with columns sorted in each row. */
#ifndef KWIL_BENCH_MM_READ_H
#define KWIL_BENCH_MM_READ_H

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef struct {
    int n;         /* order */
    int mirror;    /* 0 general, 1 symmetric, -1 skew-symmetric, 2 hermitian (stored triangle) */
    int nnz;       /* stored entries */
    int isComplex; /* 1: values hold re, im pairs */
    int* rowPtr;   /* n + 1 */
    int* colInd;   /* nnz */
    double* val;   /* nnz or 2 nnz */
} BenchCsr;

/* Reads the banner; returns 1 for complex, 0 for real, -1 on error. */
static int benchBanner(FILE* fp, const char* want)
{
    char line[1024];
    if (fgets(line, sizeof line, fp) == NULL || strstr(line, want) == NULL)
        return -1;
    if (strstr(line, "pattern") != NULL)
        return -1;
    return strstr(line, "complex") != NULL ? 1 : 0;
}

/* Skips comment lines and returns the first other line in line. */
static int benchSizeLine(FILE* fp, char* line, int len)
{
    while (fgets(line, len, fp) != NULL) {
        if (line[0] != '%')
            return 1;
    }
    return 0;
}

static int benchReadMatrix(const char* path, BenchCsr* a)
{
    char line[1024];
    int rows, cols, nnz, k, i, *cnt;
    int *ri, *ci;
    double* v;
    FILE* fp = fopen(path, "r");
    if (fp == NULL)
        return 0;
    a->isComplex = benchBanner(fp, "coordinate");
    rewind(fp);
    if (fgets(line, sizeof line, fp) == NULL)
        line[0] = '\0';
    a->mirror = strstr(line, "skew-symmetric") ? -1
                : strstr(line, "symmetric")    ? 1
                : strstr(line, "hermitian")    ? 2
                                               : 0;
    if (a->isComplex < 0 || !benchSizeLine(fp, line, sizeof line) ||
        sscanf(line, "%d %d %d", &rows, &cols, &nnz) != 3 || rows != cols) {
        fclose(fp);
        return 0;
    }
    a->n = rows;
    ri = (int*)malloc(sizeof(int) * nnz * 2);
    ci = (int*)malloc(sizeof(int) * nnz * 2);
    v = (double*)malloc(sizeof(double) * nnz * 2 * (a->isComplex ? 2 : 1));
    for (k = 0; k < nnz; ++k) {
        double re = 0.0, im = 0.0;
        if (fscanf(fp, "%d %d %lg", &ri[k], &ci[k], &re) != 3)
            break;
        if (a->isComplex && fscanf(fp, "%lg", &im) != 1)
            break;
        --ri[k];
        --ci[k];
        if (a->isComplex) {
            v[2 * k] = re;
            v[2 * k + 1] = im;
        } else {
            v[k] = re;
        }
    }
    fclose(fp);
    if (k != nnz)
        return 0;
    if (a->mirror != 0) { /* add the mirror image of every off-diagonal entry */
        int m = nnz;
        for (k = 0; k < nnz; ++k) {
            if (ri[k] == ci[k])
                continue;
            ri[m] = ci[k];
            ci[m] = ri[k];
            if (a->isComplex) {
                v[2 * m] = a->mirror == -1 ? -v[2 * k] : v[2 * k];
                v[2 * m + 1] = a->mirror == -1  ? -v[2 * k + 1]
                               : a->mirror == 2 ? -v[2 * k + 1]
                                                : v[2 * k + 1];
            } else {
                v[m] = a->mirror == -1 ? -v[k] : v[k];
            }
            ++m;
        }
        nnz = m;
    }
    a->nnz = nnz;
    a->rowPtr = (int*)calloc(rows + 1, sizeof(int));
    a->colInd = (int*)malloc(sizeof(int) * nnz);
    a->val = (double*)malloc(sizeof(double) * nnz * (a->isComplex ? 2 : 1));
    cnt = (int*)calloc(rows, sizeof(int));
    for (k = 0; k < nnz; ++k)
        a->rowPtr[ri[k] + 1]++;
    for (i = 0; i < rows; ++i)
        a->rowPtr[i + 1] += a->rowPtr[i];
    for (k = 0; k < nnz; ++k) {
        int p = a->rowPtr[ri[k]] + cnt[ri[k]]++;
        int q = p;
        /* insertion into the sorted run of the row */
        while (q > a->rowPtr[ri[k]] && a->colInd[q - 1] > ci[k]) {
            a->colInd[q] = a->colInd[q - 1];
            if (a->isComplex) {
                a->val[2 * q] = a->val[2 * q - 2];
                a->val[2 * q + 1] = a->val[2 * q - 1];
            } else {
                a->val[q] = a->val[q - 1];
            }
            --q;
        }
        a->colInd[q] = ci[k];
        if (a->isComplex) {
            a->val[2 * q] = v[2 * k];
            a->val[2 * q + 1] = v[2 * k + 1];
        } else {
            a->val[q] = v[k];
        }
    }
    free(cnt);
    free(ri);
    free(ci);
    free(v);
    return 1;
}

/* Reads the first column of an array vector of length n (re, im pairs when complex). */
static double* benchReadVector(const char* path, int n, int isComplex)
{
    char line[1024];
    int rows, cols, i;
    double* b;
    FILE* fp = fopen(path, "r");
    if (fp == NULL)
        return NULL;
    if (benchBanner(fp, "array") != isComplex || !benchSizeLine(fp, line, sizeof line) ||
        sscanf(line, "%d %d", &rows, &cols) != 2 || rows != n) {
        fclose(fp);
        return NULL;
    }
    b = (double*)malloc(sizeof(double) * n * (isComplex ? 2 : 1));
    for (i = 0; i < n * (isComplex ? 2 : 1); ++i) {
        if (fscanf(fp, "%lg", &b[i]) != 1) {
            free(b);
            fclose(fp);
            return NULL;
        }
    }
    fclose(fp);
    return b;
}

#endif
