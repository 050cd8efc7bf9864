#!/usr/bin/env bash
# kwil ILU0 against PETSc ILU(0), alternated on each Matrix Market file: ROUNDS rounds of REPS
# timed factorisations by each driver (thread CPU time, after one untimed run), at real-time
# priority when the user may set it. Prints the least and the median time of each and their
# ratios. Needs build-bench (cmake -DKWIL_BUILD_BENCH=ON) and PETSc (petsc-dev; libpetsc-complex-dev
# for complex files), which bench/run installs.
#   ROUNDS=4 REPS=15 bench/precond/ilu0_vs_petsc.sh A.mtx ...
set -euo pipefail
cd "$(dirname "$0")/../.."
rounds=${ROUNDS:-4}
reps=${REPS:-15}
out=${TMPDIR:-/tmp}
mpicc -O3 -o "$out/kwil_petsc_ilu" bench/peers/petsc_ilu.c $(pkg-config --cflags --libs petsc)
complex_pc=/usr/lib/petscdir/petsc-complex/lib/pkgconfig
if [ -f "$complex_pc/petsc.pc" ]; then
  mpicc -O3 -o "$out/kwil_petsc_ilu_complex" bench/peers/petsc_ilu.c \
    $(PKG_CONFIG_PATH="$complex_pc" pkg-config --cflags --libs petsc)
fi
export OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1 OMPI_MCA_btl=self OMP_NUM_THREADS=1
prio=()
chrt -f 50 true 2>/dev/null && prio=(chrt -f 50)
times() { sed -n 's/.*times=//p'; }
for f in "$@"; do
  peer="$out/kwil_petsc_ilu"
  grep -q "complex" <(head -1 "$f") && peer="$out/kwil_petsc_ilu_complex"
  k="" p=""
  for _ in $(seq "$rounds"); do
    p="$p,$("${prio[@]}" "$peer" "$reps" "$f" | times)"
    k="$k,$("${prio[@]}" build-bench/bench/table/table_ilu "$reps" "$f" ilu0 | times)"
  done
  python3 - "$f" "$k" "$p" <<'PY'
import os, statistics as st, sys
name, k, p = sys.argv[1:4]
kv = [float(x) for x in k.split(",") if x]
pv = [float(x) for x in p.split(",") if x]
print(f"{os.path.basename(name):16s} kwil ms least {1e3 * min(kv):8.3f} median {1e3 * st.median(kv):8.3f}"
      f" | PETSc least {1e3 * min(pv):8.3f} median {1e3 * st.median(pv):8.3f}"
      f" | kwil/PETSc least {min(kv) / min(pv):.2f} median {st.median(kv) / st.median(pv):.2f}")
PY
done
