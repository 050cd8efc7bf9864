"""Runs kwil and its peers on the benchmark problems and prints one table.

Called by bench/run, which builds everything first. Every figure is the median of --repeat runs
(more for runs under a second, fewer for runs over a minute when asked) made in this one
invocation, so ratios between rows compare like with like on this machine; the solvers' runs on
one problem are taken in turns.
Four sections: the sparse kernels against a triad, the ILU factorisations, the Krylov solvers
and the direct solve, each against its peers on the same matrices and right-hand sides.
"""
import argparse
import csv
import json
import os
import re
import statistics
import subprocess
import sys
import threading
import time

FULL = [("cd2d", 300), ("cd2d", 500), ("cd2d", 1000), ("cd3d", 40), ("cd3d", 60), ("cd3d", 100),
        ("helm", 300), ("helm", 700)]
QUICK = [("cd2d", 300), ("cd3d", 40), ("helm", 300)]
# The direct solve fills in far more than the iterative ones: it runs on the problems whose
# factorisation takes seconds, not minutes.
DIRECT = {"cd2d300", "cd2d500", "cd3d40", "helm300"}
SCIPY_DIRECT_SKIP = set()
SOLVERS = {0: "stab", 1: "safe", 2: "stab-l(2)"}
TOL = "1e-10"
# Runs of more than this many seconds are repeated only --repeat-big times, runs of less than
# SHORT_SECONDS at least --repeat-short times (their medians move most with the machine's noise).
BIG_SECONDS = 60.0
SHORT_SECONDS = 1.0


def sh_timed(cmd, timeout=3600, env=None):
    """Runs cmd, its standard error merged into its output, and notes the time at which each
    line of that output arrived (kwil's trace lines are flushed as they are written). Returns
    (exit code, text, [(seconds, line)]); 124 and "timeout" when it ran out of time."""
    proc = subprocess.Popen(cmd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                            env=env)
    killed = threading.Event()
    timer = threading.Timer(timeout, lambda: (killed.set(), proc.kill()))
    timer.start()
    lines = [(time.perf_counter(), line) for line in iter(proc.stdout.readline, "")]
    code = proc.wait()
    timer.cancel()
    if killed.is_set():
        return 124, "timeout", lines
    return code, "".join(line for _, line in lines), lines


def sh(cmd, timeout=3600, env=None):
    code, text, _ = sh_timed(cmd, timeout, env)
    return code, text


def one_thread_env():
    env = dict(os.environ)
    env["OMP_NUM_THREADS"] = "1"
    env["OPENBLAS_NUM_THREADS"] = "1"
    return env


def generate(out, kind, n):
    a, b = f"{out}/{kind}{n}.mtx", f"{out}/{kind}{n}_b.mtx"
    if not os.path.exists(b):
        code, text = sh([f"{out}/gen_problem", kind, str(n), a, b])
        if code:
            sys.exit(text)
    return f"{kind}{n}", a, b


def real_matrices(out, catalog, lo_rows):
    """The real general or symmetric matrices above lo_rows rows, each with b = A·1."""
    probs = []
    if not os.path.exists(catalog):
        print(f"(no matrix catalogue at {catalog}: the real matrices are left out)")
        return probs
    base = os.path.dirname(catalog)
    with open(catalog) as f:
        for row in csv.DictReader(f, delimiter="\t"):
            if row["field"] not in ("real", "integer") or int(row["rows"]) <= lo_rows:
                continue
            if row["name"].endswith("_rhs1"):
                continue
            a = f"{base}/real/{row['name']}.mtx"
            b = f"{out}/{row['name']}_b.mtx"
            if not os.path.exists(a):
                continue
            if not os.path.exists(b):
                code, text = sh(["/usr/bin/python3", "-c", (
                    "import sys,scipy.io,numpy as np;A=scipy.io.mmread(sys.argv[1]).tocsr();"
                    "b=A@np.ones(A.shape[0]);f=open(sys.argv[2],'w');"
                    "f.write('%%%%MatrixMarket matrix array real general\\n%d 1\\n'%len(b));"
                    "f.write(''.join('%.17g\\n'%x for x in b))"), a, b])
                if code:
                    continue
            probs.append((row["name"], a, b))
    return probs


def median(vals):
    vals = [v for v in vals if v is not None and v == v]
    return statistics.median(vals) if vals else float("nan")


def runs_wanted(args, first):
    """How many runs a measurement gets after its first: --repeat; --repeat-big when the first
    took over BIG_SECONDS, at least --repeat-short when it took under SHORT_SECONDS."""
    n = args.repeat
    wall = first.get("wall", 0.0) if first is not None else 0.0
    if wall > BIG_SECONDS:
        n = min(n, args.repeat_big)
    elif first is not None and wall < SHORT_SECONDS:
        n = max(n, args.repeat_short)
    return n


def repeat(args, fn):
    """fn() run as often as runs_wanted says. Returns the runs (None for a failed one)."""
    first = fn()
    return [first] + [fn() for _ in range(runs_wanted(args, first) - 1)]


def interleaved(args, fns):
    """The runs of several measurements taken in turns, one run of each per round, so that a
    slow spell of the machine falls on all of them alike; each gets as many as runs_wanted says.
    Returns the runs of each, in the order of fns."""
    runs = [[fn()] for fn in fns]
    wanted = [runs_wanted(args, r[0]) for r in runs]
    for k in range(1, max(wanted, default=0)):
        for i, fn in enumerate(fns):
            if k < wanted[i]:
                runs[i].append(fn())
    return runs


def table_head(title, cols):
    print(f"\n## {title}\n", flush=True)
    print("| " + " | ".join(cols) + " |")
    print("|" + "---|" * len(cols), flush=True)


def table_row(*cells):
    print("| " + " | ".join(str(c) for c in cells) + " |", flush=True)


def fmt(x, form):
    return "n/a" if x != x else format(x, form)


# ---------------------------------------------------------------------------------------------
# Kernels

KERNEL_NAMES = {"product": "product", "transposed": "transposed product",
                "lowerSolve": "lower solve", "upperSolve": "upper solve",
                "twoLowerSolves": "two one-thread lower solves at once",
                "norm": "2-norm (ours)", "blasNorm": "2-norm, OpenBLAS dnrm2"}


def kernels(args):
    exe = f"{args.build}/bench/kernels/kernels_bench"
    if not os.access(exe, os.X_OK):
        print("(kernels_bench not built)")
        return
    out = f"{args.out}/kernels.json"
    # The large matrix only (1.21 M rows, memory bound); the cached one measures instructions.
    code, text = sh([exe, "--benchmark_filter=/1100/", f"--benchmark_repetitions={args.repeat}",
                     f"--benchmark_out={out}", "--benchmark_out_format=json"])
    if code:
        print(f"(kernels_bench failed: {text[-500:]})")
        return
    runs = {}
    for b in json.load(open(out))["benchmarks"]:
        if b.get("run_type") != "iteration":
            continue
        name, _, _, dt, threads = b["name"].split("/")[:5]
        key = (KERNEL_NAMES[name], "real" if dt == "0" else "complex", int(threads))
        runs.setdefault(key, []).append(b)
    table_head("Kernels (5-point operator on a 1100 x 1100 grid, 1.21 M rows; the 2-norms on a "
               "vector of 64 MiB, read only; GB/s best call of a run, triad interleaved with the "
               "calls; median of the runs)",
               ["kernel", "data", "threads", "runs", "GB/s", "triad GB/s", "ratio to triad"])
    order = list(KERNEL_NAMES.values())
    for key in sorted(runs, key=lambda k: (order.index(k[0]), k[1] != "real", k[2])):
        r = runs[key]
        table_row(key[0], key[1], key[2], len(r), f"{median([b['GB/s'] for b in r]):.1f}",
                  f"{median([b['triadGB/s'] for b in r]):.1f}",
                  f"{median([b['ratio'] for b in r]):.2f}")


# ---------------------------------------------------------------------------------------------
# ILU factorisations

def ilu_lines(cmd, env=None):
    """{method: (fill, [times])} from the key=value lines of an ILU driver."""
    code, text = sh(cmd, env=env)
    res = {}
    for m in re.finditer(r"method=(\S+) n=(\d+) nnz=(\d+) fill=(-?\d+) times=(\S+)", text):
        res[m.group(1)] = (int(m.group(4)), [float(t) for t in m.group(5).split(",")])
        res["size"] = (int(m.group(2)), int(m.group(3)))
    return res


def ilu(args, probs):
    table_head("ILU factorisation (one thread; ms = median of the timed runs, thread CPU time, "
               "after one untimed run; fill = stored entries of L and U)",
               ["problem", "n", "nnz", "method", "fill", "fill / nnz", "runs", "ms",
                "ratio to kwil ILU(0)"])
    env = one_thread_env()
    for name, a, _, is_complex in probs:
        rep = str(args.repeat)
        rows = []
        kw = ilu_lines([f"{args.build}/bench/table/table_ilu", rep, a], env)
        for key, label in (("ilu0", "kwil ILU(0)"), ("fill1e-3", "kwil fill-in 1e-3"),
                           ("fill1e-4", "kwil fill-in 1e-4")):
            rows.append((label, kw.get(key)))
        petsc = f"{args.out}/petsc_ilu_complex" if is_complex else f"{args.out}/petsc_ilu"
        if "petsc" in args.peers and os.access(petsc, os.X_OK):
            rows.append(("PETSc ILU(0)", ilu_lines([petsc, rep, a], env).get("ilu0")))
        if "eigen" in args.peers:
            eig = ilu_lines([f"{args.out}/eigen_ilut", rep, a, "1e-3", "1e-4"], env)
            rows.append(("Eigen IncompleteLUT 1e-3", eig.get("ilut1e-3")))
            rows.append(("Eigen IncompleteLUT 1e-4", eig.get("ilut1e-4")))
        n, nnz = kw.get("size", (0, 0))  # entries after the mirror of a symmetric file
        base = median(kw["ilu0"][1]) if "ilu0" in kw else float("nan")
        for label, r in rows:
            if r is None:
                table_row(name, n, nnz, label, "failed", "", "", "", "")
                continue
            fill, times = r
            t = median(times)
            table_row(name, n, nnz, label, fill if fill >= 0 else "n/a",
                      f"{fill / nnz:.2f}" if fill >= 0 and nnz else "n/a", len(times),
                      f"{1e3 * t:.2f}", f"{t / base:.2f}")


# ---------------------------------------------------------------------------------------------
# Krylov solvers

def kwil_run(build, a, b, solver, threads, extra=()):
    cmd = [f"{build}/tools/kwil-solve", "--expand-symmetric", "-b", b, "-s", "TRACE=1",
           "-s", f"SOLVER={solver}", "-s", f"THREADS={threads}", "-s", f"ITER_RESOLVE={TOL}",
           "-s", "ITER_MAXSTEP=20000", "-s", "CHECK_RESULT_LIM=0"]
    for e in extra:
        cmd += ["-s", e]
    code, text, lines = sh_timed(cmd + [a])
    t = re.search(r"Time Solver: \n.*omtime ([0-9.]+)s", text)
    steps = re.search(r"Iter \S+ end \d+ step (\d+)", text)
    rel = re.search(r"Check solver result norm rel (\S+) abs", text)
    res = re.search(r"^\s+result\s+(.+)$", text, re.M)
    # The steps' time, taken in this process: from the solver's start line, written once the
    # ILU, the solve plans, the work vectors and the first residual are ready, to its end line.
    start = [at for at, line in lines if re.match(r"KWILTRC: Iter \S+ (l \d+ )?pre ", line)]
    end = [at for at, line in lines if re.match(r"KWILTRC: Iter \S+ end ", line)]
    return {"ok": code == 0, "wall": float(t.group(1)) if t else float("nan"),
            "loop": end[0] - start[0] if start and end else float("nan"),
            "steps": int(steps.group(1)) if steps else 0,
            "rel": float(rel.group(1)) if rel else float("nan"),
            "end": res.group(1).strip() if res else f"exit {code}"}


def peer_run(cmd, env=None):
    code, text = sh(cmd, env=env)
    m = re.search(r"steps=(\d+) factor=(\S+) solve=(\S+) per_step=(\S+) relres=(\S+)", text)
    if not m:
        return None
    reason = re.search(r"reason=(\S+)", text)
    return {"steps": int(m.group(1)), "factor": float(m.group(2)), "solve": float(m.group(3)),
            "rel": float(m.group(5)), "wall": float(m.group(2)) + float(m.group(3)),
            "end": reason.group(1) if reason else ("ok" if code == 0 else f"exit {code}")}


# Shortest loop whose time is taken from the arrival of its trace lines while the solve's threads
# hold every processor: the reading process then waits for a time slice, a few milliseconds, and
# the lines of a shorter loop can arrive together (Pd on two threads read as 0.000 ms a step).
SHORTEST_CROWDED_LOOP = 0.010


def solver_row(name, method, threads, runs, time_key):
    """One row of the solvers' table; the step time is the median of the runs' time_key over
    the steps."""
    good = [r for r in runs if r is not None]
    if not good:
        table_row(name, method, threads, "failed", "", "", "", "", "")
        return
    steps = good[0]["steps"]
    total = median([r["wall"] for r in good])
    loop = median([r[time_key] for r in good])
    crowded = time_key == "loop" and threads >= (os.cpu_count() or 1)
    per = loop / steps if steps and not (crowded and loop < SHORTEST_CROWDED_LOOP) else float("nan")
    table_row(name, method, threads, len(good), steps, f"{total:.3f}",
              fmt(1e3 * per, ".3f") if steps and per > 0 else "n/a", f"{median([r['rel'] for r in good]):.2e}",
              good[0]["end"])


def solvers(args, name, a, b, is_complex):
    # Every measurement of the problem is a row label, its threads and a run; all are taken in
    # turns.
    rows, fns = [], []
    kw = [0, 2] if is_complex else [0, 1]
    for threads in args.threads:
        for s in kw:
            extra = ["STABL_L=2"] if s == 2 else []
            rows.append((f"kwil {SOLVERS[s]}", threads))
            fns.append(lambda s=s, t=threads, e=extra: kwil_run(args.build, a, b, s, t, e))
    env = one_thread_env()
    petsc = f"{args.out}/petsc_solve_complex" if is_complex else f"{args.out}/petsc_solve"
    if "petsc" in args.peers and os.access(petsc, os.X_OK):
        methods = [("bcgs", "1"), ("bcgsl", "2")] if is_complex else [("bcgs", "1")]
        for method, ell in methods:
            rows.append((f"petsc {method}{'(2)' if method == 'bcgsl' else ''}+ilu0", 1))
            fns.append(lambda m=method, l=ell: peer_run([petsc, a, b, m, l, TOL], env))
    if "eigen" in args.peers:
        rows.append(("eigen bicgstab+ilut(1e-3)", 1))
        fns.append(lambda: peer_run([f"{args.out}/eigen_solve", a, b, TOL, "1e-3"], env))
    if "scipy" in args.peers:
        rows.append(("scipy bicgstab+spilu(1e-4)", 1))
        fns.append(lambda: peer_run(["/usr/bin/python3", "bench/peers/scipy_solve.py", a, b,
                                     "bicgstab", TOL, "1e-4"], env))
    runs = interleaved(args, fns)
    for (label, threads), got in zip(rows, runs):
        solver_row(name, label, threads, got, "loop" if label.startswith("kwil") else "solve")


# ---------------------------------------------------------------------------------------------
# Direct solve

def direct(args, name, a, b):
    env = one_thread_env()
    code, text = sh([f"{args.build}/bench/table/table_direct", str(args.repeat), a, b], env=env)
    found = {m.group(1): m for m in re.finditer(
        r"method=(\S+) analysis=(\S+) factor=(\S+) solve=(\S+) total=(\S+) relres=(\S+)", text)}
    labels = (("kwil-phases", "kwil direct, phase by phase"),
              ("kwil-solvIMKL", "kwil direct, end to end"),
              ("umfpack", "UMFPACK called directly"))
    for key, label in labels:
        m = found.get(key)
        if m is None:
            table_row(name, label, "failed", "", "", "", "", "")
            continue
        phases = [f"{float(m.group(i)):.3f}" for i in (2, 3, 4)]
        if key == "kwil-solvIMKL":
            phases = ["", "", ""]
        table_row(name, label, args.repeat, *phases, f"{float(m.group(5)):.3f}",
                  f"{float(m.group(6)):.1e}")
    if name in SCIPY_DIRECT_SKIP:
        table_row(name, "scipy spsolve", "skipped (minutes per run)", "", "", "", "", "")
        return
    runs = repeat(args, lambda: peer_run(["/usr/bin/python3", "bench/peers/scipy_solve.py", a, b,
                                          "spsolve"], env))
    good = [r for r in runs if r is not None]
    if good:
        table_row(name, "scipy spsolve", len(good), "", "", "",
                  f"{median([r['wall'] for r in good]):.3f}",
                  f"{median([r['rel'] for r in good]):.1e}")
    else:
        table_row(name, "scipy spsolve", "failed", "", "", "", "", "")


def default_catalog():
    """KWIL_MATRIX_DIR's catalogue, else the shared matrix folder beside the repository (or
    beside the folder of worktrees)."""
    here = os.path.dirname(os.path.abspath(__file__))
    dirs = [os.environ.get("KWIL_MATRIX_DIR", "")]
    dirs += [os.path.join(here, up, "shared", "matrices") for up in ("../..", "../../..")]
    for d in dirs:
        if d and os.path.exists(os.path.join(d, "CATALOG.tsv")):
            return os.path.join(d, "CATALOG.tsv")
    return os.path.join(here, "../../shared/matrices/CATALOG.tsv")


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--out", required=True)
    p.add_argument("--build", required=True)
    p.add_argument("--quick", action="store_true")
    p.add_argument("--repeat", type=int, default=3)
    p.add_argument("--repeat-big", type=int, default=3,
                   help=f"repeats of a run whose first try takes over {BIG_SECONDS:.0f} s")
    p.add_argument("--repeat-short", type=int, default=7,
                   help=f"repeats of a run whose first try takes under {SHORT_SECONDS:.0f} s")
    p.add_argument("--threads", default="1 2")
    p.add_argument("--matrices", default=default_catalog())
    p.add_argument("--sections", default="kernels ilu solvers direct")
    p.add_argument("--problems", default="", help="only these problems (names), all by default")
    p.add_argument("--peers", default="petsc eigen scipy",
                   help="the peers of the ILU and solver sections")
    args = p.parse_args()
    args.threads = [int(t) for t in args.threads.split()]
    if args.quick:
        args.repeat = args.repeat_short = 1
    sections = args.sections.split()

    probs = [generate(args.out, k, n) + (k == "helm",) for k, n in (QUICK if args.quick else FULL)]
    probs += [p + (False,) for p in real_matrices(args.out, args.matrices, 5000)]
    if args.quick:
        probs = probs[:4]
    if args.problems:
        unknown = set(args.problems.split()) - {p[0] for p in probs}
        if unknown:
            sys.exit(f"unknown problem(s): {' '.join(sorted(unknown))}; the problems are "
                     f"{' '.join(p[0] for p in probs)}")
        probs = [p for p in probs if p[0] in args.problems.split()]
    args.peers = args.peers.split()
    print(f"repeats: {args.repeat} (runs over {BIG_SECONDS:.0f} s: {args.repeat_big}); "
          f"threads: {' '.join(map(str, args.threads))}; tolerance {TOL}; b = A·1 ; "
          f"OMP_WAIT_POLICY={os.environ.get('OMP_WAIT_POLICY', '(unset: the runtime default)')}",
          flush=True)

    if "kernels" in sections:
        kernels(args)
    if "ilu" in sections:
        ilu(args, probs)
    if "solvers" in sections:
        table_head("Krylov solvers (ILU(0) from the right unless named; total = set-up and solve "
                   "in s; per step in ms; rel = final true relative residual ||b - Ax|| / ||b||)",
                   ["problem", "method", "threads", "runs", "steps", "total s", "per step ms",
                    "rel", "end"])
        for name, a, b, is_complex in probs:
            solvers(args, name, a, b, is_complex)
    if "direct" in sections:
        table_head("Direct solve (one thread; wall-clock s, median of the runs; rel = true "
                   "relative residual)",
                   ["problem", "method", "runs", "analysis", "factorisation", "solve", "total",
                    "rel"])
        for name, a, b, _ in probs:
            if name in DIRECT or not name.startswith(("cd", "helm")):
                direct(args, name, a, b)


if __name__ == "__main__":
    main()
