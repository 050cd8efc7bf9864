"""Runs kwil and its peers on the benchmark problems and prints one table.

Called by bench/run, which builds everything first. Every figure is the median of --repeat runs
made in this one invocation, so ratios between rows compare like with like on this machine.
"""
import argparse
import csv
import os
import re
import statistics
import subprocess
import sys

FULL = [("cd2d", 300), ("cd2d", 500), ("cd2d", 1000), ("cd3d", 40), ("cd3d", 60), ("cd3d", 100),
        ("helm", 300), ("helm", 700)]
QUICK = [("cd2d", 300), ("cd3d", 40), ("helm", 300)]
SOLVERS = {0: "stab", 1: "safe", 2: "stab-l", 10: "direct"}


def sh(cmd, cwd=None, timeout=3600):
    r = subprocess.run(cmd, cwd=cwd, capture_output=True, text=True, timeout=timeout)
    return r.returncode, r.stdout + r.stderr


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


def kwil_run(build, a, b, solver, threads, extra=()):
    cmd = [f"{build}/tools/kwil-solve", "--expand-symmetric", "-b", b, "-s", "TRACE=1",
           "-s", f"SOLVER={solver}", "-s", f"THREADS={threads}", "-s", "ITER_RESOLVE=1e-10",
           "-s", "ITER_MAXSTEP=20000", "-s", "CHECK_RESULT_LIM=0"]
    for e in extra:
        cmd += ["-s", e]
    code, text = sh(cmd + [a])
    t = re.search(r"Time Solver: \n.*omtime ([0-9.]+)s", text)
    steps = re.search(r"Iter \S+ end \d+ step (\d+)", text)
    rel = re.search(r"Check solver result norm rel (\S+) abs", text)
    return {"ok": code == 0, "time": float(t.group(1)) if t else float("nan"),
            "steps": int(steps.group(1)) if steps else 0,
            "rel": float(rel.group(1)) if rel else float("nan")}


def peer_run(cmd):
    code, text = sh(cmd)
    m = re.search(r"steps=(\d+) factor=(\S+) solve=(\S+) per_step=(\S+) relres=(\S+)", text)
    if not m:
        return None
    return {"steps": int(m.group(1)), "factor": float(m.group(2)), "solve": float(m.group(3)),
            "rel": float(m.group(5))}


def median(runs, key):
    vals = [r[key] for r in runs if r is not None]
    return statistics.median(vals) if vals else float("nan")


def row(prob, method, threads, steps, total, per_step, rel):
    print(f"| {prob} | {method} | {threads} | {steps} | {total:.3f} | {per_step * 1e3:.3f} "
          f"| {rel:.2e} |", flush=True)


def bench_problem(args, name, a, b, is_complex):
    rep = args.repeat
    solvers = [0, 2, 10] if is_complex else [0, 1, 10]
    for threads in args.threads:
        setup = [kwil_run(args.build, a, b, 20, threads) for _ in range(rep)]
        t_setup = median(setup, "time")
        for s in solvers:
            runs = [kwil_run(args.build, a, b, s, threads) for _ in range(rep)]
            steps = runs[0]["steps"]
            total = median(runs, "time")
            per = (total - t_setup) / steps if steps else 0.0
            row(name, f"kwil {SOLVERS[s]}", threads, steps, total, per, median(runs, "rel"))
    if not is_complex:
        for method in ("bcgs",):
            runs = [peer_run([f"{args.out}/petsc_solve", a, b, method, "2", "1e-10"])
                    for _ in range(rep)]
            if runs[0]:
                total = median(runs, "factor") + median(runs, "solve")
                row(name, f"petsc {method}+ilu0", 1, runs[0]["steps"], total,
                    median(runs, "solve") / max(runs[0]["steps"], 1), median(runs, "rel"))
    runs = [peer_run([f"{args.out}/eigen_solve", a, b, "1e-10", "1e-3"]) for _ in range(rep)]
    if runs[0]:
        total = median(runs, "factor") + median(runs, "solve")
        row(name, "eigen bicgstab+ilut", 1, runs[0]["steps"], total,
            median(runs, "solve") / max(runs[0]["steps"], 1), median(runs, "rel"))
    for method, extra in (("bicgstab", ["1e-10", "1e-4"]), ("spsolve", [])):
        runs = [peer_run(["/usr/bin/python3", "bench/peers/scipy_solve.py", a, b, method] + extra)
                for _ in range(rep)]
        if runs[0]:
            total = median(runs, "factor") + median(runs, "solve")
            per = median(runs, "solve") / runs[0]["steps"] if runs[0]["steps"] else 0.0
            row(name, f"scipy {method}", 1, runs[0]["steps"], total, per, median(runs, "rel"))


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--out", required=True)
    p.add_argument("--build", required=True)
    p.add_argument("--quick", action="store_true")
    p.add_argument("--repeat", type=int, default=3)
    p.add_argument("--threads", default="1 2")
    p.add_argument("--matrices", default="../shared/matrices/CATALOG.tsv")
    args = p.parse_args()
    args.threads = [int(t) for t in args.threads.split()]
    if args.quick:
        args.repeat = 1

    kernels = f"{args.build}/bench/kernels"
    for exe in sorted(os.listdir(kernels)) if os.path.isdir(kernels) else []:
        path = f"{kernels}/{exe}"
        if os.access(path, os.X_OK) and os.path.isfile(path):
            print(f"## kernels: {exe}", flush=True)
            subprocess.run([path, f"--benchmark_repetitions={args.repeat}",
                            "--benchmark_report_aggregates_only=true"])

    print("\n## solvers (time in s; per step in ms; rel = final true relative residual)\n")
    print("| problem | method | threads | steps | total | per step | rel |")
    print("|---|---|---|---|---|---|---|")
    probs = [generate(args.out, k, n) + (k == "helm",) for k, n in (QUICK if args.quick else FULL)]
    if not args.quick:
        probs += [p + (False,) for p in real_matrices(args.out, args.matrices, 5000)]
    for name, a, b, is_complex in probs:
        bench_problem(args, name, a, b, is_complex)


if __name__ == "__main__":
    main()
