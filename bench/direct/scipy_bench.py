#!/usr/bin/python3
"""SciPy's spsolve on the problems of direct_bench: the same generated matrices and files.

Usage: /usr/bin/python3 scipy_bench.py [--large] [--only NAME] [--matrix-dir DIR]
Times are wall-clock seconds, best of 3 (1 above 200k unknowns). SciPy uses SuperLU here
(scikits.umfpack is not a Debian package), with its default COLAMD column ordering.
"""
import argparse
import os
import sys
import time

import numpy as np
import scipy.io
import scipy.sparse as sp
import scipy.sparse.linalg as sla


def stencil(m, d, helm):
    """Same matrix as direct_bench's stencil(): upwind convection-diffusion or shifted Helmholtz."""
    h = 1.0 / (m + 1)
    h2 = 1.0 / (h * h)
    c = [0.0, 0.0, 0.0] if helm else [40.0, -25.0, 10.0]
    eye = sp.identity(m, format="csr")
    diag = 2.0 * d * h2 + sum(abs(c[k]) / h for k in range(d))
    k2 = (0.6 / h) ** 2
    dv = complex(diag - k2, 0.5 * k2) if helm else diag
    n = m ** d
    a = sp.identity(n, format="csr", dtype=complex if helm else float) * dv
    for k in range(d):
        lower = -h2 - max(c[k], 0.0) / h
        upper = -h2 + min(c[k], 0.0) / h
        t = sp.diags([np.full(m - 1, lower), np.full(m - 1, upper)], [-1, 1], format="csr")
        # Direction k varies with stride m**k: I (x) ... (x) T (x) ... (x) I, T at position k.
        op = t
        for _ in range(k):
            op = sp.kron(op, eye, format="csr")
        for _ in range(d - 1 - k):
            op = sp.kron(eye, op, format="csr")
        a = a + op
    return a.tocsr()


def bench(name, a, reps):
    n = a.shape[0]
    x0 = np.sin(0.7 * np.arange(n) + 1.0)
    if np.iscomplexobj(a):
        x0 = x0 + 1j * np.cos(0.3 * np.arange(n))
    b = a @ x0
    if n > 200000:
        reps = 1
    best = float("inf")
    for _ in range(reps):
        t0 = time.perf_counter()
        x = sla.spsolve(a.tocsc(), b)
        best = min(best, time.perf_counter() - t0)
    res = np.linalg.norm(b - a @ x) / np.linalg.norm(b)
    print(f"| {name:<14} | {n:8d} | {a.nnz:9d} | {best:8.3f} | {res:.1e} |", flush=True)


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--large", action="store_true")
    p.add_argument("--only")
    p.add_argument("--matrix-dir", default=os.environ.get("KWIL_MATRIX_DIR", ""))
    p.add_argument("--reps", type=int, default=3)
    args = p.parse_args()
    print(f"scipy {scipy.__version__}, spsolve (SuperLU), best of {args.reps}\n")
    print("| problem        |        n |       nnz | total s  | residual |")
    print("|---|---|---|---|---|")
    gens = [("cd2d-300", 300, 2, False, False), ("cd2d-700", 700, 2, False, False),
            ("cd2d-1000", 1000, 2, False, True), ("cd3d-40", 40, 3, False, False),
            ("cd3d-60", 60, 3, False, True), ("helm-300", 300, 2, True, False),
            ("helm-700", 700, 2, True, True)]
    for name, m, d, helm, big in gens:
        if (big and not args.large) or (args.only and args.only != name):
            continue
        bench(name, stencil(m, d, helm), args.reps)
    real = os.path.join(args.matrix_dir, "real") if args.matrix_dir else ""
    if real and os.path.isdir(real):
        for f in sorted(os.listdir(real)):
            name = f[:-4]
            if not f.endswith(".mtx") or (args.only and args.only != name):
                continue
            a = sp.csr_matrix(scipy.io.mmread(os.path.join(real, f)), dtype=float)
            if a.shape[0] > 2000:
                bench(name, a, args.reps)
    return 0


if __name__ == "__main__":
    sys.exit(main())
