#!/usr/bin/python3
"""SciPy peer: bicgstab with spilu, or the direct spsolve.

    scipy_solve.py A.mtx b.mtx bicgstab RTOL DROPTOL
    scipy_solve.py A.mtx b.mtx spsolve

Prints one line: steps, factorisation time, solve time, time per step, true relative residual.
"""
import sys
import time

import numpy as np
import scipy.io
import scipy.sparse.linalg as sla


def main():
    a = scipy.io.mmread(sys.argv[1]).tocsr()
    b = np.asarray(scipy.io.mmread(sys.argv[2])).ravel()
    method = sys.argv[3]
    if method == "spsolve":
        t0 = time.perf_counter()
        x = sla.spsolve(a.tocsc(), b)
        t1 = time.perf_counter()
        steps, factor, solve = 0, 0.0, t1 - t0
    else:
        rtol, droptol = float(sys.argv[4]), float(sys.argv[5])
        t0 = time.perf_counter()
        ilu = sla.spilu(a.tocsc(), drop_tol=droptol)
        t1 = time.perf_counter()
        m = sla.LinearOperator(a.shape, ilu.solve, dtype=a.dtype)
        count = [0]

        def step(_):
            count[0] += 1

        x, _ = sla.bicgstab(a, b, tol=rtol, atol=0.0, M=m, maxiter=100000, callback=step)
        t2 = time.perf_counter()
        steps, factor, solve = count[0], t1 - t0, t2 - t1
    rel = np.linalg.norm(b - a @ x) / np.linalg.norm(b)
    per = solve / steps if steps else 0.0
    print(f"peer=scipy method={method} steps={steps} factor={factor:.6f} solve={solve:.6f} "
          f"per_step={per:.6e} relres={rel:.3e}")


if __name__ == "__main__":
    main()
