#!/bin/sh
# Builds and runs the PETSc BiCGStab comparison driver, then kwil's BiCGStab on the same
# problems with one thread. Installs the Debian package petsc-dev when it is missing; the
# library's own build and tests never need it.
#   bench/iter/run_petsc.sh build-dir [cd500 cd1000 cd3d60 ...]
set -e
here=$(cd "$(dirname "$0")" && pwd)
build=$1
shift
if ! pkg-config --exists petsc 2>/dev/null; then
    sudo=""
    [ "$(id -u)" -ne 0 ] && sudo=sudo
    $sudo apt-get install -y --no-install-recommends petsc-dev
fi
out=${TMPDIR:-/tmp}/kwil_petsc_bcgs
mpicc -O3 -o "$out" "$here/petsc_bcgs.c" $(pkg-config --cflags --libs petsc) -lm
OMP_NUM_THREADS=1 "$out" "$@"
OMP_WAIT_POLICY=passive "$build/bench/iter/kwil_iter_bench" -t 1 -s stab "$@"
