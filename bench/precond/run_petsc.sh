#!/bin/sh
# Builds and runs the PETSc ILU(0) comparison driver. Installs the Debian package petsc-dev when
# it is missing; the library's own build and tests never need it.
#   bench/precond/run_petsc.sh [reps] [file.mtx ...]
set -e
here=$(cd "$(dirname "$0")" && pwd)
if ! pkg-config --exists petsc 2>/dev/null; then
    sudo=""
    [ "$(id -u)" -ne 0 ] && sudo=sudo
    $sudo apt-get install -y --no-install-recommends petsc-dev
fi
out=${TMPDIR:-/tmp}/kwil_petsc_ilu
mpicc -O3 -o "$out" "$here/petsc_ilu.c" $(pkg-config --cflags --libs petsc)
OMP_NUM_THREADS=1 "$out" "$@"
